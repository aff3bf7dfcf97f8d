#include "tests/oscl/registry_model.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Reads what the loader does up to the first read that fails.
uint32_t ReadKeys(FILE* file, std::vector<ModelKey>& keys, ModelKey*& key) {
  char line[256];
  const auto read = [&] { return fscanf(file, "%255[^\n]\n", line) == 1; };
  while (read()) {
    if (std::strcmp(line, "[KEY]") == 0) {
      key = &*keys.emplace(keys.begin() + (keys.empty() ? 0 : 1));
      if (fscanf(file, "%x\n", &key->id) != 1 || !read()) return 0;
      key->name = line;
    } else if (std::strcmp(line, "[VALUE]") == 0) {
      if (key == nullptr || !read()) return 0;
      const std::string name = line;
      if (!read()) return 0;
      const auto type = static_cast<uint32_t>(std::atol(line));
      if (type != 1 && type != 4 && type != 11) return 12;
      ModelValue& value = key->values.emplace_back(ModelValue{name, type, ""});
      if (!read()) return 0;
      const auto number = static_cast<int32_t>(std::strtol(line, nullptr, 10));
      const auto* bytes = reinterpret_cast<const char*>(&number);
      value.data = type == 1 ? std::string(line) + '\0' : std::string(bytes, sizeof(number));
    } else {
      return 13;
    }
  }
  return 0;
}

}  // namespace

Model ReadModel(const std::string& path) {
  Model model;
  ModelKey* last = nullptr;
  FILE* file = std::fopen(path.c_str(), "r");
  model.code = ReadKeys(file, model.keys, last);
  std::fclose(file);
  if (last != nullptr && last->name.empty())
    model.keys.erase(model.keys.begin() + (last - &model.keys[0]));
  return model;
}
