#include "simulator/record/recording_operation.h"

#include <algorithm>
#include <cctype>
#include <limits>

#include "simulator/device/open_flags.h"

namespace zulisim {
namespace {

constexpr std::uint64_t kMaxWord = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMaxCount = std::numeric_limits<std::int64_t>::max();

std::chrono::nanoseconds ParseSeconds(const std::string& text) {
  const std::size_t point = text.find('.');
  const std::string expected = Quoted(text) + " is no time in seconds, as in 0.000103000";
  if (point == std::string::npos || text.size() - point != 10 || point > 9) {
    throw std::invalid_argument(expected);
  }
  const auto digits = text.substr(0, point) + text.substr(point + 1);
  if (!std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return isdigit(c); })) {
    throw std::invalid_argument(expected);
  }
  return std::chrono::nanoseconds(std::stoll(digits));
}

std::uint64_t ParseConnection(const std::string& text) {
  if (text == "-") return 0;
  if (text.size() > 1 && text[0] == '#') {
    const std::uint64_t number = ParseNumber(text.substr(1), kMaxCount, "a connection");
    if (number > 0) return number;
  }
  throw std::invalid_argument(Quoted(text) + " is no connection; '#1' or '-' is expected");
}

int ParseFlags(const std::string& text) {
  std::uint64_t flags = 0;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('|', at), text.size());
    const std::string name = text.substr(at, end - at);
    const auto* known = std::find_if(std::begin(kOpenFlags), std::end(kOpenFlags),
                                     [&name](const OpenFlag& flag) { return flag.name == name; });
    if (known != std::end(kOpenFlags)) {
      flags |= static_cast<std::uint64_t>(known->value);
    } else {
      flags |= ParseNumber(name, kMaxWord, "a flag without a name");
    }
    at = end + 1;
  }
  return static_cast<int>(static_cast<std::uint32_t>(flags));
}

unsigned ParseMode(const std::string& text) {
  const auto isOctal = [](char c) { return c >= '0' && c <= '7'; };
  if (text.empty() || text.size() > 10 || !std::all_of(text.begin(), text.end(), isOctal)) {
    throw std::invalid_argument(Quoted(text) + " is no mode; octal digits are expected");
  }
  return static_cast<unsigned>(std::stoul(text, nullptr, 8));
}

Result ParseResult(const std::string& text, const RawOperation& operation) {
  const bool transfer =
      operation.operation == Operation::kRead || operation.operation == Operation::kWrite;
  if (text == "ok" && !transfer) return {};
  if (!text.empty() && isdigit(static_cast<unsigned char>(text[0])) != 0) {
    const std::uint64_t value = ParseNumber(text, kMaxCount, "a result");
    if (operation.operation == Operation::kIoctl && value <= kMaxWord) {
      return {static_cast<std::int64_t>(value), 0};
    }
    if (transfer && value <= operation.length) return {static_cast<std::int64_t>(value), 0};
    throw std::invalid_argument(transfer
                                    ? "a result of " + text + " bytes is more than the " +
                                          std::to_string(operation.length) + " that were asked for"
                                    : Quoted(text) + " is no result; 'ok' or an errno is expected");
  }
  if (text.rfind("E", 0) == 0 && text.size() > 1 &&
      isdigit(static_cast<unsigned char>(text[1])) != 0) {
    return {-1, static_cast<int>(ParseNumber(text.substr(1), 4095, "an errno"))};
  }
  return {-1, ParseErrno(text)};
}

void ParseArguments(RecordingWords& words, RawOperation& raw) {
  switch (raw.operation) {
    case Operation::kOpen:
      raw.flags = words.Parse("the flags", ParseFlags);
      if (words.TakeIf("mode")) raw.mode = words.Parse("the mode", ParseMode);
      break;
    case Operation::kIoctl:
      raw.request = static_cast<std::uint32_t>(words.Number("an ioctl request", kMaxWord));
      break;
    case Operation::kRead:
    case Operation::kWrite:
      raw.length = words.Number("a byte count", kMaxCount);
      break;
    case Operation::kClose:
      break;
  }
  raw.hasBuffer = !words.TakeIf("null");
}

}  // namespace

RawOperation ParseOperationLine(const RecordingLine& line) {
  RecordingWords words(line);
  RawOperation raw;
  words.Number("the number of an operation", kMaxCount);
  raw.start = words.Parse("the time", ParseSeconds);
  raw.connection = words.Parse("the connection", ParseConnection);
  raw.gone = words.TakeIf("gone");
  raw.operation = raw.gone ? Operation::kClose : words.Parse("the operation", ParseOperation);
  ParseArguments(words, raw);
  words.TakeSign("->");
  raw.result =
      words.Parse("the result", [&raw](const std::string& text) { return ParseResult(text, raw); });
  words.TakeSign("in");
  raw.took = words.Parse("the time that it took", ParseSeconds);
  words.TakeEnd();
  if ((raw.connection == 0) != (raw.result.value < 0) && raw.operation == Operation::kOpen) {
    FailAt(line.number, line.words[2].column,
           "an open that succeeds has a connection, and one that fails has '-'");
  }
  raw.note = line.comment;
  return raw;
}

}  // namespace zulisim
