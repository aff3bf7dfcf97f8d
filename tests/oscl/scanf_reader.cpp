#include "tests/oscl/scanf_reader.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "oscl/registry_image.h"

namespace {

// Reads "%x\n". Treats "0x" without digits as 0, because C libraries differ on it.
bool ReadId(FILE* file, unsigned* id) {
  const long start = std::ftell(file);
  char text[5] = {};
  std::fread(text, 1, 4, file);
  const char* digits = text + (text[0] == '+' || text[0] == '-');
  const bool bare = digits[0] == '0' && (digits[1] | 0x20) == 'x' && !std::isxdigit(digits[2]);
  std::fseek(file, start + (bare ? digits + 2 - text : 0), SEEK_SET);
  return fscanf(file, bare ? "\n" : "%x\n", id) == 1 || bare;
}

struct Key {
  unsigned id = 0;
  std::string name, values;
};

// Reads up to the first line that is missing. Returns the code.
int ReadKeys(FILE* file, std::vector<Key>& keys) {
  char line[256];
  const auto read = [&] { return fscanf(file, "%255[^\n]\n", line) == 1; };
  while (read()) {
    if (std::strcmp(line, "[KEY]") == 0) {
      if (!ReadId(file, &keys.emplace_back().id) || !read()) return 0;
      keys.back().name = line;
    } else if (std::strcmp(line, "[VALUE]") == 0) {
      if (keys.empty() || !read()) return 0;
      const std::string name = line;
      if (!read()) return 0;
      const int type = static_cast<int>(std::atol(line));
      if (type != 1 && type != 4 && type != 11) return 12;
      std::string& values = keys.back().values;
      values += "\t\t[VALUE] \n" + (name.empty() ? "" : "\t\t\t" + name + " \n");
      values += "\t\t\t" + std::to_string(type) + " \n";
      if (!read()) return 0;
      const int number = static_cast<int>(std::strtol(line, nullptr, 10));
      values += "\t\t\t" + (type == 1 ? line : std::to_string(number)) + " \n";
    } else {
      return 13;
    }
  }
  return 0;
}

}  // namespace

std::string RenderedByScanf(const std::string& text) {
  std::vector<Key> keys;
  if (!text.empty()) {  // fmemopen does not accept an empty text
    FILE* file = fmemopen(const_cast<char*>(text.data()), text.size(), "r");
    const int code = ReadKeys(file, keys);
    std::fclose(file);
    if (code != 0) return "code " + std::to_string(code);
  }
  if (!keys.empty() && keys.back().name.empty()) keys.pop_back();
  std::string rendered;
  // The first key of the file, then the last, the one before it, and so on.
  for (size_t i = 0; i < keys.size(); ++i) {
    const Key& key = keys[i == 0 ? 0 : keys.size() - i];
    char id[16];
    std::snprintf(id, sizeof id, "0x%08x", key.id);
    rendered += std::string("[KEY] \n\t") + id + " \n\t" + key.name + " \n" + key.values;
  }
  return rendered;
}

std::string RenderedByLibrary(const std::string& text) {
  try {
    return oscl::RegistryImage(text).Rendered();
  } catch (const oscl::RegistryFailure& failure) {
    return "code " + std::to_string(failure.code());
  }
}
