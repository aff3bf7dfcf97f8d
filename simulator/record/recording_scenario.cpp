#include "simulator/record/recording_scenario.h"

#include <algorithm>
#include <cerrno>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "common/number.h"
#include "common/text.h"
#include "simulator/device/operation_decoder.h"

namespace zulisim {
namespace {

// How a client answered one request, as the lines of a table.
using Answer = std::string;
constexpr std::size_t kPrivateDataSize = 16;  // a scenario marks any other as meant
constexpr const char* kSilent = "silent = true\n";

// As TOML writes a text; what a recording names has no control characters.
std::string Text(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) quoted += (c == '"' || c == '\\' ? "\\" : "") + std::string(1, c);
  return quoted + "\"";
}

std::string Digits(Bytes::const_iterator from, Bytes::const_iterator to) {
  std::string digits;
  for (; from != to; ++from) digits += common::Hex(*from, 2).substr(2);
  return digits;
}

// "3", "3-5", or "3-" for a range that goes on for ever.
std::string Range(std::uint64_t first, std::uint64_t last, bool forEver = false) {
  if (forEver) return "\"" + std::to_string(first) + "-\"";
  const std::string from = std::to_string(first);
  return first == last ? "\"" + from + "\"" : "\"" + from + "-" + std::to_string(last) + "\"";
}

class ScenarioMaker {
 public:
  explicit ScenarioMaker(const Recording& recording)
      : clients_(recording.header.clients) {
    for (const OperationRecord& record : recording.operations) OnOperation(record);
  }

  std::string Clients() const {
    std::string text;
    for (const Client& client : clients_) {
      text += "\n[[client]]\nname = " + Text(client.name) +
              "\nguid = " + Text(GuidText(client.guid)) + "\n";
      const auto found = records_.find(client.name);
      if (found == records_.end()) continue;
      text += "max = " + std::to_string(WordAt(found->second, 0).value_or(0)) +
              "\nversion = " + std::to_string(WordAt(found->second, 4).value_or(0) & 0xff) + "\n";
    }
    return text;
  }

  std::string Replies() const {
    std::string text;
    for (const auto& [whose, answers] : answers_) {
      const std::string head = "\n[[reply]]\nclient = " + Text(whose.first) +
                               "\ncommand = " + common::Hex(whose.second) + "\n";
      for (std::size_t at = 0; at < answers.size();) {
        std::size_t end = at + 1;
        while (end < answers.size() && answers[end] == answers[at]) ++end;
        const bool all = at == 0 && end == answers.size();
        // Without a table a client echoes.
        if (!answers[at].empty()) {
          const std::string when = "at = " + Range(at + 1, end, end == answers.size()) + "\n";
          text += head + (all ? "" : when) + answers[at];
        }
        at = end;
      }
    }
    return text;
  }

  std::string Faults() const {
    std::string text;
    for (const Fault& fault : faults_) {
      text += "\n[[fault]]\noperation = \"" + std::string(OperationName(fault.operation)) +
              "\"\nat = " + Range(fault.first, fault.last) + "\n" + EffectText(fault) + "\n";
    }
    return text;
  }

 private:
  struct Fault {
    Operation operation;
    std::uint64_t first;
    std::uint64_t last;
    std::string effect;  // empty for a loss
    std::uint64_t failingOpens = 0;
    int openError = ENODEV;
    bool dropsReplies = false;
  };
  struct Request {
    std::uint32_t command = 0;
    Bytes message;
    std::size_t answer = 0;  // its place among those to the command
  };

  static std::string EffectText(const Fault& fault) {
    if (!fault.effect.empty()) return fault.effect;
    std::vector<std::string> keys;
    if (fault.failingOpens > 0) {
      keys.push_back("opens = " + std::to_string(fault.failingOpens));
      keys.push_back("errno = \"" + ErrnoName(fault.openError) + "\"");
    }
    if (fault.dropsReplies) keys.emplace_back("drop-replies = true");
    return keys.empty() ? "lose = true" : "lose = { " + common::Joined(keys) + " }";
  }

  void OnOperation(const OperationRecord& record) {
    if (record.operation == Operation::kOpen) return OnOpen(record);
    if (record.error != 0) return OnError(record);
    if (record.IsConnect()) records_.emplace(record.client, record.output);
    if (record.operation == Operation::kWrite) OnRequest(record);
    if (record.payload == Payload::kReply) OnReply(record);
    if (record.payload == Payload::kPrivateData) OnPrivateData(record);
    if (record.operation == Operation::kClose) open_.erase(record.connection);
  }

  void OnOpen(const OperationRecord& record) {
    if (record.error == 0) {
      open_.insert(record.connection);
      afterLoss_ = false;
      return;
    }
    // Opens that fail right after a loss belong to it.
    Fault* const loss = afterLoss_ ? &faults_.back() : nullptr;
    if (loss != nullptr && (loss->failingOpens == 0 || loss->openError == record.error)) {
      ++loss->failingOpens;
      loss->openError = record.error;
      return;
    }
    afterLoss_ = false;
    AddErrno(record);
  }

  void OnError(const OperationRecord& record) {
    if (record.operation == Operation::kClose) open_.erase(record.connection);
    if (record.error == ENODEV) {
      if (lost_.count(record.connection) > 0) return;  // it follows from the loss
      faults_.push_back({record.operation, record.occurrence, record.occurrence, ""});
      lost_.insert(open_.begin(), open_.end());
      afterLoss_ = true;
      return;
    }
    if (record.operation == Operation::kRead && record.error == EAGAIN) return OnSilence(record);
    if (!FollowsFromState(record)) AddErrno(record);
  }

