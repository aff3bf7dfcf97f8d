#include "simulator/toml_text.h"

#include <algorithm>

namespace zulisim {
namespace {

std::size_t QuotesAt(const std::string& text, std::size_t at) {
  const std::size_t end = std::min(text.find_first_not_of(text[at], at), text.size());
  return end - at;
}

// Where the string that begins at `at` ends.
std::size_t EndOfString(const std::string& text, std::size_t at) {
  const char quote = text[at];
  const std::size_t opening = QuotesAt(text, at);
  if (opening == 2) return at + 2;  // empty
  const std::size_t wanted = opening >= 3 ? 3 : 1;
  for (at += wanted; at < text.size(); ++at) {
    if (wanted == 1 && text[at] == '\n') return at;  // an error, which the parser reports
    if (quote == '"' && text[at] == '\\') {
      ++at;
    } else if (text[at] == quote && QuotesAt(text, at) >= wanted) {
      // A long string may end in up to two quotes of its own.
      return at + (wanted == 1 ? 1 : std::min<std::size_t>(QuotesAt(text, at), 5));
    }
  }
  return text.size();
}

bool IsAscii(char c) { return static_cast<unsigned char>(c) < 0x80; }

// Walks over a text as the parser does up to the first thing that is no TOML.
class Walker {
 public:
  explicit Walker(const std::string& text) : text_(text) {}

  // Where the first character stands that is not ASCII and has no quotes around it.
  std::size_t Misplaced() {
    constexpr const char* kByteOrderMark = "\xef\xbb\xbf";
    if (text_.rfind(kByteOrderMark, 0) == 0) at_ = 3;
    while (at_ < text_.size() && IsAscii(text_[at_])) Step(text_[at_]);
    return at_;
  }

 private:
  void Step(char c) {
    const bool isQuote = c == '"' || c == '\'';
    if (c == '#') {
      at_ = std::min(text_.find('\n', at_), text_.size());
    } else if (isQuote && !valueBegun_) {
      at_ = EndOfString(text_, at_);
      valueBegun_ = inValue_;
    } else if (std::string(" \t\r\n[]{},").find(c) != std::string::npos || (c == '=' && !inValue_)) {
      TakeSign(c);
      ++at_;
    } else if (inValue_) {
      TakeBareValue();
    } else {
      ++at_;
    }
  }

  void TakeSign(char c) {
    if (c == '\n' && brackets_.empty()) Begin(false);
    if (c == '=') Begin(true);
    if ((c == '[' || c == '{') && inValue_) {
      brackets_.push_back(c);
      Begin(c == '[');
    } else if ((c == ']' || c == '}') && !brackets_.empty()) {
      brackets_.pop_back();
      inValue_ = valueBegun_ = true;
    } else if (c == ',' && !brackets_.empty()) {
      Begin(brackets_.back() == '[');
    }
  }

  void Begin(bool value) {
    inValue_ = value;
    valueBegun_ = false;
  }

  // A number, a date and the like is one piece to the parser, with quotes and all that is in it.
  void TakeBareValue() {
    valueBegun_ = true;
    while (at_ < text_.size() && IsAscii(text_[at_]) &&
           std::string(" \t\r\n,]}#").find(text_[at_]) == std::string::npos) {
      ++at_;
    }
  }

  const std::string& text_;
  std::size_t at_ = 0;
  std::string brackets_;     // the open ones of arrays and inline tables
  bool inValue_ = false;     // else at a key
  bool valueBegun_ = false;  // so that no string can begin
};

}  // namespace

std::optional<Diagnostic> MisplacedCharacter(const std::string& text) {
  const std::size_t at = Walker(text).Misplaced();
  if (at >= text.size()) return std::nullopt;
  const std::size_t feed = text.rfind('\n', at);
  const std::size_t lineStart = feed == std::string::npos ? 0 : feed + 1;
  const auto line = std::count(text.begin(), text.begin() + static_cast<long>(at), '\n') + 1;
  return Diagnostic{static_cast<std::uint32_t>(line),
                    static_cast<std::uint32_t>(at - lineStart + 1),
                    "no TOML: a character that is not ASCII needs quotes around it"};
}

}  // namespace zulisim
