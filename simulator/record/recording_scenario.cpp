#include "simulator/record/recording_scenario.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <optional>
#include <set>
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

constexpr std::size_t kPrivateDataSize = 16;  // any other needs `unusual`

// A TOML string; JSON has the same escapes.
std::string Text(const std::string& text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string Range(std::uint64_t first, std::uint64_t last) {
  return first == last ? Format("\"{}\"", first) : Format("\"{}-{}\"", first, last);
}

// How to read what a recording leaves open.
struct Reading {
  bool lateReplies;       // a read with EAGAIN failed by a fault, and its reply came later
  bool privateDataFirst;  // a message that could be both is private data, not the next reply
};

// The most likely first.
constexpr Reading kReadings[] = {{false, false}, {true, false}, {false, true}, {true, true}};

// A request that a client took, and what is known of its reply.
struct Exchange {
  std::string client;
  std::optional<std::uint32_t> command;
  Bytes request;
  bool answered = false;
  std::uint32_t status = 0;
  std::optional<Bytes> body;  // nothing for an echo
  std::optional<Bytes> privateData;

  // The lines of a [[reply]] after those that say which request it answers; empty for an echo.
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

// True when `message` has the header of `request`, but for the status, as far as it reaches.
bool IsReplyTo(Bytes request, const Bytes& message) {
  request.resize(std::max(request.size(), kHeaderSize));
  for (std::size_t i = 0; i < std::min(message.size(), kHeaderSize); ++i) {
    const bool inStatus = i >= kStatusOffset && i < kStatusOffset + 4;
    if (!inStatus && message[i] != request[i]) return false;
  }
  return true;
}

// Finds the operations at which the device was lost. A loss ends every connection that is open: it
// happened after the last success on each of them, at an operation that failed with ENODEV or at a
// close.
class LossFinder {
 public:
  explicit LossFinder(const std::vector<OperationRecord>& operations) : operations_(operations) {
    for (std::size_t i = 0; i < operations.size(); ++i) {
      const OperationRecord& record = operations[i];
      if (record.connection == 0) continue;
      Life* life = &lives_[record.connection];
      if (record.operation == Operation::kOpen) life->begin = i;
      if (record.operation == Operation::kClose) life->end = i;
      if (record.result >= 0 && record.operation != Operation::kClose) life->lastSuccess = i;
    }
  }

  // Returns their indices.
  std::set<std::size_t> Find() {
    std::set<std::size_t> losses;
    for (std::size_t i = 0; i < operations_.size(); ++i) {
      const OperationRecord& record = operations_[i];
      const bool lost = record.error == ENODEV && record.operation != Operation::kOpen &&
                        record.operation != Operation::kClose;
      const auto latest = losses.empty() ? 0 : *losses.rbegin() + 1;
      const Life& life = lives_[record.connection];
      if (!lost || life.begin < latest) continue;
      for (std::size_t at = i + 1; at-- > std::max(latest, life.lastSuccess + 1);) {
        if (!CanBeAt(at)) continue;
        losses.insert(at);
        break;
      }
    }
    return losses;
  }

 private:
  struct Life {
    std::size_t begin = 0;
    std::size_t lastSuccess = 0;
    std::size_t end = SIZE_MAX;
  };

  bool CanBeAt(std::size_t at) const {
    const OperationRecord& record = operations_[at];
    const bool closes = record.operation == Operation::kClose && record.error == 0;
    if (record.error != ENODEV && !closes) return false;
    return std::all_of(lives_.begin(), lives_.end(), [at](const auto& each) {
      const Life& life = each.second;
      return life.begin > at || life.end <= at || life.lastSuccess < at;
    });
  }

  const std::vector<OperationRecord>& operations_;
  std::map<std::uint64_t, Life> lives_;
};

// Follows the engine's state through a recording and notes where the engine needs an instruction.
class ScenarioMaker {
 public:
  ScenarioMaker(const Recording& recording, Reading reading)
      : reading_(reading), clients_(recording.header.clients) {
    const std::set<std::size_t> losses = LossFinder(recording.operations).Find();
    for (std::size_t i = 0; i < recording.operations.size(); ++i) {
      Follow(recording.operations[i], losses.count(i) > 0);
    }
  }

  std::string ScenarioText(const std::string& name) const {
    return Format("about = {}\n", Text("made from the recording " + name)) + ClientTables() +
           ReplyTables() + FaultTables();
  }

 private:
  // A message that the engine has for a connection: a reply, or private data after one.
  struct Message {
    Exchange* exchange;
    bool isPrivate;
    std::vector<std::uint64_t> emptyReads;  // that failed with EAGAIN while it may have been there
  };
  using Queue = std::deque<Message>;
  struct Connection {
    std::string client;
    bool lost = false;
    Queue pending;
  };

  std::string ClientTables() const {
    std::string text;
    for (const Client& client : clients_) {
      text += Format("\n[[client]]\nname = {}\nguid = {}\n", Text(client.name),
                     Text(GuidText(client.guid)));
      const auto found = connectRecords_.find(client.name);
      if (found == connectRecords_.end()) continue;
      text += Format("max = {}\nversion = {}\n", WordAt(found->second, 0).value_or(0),
                     WordAt(found->second, 4).value_or(0) & 0xff);
    }
    return text;
  }

  // One table for each run of requests of a command that were answered alike.
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

  std::string FaultTables() const {
    std::string text;
    for (auto at = effects_.begin(); at != effects_.end();) {
      const auto& [operation, first] = at->first;
      const std::string& effect = at->second;
      std::uint64_t last = first;
      for (++at; at != effects_.end() && at->first == std::pair(operation, last + 1) &&
                 at->second == effect;
           ++at) {
        ++last;
      }
      text += Format("\n[[fault]]\noperation = \"{}\"\nat = {}\n{}\n", OperationName(operation),
                     Range(first, last), effect);
    }
    return text;
  }

  void Follow(const OperationRecord& record, bool isLoss) {
    const bool closes = record.operation == Operation::kClose && open_.erase(record.connection) > 0;
    if (isLoss) {
      AddEffect(record, "lose = true");
      Lose();
    }
    if (record.operation == Operation::kOpen) {
      if (record.error == 0) open_[record.connection] = {};
      if (record.error != 0) carried_.clear();
    }
    if (isLoss) return;
    if (closes && record.error != 0) AddErrno(record);
    if (closes) return;
    const auto found = open_.find(record.connection);
    Connection* const connection = found == open_.end() ? nullptr : &found->second;
    if (record.error != 0) return OnError(record, connection);
    if (connection == nullptr) return;
    if (record.IsConnect()) OnConnect(record, connection);
    if (record.operation == Operation::kWrite) OnRequest(record, connection);
    if (record.operation == Operation::kRead && record.length > 0) OnMessage(record, connection);
  }

  void Lose() {
    carried_.clear();
    for (auto& [number, connection] : open_) {
      connection.lost = true;
      if (!connection.pending.empty()) {
        carried_.emplace_back(connection.client, std::move(connection.pending));
      }
      connection.pending.clear();
    }
  }

  void AddEffect(const OperationRecord& record, const std::string& effect) {
    effects_[{record.operation, record.occurrence}] = effect;
  }

  void OnError(const OperationRecord& record, Connection* connection) {
    if (connection != nullptr && record.error == OwnError(record, *connection)) return;
    const bool isRead = record.operation == Operation::kRead;
    if (connection != nullptr && isRead && record.error == EAGAIN && !connection->client.empty()) {
      for (Message& each : connection->pending) each.emptyReads.push_back(record.occurrence);
      // Without a late reply, the client was silent.
      if (!reading_.lateReplies) connection->pending.clear();
      return;
    }
    const bool isGone = connection == nullptr && record.connection != 0;
    if (isGone && record.error == EBADF) return;
    AddErrno(record);
  }

  void AddErrno(const OperationRecord& record) {
    AddEffect(record, Format("errno = \"{}\"", ErrnoName(record.error)));
  }

  // The errno that the engine gives without an instruction, in the order of its own checks; 0 for
  // none.
  int OwnError(const OperationRecord& record, const Connection& connection) const {
    if (connection.lost) return ENODEV;
    const bool connected = !connection.client.empty();
    if (record.operation == Operation::kIoctl) {
      if (!record.IsConnect()) return ENOTTY;
      if (!record.hasBuffer) return EFAULT;
      if (connected) return EBUSY;
      return std::any_of(clients_.begin(), clients_.end(),
                         [&](const Client& client) {
                           return std::equal(client.guid.begin(), client.guid.end(),
                                             record.input.begin());
                         })
                 ? 0
                 : ENOENT;
    }
    if (!record.IsTransfer()) return 0;
    if (!connected) return ENOTCONN;
    if (!record.hasBuffer && record.length > 0) return EFAULT;
    const auto found = connectRecords_.find(connection.client);
    const bool isLong = found != connectRecords_.end() && record.length > WordAt(found->second, 0);
    return record.operation == Operation::kWrite && isLong ? EMSGSIZE : 0;
  }

  void OnConnect(const OperationRecord& record, Connection* connection) {
    connection->client = record.client;
    connectRecords_.emplace(record.client, record.output);
    const auto found = std::find_if(carried_.begin(), carried_.end(), [&record](const auto& each) {
      return each.first == record.client;
    });
    if (found == carried_.end()) return;
    connection->pending = std::move(found->second);
    carried_.erase(found);
  }

  void OnRequest(const OperationRecord& record, Connection* connection) {
    if (static_cast<std::uint64_t>(record.result) < record.length) {
      AddEffect(record, Format("short = {}", record.result));
    }
    if (record.result == 0) return;
    Exchange exchange;
    exchange.client = connection->client;
    exchange.request = record.Message();
    exchange.command = WordAt(exchange.request, kCommandIdOffset);
    exchanges_.push_back(std::move(exchange));
    connection->pending.push_back({&exchanges_.back(), false, {}});
  }

  void OnMessage(const OperationRecord& record, Connection* connection) {
    Queue* const pending = &connection->pending;
    const bool privateNext = !pending->empty() && pending->front().isPrivate;
    // An echo tells most surely whose reply it is.
    auto found = std::find_if(pending->begin(), pending->end(), [&](const Message& message) {
      return !message.isPrivate && message.exchange->request == record.output;
    });
    if (found == pending->end()) {
      found = std::find_if(pending->begin(), pending->end(), [&](const Message& message) {
        return !message.isPrivate && IsReplyTo(message.exchange->request, record.output);
      });
    }
    if (privateNext && (found == pending->end() || reading_.privateDataFirst)) {
      found = pending->begin();
    }
    if (found == pending->end()) return;
    const Message message = std::move(*found);
    // The clients did not send what would have come before it.
    pending->erase(pending->begin(), found + 1);
    for (const std::uint64_t read : message.emptyReads) {
      effects_[{Operation::kRead, read}] = "errno = \"EAGAIN\"";
    }
    if (message.isPrivate) {
      message.exchange->privateData = record.output;
      if (!record.output.empty()) return;
      message.exchange->privateData = Bytes(kPrivateDataSize);
      return AddEffect(record, "short = 0");
    }
    SetReply(record, message.exchange);
    // Where private data follows, it comes next.
    pending->push_front({message.exchange, true, {}});
  }

  void SetReply(const OperationRecord& record, Exchange* exchange) {
    const Bytes& reply = record.output;
    exchange->answered = true;
    Bytes head = reply;
    head.resize(kHeaderSize);  // a short read can end within the status
    exchange->status = *WordAt(head, kStatusOffset);
    Bytes echo = exchange->request;
    SetWordAt(&echo, kStatusOffset, exchange->status);
    const bool isPart =
        reply.size() <= echo.size() && std::equal(reply.begin(), reply.end(), echo.begin());
    // The program may have had no room for the rest.
    if (isPart && (reply.size() == echo.size() || reply.size() == record.length)) return;
    if (reply.size() > kHeaderSize) {
      exchange->body = Bytes(reply.begin() + kHeaderSize, reply.end());
      return;
    }
    if (!isPart) exchange->body = Bytes(1);
    AddEffect(record, Format("short = {}", reply.size()));
  }

  const Reading reading_;
  const std::vector<Client> clients_;
  std::map<std::string, Bytes> connectRecords_;  // the first of each client
  std::map<std::uint64_t, Connection> open_;
  std::vector<std::pair<std::string, Queue>> carried_;                  // over a loss, by client
  std::deque<Exchange> exchanges_;                                      // in order; never moved
  std::map<std::pair<Operation, std::uint64_t>, std::string> effects_;  // by occurrence
};

void Call(const OperationRecord& record, std::uint64_t connection, Engine* engine) {
  Bytes bytes = record.input;
  if (record.operation == Operation::kRead) {
    bytes.resize(std::min<std::uint64_t>(record.length, kLongestMessage));
  }
  void* const buffer = record.hasBuffer ? bytes.data() : nullptr;
  switch (record.operation) {
    case Operation::kOpen:
      engine->Open(record.openFlags, record.openMode, -1);
      break;
    case Operation::kIoctl:
      engine->Ioctl(connection, record.request, buffer);
      break;
    case Operation::kRead:
      engine->Read(connection, buffer, record.length, false);
      break;
    case Operation::kWrite:
      engine->Write(connection, buffer, record.length);
      break;
    case Operation::kClose:
      engine->Close(connection, CloseReason::kProgramClosed);
      break;
  }
}

std::string ResultText(const OperationRecord& record) {
  if (record.error != 0) return ErrnoName(record.error);
  return record.IsTransfer() ? common::Counted(record.result, "byte") : "a success";
}

// Makes the recorded calls, one after the other, with an engine that has the scenario. Returns the
// first difference, or an empty text.
std::string FirstDifference(const Recording& recording, const std::string& text) {
  Scenario scenario;
  const auto diagnostics = ReadScenario(text, "scenario", &scenario);
  if (!diagnostics.empty()) return diagnostics.front().message;
  Engine engine({scenario.clients, true});
  Apply(scenario, &engine);
  std::map<std::uint64_t, std::uint64_t> connections;  // the engine's, by the recorded one
  for (const OperationRecord& record : recording.operations) {
    engine.ClearRecords();
    Call(record, connections[record.connection], &engine);
    const OperationRecord got = engine.Records().front();
    if (record.operation == Operation::kOpen) connections[record.connection] = got.connection;
    const bool failed = record.error != 0 && got.error == record.error;
    if (failed || (got.result == record.result && got.output == record.output)) continue;
    const bool sameResult = got.result == record.result && got.error == record.error;
    return Format("operation {} (line {}, {}) gave {}, and the software engine can only give {}",
                  record.sequence, record.sequence + 1, OperationName(record.operation),
                  ResultText(record), sameResult ? "other bytes" : ResultText(got));
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
  std::string difference;
  for (const Reading& reading : kReadings) {
    const std::string text = ScenarioMaker(recording, reading).ScenarioText(name);
    const std::string found = FirstDifference(recording, text);
    if (found.empty()) return text;
    if (difference.empty()) difference = found;
  }
  throw common::InputError(
      Format("cannot make a scenario from {}: {}; use 'zulisim replay' for this recording",
             common::Quoted(name), difference));
}

}  // namespace zulisim
