#include "simulator/record/recording.h"

#include <fcntl.h>

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cstdio>
#include <iterator>
#include <limits>
#include <utility>

#include "common/hex.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/sha256.h"
#include "common/text.h"

namespace zulisim {
namespace {

using common::Hex;
using common::InputError;
using common::Quoted;

constexpr const char* kMark = "zulisim recording ";
constexpr const char* kShape =
    "NUMBER TIME CONNECTION OPERATION ... -> RESULT in TIME is the form of an operation";
constexpr const char* kRedacted = "redacted";
constexpr std::size_t kDigestDigits = 64;
constexpr std::uint64_t kMaxCount = std::numeric_limits<std::int64_t>::max();

// As the kernel shows it; to a 64-bit program the constant is 0.
constexpr int kKernelLargeFile = 0100000;

// The flags of an open that have a name: `value` under `mask`.
struct OpenFlag {
  const char* name;
  int mask;
  int value;
};

constexpr OpenFlag kOpenFlags[] = {
    {"O_RDONLY", O_ACCMODE, O_RDONLY},
    {"O_WRONLY", O_ACCMODE, O_WRONLY},
    {"O_RDWR", O_ACCMODE, O_RDWR},
    {"O_CREAT", O_CREAT, O_CREAT},
    {"O_EXCL", O_EXCL, O_EXCL},
    {"O_NOCTTY", O_NOCTTY, O_NOCTTY},
    {"O_TRUNC", O_TRUNC, O_TRUNC},
    {"O_APPEND", O_APPEND, O_APPEND},
    {"O_NONBLOCK", O_NONBLOCK, O_NONBLOCK},
    {"O_CLOEXEC", O_CLOEXEC, O_CLOEXEC},
    {"O_LARGEFILE", kKernelLargeFile, kKernelLargeFile},
};

// --- Writing. ---

std::string Seconds(std::chrono::nanoseconds time) {
  char text[48];
  const std::int64_t count = std::max<std::int64_t>(0, time.count());
  std::snprintf(text, sizeof(text), "%" PRId64 ".%09" PRId64, count / 1000000000,
                count % 1000000000);
  return text;
}

std::string ModeText(unsigned mode) {
  char text[24];
  std::snprintf(text, sizeof(text), " mode 0%o", mode);
  return mode == 0 ? "" : text;
}

// A comment ends with its line.
std::string CommentText(const std::string& text) {
  std::string comment;
  for (const char c : text) comment += static_cast<unsigned char>(c) < ' ' || c == 0x7f ? '?' : c;
  return comment;
}

std::string ArgumentsText(const OperationRecord& record) {
  if (record.abandoned) return "gone";
  std::string text = OperationName(record.operation);
  if (record.operation == Operation::kOpen) {
    text += " " + OpenFlagsText(record.openFlags) + ModeText(OpenMode(record));
  }
  if (record.operation == Operation::kIoctl) text += " " + Hex(record.request, 8);
  if (record.IsTransfer()) text += " " + std::to_string(record.length);
  return record.hasBuffer ? text : text + " null";
}

// "ok", a count, or the name of an errno; "E512" for one that has none.
std::string ResultText(const OperationRecord& record) {
  if (record.result < 0) {
    const std::string name = ErrnoName(record.error);
    return name[0] == 'E' ? name : "E" + name;  // a bare number would be a count
  }
  const bool counts =
      record.IsTransfer() || (record.operation == Operation::kIoctl && record.result > 0);
  return counts ? std::to_string(record.result) : "ok";
}

// The bytes up to `kept`, and for the others their digest.
std::string BytesText(char direction, const Bytes& bytes, std::size_t kept) {
  std::string text;
  const std::string start = std::string("  ") + direction + " ";
  const Bytes shown(bytes.begin(),
                    bytes.begin() + static_cast<std::ptrdiff_t>(std::min(kept, bytes.size())));
  for (std::size_t at = 0; at < shown.size(); at += common::kHexLineSize) {
    const common::HexLine line = common::HexLineAt(shown, at);
    text += start + line.digits + "  # " + line.characters + "\n";
  }
  if (shown.size() == bytes.size()) return text;
  return text + start + kRedacted + " " + std::to_string(bytes.size() - shown.size()) + " " +
         common::Sha256(bytes, shown.size()) + "\n";
}

// How many of an operation's bytes a redacted recording keeps: those that the driver and the
// firmware do not have for themselves.
std::size_t KeptOf(const OperationRecord& record) {
  if (record.IsConnect()) return IoctlSize(kConnectRequest);
  if (record.operation == Operation::kIoctl || record.payload == Payload::kPrivateData) return 0;
  return kHeaderSize;
}

// --- Reading. ---

[[noreturn]] void FailAt(std::uint32_t line, std::size_t column, const std::string& message) {
  throw RecordingError({line, static_cast<std::uint32_t>(column), message});
}

struct Word {
  std::string text;
  std::size_t column = 1;
};

struct Line {
  std::uint32_t number = 0;
  std::vector<Word> words;  // without the comment
  std::string comment;
  bool ended = true;  // by a line feed
};

bool IsDigitAt(const std::string& text, std::size_t at) {
  return at < text.size() && isdigit(static_cast<unsigned char>(text[at])) != 0;
}

void Split(const std::string& text, Line* line) {
  constexpr const char* kBlanks = " \t\r";
  std::size_t at = text.find_first_not_of(kBlanks);
  while (at != std::string::npos) {
    // A connection such as "#1" begins with the sign of a comment, but a digit follows.
    if (text[at] == '#' && !IsDigitAt(text, at + 1)) {
      const std::size_t from = text.find_first_not_of(kBlanks, at + 1);
      if (from != std::string::npos) line->comment = text.substr(from);
      return;
    }
    const std::size_t end = text.find_first_of(kBlanks, at);
    line->words.push_back({text.substr(at, end - at), at + 1});
    at = text.find_first_not_of(kBlanks, end);
  }
}

std::chrono::nanoseconds ParseSeconds(const std::string& text) {
  const std::size_t point = text.find('.');
  const bool wellPlaced = point != std::string::npos && point <= 9 && text.size() - point == 10;
  const std::string digits = wellPlaced ? std::string(text).erase(point, 1) : "?";
  if (digits.find_first_not_of("0123456789") == std::string::npos) {
    return std::chrono::nanoseconds(std::stoll(digits));
  }
  throw InputError(Quoted(text) + " is not a time in seconds, as in 0.000103000");
}

std::uint64_t ParseConnection(const std::string& text) {
  if (text == "-") return 0;
  const auto number =
      common::ParseNumber(text[0] == '#' ? std::string_view(text).substr(1) : "", kMaxCount);
  if (number.value_or(0) > 0) return *number;
  throw InputError(Quoted(text) + " is not a connection; '#1' or '-' is expected");
}

int ParseFlags(const std::string& text) {
  std::uint32_t flags = 0;
  for (std::size_t at = 0; at <= text.size();) {
    const std::size_t end = std::min(text.find('|', at), text.size());
    const std::string name = text.substr(at, end - at);
    const auto* known = std::find_if(std::begin(kOpenFlags), std::end(kOpenFlags),
                                     [&name](const OpenFlag& flag) { return flag.name == name; });
    flags |= static_cast<std::uint32_t>(known != std::end(kOpenFlags)
                                            ? static_cast<std::uint64_t>(known->value)
                                            : common::RequireNumber("a flag without a name", name));
    at = end + 1;
  }
  return static_cast<int>(flags);
}

unsigned ParseMode(const std::string& text) {
  const bool isOctal = text.find_first_not_of("01234567") == std::string::npos;
  if (isOctal && !text.empty() && text.size() <= 10) {
    return static_cast<unsigned>(std::stoul(text, nullptr, 8));
  }
  throw InputError(Quoted(text) + " is not a mode; octal digits are expected");
}

Result ParseResult(const std::string& text, const OperationRecord& record) {
  if (text == "ok" && !record.IsTransfer()) return {};
  if (text[0] == 'E' && IsDigitAt(text, 1)) {
    return {-1, static_cast<int>(common::RequireNumber("an errno", text.substr(1), 4095))};
  }
  if (!IsDigitAt(text, 0)) return {-1, ParseErrno(text)};
  const std::uint64_t value = common::RequireNumber("a result", text, kMaxCount);
  const bool isIoctl = record.operation == Operation::kIoctl;
  if ((isIoctl && value <= common::kMaxWord) || (record.IsTransfer() && value <= record.length)) {
    return {static_cast<std::int64_t>(value), 0};
  }
  throw InputError(record.IsTransfer()
                       ? "a result of " + text + " bytes is more than the " +
                             std::to_string(record.length) + " that were asked for"
                       : Quoted(text) + " is not a result; 'ok' or an errno is expected");
}

// Reads the words of an operation, one after the other. What is wrong with one is thrown as a
// RecordingError at its place.
class OperationParser {
 public:
  explicit OperationParser(const Line& line) : line_(line) {}

