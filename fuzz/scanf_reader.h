#pragma once

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/format.h"

// Reads a registry file with scanf's patterns, a second way next to the library's own parser.
class ScanfReader {
 public:
  explicit ScanfReader(const std::string& text) : text_(text + '\n') {
    if (text.empty()) return;  // no line to read
    file_ = fmemopen(text_.data(), text_.size(), "r");
    whole = ReadItems();
    std::fclose(file_);
    // A last key whose name is empty is dropped, with its values.
    const size_t last = keys.rfind("[KEY]\n\t0x");
    if (last != std::string::npos && keys[last + 19] == '\n') keys.resize(last);
  }

  std::string keys;      // as kaloctl writes them
  unsigned code = 0;     // the library's error
  bool whole = true;     // whether the library reads the text to its end, without a cut-off item
  bool complete = true;  // whether each value has data
  bool texts = false;    // whether a value is a text

 private:
  bool ReadLine() { return fscanf(file_, "%255[^\n]\n", line_) == 1; }

  // Reads "%x\n". Treats "0x" without digits as 0, because C libraries differ on it.
  bool ReadId(unsigned* id) {
    const char* const number = &text_[std::ftell(file_)];
    const char* const digits = number + (*number == '+' || *number == '-');
    const bool bare = digits[0] == '0' && (digits[1] | 0x20) == 'x' && !std::isxdigit(digits[2]);
    if (bare) std::fseek(file_, digits + 2 - number, SEEK_CUR);
    return fscanf(file_, bare ? "\n" : "%x\n", id) == 1 || bare;
  }

  // Returns false if a line is missing or wrong.
  bool ReadItems() {
    while (ReadLine()) {
      const std::string mark = line_;
      if (mark == "[KEY]") {
        unsigned id = 0;
        const bool named = ReadId(&id) && ReadLine();
        keys += common::Format("[KEY]\n\t0x{:08x}\n\t{}\n", id, named ? line_ : "");
        if (!named) return false;
      } else if (mark != "[VALUE]") {
        code = 13;
        return false;
      } else if (keys.empty() || !ReadValue()) {  // a value without a key is not read
        return false;
      }
    }
    return std::fgetc(file_) == EOF;
  }

  bool ReadValue() {
    if (!ReadLine()) return false;
    const std::string name = *line_ != '\0' ? common::Format("\t\t\t{}\n", line_) : "";
    if (!ReadLine()) return false;
    const int type = static_cast<int>(std::atol(line_));
    if (type != 1 && type != 4 && type != 11) return code = 12, false;
    keys += common::Format("\t\t[VALUE]\n{}\t\t\t{}\n", name, type);
    texts = texts || type == 1;
    complete = ReadLine();
    if (!complete) return false;
    const int number = static_cast<int>(std::strtol(line_, nullptr, 10));
    keys += common::Format("\t\t\t{}\n", type == 1 ? line_ : std::to_string(number));
    return true;
  }

  std::string text_;
  FILE* file_ = nullptr;
  char line_[256];
};
