#include "common/log_splitter.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace common {
namespace {

// The functions whose names start the library's log messages. One message may follow another
// without a line feed, so only these names show where a message begins.
constexpr std::string_view kLogFunctions[] = {
    "KaloStateInit",   "KaloInit3",    "StartIoEx3",   "StartIo3",      "KaloCleanup3",
    "SessionCleanup",  "KaloInit",     "StartIoEx",    "KaloCleanup",   "FenuInit3",
    "FenuInit",        "FenuCleanup3", "FenuCleanup",  "CpDremSession", "~CpDremSession",
    "Connect",         "Disconnect",   "ReadFromZuli", "WriteToZuli",   "IoMessage",
    "SendIoctlToZuli",
};

constexpr std::size_t kMaxTagDigits = 10;
constexpr int kProcessIdDigits = 8;
// The number of bytes, from the colon on, that decide whether it ends a function name: the digits,
// and ": " after them.
constexpr std::size_t kLookAhead = 1 + kMaxTagDigits + 2;

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

void LogSplitter::Feed(std::string_view piece) {
  buffer_ += piece;
  Scan(false);
  buffer_.erase(0, text_);
  scan_ -= text_;
  text_ = 0;
}

void LogSplitter::Finish() {
  Scan(true);
  Emit(buffer_.size());
  buffer_.clear();
  text_ = scan_ = 0;
}

void LogSplitter::Scan(bool final) {
  for (;;) {
    scan_ = std::min(buffer_.find(':', scan_), buffer_.size());
    if (scan_ + (final ? 1 : kLookAhead) > buffer_.size()) return;
    if (std::optional<Lead> lead = LeadAt(scan_)) {
      Emit(lead->begin);
      current_ = std::move(lead->record);
      text_ = scan_ = lead->end;
    } else {
      ++scan_;
    }
  }
}

std::optional<LogSplitter::Lead> LogSplitter::LeadAt(std::size_t colon) const {
  const std::size_t end =
      std::min(buffer_.find_first_not_of("0123456789", colon + 1), buffer_.size());
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

// Returns where the function name before the colon begins, or `colon` if there is none.
std::size_t LogSplitter::NameBegin(std::size_t colon) const {
  const std::string_view before = std::string_view(buffer_).substr(text_, colon - text_);
  std::size_t longest = 0;
  for (const std::string_view name : kLogFunctions) {
    if (name.size() > longest && EndsWith(before, name)) longest = name.size();
  }
  return colon - longest;
}

// Returns where the prefix "[00001234] 77 " before the name begins, or `nameBegin` if there is
// none.
std::size_t LogSplitter::PrefixBegin(std::size_t nameBegin) const {
  const std::string_view before = std::string_view(buffer_).substr(text_, nameBegin - text_);
  const std::size_t begin = EndsWith(before, " ") ? before.rfind('[') : std::string_view::npos;
  if (begin == std::string_view::npos) return nameBegin;
  const std::string prefix(before.substr(begin));
  int digits = 0, length = 0;
  std::sscanf(prefix.c_str(), "[%*[0-9]%n] %*d %n", &digits, &length);
  const bool matches = digits > kProcessIdDigits && length == static_cast<int>(prefix.size());
  return matches ? text_ + begin : nameBegin;
}

// Passes the current record to the consumer, with its text up to `end` or to the first line feed.
// Passes each later line as a record without a function.
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

}  // namespace common
