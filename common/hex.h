#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace common {

using Bytes = std::vector<std::uint8_t>;

// Returns one line per sixteen bytes. Each line has `indent`, the offset, the digits and the
// characters. One "*" replaces lines that are equal to the line before them.
std::string HexDump(const Bytes& bytes, const std::string& indent = "");

// Returns the lines that differ between two messages: those of `expected` after "-", those of `got`
// after "+". Shows at most `mostLines` pairs; a last line counts the rest.
std::string HexDiff(const Bytes& expected, const Bytes& got, std::size_t mostLines = 8);

// Returns two lower-case hexadecimal digits for each byte.
std::string HexDigits(const Bytes& bytes);

// Parses pairs of hexadecimal digits, with or without white space between them. '#' starts a
// comment that ends with the line. Throws an InputError that names the line and the invalid pair.
Bytes ParseHex(const std::string& text);

// Returns true if `content` has no control characters other than white space, and no bytes above
// 0x7e. A message never looks like that: the upper byte of its command is 0.
bool LooksLikeText(std::string_view content);

}  // namespace common
