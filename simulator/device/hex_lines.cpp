#include "simulator/device/hex_lines.h"

#include <algorithm>
#include <cstdio>

namespace zulisim {
namespace {

std::string DiffLine(char sign, const Bytes& bytes, std::size_t offset) {
  if (offset >= bytes.size()) return "";
  const HexLine line = HexLineAt(bytes, offset);
  return std::string("    ") + sign + " " + HexOffset(offset) + "  " + line.digits + "  " +
         line.characters + "\n";
}

}  // namespace

HexLine HexLineAt(const Bytes& bytes, std::size_t offset) {
  HexLine line;
  const std::size_t end = std::min(bytes.size(), offset + kHexLineSize);
  for (std::size_t i = offset; i < end; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", bytes[i]);
    if (i > offset && (i - offset) % 4 == 0) line.digits += ' ';
    line.digits += digits;
    line.characters += bytes[i] >= ' ' && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
  }
  return line;
}

std::string HexOffset(std::size_t offset) {
  char text[24];
  std::snprintf(text, sizeof(text), "%04zx", offset);
  return text;
}

std::string HexDiff(const Bytes& expected, const Bytes& got, std::size_t mostLines) {
  std::string text;
  std::size_t lines = 0;
  const std::size_t end = std::max(expected.size(), got.size());
  for (std::size_t at = 0; at < end; at += kHexLineSize) {
    const auto piece = [at](const Bytes& bytes) {
      const std::size_t from = std::min(at, bytes.size());
      const std::size_t to = std::min(at + kHexLineSize, bytes.size());
      return Bytes(bytes.begin() + static_cast<long>(from), bytes.begin() + static_cast<long>(to));
    };
    if (piece(expected) == piece(got)) continue;
    if (++lines <= mostLines) text += DiffLine('-', expected, at) + DiffLine('+', got, at);
  }
  if (lines > mostLines) {
    text += "    ... and " + std::to_string(lines - mostLines) + " more lines of 16 bytes\n";
  }
  return text;
}

}  // namespace zulisim
