#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace common {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::size_t kHexLineSize = 16;

// The bytes from an offset on, at most kHexLineSize of them.
struct HexLine {
  std::string digits;      // "f1fcf6fb cf962e4e a6a61bab 8cbe36b1"
  std::string characters;  // a dot for all that is not printable ASCII
};
HexLine HexLineAt(const Bytes& bytes, std::size_t offset);

// A line for each sixteen bytes, after `indent`: the offset, the digits, the characters. Lines that
// repeat the one before are shown as one "*".
std::string HexDump(const Bytes& bytes, const std::string& indent = "");

// The lines in which two messages differ, those of `expected` after "-" and those of `got` after
// "+", with their offset; at most so many, and a last line that counts the rest.
std::string HexDiff(const Bytes& expected, const Bytes& got, std::size_t mostLines = 8);

// Returns two lower-case hexadecimal digits for each byte.
std::string HexDigits(const Bytes& bytes);

// Bytes written as pairs of hexadecimal digits. Pairs may stand together or be separated by white
// space, ',' or ':'; each run may begin with "0x"; '#' starts a comment that ends with the line.
// Throws InputError that names line, column and character.
Bytes ParseHex(std::string_view text);

// True for content without control characters other than white space, and without bytes above 0x7e.
// A message is never that: the upper byte of its command identifier is 0.
bool LooksLikeText(std::string_view content);

}  // namespace common
