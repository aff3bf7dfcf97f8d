#include "simulator/scenario_options.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <stdexcept>
#include <utility>
#include <vector>

namespace zulisim {
namespace {

constexpr std::uint64_t kMaxWord = std::numeric_limits<std::uint32_t>::max();
constexpr const char* kOperations = "open, ioctl, read, write or close";

[[noreturn]] void Fail(const std::string& message) { throw std::invalid_argument(message); }

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

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

std::uint64_t Number(const std::string& text, std::uint64_t highest, const std::string& what) {
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const std::string digits = hex ? text.substr(2) : text;
  const auto isDigit = [hex](unsigned char c) { return hex ? isxdigit(c) : isdigit(c); };
  const std::string expected =
      what + " is a number from 0 to " + std::to_string(highest) + ", not " + Quoted(text);
  if (digits.empty() || !std::all_of(digits.begin(), digits.end(), isDigit)) Fail(expected);
  try {
    const unsigned long long value = std::stoull(digits, nullptr, hex ? 16 : 10);
    if (value <= highest) return value;
  } catch (const std::out_of_range&) {
    // Said below.
  }
  Fail(expected);
}

std::uint32_t Word(const std::string& text, const std::string& what) {
  return static_cast<std::uint32_t>(Number(text, kMaxWord, what));
}

int Errno(const std::string& text) {
  const auto error = ErrnoFromName(text);
  if (!error) Fail(Quoted(text) + " is no errno; a name such as EIO or ENODEV is expected");
  return *error;
}

Bytes HexBytes(const std::string& text, const std::string& what) {
  const auto isHex = [](unsigned char c) { return isxdigit(c) != 0; };
  if (text.empty() || text.size() % 2 != 0 || !std::all_of(text.begin(), text.end(), isHex)) {
    Fail(what + " is an even number of hexadecimal digits, not " + Quoted(text));
  }
  if (text.size() / 2 > kLongestMessage) Fail(what + " is longer than any message can be");
  Bytes bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

Client& ClientOf(Scenario* scenario, const std::string& name) {
  Client* client = FindClient(scenario, name);
  if (client != nullptr) return *client;
  std::string known;
  for (const Client& candidate : scenario->clients) {
    known += (known.empty() ? "" : ", ") + candidate.name;
  }
  Fail(Quoted(name) + " is no client; known are " + known);
}

// OPERATION:WHEN into a fault without its effect.
Fault Strike(const std::string& text) {
  const auto [name, when] = SplitOnce(text, ':');
  const auto operation = OperationFromName(name);
  if (!operation) Fail(Quoted(name) + " is no operation; " + kOperations + " is expected");
  if (!when) Fail("which " + name + " is missing, as in " + Quoted(name + ":3"));
  const auto [first, last] = SplitOnce(*when, '-');
  Fault fault;
  fault.operation = *operation;
  const std::uint64_t highest = std::numeric_limits<std::uint32_t>::max();
  fault.first = Number(first, highest, "the occurrence");
  if (!last) return fault;
  if (last->empty()) {
    fault.times = kForever;
    return fault;
  }
  const std::uint64_t end = Number(*last, highest, "the last occurrence");
  if (end < fault.first) Fail("the range " + Quoted(*when) + " ends before it begins");
  fault.times = end - fault.first + 1;
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
    rule->status = Word(*value, "a status");
  } else if (name == "body" && value) {
    rule->body = HexBytes(*value, "a body");
  } else if (name == "private" && value) {
    rule->privateData = HexBytes(*value, "private data");
  } else {
    Fail(Quoted(field) +
         " is no part of a reply; status:N, body:HEX, private:HEX or silent is expected");
  }
}

void SetLossField(const std::string& field, DeviceLoss* loss) {
  const auto [name, value] = SplitOnce(field, '=');
  if (name == "opens" && value) {
    loss->failingOpens = Number(*value, kMaxWord, "the number of failing opens");
  } else if (name == "errno" && value) {
    loss->openError = Errno(*value);
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
      client.maxMessageLength =
          static_cast<std::uint32_t>(Number(*value, kLongestMessage, "the maximum message length"));
    } else if (key == "version" && value) {
      client.protocolVersion =
          static_cast<std::uint8_t>(Number(*value, 255, "the protocol version"));
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
  if (*command != "*") rule.command = Word(*command, "a command");
  for (const std::string& field : Split(fields, ',')) SetReplyField(field, &rule);
  if (rule.silent && (rule.status != 0 || rule.body || rule.privateData)) {
    Fail("a silent client sends nothing; leave out either 'silent' or the rest");
  }
  scenario->replies.push_back(std::move(rule));
}

void AddFaultOption(const std::string& text, Scenario* scenario) {
  const auto [strike, error] = Assignment(text, "OPERATION:WHEN=ERRNO");
  Fault fault = Strike(strike);
  fault.effect = ErrnoFault{Errno(error)};
  Add(fault, scenario);
}

void AddShortOption(const std::string& text, Scenario* scenario) {
  const auto [strike, count] = Assignment(text, "OPERATION:WHEN=BYTES");
  Fault fault = Strike(strike);
  fault.effect = ShortCount{Number(count, kMaxWord, "a byte count")};
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
