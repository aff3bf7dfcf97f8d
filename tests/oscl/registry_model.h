#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A second reader of the registry file, written with scanf's patterns themselves, to hold the
// library's reader against.
struct ModelValue {
  std::string name;
  uint32_t type = 0;
  std::string data;
};

template <typename Record, typename Field>
const Record* First(const std::vector<Record>& records, Field Record::*field, const Field& wanted) {
  for (const Record& record : records) {
    if (record.*field == wanted) return &record;
  }
  return nullptr;
}

struct ModelKey {
  uint32_t id = 0;
  std::string name;
  std::vector<ModelValue> values;

  const ModelValue* Find(const std::string& valueName) const {
    return First(values, &ModelValue::name, valueName);
  }
};

struct Model {
  uint32_t code = 0;
  std::vector<ModelKey> keys;  // in the order of look-ups

  const ModelKey* FindById(uint32_t id) const { return First(keys, &ModelKey::id, id); }
  const ModelKey* FindByName(const std::string& name) const {
    return First(keys, &ModelKey::name, name);
  }
};

Model ReadModel(const std::string& path);
