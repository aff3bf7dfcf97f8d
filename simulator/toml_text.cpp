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

}  // namespace

std::optional<Diagnostic> MisplacedCharacter(const std::string& text) {
  constexpr const char* kByteOrderMark = "\xef\xbb\xbf";
  for (std::size_t at = text.rfind(kByteOrderMark, 0) == 0 ? 3 : 0; at < text.size();) {
    if (text[at] == '#') {
      at = std::min(text.find('\n', at), text.size());
    } else if (text[at] == '"' || text[at] == '\'') {
      at = EndOfString(text, at);
    } else if (static_cast<unsigned char>(text[at]) >= 0x80) {
      const std::size_t feed = text.rfind('\n', at);
      const std::size_t lineStart = feed == std::string::npos ? 0 : feed + 1;
      const auto line = std::count(text.begin(), text.begin() + static_cast<long>(at), '\n') + 1;
      return Diagnostic{static_cast<std::uint32_t>(line),
                        static_cast<std::uint32_t>(at - lineStart + 1),
                        "no TOML: a character that is not ASCII needs quotes around it"};
    } else {
      ++at;
    }
  }
  return std::nullopt;
}

}  // namespace zulisim
