#include "common/hex_dump.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace kaloctl {

namespace {

constexpr std::size_t kRow = 16;

std::string RowOf(const uint8_t* bytes, std::size_t size, std::size_t offset) {
  char cell[16];
  std::snprintf(cell, sizeof(cell), "%08zx ", offset);
  std::string row = cell;
  std::string characters;
  for (std::size_t i = 0; i < kRow; ++i) {
    if (i == kRow / 2) row += ' ';
    if (i >= size) {
      row += "   ";
      continue;
    }
    std::snprintf(cell, sizeof(cell), " %02x", bytes[i]);
    row += cell;
    characters += bytes[i] >= 0x20 && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
  }
  return row + "  |" + characters + "|";
}

}  // namespace

void PrintHexDump(std::ostream& out, const uint8_t* bytes, std::size_t size,
                  std::string_view indent) {
  bool folded = false;
  for (std::size_t offset = 0; offset < size; offset += kRow) {
    const std::size_t length = std::min(kRow, size - offset);
    const bool last = offset + kRow >= size;
    if (offset != 0 && !last && std::memcmp(bytes + offset, bytes + offset - kRow, kRow) == 0) {
      if (!folded) out << indent << "*\n";
      folded = true;
      continue;
    }
    folded = false;
    out << indent << RowOf(bytes + offset, length, offset) << '\n';
  }
}

}  // namespace kaloctl
