#include "common/number.h"

#include <charconv>
#include <cinttypes>
#include <cstdio>

#include "common/input_error.h"
#include "common/text.h"

namespace common {

std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t highest) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end || number > highest) return std::nullopt;
  return number;
}

std::uint64_t RequireNumber(const std::string& what, std::string_view text, std::uint64_t highest) {
  if (const auto number = ParseNumber(text, highest)) return *number;
  throw InputError(what + " is a number from 0 to " + std::to_string(highest) +
                   ", decimal or hexadecimal such as 0x1f, not " + Quoted(text));
}

std::string Hex(std::uint64_t value, int digits) {
  char text[32];
  std::snprintf(text, sizeof(text), "0x%0*" PRIx64, digits, value);
  return text;
}

}  // namespace common
