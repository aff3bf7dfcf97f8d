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

struct ModelKey {
  uint32_t id = 0;
  std::string name;
  std::vector<ModelValue> values;

  const ModelValue* Find(const std::string& valueName) const;
};

struct Model {
  uint32_t code = 0;
  std::vector<ModelKey> keys;  // in the order of look-ups

  const ModelKey* FindById(uint32_t id) const;
  const ModelKey* FindByName(const std::string& name) const;
};

Model ReadModel(const std::string& path);