  // The operation without its bytes.
  OperationRecord Parse() {
    OperationRecord record;
    NextNumber("the number of an operation");
    record.start = ParseNext("the time", ParseSeconds);
    record.connection = ParseNext("the connection", ParseConnection);
    record.abandoned = TakeIf("gone");
    record.operation =
        record.abandoned ? Operation::kClose : ParseNext("the operation", ParseOperation);
    ParseArguments(&record);
    TakeSign("->");
    const Result result = ParseNext(
        "the result", [&record](const std::string& text) { return ParseResult(text, record); });
    record.result = result.value;
    record.error = result.error;
    TakeSign("in");
    record.end = record.start + ParseNext("the time that it took", ParseSeconds);
    if (!AtEnd())
      Fail(line_.words[next_], Quoted(line_.words[next_].text) + " is too much; " + kShape);
    const bool failed = record.result < 0;
    if (record.operation == Operation::kOpen && (record.connection == 0) != failed) {
      Fail(line_.words[2], "an open that succeeds has a connection, and one that fails has '-'");
    }
    record.why = line_.comment;
    return record;
  }

 private:
  void ParseArguments(OperationRecord* record) {
    if (record->operation == Operation::kOpen) {
      record->openFlags = ParseNext("the flags", ParseFlags);
      if (TakeIf("mode")) record->openMode = ParseNext("the mode", ParseMode);
    } else if (record->operation == Operation::kIoctl) {
      record->request =
          static_cast<std::uint32_t>(NextNumber("an ioctl request", common::kMaxWord));
    } else if (record->IsTransfer()) {
      record->length = NextNumber("a byte count");
    }
    record->hasBuffer = !TakeIf("null");
  }

