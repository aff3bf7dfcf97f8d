#include "simulator/scenario/scenario_options.h"

#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

constexpr std::uint64_t kMaxWord = std::numeric_limits<std::uint32_t>::max();

[[noreturn]] void Fail(const std::string& message) { throw std::invalid_argument(message); }

// Splits at the first separator; the second part is missing when there is none.
std::pair<std::string, std::optional<std::string>> SplitOnce(const std::string& text, char at) {
  const std::size_t position = text.find(at);
  if (position == std::string::npos) return {text, std::nullopt};
  return {text.substr(0, position), text.substr(position + 1)};
}

std::vector<std::string> Split(const std::string& text, char at) {
  std::vector<std::string> parts;
  std::optional<std::string> rest = text;
  while (rest) {
    auto [part, more] = SplitOnce(*rest, at);
    parts.push_back(std::move(part));
    rest = std::move(more);
  }
  return parts;
}

// OPERATION:WHEN into a fault without its effect.
Fault Strike(const std::string& text) {
  const auto [name, when] = SplitOnce(text, ':');
  Fault fault;
  fault.operation = ParseOperation(name);
  if (!when) Fail("which " + name + " is missing, as in " + Quoted(name + ":3"));
  const Occurrences occurrences = ParseOccurrences(*when);
  fault.first = occurrences.first;
  fault.times = occurrences.times;
  return fault;
}

void Add(const Fault& fault, Scenario* scenario) {
  if (const auto error = FaultError(fault)) Fail(*error);
  scenario->faults.push_back(fault);
}

std::pair<std::string, std::string> Assignment(const std::string& text, const char* shape) {
  const auto [left, right] = SplitOnce(text, '=');
  if (!right) Fail(std::string("a '=' is missing; the form is ") + shape);
  return {left, *right};
}

void SetReplyField(const std::string& field, ReplyRule* rule) {
  const auto [name, value] = SplitOnce(field, ':');
  if (name == "silent" && !value) {
    rule->silent = true;
  } else if (name == "status" && value) {
    rule->status = ParseStatus(*value);
  } else if (name == "body" && value) {
    rule->body = ParseHex(*value, "a body");
  } else if (name == "private" && value) {
    rule->privateData = ParseHex(*value, "private data");
  } else if (name == "latency" && value) {
    rule->latency = ParseDuration(*value);
  } else {
    Fail(Quoted(field) +
         " is no part of a reply; status:N, body:HEX, private:HEX, latency:TIME or "
         "silent is expected");
  }
}

void SetLossField(const std::string& field, DeviceLoss* loss) {
  const auto [name, value] = SplitOnce(field, '=');
  if (name == "opens" && value) {
    loss->failingOpens = ParseNumber(*value, kMaxWord, "the number of failing opens");
  } else if (name == "errno" && value) {
    loss->openError = ParseErrno(*value);
  } else if (name == "drop-replies" && !value) {
    loss->keepReplies = false;
  } else {
    Fail(Quoted(field) + " is no part of a loss; opens=N, errno=ERRNO or drop-replies is expected");
  }
}

}  // namespace

void AddClientOption(const std::string& text, Scenario* scenario) {
  const auto [name, fields] = SplitOnce(text, ':');
  Client& client = ClientOf(scenario, name);
  if (!fields) Fail("what to set is missing, as in " + Quoted(name + ":max=4096,version=1"));
  for (const std::string& field : Split(*fields, ',')) {
    const auto [key, value] = SplitOnce(field, '=');
    if (key == "max" && value) {
      client.maxMessageLength = static_cast<std::uint32_t>(
          ParseNumber(*value, kLongestMessage, "the maximum message length"));
    } else if (key == "version" && value) {
      client.protocolVersion =
          static_cast<std::uint8_t>(ParseNumber(*value, 255, "the protocol version"));
    } else {
      Fail(Quoted(field) + " is no property of a client; max=BYTES or version=N is expected");
    }
  }
}

void AddReplyOption(const std::string& text, Scenario* scenario) {
  const auto [target, fields] = Assignment(text, "CLIENT:COMMAND=FIELD[,FIELD]...");
  const auto [name, command] = SplitOnce(target, ':');
  ReplyRule rule;
  rule.client = ClientOf(scenario, name).name;
  if (!command) Fail("the command is missing, as in " + Quoted(name + ":0x10=status:0"));
  if (*command != "*")
    rule.command = static_cast<std::uint32_t>(ParseNumber(*command, kMaxWord, "a command"));
  for (const std::string& field : Split(fields, ',')) SetReplyField(field, &rule);
  if (rule.silent && (rule.status != 0 || rule.body || rule.privateData || rule.latency.count())) {
    Fail("a silent client sends nothing; leave out either 'silent' or the rest");
  }
  scenario->replies.push_back(std::move(rule));
}

void AddFaultOption(const std::string& text, Scenario* scenario) {
  const auto [strike, error] = Assignment(text, "OPERATION:WHEN=ERRNO");
  Fault fault = Strike(strike);
  fault.effect = ErrnoFault{ParseErrno(error)};
  Add(fault, scenario);
}

void AddShortOption(const std::string& text, Scenario* scenario) {
  const auto [strike, count] = Assignment(text, "OPERATION:WHEN=BYTES");
  Fault fault = Strike(strike);
  fault.effect = ShortCount{ParseNumber(count, kMaxWord, "a byte count")};
  Add(fault, scenario);
}

void AddLossOption(const std::string& text, Scenario* scenario) {
  const auto [strike, fields] = SplitOnce(text, ',');
  Fault fault = Strike(strike);
  DeviceLoss loss;
  if (fields) {
    for (const std::string& field : Split(*fields, ',')) SetLossField(field, &loss);
  }
  fault.effect = loss;
  Add(fault, scenario);
}

}  // namespace zulisim
