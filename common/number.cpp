#include "common/number.h"

#include <charconv>
#include <cinttypes>
#include <cstdio>

namespace kaloctl {

std::optional<uint32_t> ParseNumber(std::string_view text) {
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  uint32_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

std::string Hex(uint64_t value, int digits) {
  char text[32];
  std::snprintf(text, sizeof(text), "0x%0*" PRIx64, digits, value);
  return text;
}

}  // namespace kaloctl
