#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace common {

inline constexpr std::uint64_t kMaxWord = 0xffffffff;

// Parses an unsigned number without white space, either decimal or hexadecimal with "0x". Returns
// nullopt for any other text, and for a number above `highest`.
std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t highest = kMaxWord);

// The same, but throws InputError "`what`: expected a number from 0 to `highest`, not 'text'".
std::uint64_t RequireNumber(const std::string& what, std::string_view text,
                            std::uint64_t highest = kMaxWord);

// Returns "0x" and at least `digits` lower-case hexadecimal digits.
std::string Hex(std::uint64_t value, int digits = 1);

}  // namespace common