  [[noreturn]] void Fail(const Word& word, const std::string& message) const {
    FailAt(line_.number, word.column, message);
  }

  bool AtEnd() const { return next_ == line_.words.size(); }

  const Word& Take(const std::string& what) {
    if (!AtEnd()) return line_.words[next_++];
    const Word& last = line_.words.back();
    FailAt(line_.number, last.column + last.text.size(), what + " is missing; " + kShape);
  }

  // Takes the next word if it is `sign`.
  bool TakeIf(const char* sign) {
    const bool found = !AtEnd() && line_.words[next_].text == sign;
    if (found) ++next_;
    return found;
  }

  void TakeSign(const char* sign) {
    const Word& word = Take(Quoted(sign));
    if (word.text != sign) Fail(word, Quoted(sign) + " is expected, not " + Quoted(word.text));
  }

  // Calls `parse` with the next word; an InputError is reported there.
  template <typename Function>
  auto ParseNext(const std::string& what, Function parse) -> decltype(parse(what)) {
    const Word& word = Take(what);
    try {
      return parse(word.text);
    } catch (const InputError& error) {
      Fail(word, error.what());
    }
  }

  std::uint64_t NextNumber(const std::string& what, std::uint64_t highest = kMaxCount) {
    return ParseNext(
        what, [&](const std::string& text) { return common::RequireNumber(what, text, highest); });
  }

  const Line& line_;
  std::size_t next_ = 0;
};

class Parser {
 public:
  explicit Parser(const std::string& text) : text_(text) {}

  Recording Parse() {
    ParseHead();
    while (at_ < text_.size() && !ended_) ParseLine(NextLine());
    while (at_ < text_.size()) {
      const Line line = NextLine();
      if (!line.words.empty()) FailAt(line.number, 1, "nothing may follow the line 'end'");
    }
    if (!ended_) DropUnfinished();
    return std::move(recording_);
  }

 private:
  Line NextLine() {
    Line line;
    line.number = ++number_;
    const std::size_t feed = text_.find('\n', at_);
    line.ended = feed != std::string::npos;
    Split(text_.substr(at_, feed - at_), &line);
    at_ = line.ended ? feed + 1 : text_.size();
    return line;
  }

  void ParseHead() {
    if (!IsRecording(text_) || text_.find('\n') == std::string::npos) {
      FailAt(1, 1, "not a recording: the first line is not " + Quoted(kMark + std::string("1")));
    }
    const Line line = NextLine();
    const Word& last = line.words.back();
    if (line.words.size() == 3 && last.text == "1") return;
    FailAt(1, last.column,
           Quoted(last.text) + " is not a version that this zulisim knows; it knows 1");
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
      ParseMessage(line);
    } else {
      CheckFinished();
      recording_.operations.push_back({OperationParser(line).Parse(), line.number});
    }
  }

