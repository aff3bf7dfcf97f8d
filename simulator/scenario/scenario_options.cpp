#include "simulator/scenario/scenario_options.h"

#include <utility>
#include <vector>

#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"
#include "simulator/scenario/values.h"

namespace zulisim {
namespace {

[[noreturn]] void Fail(const std::string& message) { throw common::InputError(message); }

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

std::uint32_t ParseCommand(const std::string& text) {
  return static_cast<std::uint32_t>(common::RequireNumber("a command", text));
}

// CLIENT, CLIENT:COMMAND, *:COMMAND or #CONNECTION
FaultScope ParseScope(const std::string& text, Scenario* scenario) {
  FaultScope scope;
  if (text[0] == '#') {
    scope.connection = common::RequireNumber("a connection", text.substr(1));
    if (scope.connection == 0) Fail("connections are counted from 1, not from 0");
    return scope;
  }
  const auto [name, command] = SplitOnce(text, ':');
  if (name != "*") scope.client = ClientOf(scenario, name).name;
  if (command) scope.command = ParseCommand(*command);
  return scope;
}

// OPERATION:WHEN[@SCOPE] into a fault without its effect.
Fault FaultAt(const std::string& text, Scenario* scenario) {
  const auto [place, scope] = SplitOnce(text, '@');
  const auto [name, when] = SplitOnce(place, ':');
  Fault fault;
  fault.operation = ParseOperation(name);
  if (!when) Fail("which " + name + " is missing, as in " + common::Quoted(name + ":3"));
  const Occurrences occurrences = ParseOccurrences(*when);
  fault.first = occurrences.first;
  fault.times = occurrences.times;
  if (scope) fault.scope = ParseScope(*scope, scenario);
  return fault;
}

void Add(Fault fault, const std::string& origin, Scenario* scenario) {
  if (const auto error = FaultError(fault)) Fail(*error);
  fault.origin = origin;
  scenario->faults.push_back(std::move(fault));
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
  } else if (name == "unusual" && !value) {
    rule->unusual = true;
  } else if (name == "hold" && !value) {
    rule->held = true;
  } else if (name == "at" && value) {
    rule->at = ParseOccurrences(*value);
  } else if (name == "status" && value) {
    rule->status = ParseStatus(*value);
  } else if (name == "body" && value) {
    rule->body = ParseBytes("a body", *value);
  } else if (name == "private" && value) {
    rule->privateData = ParseBytes("private data", *value);
  } else if (name == "latency" && value) {
    rule->latency = ParseDuration(*value);
  } else {
    Fail(common::Quoted(field) +
         " is not part of a reply; at:WHEN, status:N, body:HEX, private:HEX, unusual, "
         "latency:TIME, hold or silent is expected");
  }
}

void SetLossField(const std::string& field, DeviceLoss* loss) {
  const auto [name, value] = SplitOnce(field, '=');
  if (name == "opens" && value) {
    loss->failingOpens = common::RequireNumber("the number of failing opens", *value);
  } else if (name == "errno" && value) {
    loss->openError = ParseErrno(*value);
  } else if (name == "drop-replies" && !value) {
    loss->keepReplies = false;
  } else {
    Fail(common::Quoted(field) +
         " is not part of a loss; opens=N, errno=ERRNO or drop-replies is expected");
  }
}

}  // namespace

void AddClientOption(const std::string& text, Scenario* scenario) {
  const auto [name, fields] = SplitOnce(text, ':');
  Client& client = ClientOf(scenario, name);
  if (!fields)
    Fail("what to set is missing, as in " + common::Quoted(name + ":max=4096,version=1"));
  for (const std::string& field : Split(*fields, ',')) {
    const auto [key, value] = SplitOnce(field, '=');
    if (key == "max" && value) {
      client.maxMessageLength = static_cast<std::uint32_t>(
          common::RequireNumber("the maximum message length", *value, kLongestMessage));
    } else if (key == "version" && value) {
      client.protocolVersion =
          static_cast<std::uint8_t>(common::RequireNumber("the protocol version", *value, 255));
    } else {
      Fail(common::Quoted(field) +
           " is not a property of a client; max=BYTES or version=N is expected");
    }
  }
}

void AddReplyOption(const std::string& text, Scenario* scenario) {
  const auto [target, fields] = Assignment(text, "CLIENT:COMMAND=FIELD[,FIELD]...");
  const auto [name, command] = SplitOnce(target, ':');
  ReplyRule rule;
  rule.client = ClientOf(scenario, name).name;
  if (!command) Fail("the command is missing, as in " + common::Quoted(name + ":0x10=status:0"));
  if (*command != "*") rule.command = ParseCommand(*command);
  for (const std::string& field : Split(fields, ',')) SetReplyField(field, &rule);
  if (rule.silent &&
      (rule.status != 0 || rule.body || rule.privateData || rule.latency.count() || rule.held)) {
    Fail("a silent client sends nothing; leave out either 'silent' or the rest");
  }
  if (const auto error = ReplyError(rule)) Fail(*error);
  rule.origin = "--reply " + text;
  AddReplyRule(std::move(rule), scenario);
}

void AddFaultOption(const std::string& text, Scenario* scenario) {
  const auto [place, error] = Assignment(text, "OPERATION:WHEN=ERRNO");
  Fault fault = FaultAt(place, scenario);
  fault.effect = ErrnoFault{ParseErrno(error)};
  Add(fault, "--fault " + text, scenario);
}

void AddShortOption(const std::string& text, Scenario* scenario) {
  const auto [place, count] = Assignment(text, "OPERATION:WHEN=BYTES");
  Fault fault = FaultAt(place, scenario);
  fault.effect = ShortCount{common::RequireNumber("a byte count", count)};
  Add(fault, "--short " + text, scenario);
}

void AddLossOption(const std::string& text, Scenario* scenario) {
  const auto [place, fields] = SplitOnce(text, ',');
  Fault fault = FaultAt(place, scenario);
  fault.effect = fields ? ParseLoss(*fields, {}) : DeviceLoss{};
  Add(fault, "--lose " + text, scenario);
}

DeviceLoss ParseLoss(const std::string& fields, DeviceLoss loss) {
  for (const std::string& field : Split(fields, ',')) SetLossField(field, &loss);
  return loss;
}

}  // namespace zulisim
