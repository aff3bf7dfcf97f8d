#include "common/hex.h"

#include <algorithm>
#include <charconv>
#include <sstream>

#include "common/format.h"
#include "common/input_error.h"
#include "common/text.h"

namespace common {
namespace {

bool IsBlank(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

std::string DiffLine(char sign, std::size_t offset, const HexLine& line) {
  if (line.digits.empty()) return "";
  return Format("    {} {:04x}  {}  {}\n", sign, offset, line.digits, line.characters);
}

}  // namespace

HexLine HexLineAt(const Bytes& bytes, std::size_t offset) {
  HexLine line;
  const std::size_t end = std::min(bytes.size(), offset + kHexLineSize);
  for (std::size_t i = offset; i < end; ++i) {
    if (i > offset && (i - offset) % 4 == 0) line.digits += ' ';
    line.digits += Format("{:02x}", bytes[i]);
    line.characters += bytes[i] >= ' ' && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
  }
  return line;
}

std::string HexDump(const Bytes& bytes, const std::string& indent) {
  constexpr std::size_t kDigitsWidth = 35;
  std::string text;
  std::string before;
  bool folded = false;
  for (std::size_t at = 0; at < bytes.size(); at += kHexLineSize) {
    HexLine line = HexLineAt(bytes, at);
    const bool last = at + kHexLineSize >= bytes.size();
    if (line.digits == before && !last) {
      if (!folded) text += indent + "*\n";
      folded = true;
      continue;
    }
    folded = false;
    before = line.digits;
    line.digits.resize(kDigitsWidth, ' ');
    text += Format("{}{:04x}  {}  {}\n", indent, at, line.digits, line.characters);
  }
  return text;
}

std::string HexDiff(const Bytes& expected, const Bytes& got, std::size_t mostLines) {
  std::string text;
  std::size_t lines = 0;
  const std::size_t end = std::max(expected.size(), got.size());
  for (std::size_t at = 0; at < end; at += kHexLineSize) {
    const HexLine left = HexLineAt(expected, at);
    const HexLine right = HexLineAt(got, at);
    if (left.digits == right.digits) continue;
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
        const char* const end = pair.data() + pair.size();
        const auto [stop, error] = std::from_chars(pair.data(), end, bytes.emplace_back(), 16);
        if (pair.size() == 2 && stop == end && error == std::errc()) continue;
        throw InputError(
            Format("line {}: {} is not a pair of hexadecimal digits; write bytes such as "
                   "'04 00 0a ff'",
                   number, Quoted(pair)));
      }
    }
  }
  return bytes;
}

bool LooksLikeText(std::string_view content) {
  return std::all_of(content.begin(), content.end(), [](char character) {
    return IsBlank(character) || (character >= 0x20 && character < 0x7f);
  });
}

}  // namespace common