  void ParseClient(const Line& line) {
    if (line.words.size() < 3) FailAt(line.number, 1, "'client NAME GUID' is expected");
    Client client;
    client.name = line.words[1].text;
    for (std::size_t i = 2; i + 1 < line.words.size(); ++i) client.name += " " + line.words[i].text;
    try {
      client.guid = ParseGuid(line.words.back().text);
    } catch (const InputError& error) {
      FailAt(line.number, line.words.back().column, error.what());
    }
    recording_.clients.push_back(std::move(client));
  }

  void ParseMessage(const Line& line) {
    if (recording_.operations.empty()) FailAt(line.number, 1, "bytes must follow an operation");
    const RecordedOperation& operation = recording_.operations.back();
    OperationRecord* record = &recording_.operations.back().record;
    const std::string& direction = line.words.front().text;
    Bytes* bytes = direction == ">" ? &record->input : &record->output;
    const std::size_t most = direction == ">" ? record->InputSize() : record->OutputSize();
    if (line.words.size() == 4 && line.words[1].text == kRedacted &&
        line.words[3].text.size() == kDigestDigits) {
      const auto left = common::ParseNumber(line.words[2].text, most - bytes->size());
      if (!left) FailAt(line.number, line.words[2].column, "too many bytes are redacted");
      bytes->resize(bytes->size() + *left);
      recording_.redacted = true;
      return;
    }
    for (std::size_t i = 1; i < line.words.size(); ++i) {
      const Word& word = line.words[i];
      try {
        const Bytes more = ParseBytes("a piece of a message", word.text);
        bytes->insert(bytes->end(), more.begin(), more.end());
      } catch (const InputError& error) {
        FailAt(line.number, word.column, error.what());
      }
      if (bytes->size() > most) {
        FailAt(line.number, word.column,
               "too many bytes: the operation of line " + std::to_string(operation.line) + " has " +
                   std::to_string(most) + " after " + Quoted(direction));
      }
    }
  }

  bool IsFinished() const {
    if (recording_.operations.empty()) return true;
    const OperationRecord& record = recording_.operations.back().record;
    return record.input.size() == record.InputSize() && record.output.size() == record.OutputSize();
  }

  void CheckFinished() const {
    if (IsFinished()) return;
    const OperationRecord& record = recording_.operations.back().record;
    const bool input = record.input.size() != record.InputSize();
    FailAt(recording_.operations.back().line, 1,
           "the operation has " +
               common::Counted(input ? record.InputSize() : record.OutputSize(), "byte") +
               " after " + (input ? "'>'" : "'<'") + ", but " +
               std::to_string(input ? record.input.size() : record.output.size()) + " are there");
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

std::string RecordingHead(const std::vector<std::string>& program,
                          const std::vector<Client>& clients) {
  std::string text = kMark + std::string("1\n#");
  for (const std::string& argument : program) text += " " + CommentText(argument);
  text += "\n";
  for (const Client& client : clients) {
    text += "client " + client.name + " " + GuidText(client.guid) + "\n";
  }
  return text + "\n";
}

std::string RecordingEntry(std::uint64_t number, const OperationRecord& record, bool redact) {
  const std::string connection =
      record.connection == 0 ? "-" : "#" + std::to_string(record.connection);
  std::string text = std::to_string(number) + "  " + Seconds(record.start) + "  " + connection +
                     "  " + ArgumentsText(record) + "  -> " + ResultText(record) + "  in " +
                     Seconds(record.end - record.start);
  if (!record.why.empty()) text += "  # " + CommentText(record.why);
  const std::size_t kept = redact ? KeptOf(record) : std::string::npos;
  return text + "\n" + BytesText('>', record.input, kept) + BytesText('<', record.output, kept);
}

std::string OpenFlagsText(int flags) {
  std::vector<std::string> names;
  for (const OpenFlag& flag : kOpenFlags) {
    if ((flags & flag.mask) != flag.value) continue;
    names.emplace_back(flag.name);
    flags &= ~flag.mask;
  }
  if (flags != 0) names.push_back(Hex(static_cast<std::uint32_t>(flags)));
  return common::Joined(names, "|");
}

unsigned OpenMode(const OperationRecord& record) {
  const bool counts =
      (record.openFlags & O_CREAT) != 0 || (record.openFlags & O_TMPFILE) == O_TMPFILE;
  return counts ? record.openMode : 0;
}

bool IsRecording(const std::string& text) { return text.rfind(kMark, 0) == 0; }

Recording ParseRecording(const std::string& text) { return Parser(text).Parse(); }

}  // namespace zulisim
