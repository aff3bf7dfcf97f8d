#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace kaloctl {

// Bytes written as pairs of hexadecimal digits. Pairs may stand together or be parted by white
// space, ',' or ':'; each run may begin with "0x"; '#' starts a comment that ends with the line.
// Throws InputError that names line, column and character.
std::vector<uint8_t> ParseHexText(std::string_view text);

// True for content without control characters other than white space, and without bytes above 0x7e.
// A message is never that: the upper byte of its command identifier is 0.
bool LooksLikeText(std::string_view content);

}  // namespace kaloctl
