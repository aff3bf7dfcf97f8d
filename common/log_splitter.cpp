#include "common/log_splitter.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace common {
namespace {

// The functions that the library's log lines begin with. A line may follow another without a line
// end, so these names are what tells where it begins.
constexpr std::string_view kLogFunctions[] = {
    "KaloStateInit",   "KaloInit3",    "StartIoEx3",   "StartIo3",      "KaloCleanup3",
    "SessionCleanup",  "KaloInit",     "StartIoEx",    "KaloCleanup",   "FenuInit3",
    "FenuInit",        "FenuCleanup3", "FenuCleanup",  "CpDremSession", "~CpDremSession",
    "Connect",         "Disconnect",   "ReadFromZuli", "WriteToZuli",   "IoMessage",
    "SendIoctlToZuli",
};

constexpr std::size_t kMaxTagDigits = 10;
constexpr std::size_t kProcessIdDigits = 8;
// What must be there to judge a colon: the digits, and ": " after them.
constexpr std::size_t kLookAhead = 1 + kMaxTagDigits + 2;
// No lead-in is longer.
constexpr std::size_t kLookBehind = 256;
constexpr std::size_t kLongestText = 1 << 20;
constexpr std::size_t kDropAt = 1 << 16;

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

bool IsNameCharacter(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' ||
         character == '~';
}

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

void LogSplitter::Feed(std::string_view piece) {
  buffer_ += piece;
  Scan(false);
  if (buffer_.size() - text_ > kLongestText) {
    // Nothing has begun in all of this; what may be half a lead-in stays.
    const std::size_t end = buffer_.size() - kLookBehind;
    Emit(end);
    text_ = end;
    lineStart_ = buffer_[end - 1] == '\n';
    scan_ = std::max(scan_, end);
  }
  DropConsumed();
}

void LogSplitter::Finish() {
  Scan(true);
  Emit(buffer_.size());
  buffer_.clear();
  text_ = scan_ = 0;
  lineStart_ = true;
}

void LogSplitter::Scan(bool final) {
  for (;;) {
    const std::size_t colon = buffer_.find(':', scan_);
    if (colon == std::string::npos) {
      scan_ = buffer_.size();
      return;
    }
    if (!final && colon + kLookAhead > buffer_.size()) {
      scan_ = colon;
      return;
    }
    if (std::optional<Lead> lead = LeadAt(colon)) {
      Emit(lead->begin);
      current_ = std::move(lead->record);
      text_ = scan_ = lead->end;
      lineStart_ = false;
    } else {
      scan_ = colon + 1;
    }
  }
}

std::optional<LogSplitter::Lead> LogSplitter::LeadAt(std::size_t colon) const {
  std::size_t end = colon + 1;
  while (end < buffer_.size() && IsDigit(buffer_[end])) ++end;
  const std::size_t digits = end - colon - 1;
  if (digits == 0 || digits > kMaxTagDigits || buffer_.compare(end, 2, ": ") != 0) return {};
  const std::size_t name = NameBegin(colon);
  if (name == colon) return {};
  const std::size_t begin = PrefixBegin(name);
  Lead lead = {begin, end + 2, {}};
  if (begin != name) lead.record.prefix = buffer_.substr(begin, name - 1 - begin);
  lead.record.function = buffer_.substr(name, colon - name);
  lead.record.tag = buffer_.substr(colon + 1, digits);
  return lead;
}

// Where the function's name in front of the colon begins; the colon itself when there is none.
std::size_t LogSplitter::NameBegin(std::size_t colon) const {
  const std::size_t from = std::max(text_, colon - std::min(colon, kLookBehind));
  const std::string_view before = std::string_view(buffer_).substr(from, colon - from);
  std::size_t longest = 0;
  for (const std::string_view name : kLogFunctions) {
    if (name.size() > longest && EndsWith(before, name)) longest = name.size();
  }
  if (longest != 0) return colon - longest;
  std::size_t begin = colon;
  while (begin > from && IsNameCharacter(buffer_[begin - 1])) --begin;
  if (begin == colon || IsDigit(buffer_[begin])) return colon;
  return StartsLine(begin) || PrefixBegin(begin) != begin ? begin : colon;
}

// Where "[00001234] 77 " in front of the name begins; the name itself when it is not there.
std::size_t LogSplitter::PrefixBegin(std::size_t nameBegin) const {
  std::size_t position = nameBegin;
  const auto back = [&](char expected) {
    if (position == text_ || buffer_[position - 1] != expected) return false;
    --position;
    return true;
  };
  const auto digitsBack = [&] {
    const std::size_t from = position;
    while (position > text_ && IsDigit(buffer_[position - 1])) --position;
    return from - position;
  };
  if (!back(' ') || digitsBack() == 0) return nameBegin;
  back('-');
  if (!back(' ') || !back(']') || digitsBack() < kProcessIdDigits || !back('[')) return nameBegin;
  return position;
}

bool LogSplitter::StartsLine(std::size_t position) const {
  return position == text_ ? lineStart_ : buffer_[position - 1] == '\n';
}

// Hands out the current record with the text up to `end`. Lines after its own belong to no record.
void LogSplitter::Emit(std::size_t end) {
  std::string_view rest = std::string_view(buffer_).substr(text_, end - text_);
  bool own = !current_.function.empty();
  while (own || !rest.empty()) {
    const std::size_t lineEnd = rest.find('\n');
    const std::string_view line = rest.substr(0, lineEnd);
    rest.remove_prefix(lineEnd == std::string_view::npos ? rest.size() : lineEnd + 1);
    if (!own && line.empty()) continue;
    current_.text = line;
    consumer_(std::exchange(current_, {}));
    own = false;
  }
}

void LogSplitter::DropConsumed() {
  if (text_ < kDropAt) return;
  // The character in front of the text tells whether a line starts there.
  lineStart_ = buffer_[text_ - 1] == '\n';
  buffer_.erase(0, text_);
  scan_ -= text_;
  text_ = 0;
}

}  // namespace common
