#pragma once

#include <cstddef>
#include <string>

#include "simulator/device/operation.h"

namespace zulisim {

inline constexpr std::size_t kHexLineSize = 16;

// The bytes from an offset on, at most kHexLineSize of them.
struct HexLine {
  std::string digits;      // "f1fcf6fb cf962e4e a6a61bab 8cbe36b1"
  std::string characters;  // a dot for all that is not printable ASCII
};
HexLine HexLineAt(const Bytes& bytes, std::size_t offset);

// "0010"
std::string HexOffset(std::size_t offset);

// The lines in which two messages differ, those of `expected` behind "-" and those of `got` behind
// "+", with their offset; at most so many, and a last line that counts the rest.
std::string HexDiff(const Bytes& expected, const Bytes& got, std::size_t mostLines = 8);

}  // namespace zulisim
