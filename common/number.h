#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace common {

inline constexpr std::uint64_t kMaxWord = 0xffffffff;

// An unsigned number, decimal, or hexadecimal after "0x"; nothing may stand around it, and it may
// be `highest` at most.
std::optional<std::uint64_t> ParseNumber(std::string_view text, std::uint64_t highest = kMaxWord);

// The same, or an InputError "`what` is a number from 0 to `highest`, not 'text'".
std::uint64_t RequireNumber(const std::string& what, std::string_view text,
                            std::uint64_t highest = kMaxWord);

// "0x" and at least `digits` lower-case hexadecimal digits.
std::string Hex(std::uint64_t value, int digits = 1);

}  // namespace common
