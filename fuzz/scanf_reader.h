#pragma once

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

// Reads a registry file with scanf's patterns, a second way next to the library's own parser.
class ScanfReader {
 public:
  explicit ScanfReader(const std::string& text) {
    if (text.empty()) return;  // fmemopen does not accept an empty text
    const std::string lines = text + '\n';
    file_ = fmemopen(const_cast<char*>(lines.data()), lines.size(), "r");
    ReadKeys();
    whole = whole && code == 0 && std::fgetc(file_) == EOF;
    std::fclose(file_);
    // A last key whose name is empty is dropped, with its values.
    const size_t last = keys.rfind("[KEY]\n\t0x");
    if (last != std::string::npos && keys[last + 19] == '\n') keys.resize(last);
  }

  std::string keys;   // as kaloctl writes them
  uint32_t code = 0;  // the library's error
  bool whole = true;  // whether the library reads the text to its end, without a cut-off item

 private:
  bool ReadLine() { return fscanf(file_, "%255[^\n]\n", line_) == 1; }

  // Reads "%x\n". Treats "0x" without digits as 0, because C libraries differ on it.
  bool ReadId(unsigned* id) {
    const long start = std::ftell(file_);
    char text[5] = {};
    std::fread(text, 1, 4, file_);
    const char* digits = text + (text[0] == '+' || text[0] == '-');
    const bool bare = digits[0] == '0' && (digits[1] | 0x20) == 'x' && !std::isxdigit(digits[2]);
    std::fseek(file_, start + (bare ? digits + 2 - text : 0), SEEK_SET);
    return fscanf(file_, bare ? "\n" : "%x\n", id) == 1 || bare;
  }

  // Reads up to the first line that is missing or wrong.
  void ReadKeys() {
    while (code == 0 && ReadLine()) {
      if (std::strcmp(line_, "[KEY]") == 0) {
        unsigned id = 0;
        whole = ReadId(&id) && ReadLine();
        char key[sizeof line_ + 32];
        std::snprintf(key, sizeof key, "[KEY]\n\t0x%08x\n\t%s\n", id, whole ? line_ : "");
        keys += key;
        if (!whole) return;
      } else if (std::strcmp(line_, "[VALUE]") == 0) {
        whole = !keys.empty() && ReadValue();  // a value without a key is not read
        if (!whole) return;
      } else {
        code = 13;
      }
    }
  }

  // Returns false if a line is missing.
  bool ReadValue() {
    const auto add = [this](const std::string& text) { keys += "\t\t\t" + text + '\n'; };
    if (!ReadLine()) return false;
    const std::string name = line_;
    if (!ReadLine()) return false;
    const int type = static_cast<int>(std::atol(line_));
    if (type != 1 && type != 4 && type != 11) return code = 12, false;
    keys += "\t\t[VALUE]\n";
    if (!name.empty()) add(name);
    add(std::to_string(type));
    if (!ReadLine()) return false;
    add(type == 1 ? line_ : std::to_string(static_cast<int>(std::strtol(line_, nullptr, 10))));
    return true;
  }

  FILE* file_ = nullptr;
  char line_[256];
};
