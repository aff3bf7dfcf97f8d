#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kaloctl {

// An unsigned 32-bit number, decimal or with "0x" hexadecimal; nothing may stand around it.
std::optional<uint32_t> ParseNumber(std::string_view text);

// "0x" and at least `digits` lower-case hexadecimal digits.
std::string Hex(uint64_t value, int digits = 1);

}  // namespace kaloctl
