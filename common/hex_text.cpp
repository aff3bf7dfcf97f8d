#include "common/hex_text.h"

#include <algorithm>
#include <cstddef>
#include <string>

#include "common/input_error.h"
#include "common/printable.h"

namespace kaloctl {

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

class HexTextParser {
 public:
  explicit HexTextParser(std::string_view text) : text_(text) {}

  std::vector<uint8_t> Parse() {
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
      bytes_.push_back(static_cast<uint8_t>(high * 16 + low));
      position_ += 2;
    } while (position_ < text_.size() && !IsSeparator(text_[position_]) && text_[position_] != '#');
  }

  int DigitAt(std::size_t index) const {
    if (index >= text_.size() || IsSeparator(text_[index]) || text_[index] == '#') {
      Complain(index, "a byte lacks its second digit");
    }
    const int value = DigitValue(text_[index]);
    if (value < 0) {
      Complain(index, "'" + Printable(text_.substr(index, 1)) + "' is no hexadecimal digit");
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
  std::vector<uint8_t> bytes_;
};

}  // namespace

std::vector<uint8_t> ParseHexText(std::string_view text) { return HexTextParser(text).Parse(); }

bool LooksLikeText(std::string_view content) {
  return std::all_of(content.begin(), content.end(), [](char character) {
    return IsBlank(character) || (character >= 0x20 && character < 0x7f);
  });
}

}  // namespace kaloctl
