#include "oscl/registry.h"

#include <algorithm>
#include <cstring>

#include "oscl/bounded_string.h"
#include "oscl/inert.h"
#include "oscl/last_error.h"
#include "oscl/registry_image.h"
#include "oscl/registry_loader.h"
#include "oscl/registry_writer.h"

namespace {

using oscl::LoadRegistry;
using oscl::RegistryFailure;
using oscl::RegistryImage;
using oscl::RegistryKeyRecord;
using oscl::RegistryValueRecord;

// Runs the body of a function and reports how it ended.
template <typename Body>
uint32_t Report(Body body) {
  uint32_t code = OSCL_ERROR_SUCCESS;
  try {
    body();
  } catch (const RegistryFailure& failure) {
    code = failure.code();
  } catch (const std::exception&) {
    code = OSCL_ERROR_NO_MEMORY;
  }
  oscl::SetLastErrorCode(code);
  return code;
}

// The prefix of key names under a root; null for a handle that is no root.
const char* RootPrefix(HKEY key) {
  switch (key) {
    case HKEY_CLASSES_ROOT:
      return "HKEY_CLASSES_ROOT\\";
    case HKEY_CURRENT_USER:
      return "HKEY_CURRENT_USER\\";
    case HKEY_LOCAL_MACHINE:
      return "HKEY_LOCAL_MACHINE\\";
    case HKEY_USERS:
      return "HKEY_USERS\\";
    default:
      return nullptr;
  }
}

void Append(std::string& path, const char* part) {
  if (part != nullptr) path += part;
}

// Values are reached through the name of the first key with the id, so that of several keys with
// one name the first in the list serves them all.
std::string NameOfKey(HKEY key) {
  if (RootPrefix(key) != nullptr) throw RegistryFailure(OSCL_ERROR_NO_MEMORY);
  RegistryImage image = LoadRegistry();
  const RegistryKeyRecord* record = image.FindById(key);
  return record != nullptr ? record->name : std::string();
}

RegistryKeyRecord& KeyNamed(RegistryImage& image, const std::string& path) {
  RegistryKeyRecord* key = image.FindByName(path);
  if (key == nullptr) throw RegistryFailure(OSCL_ERROR_REG_KEY_NOT_FOUND);
  return *key;
}

void CheckNotNull(const void* pointer) {
  if (pointer == nullptr) throw RegistryFailure(OSCL_ERROR_INVALID_PARAMETER);
}

RegistryValueRecord& FindOrAddValue(RegistryKeyRecord& key, const char* name) {
  RegistryValueRecord* found = key.Find(name);
  if (found != nullptr) return *found;
  // Such a name would come back as two lines.
  if (std::strlen(name) > oscl::kRegistryLineLimit) {
    throw RegistryFailure(OSCL_ERROR_INVALID_PARAMETER);
  }
  RegistryValueRecord& added = key.values.emplace_back();
  added.name = name;
  return added;
}

// Of a REG_DWORD four bytes are taken, whatever size the caller names: meant.
std::vector<uint8_t> StoredData(uint32_t type, const void* data, uint32_t size) {
  const uint32_t storedSize = type == REG_DWORD ? sizeof(uint32_t) : size;
  std::vector<uint8_t> stored(storedSize);
  memcpy_s(stored.data(), storedSize, data, storedSize);
  return stored;
}

}  // namespace

uint32_t RegOpenKeyEx(HKEY key, const char* subKey, uint32_t /*options*/, uint32_t /*access*/,
                      HKEY* result) {
  return Report([&] {
    // A sub-key for which there is no room is refused and leaves the prefix as the path: meant.
    char path[oscl::kRegistryLineLimit + 1] = "";
    strcat_s(path, sizeof path, RootPrefix(key));
    strcat_s(path, sizeof path, subKey);
    RegistryImage image = LoadRegistry();
    CheckNotNull(result);
    const RegistryKeyRecord* found = image.FindByName(path);
    if (found == nullptr) throw RegistryFailure(OSCL_ERROR_REG_ID_NOT_FOUND);
    *result = found->keyId;
  });
}

uint32_t RegOpenKeyExA(HKEY key, const char* subKey, uint32_t options, uint32_t access,
                       HKEY* result) {
  return RegOpenKeyEx(key, subKey, options, access, result);
}

uint32_t RegGetValue(HKEY key, const char* subKey, const char* valueName, uint32_t /*flags*/,
                     uint32_t* type, void* data, uint32_t* size) {
  return Report([&] {
    std::string path = NameOfKey(key);
    Append(path, subKey);
    CheckNotNull(valueName);
    RegistryImage image = LoadRegistry();
    const RegistryValueRecord* value = KeyNamed(image, path).Find(valueName);
    if (value == nullptr) throw RegistryFailure(OSCL_ERROR_REG_VALUE_NOT_FOUND);
    const auto valueSize = static_cast<uint32_t>(value->data.size());
    memcpy_s(data, valueSize, value->data.data(), valueSize);
    if (type != nullptr) *type = value->type;
    if (size != nullptr) *size = valueSize;
  });
}

uint32_t RegQueryValueExA(HKEY key, const char* valueName, uint32_t* /*reserved*/, uint32_t* type,
                          void* data, uint32_t* size) {
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return RegGetValue(key, "", valueName, 0, type, data, size);
}

uint32_t RegSetValueEx(HKEY key, const char* valueName, uint32_t /*reserved*/, uint32_t type,
                       const void* data, uint32_t size) {
  return Report([&] {
    const std::string path = NameOfKey(key);
    CheckNotNull(valueName);
    RegistryImage image = LoadRegistry();
    RegistryValueRecord& value = FindOrAddValue(KeyNamed(image, path), valueName);
    value.type = type;
    value.data = StoredData(type, data, size);
    oscl::SaveRegistry(image);
    NotifyRegistryChange();
  });
}

uint32_t RegCloseKey_Linux(HKEY /*key*/) {
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return OSCL_ERROR_SUCCESS;
}
