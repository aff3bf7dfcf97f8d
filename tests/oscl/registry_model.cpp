#include "tests/oscl/registry_model.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Reads what the loader does up to the first read that fails; the key in progress is the last.
uint32_t ReadKeys(FILE* file, std::vector<ModelKey>& keys) {
  char line[256];
  const auto read = [&] { return fscanf(file, "%255[^\n]\n", line) == 1; };
  while (read()) {
    if (std::strcmp(line, "[KEY]") == 0) {
      keys.emplace_back();
      if (fscanf(file, "%x\n", &keys.back().id) != 1 || !read()) return 0;
      keys.back().name = line;
    } else if (std::strcmp(line, "[VALUE]") == 0) {
      ModelValue value;
      if (keys.empty() || !read()) return 0;
      value.name = line;
      if (!read()) return 0;
      value.type = static_cast<uint32_t>(std::atol(line));
      if (value.type != 1 && value.type != 4 && value.type != 11) return 12;
      const bool hasData = read();
      const auto number = static_cast<int32_t>(std::strtol(line, nullptr, 10));
      if (hasData && value.type == 1) value.data = std::string(line) + '\0';
      if (hasData && value.type != 1) {
        value.data.assign(reinterpret_cast<const char*>(&number), sizeof(number));
      }
      keys.back().values.push_back(value);
      if (!hasData) return 0;
    } else {
      return 13;
    }
  }
  return 0;
}

template <typename Record, typename Matches>
const Record* First(const std::vector<Record>& records, Matches matches) {
  for (const Record& record : records) {
    if (matches(record)) return &record;
  }
  return nullptr;
}

}  // namespace

const ModelValue* ModelKey::Find(const std::string& valueName) const {
  return First(values, [&](const ModelValue& value) { return value.name == valueName; });
}

const ModelKey* Model::FindById(uint32_t id) const {
  return First(keys, [&](const ModelKey& key) { return key.id == id; });
}

const ModelKey* Model::FindByName(const std::string& name) const {
  return First(keys, [&](const ModelKey& key) { return key.name == name; });
}

Model ReadModel(const std::string& path) {
  Model model;
  std::vector<ModelKey> inFileOrder;
  FILE* file = std::fopen(path.c_str(), "r");
  model.code = ReadKeys(file, inFileOrder);
  std::fclose(file);
  if (!inFileOrder.empty() && inFileOrder.back().name.empty()) inFileOrder.pop_back();
  for (const ModelKey& key : inFileOrder) {
    model.keys.insert(model.keys.begin() + (model.keys.empty() ? 0 : 1), key);
  }
  return model;
}
