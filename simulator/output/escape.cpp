#include "simulator/output/escape.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace zulisim {
namespace {

constexpr const char* kReplacement = "\xef\xbf\xbd";

// How many bytes the character at `at` has; 0 when they are no UTF-8.
std::size_t CharacterSize(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) -> unsigned {
    return i < text.size() ? static_cast<std::uint8_t>(text[i]) : 0;
  };
  const unsigned first = byte(at);
  if (first < 0x80) return 1;
  const std::size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4) return 0;
  for (std::size_t i = 1; i < size; ++i) {
    if ((byte(at + i) & 0xc0) != 0x80) return 0;
  }
  // Longer than it needs to be, half of a surrogate pair, above the last character.
  const unsigned second = byte(at + 1);
  if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return 0;
  if ((first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return 0;
  return size;
}

// Copies `text`; `escape` gives what stands for an ASCII character, or null where it may stay.
template <typename Function>
std::string Escaped(const std::string& text, Function escape) {
  std::string escaped;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = CharacterSize(text, at);
    if (size > 1) {
      escaped.append(text, at, size);
    } else if (size == 0) {
      escaped += kReplacement;
    } else {
      escaped += escape(text[at]);
    }
    at += size > 1 ? size : 1;
  }
  return escaped;
}

}  // namespace

std::string JsonText(const std::string& text) {
  return Escaped(text, [](char c) {
    if (c == '"' || c == '\\') return std::string("\\") + c;
    if (static_cast<std::uint8_t>(c) >= ' ') return std::string(1, c);
    char code[8];
    std::snprintf(code, sizeof(code), "\\u%04x", static_cast<unsigned>(c));
    return std::string(code);
  });
}

std::string HtmlText(const std::string& text) {
  return Escaped(text, [](char c) -> std::string {
    switch (c) {
      case '&':
        return "&amp;";
      case '<':
        return "&lt;";
      case '>':
        return "&gt;";
      case '"':
        return "&quot;";
      case '\'':
        return "&#39;";
      default:
        break;
    }
    if (c == 0x7f) return "\xe2\x90\xa1";
    if (static_cast<std::uint8_t>(c) >= ' ' || c == '\n') return std::string(1, c);
    return std::string("\xe2\x90") + static_cast<char>(0x80 + c);  // the control pictures
  });
}

}  // namespace zulisim