  // The engine fails these by itself.
  bool FollowsFromState(const OperationRecord& record) const {
    if (record.IsConnect() && record.error == ENOENT && record.input.size() >= sizeof(Guid)) {
      return std::none_of(clients_.begin(), clients_.end(), [&record](const Client& client) {
        return std::equal(client.guid.begin(), client.guid.end(), record.input.begin());
      });
    }
    const bool connected = !record.client.empty();
    if (record.IsConnect() && !(record.error == EBUSY && connected)) return false;
    const int own[] = {EMSGSIZE, ENOTTY, EBUSY, ENOTCONN, EFAULT, EBADF};
    return std::find(std::begin(own), std::end(own), record.error) != std::end(own);
  }

  void AddErrno(const OperationRecord& record) {
    AddEffect(record, "errno = \"" + ErrnoName(record.error) + "\"");
  }

  void AddEffect(const OperationRecord& record, const std::string& effect) {
    for (Fault& fault : faults_) {
      const bool goesOn = fault.operation == record.operation && fault.effect == effect &&
                          fault.last + 1 == record.occurrence;
      if (goesOn) {
        fault.last = record.occurrence;
        return;
      }
    }
    faults_.push_back({record.operation, record.occurrence, record.occurrence, effect});
  }

  void OnRequest(const OperationRecord& record) {
    if (static_cast<std::uint64_t>(record.result) < record.length) {
      AddEffect(record, "short = " + std::to_string(record.result));
    }
    if (!record.commandId) return;
    std::deque<Answer>& answers = answers_[{record.client, *record.commandId}];
    unread_[record.client].push_back({*record.commandId, record.Message(), answers.size()});
    answers.emplace_back(kSilent);
  }

  Answer* AnswerTo(const std::string& client, const Request& request) {
    return &answers_[{client, request.command}][request.answer];
  }

  // A reply that a failed read has left behind is read by the next: the header tells whose it is.
  void OnReply(const OperationRecord& record) {
    std::vector<Request>& unread = unread_[record.client];
    if (unread.empty()) return;
    const auto command = WordAt(record.output, kCommandIdOffset);
    auto found = std::find_if(unread.begin(), unread.end(), [&command](const Request& request) {
      return request.command == command;
    });
    if (found == unread.end()) --found;
    const Request answered = *found;
    unread.erase(unread.begin(), found + 1);
    lastAnswer_[record.client] = AnswerTo(record.client, answered);
    Answer* const answer = lastAnswer_[record.client];
    answer->clear();
    const Bytes& request = answered.message;
    const Bytes& reply = record.output;
    const std::uint32_t status = record.status.value_or(0);
    if (status != 0) *answer += "status = " + common::Hex(status) + "\n";
    const Bytes body = BodyOf(reply);
    const Bytes sent = BodyOf(request);
    // What the program had no room for is not known.
    const bool cut = reply.size() == record.length;
    const bool echoed =
        body == sent || (cut && std::equal(body.begin(), body.end(), sent.begin(),
                                           sent.begin() + static_cast<std::ptrdiff_t>(
                                                              std::min(body.size(), sent.size()))));
    if (echoed) return;
    if (body.empty()) return AddEffect(record, "short = " + std::to_string(reply.size()));
    *answer += "body = \"" + Digits(body.begin(), body.end()) + "\"\n";
  }

  static Bytes BodyOf(const Bytes& message) {
    const auto header = static_cast<std::ptrdiff_t>(std::min(message.size(), kHeaderSize));
    return Bytes(message.begin() + header, message.end());
  }

  void OnPrivateData(const OperationRecord& record) {
    const auto found = lastAnswer_.find(record.client);
    if (found == lastAnswer_.end()) return;
    *found->second += "private = \"" + Digits(record.output.begin(), record.output.end()) + "\"\n";
    if (record.output.size() != kPrivateDataSize) *found->second += "unusual = true\n";
  }

  // Nothing was there to be read: the client was silent, or a loss has taken its reply away.
  void OnSilence(const OperationRecord& record) {
    std::vector<Request>& unread = unread_[record.client];
    if (!unread.empty() && !faults_.empty() && faults_.back().effect.empty()) {
      faults_.back().dropsReplies = true;
      AnswerTo(record.client, unread.back())->clear();
    }
    unread.clear();
  }

  const std::vector<Client> clients_;
  std::map<std::string, Bytes> records_;  // of the connects, by client
  std::map<std::pair<std::string, std::uint32_t>, std::deque<Answer>> answers_;
  std::map<std::string, std::vector<Request>> unread_;  // by client
  std::map<std::string, Answer*> lastAnswer_;
  std::vector<Fault> faults_;
  std::set<std::uint64_t> open_;  // connections
  std::set<std::uint64_t> lost_;
  bool afterLoss_ = false;  // the last fault is a loss, and no open has succeeded since
};

}  // namespace

std::string ScenarioOf(const Recording& recording, const std::string& name) {
  const ScenarioMaker maker(recording);
  return "about = " + Text("made of the recording " + name) + "\n" + maker.Clients() +
         maker.Replies() + maker.Faults();
}

}  // namespace zulisim
