#include "simulator/output/run_summary.h"

#include <algorithm>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/format.h"
#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

// "close 1, open 1"
std::string MembersText(const nlohmann::ordered_json& object) {
  std::vector<std::string> words;
  for (const auto& [name, value] : object.items()) words.push_back(name + " " + value.dump());
  return words.empty() ? "none" : common::Joined(words);
}

}  // namespace

RunSummary::RunSummary() {
  for (std::size_t i = 0; i < kOperationCount; ++i) {
    operations_[OperationName(static_cast<Operation>(i))] = 0;
  }
}

void RunSummary::Add(const OperationRecord& record) {
  if (end_ == std::chrono::nanoseconds()) start_ = record.start;
  end_ = std::max(end_, record.end);
  ++operations_[OperationName(record.operation)];
  if (record.error != 0) ++failures_[ErrnoName(record.error)];
  if (record.operation == Operation::kClose) requests_.erase(record.connection);
  if (record.operation == Operation::kWrite) {
    const auto id = WordAt(record.input, kCommandIdOffset);
    const std::string command = id ? common::Hex(*id) : "unknown";
    requests_[record.connection] = {&commands_[common::Printable(record.client) + " " + command],
                                    record.start};
    ++requests_[record.connection].command->requests;
  }
  const auto request = requests_.find(record.connection);
  if (!record.IsTransfer() || request == requests_.end()) return;
  Command* command = request->second.command;
  if (record.error != 0) ++command->failures;
  if (record.payload != Payload::kReply) return;
  if (record.status && IsNegative(*record.status)) ++command->negative;
  const std::int64_t latency = (record.end - request->second.start).count() / 1000;
  command->shortest = command->replies++ == 0 ? latency : std::min(command->shortest, latency);
  command->longest = std::max(command->longest, latency);
  command->total += latency;
}

nlohmann::ordered_json RunSummary::Json() const {
  nlohmann::ordered_json commands = nlohmann::ordered_json::object();
  for (const auto& [name, command] : commands_) {
    commands[name] = {{"requests", command.requests},
                      {"replies", command.replies},
                      {"failures", command.failures},
                      {"negative_statuses", command.negative},
                      {"shortest_us", command.shortest},
                      {"mean_us", command.total / std::max<std::int64_t>(1, command.replies)},
                      {"longest_us", command.longest}};
  }
  return {{"seconds", Seconds()},
          {"operations", operations_},
          {"failures", failures_},
          {"commands", commands}};
}

std::string RunSummary::Text() const {
  const nlohmann::ordered_json json = Json();
  std::string text = common::Format("{:.6f} seconds\noperations: {}\nfailures: {}", Seconds(),
                                    MembersText(json["operations"]), MembersText(json["failures"]));
  for (const auto& [name, command] : json["commands"].items()) {
    text += common::Format("\ncommand {}: {}", name, MembersText(command));
  }
  return text;
}

}  // namespace zulisim
