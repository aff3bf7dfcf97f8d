#include "common/number.h"

#include <charconv>

#include "common/format.h"
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
  throw InputError(Format("{}: expected a number from 0 to {}, decimal or 0x hexadecimal, not {}",
                          what, highest, Quoted(text)));
}

std::string Hex(std::uint64_t value, int digits) { return Format("0x{:0{}x}", value, digits); }

}  // namespace common
