#include "common/hex.h"

#include <algorithm>
#include <cstdio>

#include "common/input_error.h"
#include "common/text.h"

namespace common {
namespace {

int DigitValue(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

bool IsBlank(char character) {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

bool IsSeparator(char character) {
  return IsBlank(character) || character == ',' || character == ':';
}

// "0010"
std::string Offset(std::size_t offset) {
  char text[24];
  std::snprintf(text, sizeof(text), "%04zx", offset);
  return text;
}

std::string DiffLine(char sign, std::size_t offset, const HexLine& line) {
  if (line.digits.empty()) return "";
  return std::string("    ") + sign + " " + Offset(offset) + "  " + line.digits + "  " +
         line.characters + "\n";
}

class HexParser {
 public:
  explicit HexParser(std::string_view text) : text_(text) {}

  Bytes Parse() {
    while (position_ < text_.size()) {
      const char character = text_[position_];
      if (character == '#') {
        position_ = std::min(text_.find('\n', position_), text_.size());
      } else if (IsSeparator(character)) {
        ++position_;
      } else {
        ReadRun();
      }
    }
    return bytes_;
  }

 private:
  void ReadRun() {
    if (text_.substr(position_, 2) == "0x" || text_.substr(position_, 2) == "0X") position_ += 2;
    do {
      const int high = DigitAt(position_);
      const int low = DigitAt(position_ + 1);
      bytes_.push_back(static_cast<std::uint8_t>(high * 16 + low));
      position_ += 2;
    } while (position_ < text_.size() && !IsSeparator(text_[position_]) && text_[position_] != '#');
  }

  int DigitAt(std::size_t index) const {
    if (index >= text_.size() || IsSeparator(text_[index]) || text_[index] == '#') {
      Complain(index, "a byte lacks its second digit");
    }
    const int value = DigitValue(text_[index]);
    if (value < 0) {
      Complain(index, Quoted(text_.substr(index, 1)) + " is not a hexadecimal digit");
    }
    return value;
  }

  [[noreturn]] void Complain(std::size_t index, const std::string& what) const {
    const std::string_view before = text_.substr(0, index);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const std::size_t start = before.rfind('\n');
    const std::size_t column = index - (start == std::string_view::npos ? 0 : start + 1) + 1;
    throw InputError("line " + std::to_string(line) + ", column " + std::to_string(column) + ": " +
                     what + ": pairs of hexadecimal digits are expected, such as '04 00 0a ff'");
  }

  std::string_view text_;
  std::size_t position_ = 0;
  Bytes bytes_;
};

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
    text += indent + Offset(at) + "  " + line.digits + "  " + line.characters + "\n";
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
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

Bytes ParseHex(std::string_view text) { return HexParser(text).Parse(); }

bool LooksLikeText(std::string_view content) {
  return std::all_of(content.begin(), content.end(), [](char character) {
    return IsBlank(character) || (character >= 0x20 && character < 0x7f);
  });
}

}  // namespace common
