#include "common/hex.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <utility>

#include "common/format.h"
#include "common/input_error.h"
#include "common/number.h"
#include "common/text.h"

namespace common {
namespace {

constexpr std::size_t kLineSize = 16;

// Returns the digits and the characters of up to 16 bytes; empty if there are none at `offset`.
std::string LineAt(const Bytes& bytes, std::size_t offset) {
  std::string digits, characters;
  for (std::size_t i = offset; i < std::min(bytes.size(), offset + kLineSize); ++i) {
    if (i > offset && i % 4 == 0) digits += ' ';
    digits += Format("{:02x}", bytes[i]);
    characters += bytes[i] >= ' ' && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
  }
  return digits.empty() ? "" : Format("{:<35}  {}", digits, characters);
}

std::string DiffLine(char sign, std::size_t offset, const std::string& line) {
  return line.empty() ? "" : Format("    {} {:04x}  {}\n", sign, offset, line);
}

}  // namespace

std::string HexDump(const Bytes& bytes, const std::string& indent) {
  std::string text, before;
  bool folded = false;
  for (std::size_t at = 0; at < bytes.size(); at += kLineSize) {
    const std::string line = LineAt(bytes, at);
    const bool equal = line == std::exchange(before, line) && at + kLineSize < bytes.size();
    if (!equal) text += Format("{}{:04x}  {}\n", indent, at, line);
    if (equal && !folded) text += indent + "*\n";
    folded = equal;
  }
  return text;
}

std::string HexDiff(const Bytes& expected, const Bytes& got, std::size_t mostLines) {
  std::string text;
  std::size_t lines = 0;
  for (std::size_t at = 0; at < std::max(expected.size(), got.size()); at += kLineSize) {
    const std::string left = LineAt(expected, at), right = LineAt(got, at);
    if (left == right) continue;
    if (++lines <= mostLines) text += DiffLine('-', at, left) + DiffLine('+', at, right);
  }
  if (lines > mostLines) {
    text +=
        "    ... and " + Counted(lines - mostLines, "more line", "more lines") + " of 16 bytes\n";
  }
  return text;
}

std::string HexDigits(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += Format("{:02x}", byte);
  return text;
}

Bytes ParseHex(const std::string& text) {
  Bytes bytes;
  std::istringstream stream(text);
  std::string line;
  for (int number = 1; std::getline(stream, line); ++number) {
    std::istringstream words(line.substr(0, line.find('#')));
    for (std::string word; words >> word;) {
      for (std::size_t at = 0; at < word.size(); at += 2) {
        const std::string pair = word.substr(at, 2);
        const auto byte = ParseNumber("0x" + pair);
        if (pair.size() < 2 || !byte) {
          throw InputError(
              Format("line {}: {} is not a pair of hexadecimal digits; write bytes such as "
                     "'04 00 0a ff'",
                     number, Quoted(pair)));
        }
        bytes.push_back(static_cast<std::uint8_t>(*byte));
      }
    }
  }
  return bytes;
}

bool LooksLikeText(std::string_view content) {
  return std::all_of(content.begin(), content.end(), [](unsigned char character) {
    return std::isspace(character) != 0 || std::isprint(character) != 0;
  });
}

}  // namespace common
