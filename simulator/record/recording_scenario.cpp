#include "simulator/record/recording_scenario.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "common/format.h"
#include "common/text.h"
#include "simulator/engine/engine.h"
#include "simulator/scenario/scenario_file.h"

namespace zulisim {
namespace {

using common::Format;

// Returns a TOML string. JSON uses the same escapes.
std::string Text(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string Range(std::uint64_t first, std::uint64_t last) {
  return first == last ? Format("\"{}\"", first) : Format("\"{}-{}\"", first, last);
}

// Returns the status of a reply. Bytes that a short read did not deliver count as 0.
std::uint32_t StatusOf(Bytes reply) {
  reply.resize(std::max(reply.size(), kHeaderSize));
  return *WordAt(reply, kStatusOffset);
}

// A request that a client accepted, and the part of its reply that the program read.
struct Exchange {
  std::string client;
  std::uint64_t connection = 0;
  std::optional<std::uint32_t> command;
  Bytes request;
  bool connectionLost = false;  // the client's next connection may get the reply
  bool answered = false;
  std::uint32_t status = 0;
  std::optional<Bytes> body;  // missing if the reply echoes the request
  std::optional<Bytes> privateData;

  bool IsPendingAt(const OperationRecord& record) const {
    return connectionLost ? client == record.client : connection == record.connection;
  }

  // Returns the lines of a [[reply]] without those that identify the request. The text is empty if
  // the reply is an echo.
  std::string Lines() const {
    if (!answered) return "silent = true\n";
    std::string text;
    if (status != 0) text += Format("status = {:#x}\n", status);
    if (body) text += Format("body = \"{}\"\n", common::HexDigits(*body));
    if (!privateData) return text;
    text += Format("private = \"{}\"\n", common::HexDigits(*privateData));
    const bool usual = privateData->size() == kPrivateDataSize && IsNegative(status);
    return usual ? text : text + "unusual = true\n";
  }
};

// Returns true if the client can have sent `message` as the reply or private data of this exchange.
bool CanHaveSent(const Exchange& exchange, const Bytes& message) {
  if (exchange.answered) return !message.empty();
  Bytes header = exchange.request;
  header.resize(kHeaderSize);
  SetWordAt(&header, kStatusOffset, StatusOf(message));
  const std::size_t size = std::min(message.size(), kHeaderSize);
  return std::equal(message.begin(), message.begin() + static_cast<long>(size), header.begin());
}

// Finds the places where the engine needs an instruction to return the recorded results.
class ScenarioMaker {
 public:
  explicit ScenarioMaker(const std::vector<OperationRecord>& operations) {
    for (const OperationRecord& record : operations) {
      const bool succeeds = record.error == 0 && record.operation != Operation::kClose;
      if (succeeds) lastSuccess_[record.connection] = record.sequence;
    }
    for (const OperationRecord& record : operations) Follow(record);
  }

  std::string ClientTables(const std::vector<Client>& clients) const {
    std::string text;
    for (const Client& client : clients) {
      text += Format("\n[[client]]\nname = {}\nguid = {}\n", Text(client.name),
                     Text(GuidText(client.guid)));
      const auto found = connectRecords_.find(client.name);
      if (found == connectRecords_.end()) continue;
      text += Format("max = {}\nversion = {}\n", WordAt(found->second, 0).value_or(0),
                     WordAt(found->second, 4).value_or(0) & 0xff);
    }
    return text;
  }

  // Returns one table for each sequence of requests of a command that got the same reply.
  std::string ReplyTables() const {
    std::map<std::pair<std::string, std::uint32_t>, std::vector<std::string>> answers;
    for (const Exchange& each : exchanges_) {
      if (each.command) answers[{each.client, *each.command}].push_back(each.Lines());
    }
    std::string text;
    for (const auto& [whose, lines] : answers) {
      for (std::size_t at = 0, end = 0; at < lines.size(); at = end) {
        while (end < lines.size() && lines[end] == lines[at]) ++end;
        if (lines[at].empty()) continue;
        text +=
            Format("\n[[reply]]\nclient = {}\ncommand = {:#x}\n", Text(whose.first), whose.second);
        if (end < lines.size()) {
          text += Format("at = {}\n", Range(at + 1, end));
        } else if (at > 0) {
          text += Format("at = \"{}-\"\n", at + 1);
        }
        text += lines[at];
      }
    }
    return text;
  }

  // Returns one table for each sequence of operations of a kind that have the same effect.
  std::string FaultTables() const {
    std::string text;
    for (auto at = effects_.begin(); at != effects_.end();) {
      const auto [operation, first] = at->first;
      const std::string& effect = at->second;
      std::uint64_t last = first;
      while (++at != effects_.end() && at->first == std::pair(operation, last + 1) &&
             at->second == effect) {
        ++last;
      }
      text += Format("\n[[fault]]\noperation = \"{}\"\nat = {}\n{}\n", OperationName(operation),
                     Range(first, last), effect);
    }
    return text;
  }

 private:
  void Follow(const OperationRecord& record) {
    if (record.error != 0) {
      OnError(record);
    } else if (record.operation == Operation::kOpen) {
      isLost_[record.connection] = false;
    } else if (record.IsConnect()) {
      connectRecords_.emplace(record.client, record.output);
    } else if (record.operation == Operation::kWrite) {
      OnRequest(record);
    } else if (record.operation == Operation::kRead && record.length > 0) {
      OnMessage(record);
    }
    if (record.operation == Operation::kClose) OnClose(record);
  }

  void OnClose(const OperationRecord& record) {
    isLost_.erase(record.connection);
    const auto ends = [&record](const Exchange* each) {
      return !each->connectionLost && each->connection == record.connection;
    };
    pending_.erase(std::remove_if(pending_.begin(), pending_.end(), ends), pending_.end());
  }

  void AddEffect(const OperationRecord& record, const std::string& effect) {
    effects_[{record.operation, record.occurrence}] = effect;
  }

  void OnError(const OperationRecord& record) {
    const bool isOpen = record.operation == Operation::kOpen;
    const auto found = isLost_.find(record.connection);
    if (!isOpen && found == isLost_.end()) return;  // the engine fails in this way without a fault
    const bool isLost = !isOpen && found->second;
    if (record.error == ENODEV && !isOpen && record.operation != Operation::kClose) {
      if (isLost) return;
      if (CanBeLoss(record)) return Lose(record);
    }
    const bool isRead = record.operation == Operation::kRead;
    const bool isPending = std::any_of(pending_.begin(), pending_.end(), [&](const Exchange* each) {
      return each->IsPendingAt(record);
    });
    const bool canRead = !isLost && !record.client.empty();
    if (isRead && record.error == EAGAIN && canRead && !isPending) return;
    AddEffect(record, Format("errno = \"{}\"", ErrnoName(record.error)));
  }

  // Returns true if every later operation on an open connection fails, except for a close.
  bool CanBeLoss(const OperationRecord& record) const {
    return std::all_of(isLost_.begin(), isLost_.end(), [&](const auto& each) {
      return lastSuccess_.at(each.first) < record.sequence;
    });
  }

  void Lose(const OperationRecord& record) {
    AddEffect(record, "lose = true");
    for (auto& [connection, isLost] : isLost_) isLost = true;
    for (Exchange* each : pending_) each->connectionLost = isLost_.count(each->connection) > 0;
  }

  void OnRequest(const OperationRecord& record) {
    if (static_cast<std::uint64_t>(record.result) < record.length) {
      AddEffect(record, Format("short = {}", record.result));
    }
    if (record.result == 0) return;
    Exchange exchange;
    exchange.client = record.client;
    exchange.connection = record.connection;
    exchange.request = record.Message();
    exchange.command = WordAt(exchange.request, kCommandIdOffset);
    exchanges_.push_back(std::move(exchange));
    pending_.push_back(&exchanges_.back());
  }

  void OnMessage(const OperationRecord& record) {
    const auto isPending = [&record](const Exchange* each) { return each->IsPendingAt(record); };
    const auto find = [&](bool answered) {
      return std::find_if(pending_.begin(), pending_.end(), [&](const Exchange* each) {
        return isPending(each) && each->answered == answered && CanHaveSent(*each, record.output);
      });
    };
    auto found = find(false);
    if (found == pending_.end()) found = find(true);
    if (found == pending_.end()) return;
    // The client sent no replies to the requests before this one.
    found = pending_.erase(std::remove_if(pending_.begin(), found, isPending), found);
    Exchange* const exchange = *found;
    if (exchange->answered) {
      exchange->privateData = record.output;
      pending_.erase(found);
    } else {
      SetReply(record, exchange);
      exchange->connection =
          record.connection;  // this connection gets the private data, if there is any
      exchange->connectionLost = false;
    }
  }

  void SetReply(const OperationRecord& record, Exchange* exchange) {
    const Bytes& reply = record.output;
    exchange->answered = true;
    exchange->status = StatusOf(reply);
    Bytes echo = exchange->request;
    SetWordAt(&echo, kStatusOffset, exchange->status);
    const bool isPart =
        reply.size() <= echo.size() && std::equal(reply.begin(), reply.end(), echo.begin());
    // The program's buffer may have been too small for the rest.
    if (isPart && (reply.size() == echo.size() || reply.size() == record.length)) return;
    if (reply.size() > kHeaderSize) {
      exchange->body = Bytes(reply.begin() + kHeaderSize, reply.end());
      return;
    }
    if (!isPart) exchange->body = Bytes(1);
    AddEffect(record, Format("short = {}", reply.size()));
  }

  std::map<std::uint64_t, std::uint64_t>
      lastSuccess_;  // number of the last operation by connection, not counting closes
  std::map<std::uint64_t, bool> isLost_;         // open connections
  std::map<std::string, Bytes> connectRecords_;  // the first connect record of each client
  std::deque<Exchange> exchanges_;               // in order
  std::vector<Exchange*> pending_;  // exchanges that may still get a reply or private data
  std::map<std::pair<Operation, std::uint64_t>, std::string> effects_;  // by occurrence
};

std::string ResultText(const OperationRecord& record, const Result& result) {
  if (result.error != 0) return ErrnoName(result.error);
  return record.IsTransfer() ? common::Counted(result.value, "byte") : "a success";
}

// Makes the recorded calls, one after the other, with an engine that has the scenario. Returns the
// first difference, or an empty text.
std::string FirstDifference(const std::vector<OperationRecord>& operations,
                            const std::string& text) {
  Scenario scenario;
  const auto diagnostics = ReadScenario(text, "scenario", &scenario);
  if (!diagnostics.empty()) return diagnostics.front().message;
  Engine engine({scenario.clients, false});
  Apply(scenario, &engine);
  std::map<std::uint64_t, std::uint64_t> connections;  // the engine's, by recorded connection
  for (const OperationRecord& record : operations) {
    OperationRecord call;
    static_cast<OperationCall&>(call) = record;
    const bool isOpen = record.operation == Operation::kOpen;
    call.connection = isOpen ? 0 : connections[record.connection];
    Bytes bytes = record.input;
    bytes.resize(std::max<std::uint64_t>(bytes.size(), std::min(record.length, kLongestMessage)));
    Result got = engine.Perform(call, record.hasBuffer ? bytes.data() : nullptr);
    if (isOpen && got.error == 0) {
      connections[record.connection] = static_cast<std::uint64_t>(std::exchange(got.value, 0));
    }
    const bool sameResult = got.error == record.error && got.value == record.result;
    const bool sameBytes =
        record.error != 0 || std::equal(record.output.begin(), record.output.end(), bytes.begin());
    if (sameResult && sameBytes) continue;
    return Format("operation {} (line {}, {}) gave {}, and the software engine can only give {}",
                  record.sequence, record.sequence + 1, OperationName(record.operation),
                  ResultText(record, {record.result, record.error}),
                  sameResult ? "other bytes" : ResultText(record, got));
  }
  return "";
}

}  // namespace

std::string ScenarioOf(const Recording& recording, const std::string& name) {
  if (recording.header.redacted) {
    throw common::InputError(
        Format("cannot make a scenario from {}: it is redacted and holds no message bodies; record "
               "without --redact",
               common::Quoted(name)));
  }
  const ScenarioMaker maker(recording.operations);
  const std::string text = Format("about = {}\n", Text("made from the recording " + name)) +
                           maker.ClientTables(recording.header.clients) + maker.ReplyTables() +
                           maker.FaultTables();
  const std::string difference = FirstDifference(recording.operations, text);
  if (difference.empty()) return text;
  throw common::InputError(
      Format("cannot make a scenario from {}: {}; use 'zulisim replay' for this recording",
             common::Quoted(name), difference));
}

}  // namespace zulisim
