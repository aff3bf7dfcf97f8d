#include "tests/oscl/registry_check.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/user_feature.h"

namespace {

// A second reader of the registry file. It uses scanf's patterns directly, to check the library's
// reader.
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
  std::vector<ModelKey> keys;  // in the order in which they are searched

  const ModelKey* FindById(uint32_t id) const { return First(keys, &ModelKey::id, id); }
  const ModelKey* FindByName(const std::string& name) const {
    return First(keys, &ModelKey::name, name);
  }
};

// Reads "%x\n". Treats "0x" without digits as 0, because C libraries differ on it.
bool ReadId(FILE* file, uint32_t* id) {
  const long start = std::ftell(file);
  char text[5] = {};
  std::fread(text, 1, 4, file);
  const char* digits = text + (text[0] == '+' || text[0] == '-');
  const bool bare = digits[0] == '0' && (digits[1] | 0x20) == 'x' && !std::isxdigit(digits[2]);
  std::fseek(file, start + (bare ? digits + 2 - text : 0), SEEK_SET);
  return fscanf(file, bare ? "\n" : "%x\n", id) == 1 || bare;
}

// Reads the same part of the file as the library's loader: up to the first read that fails.
uint32_t ReadKeys(FILE* file, std::vector<ModelKey>& keys, ModelKey*& key) {
  char line[256];
  const auto read = [&] { return fscanf(file, "%255[^\n]\n", line) == 1; };
  while (read()) {
    if (std::strcmp(line, "[KEY]") == 0) {
      key = &*keys.emplace(keys.begin() + (keys.empty() ? 0 : 1));
      if (!ReadId(file, &key->id) || !read()) return 0;
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

using Below = std::function<uint32_t(std::size_t)>;

#define CHECK(condition) \
  if (!(condition)) throw std::logic_error(std::to_string(__LINE__) + ": " #condition)

// Returns the file that the library must write for the model.
std::string FormatModel(const Model& model) {
  std::string file;
  for (const ModelKey& key : model.keys) {
    char id[16];
    std::snprintf(id, sizeof(id), "\t0x%08x \n", key.id);
    file += std::string("[KEY] \n") + id + "\t" + key.name + " \n";
    for (const ModelValue& value : key.values) {
      file += "\t\t[VALUE] \n\t\t\t" + value.name + (value.name.empty() ? "" : " \n\t\t\t");
      file += std::to_string(value.type) + " \n";
      const bool isNumber = value.type == REG_DWORD || value.type == REG_QWORD;
      int32_t number = 0;
      value.data.copy(reinterpret_cast<char*>(&number), sizeof(number));
      const std::string text = isNumber ? std::to_string(number) : value.data.c_str();
      if (!value.data.empty()) file += "\t\t\t" + text + " \n";
    }
  }
  return file;
}

std::string ReadContent(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// Returns the expected error code of a look-up, and the value.
std::pair<uint32_t, const ModelValue*> LookUp(const Model& model, uint32_t id,
                                              const std::string& subKey, const char* name) {
  if (id - HKEY_CLASSES_ROOT < 4) return {1, nullptr};
  if (model.code != 0 || name == nullptr) return {model.code != 0 ? model.code : 2, nullptr};
  const ModelKey* named = model.FindById(id);
  const ModelKey* key = model.FindByName((named != nullptr ? named->name : "") + subKey);
  const ModelValue* value = key != nullptr ? key->Find(name) : nullptr;
  return {key == nullptr ? 7 : value == nullptr ? 8 : 0, value};
}

void CheckOpening(const Model& model, const std::string& name) {
  static const std::string kRoots[] = {"HKEY_CLASSES_ROOT\\", "HKEY_CURRENT_USER\\",
                                       "HKEY_LOCAL_MACHINE\\", "HKEY_USERS\\", ""};
  for (uint32_t root = 0; root < 5; ++root) {
    const std::string& prefix = kRoots[root];
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    // A sub-key that is too long is dropped completely.
    const ModelKey* key = model.FindByName(name.size() < 256 ? name : prefix);
    const uint32_t code = model.code != 0 ? model.code : key == nullptr ? 15 : 0;
    HKEY opened = 0;
    CHECK(RegOpenKeyExA(HKEY_CLASSES_ROOT + root, &name[prefix.size()], 0, 0, &opened) == code);
    CHECK(GetLastError() == code);
    CHECK(opened == (code == 0 ? key->id : 0));
  }
}

void CheckWatching(const Model& model, const std::string& name) {
  UserFeatureNotifyKey watch = {0, name.c_str(), 1, nullptr};
  const bool found = model.code == 0 && model.FindByName(name) != nullptr;
  const HRESULT result = OSCL_UserFeature_EnableNotification(nullptr, &watch);
  CHECK(result == (found ? S_OK : model.code != 0 ? model.code : 15) && watch.changed == 0);
  FreeMem(watch.notifyData);
}

void CheckReading(const Model& model, uint32_t id, const char* subKey, const char* name) {
  const auto [code, value] = LookUp(model, id, subKey != nullptr ? subKey : "", name);
  const std::unique_ptr<char[]> data(new char[value != nullptr ? value->data.size() : 0]);
  uint32_t type = 0;
  uint32_t size = 0;
  CHECK(RegGetValue(id, subKey, name, 0, &type, data.get(), &size) == code);
  CHECK(GetLastError() == code);
  if (value == nullptr) return;
  CHECK(type == value->type);
  CHECK(std::string(data.get(), size) == value->data);
}

void CheckSetting(const ModelValue* value, const ModelKey& key, const char* name, uint32_t kind) {
  const std::string data = value != nullptr ? value->data : "";
  if (key.name.rfind("HKEY_CURRENT_USER\\", 0) == 0) {
    const std::unique_ptr<char[]> read(new char[data.size()]);
    const bool good = !data.empty() && value->type == kind;
    CHECK(OSCL_ReadRegistryValue(&key.name[18], name, kind, 1, read.get()) ==
          (good ? S_OK : E_FAIL));
    CHECK(std::string(read.get(), data.size()) == data);
  }
  UserFeatureKey setting = {0, key.name.c_str(), nullptr, 0};
  const HRESULT result = OSCL_UserFeature_ReadValue(nullptr, &setting, name, kind);
  const UserFeatureValue& read = *setting.values;
  if (kind == USER_FEATURE_STRING || kind == USER_FEATURE_BINARY) {
    CHECK((read.data.binary != nullptr) == (value != nullptr));
    CHECK(std::string(value != nullptr ? read.data.string : "", read.size) == data);
  } else if (kind == USER_FEATURE_MULTI_STRING) {
    uint32_t total = 0;
    for (uint32_t i = 0; i < read.size; ++i) {
      CHECK(std::strlen(read.data.strings[i].text) == read.data.strings[i].length);
      total += read.data.strings[i].length + 1;
    }
    CHECK(total == read.totalLength && (result == S_OK) == (total != 0));
  } else if (kind > USER_FEATURE_BINARY && kind < USER_FEATURE_STRING) {
    uint64_t number = 0;
    data.copy(reinterpret_cast<char*>(&number), kind % 2 == 0 ? 4 : 8);
    CHECK(read.data.number64 == number);
  }
  const bool good = kind > 0 && kind <= USER_FEATURE_STRING;
  CHECK(kind == USER_FEATURE_MULTI_STRING || result == (good ? S_OK : E_FAIL));
  OSCL_UserFeature_DeleteValues(&setting);
}

// Sets a value of the key and compares the whole file with the model's.
void CheckWriting(const std::string& path, Model model, const ModelKey& opened, const char* name,
                  const Below& below) {
  static constexpr uint32_t kTypes[] = {0, 3, 4, 11, 4, 11, 4, 1, 7, 0};
  const uint32_t kind = below(10);
  const uint32_t size = below(41);
  // The buffer has exactly the announced size and no terminating NUL.
  const std::string data(size, 'd');
  const std::unique_ptr<char[]> exact(new char[size]);
  data.copy(exact.get(), size);
  UserFeatureString string = {exact.get(), size};
  UserFeatureValue value = {const_cast<char*>(name), kind, {}, kind == 8 ? 1 : size, 0};
  ModelValue written = {name, kTypes[kind], kind == 8 ? data + '\0' : kind % 9 == 0 ? "" : data};
  value.data.binary = kind == 8 ? static_cast<void*>(&string) : exact.get();
  if (kTypes[kind] % 7 == 4) {
    value.data.number64 = 0x100000007;
    written.data = std::string("\7\0\0\0", 4);
  }
  auto* key = const_cast<ModelKey*>(model.FindByName(model.FindById(opened.id)->name));
  auto* changed = const_cast<ModelValue*>(key->Find(name));
  if (changed == nullptr) changed = &key->values.emplace_back();
  *changed = written;
  UserFeatureValue values[] = {value, value};
  UserFeatureKey setting = {0, opened.name.c_str(), values, 1 + below(2)};
  // The first write leaves a file that does not load, so the second fails.
  const uint32_t code = setting.valueCount == 1 ? 0 : OSCL_ERROR_REG_ITEM_UNKNOWN;
  CHECK(OSCL_UserFeature_WriteValues(nullptr, &setting) == code);
  CHECK(ReadContent(path) == FormatModel(model));
}

}  // namespace

CheckedRegistry CheckRegistry(const std::string& path, const Below& below) {
  const int32_t blocks = gAllocationCount;
  const Model model = ReadModel(path);
  const std::string file = ReadContent(path);
  ModelKey key;
  if (!model.keys.empty()) key = model.keys[below(model.keys.size())];
  CheckWatching(model, key.name);
  CheckOpening(model, key.name);
  CheckOpening(model, below(2) == 0 ? key.name + " " : key.name.substr(0, 20));
  std::string value = "w";
  if (!key.values.empty()) value = key.values[below(key.values.size())].name;
  for (const char* name : {value.c_str(), "v", static_cast<const char*>(nullptr)}) {
    const uint32_t ids[] = {key.id, 99, HKEY_CLASSES_ROOT + below(4)};
    const uint32_t id = ids[below(3)];
    CheckReading(model, id, below(2) == 0 ? nullptr : key.name.c_str(), name);
    const uint32_t code = LookUp(model, id, "", name).first;
    if (code == 0 || code == 8) continue;
    CHECK(RegSetValueEx(id, name, 0, 1, "x", 2) == code);
    CHECK(GetLastError() == code);
  }
  CHECK(ReadContent(path) == file);
  const ModelKey* first = model.code == 0 ? model.FindByName(key.name) : nullptr;
  bool rewritten = false;
  if (first != nullptr) {
    for (const char* name : {value.c_str(), "v"}) {
      CheckSetting(LookUp(model, first->id, "", name).second, *first, name, below(12));
    }
    rewritten = LookUp(model, first->id, "", "v").first != 1;
    if (rewritten)
      CheckWriting(path, model, *first, below(2) == 0 ? value.c_str() : "added", below);
  }
  CHECK(gAllocationCount == blocks);
  return {model.code, rewritten};
}
