#include <algorithm>
#include <cctype>
#include <limits>
#include <stdexcept>
#include <utility>

#include "simulator/open_flags.h"
#include "simulator/recording.h"
#include "simulator/values.h"

namespace zulisim {
namespace {

constexpr const char* kMark = "zulisim recording ";
constexpr std::uint64_t kMaxWord = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMaxCount = std::numeric_limits<std::int64_t>::max();
constexpr const char* kShape =
    "NUMBER TIME CONNECTION OPERATION ... -> RESULT in TIME is the form of an operation";

struct Word {
  std::string text;
  std::uint32_t column = 1;
};

struct Line {
  std::uint32_t number = 0;
  std::vector<Word> words;  // without the comment
  std::string comment;
  bool ended = true;  // by a line feed
};

[[noreturn]] void Fail(std::uint32_t line, std::uint32_t column, const std::string& message) {
  throw RecordingError({line, column, message});
}

Line SplitLine(const std::string& text, std::uint32_t number) {
  constexpr const char* kBlanks = " \t\r";
  Line line;
  line.number = number;
  std::size_t at = text.find_first_not_of(kBlanks);
  while (at != std::string::npos) {
    // A connection such as "#1" begins with the sign of a comment, but has a digit behind it.
    if (text[at] == '#' &&
        (at + 1 == text.size() || isdigit(static_cast<unsigned char>(text[at + 1])) == 0)) {
      const std::size_t from = text.find_first_not_of(kBlanks, at + 1);
      if (from != std::string::npos) line.comment = text.substr(from);
      break;
    }
    const std::size_t end = text.find_first_of(kBlanks, at);
    line.words.push_back({text.substr(at, end - at), static_cast<std::uint32_t>(at + 1)});
    at = text.find_first_not_of(kBlanks, end);
  }
  return line;
}

// The words of an operation, taken one after the other.
class Words {
 public:
  explicit Words(const Line& line) : line_(line) {}

  bool AtEnd() const { return next_ == line_.words.size(); }
  bool NextIs(const char* text) const { return !AtEnd() && line_.words[next_].text == text; }
  const Word& Take(const char* what) {
    if (AtEnd()) {
      const Word& last = line_.words.back();
      Fail(line_.number, last.column + static_cast<std::uint32_t>(last.text.size()),
           std::string(what) + " is missing; " + kShape);
    }
    return line_.words[next_++];
  }
  void TakeSign(const char* sign) {
    const Word& word = Take(Quoted(sign).c_str());
    if (word.text != sign) {
      Fail(line_.number, word.column, Quoted(sign) + " is expected, not " + Quoted(word.text));
    }
  }
  // Calls `parse` with the next word; a std::invalid_argument is reported there.
  template <typename Function>
  auto Parse(const char* what, Function parse) {
    const Word& word = Take(what);
    try {
      return parse(word.text);
    } catch (const std::invalid_argument& error) {
      Fail(line_.number, word.column, error.what());
    }
  }
  std::uint64_t Number(const char* what, std::uint64_t highest) {
    return Parse(what, [&](const std::string& text) { return ParseNumber(text, highest, what); });
  }

