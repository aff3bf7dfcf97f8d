#include "simulator/output/run_summary.h"

#include <algorithm>
#include <numeric>

#include <nlohmann/json.hpp>

#include "common/format.h"
#include "common/number.h"
#include "common/text.h"

namespace zulisim {
namespace {

double Microseconds(std::chrono::nanoseconds time) {
  return static_cast<double>(time.count() / 100) / 10;
}

}  // namespace

void RunSummary::Add(const OperationRecord& record) {
  if (end_ == std::chrono::nanoseconds()) start_ = record.start;
  end_ = std::max(end_, record.end);
  ++operations_[static_cast<std::size_t>(record.operation)];
  if (record.error != 0) ++failures_[record.error];
  if (record.operation == Operation::kClose) requests_.erase(record.connection);
  if (!record.IsTransfer()) return;
  const std::int64_t moved = std::max<std::int64_t>(0, record.result);
  (record.operation == Operation::kWrite ? sent_ : received_) += moved;
  Request* request = &requests_[record.connection];
  if (record.operation == Operation::kWrite) {
    const auto id = WordAt(record.input, kCommandIdOffset);
    request->command = &commands_[{record.client, id ? common::Hex(*id) : "unknown"}];
    request->start = record.start;
    ++request->command->count;
  }
  if (request->command == nullptr) return;
  Command* command = request->command;
  if (record.error != 0) ++command->failures;
  if (record.payload != Payload::kReply) return;
  const bool negative = record.status && IsNegative(*record.status);
  negative_ += negative ? 1 : 0;
  command->negative += negative ? 1 : 0;
  const auto latency = record.end - request->start;
  command->shortest = command->replies == 0 ? latency : std::min(command->shortest, latency);
  command->longest = std::max(command->longest, latency);
  command->total += latency;
  ++command->replies;
}

nlohmann::ordered_json RunSummary::Json() const {
  using Json = nlohmann::ordered_json;
  Json operations = Json::object(), failures = Json::object(), commands = Json::array();
  for (std::size_t i = 0; i < kOperationCount; ++i) {
    operations[OperationName(static_cast<Operation>(i))] = operations_[i];
  }
  for (const auto& [error, count] : failures_) failures[ErrnoName(error)] = count;
  for (const auto& [name, command] : commands_) {
    Json entry = {{"client", name.first},
                  {"command", name.second},
                  {"count", command.count},
                  {"failures", command.failures},
                  {"negative_statuses", command.negative},
                  {"latency_us", nullptr}};
    if (command.replies > 0) {
      entry["latency_us"] = {
          {"shortest", Microseconds(command.shortest)},
          {"mean", Microseconds(command.total / static_cast<std::int64_t>(command.replies))},
          {"longest", Microseconds(command.longest)}};
    }
    commands.push_back(entry);
  }
  return {{"operations", operations},       {"failures", failures},         {"commands", commands},
          {"negative_statuses", negative_}, {"failed_calls", failedCalls_}, {"bytes_sent", sent_},
          {"bytes_received", received_},    {"seconds", Seconds()}};
}

std::string RunSummary::Text() const {
  const auto all = std::accumulate(operations_.begin(), operations_.end(), std::uint64_t{0});
  std::string text = common::Format("summary: {} in {} s:", common::Counted(all, "operation"),
                                    std::to_string(Seconds()));
  for (std::size_t i = 0; i < kOperationCount; ++i) {
    text += common::Format("{} {} {}", i == 0 ? "" : ",", operations_[i],
                           OperationName(static_cast<Operation>(i)));
  }
  for (const auto& [error, count] : failures_) {
    text += common::Format("\n  {}: {}", ErrnoName(error), common::Counted(count, "failure"));
  }
  for (const auto& [name, command] : commands_) {
    text += common::Format("\n  {} command {}: {}", common::Printable(name.first), name.second,
                           common::Counted(command.count, "request"));
    if (command.failures > 0) text += ", " + common::Counted(command.failures, "failed transfer");
    if (command.negative > 0) {
      text += ", " + common::Counted(command.negative, "negative status", "negative statuses");
    }
    if (command.replies == 0) continue;
    text += common::Format(
        ", latency {} us ({} to {})",
        std::to_string((command.total / static_cast<std::int64_t>(command.replies)).count() / 1000),
        std::to_string(command.shortest.count() / 1000),
        std::to_string(command.longest.count() / 1000));
  }
  return text + "\n";
}

}  // namespace zulisim