 private:
  const Line& line_;
  std::size_t next_ = 0;
};

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

RawOperation ParseOperationLine(const Line& line) {
  Words words(line);
  RawOperation raw;
  words.Number("the number of an operation", kMaxCount);
  raw.start = words.Parse("the time", ParseSeconds);
  raw.connection = words.Parse("the connection", ParseConnection);
  if (words.NextIs("gone")) {
    words.TakeSign("gone");
    raw.operation = Operation::kClose;
    raw.gone = true;
  } else {
    raw.operation = words.Parse("the operation", ParseOperation);
  }
  switch (raw.operation) {
    case Operation::kOpen:
      raw.flags = words.Parse("the flags", ParseFlags);
      if (words.NextIs("mode")) {
        words.TakeSign("mode");
        raw.mode = words.Parse("the mode", ParseMode);
      }
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
  if (words.NextIs("null")) {
    words.TakeSign("null");
    raw.hasBuffer = false;
  }
  words.TakeSign("->");
  raw.result =
      words.Parse("the result", [&raw](const std::string& text) { return ParseResult(text, raw); });
  words.TakeSign("in");
  raw.took = words.Parse("the time that it took", ParseSeconds);
  if (!words.AtEnd()) {
    const Word& extra = words.Take("");
    Fail(line.number, extra.column, Quoted(extra.text) + " is too much; " + kShape);
  }
  if ((raw.connection == 0) != (raw.result.value < 0) && raw.operation == Operation::kOpen) {
    Fail(line.number, line.words[2].column,
         "an open that succeeds has a connection, and one that fails has '-'");
  }
  raw.note = line.comment;
  return raw;
}

class Parser {
 public:
  explicit Parser(const std::string& text) : text_(text) {}

  Recording Parse() {
    ParseHead();
    while (at_ < text_.size() && !ended_) ParseLine(NextLine());
    while (at_ < text_.size()) {
      const Line line = NextLine();
      if (!line.words.empty()) Fail(line.number, 1, "nothing may follow the line 'end'");
    }
    if (!ended_) DropUnfinished();
    return std::move(recording_);
  }

 private:
  Line NextLine() {
    const std::size_t feed = text_.find('\n', at_);
    const std::size_t end = feed == std::string::npos ? text_.size() : feed;
    Line line = SplitLine(text_.substr(at_, end - at_), ++number_);
    line.ended = feed != std::string::npos;
    at_ = end + 1;
    return line;
  }

  void ParseHead() {
    const std::size_t feed = text_.find('\n');
    if (!IsRecording(text_) || feed == std::string::npos) {
      Fail(1, 1,
           std::string("no recording: the first line is not ") + Quoted(kMark + std::string("1")));
    }
    const Line line = NextLine();
    if (line.words.size() != 3 || line.words[2].text != "1") {
      Fail(1, line.words.back().column,
           Quoted(line.words.back().text) + " is no version that this zulisim knows; it knows 1");
    }
  }

  void ParseLine(const Line& line) {
    if (line.words.empty()) return;
    const std::string& first = line.words.front().text;
    if (first == "end" && line.words.size() == 1) {
      CheckFinished();
      ended_ = true;
    } else if (!line.ended) {
      return;  // a line without its end is the place of a cut
    } else if (first == "client") {
      ParseClient(line);
    } else if (first == ">" || first == "<") {
      ParseBytes(line);
    } else {
      CheckFinished();
      recording_.operations.push_back({ParseOperationLine(line), line.number});
    }
  }

  void ParseClient(const Line& line) {
    if (line.words.size() < 3) Fail(line.number, 1, "'client NAME GUID' is expected");
    Client client;
    client.name = line.words[1].text;
    for (std::size_t i = 2; i + 1 < line.words.size(); ++i) client.name += " " + line.words[i].text;
    try {
      client.guid = ParseGuid(line.words.back().text);
    } catch (const std::invalid_argument& error) {
      Fail(line.number, line.words.back().column, error.what());
    }
    recording_.clients.push_back(std::move(client));
  }

  void ParseBytes(const Line& line) {
    if (recording_.operations.empty()) Fail(line.number, 1, "bytes stand behind an operation");
    RawOperation* raw = &recording_.operations.back().raw;
    const bool isInput = line.words.front().text == ">";
    Bytes* bytes = isInput ? &raw->input : &raw->output;
    const std::size_t most = isInput ? InputSize(*raw) : OutputSize(*raw);
    for (std::size_t i = 1; i < line.words.size(); ++i) {
      const Word& word = line.words[i];
      try {
        const Bytes more = ParseHex(word.text, "a piece of a message");
        bytes->insert(bytes->end(), more.begin(), more.end());
      } catch (const std::invalid_argument& error) {
        Fail(line.number, word.column, error.what());
      }
      if (bytes->size() > most) {
        Fail(line.number, word.column,
             "too many bytes: the operation of line " +
                 std::to_string(recording_.operations.back().line) + " has " +
                 std::to_string(most) + " behind " + Quoted(line.words.front().text));
      }
    }
  }

  bool IsFinished() const {
    if (recording_.operations.empty()) return true;
    const RawOperation& raw = recording_.operations.back().raw;
    return raw.input.size() == InputSize(raw) && raw.output.size() == OutputSize(raw);
  }

  void CheckFinished() const {
    if (IsFinished()) return;
    const RawOperation& raw = recording_.operations.back().raw;
    const bool input = raw.input.size() != InputSize(raw);
    Fail(recording_.operations.back().line, 1,
         "the operation has " + std::to_string(input ? InputSize(raw) : OutputSize(raw)) +
             " bytes behind " + (input ? "'>'" : "'<'") + ", but " +
             std::to_string(input ? raw.input.size() : raw.output.size()) + " are there");
  }

  void DropUnfinished() {
    recording_.cut = true;
    if (!IsFinished()) recording_.operations.pop_back();
  }

  const std::string& text_;
  std::size_t at_ = 0;
  std::uint32_t number_ = 0;
  bool ended_ = false;
  Recording recording_;
};

}  // namespace

bool IsRecording(const std::string& text) { return text.rfind(kMark, 0) == 0; }

Recording ParseRecording(const std::string& text) { return Parser(text).Parse(); }

}  // namespace zulisim
