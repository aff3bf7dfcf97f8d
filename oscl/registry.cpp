#include "oscl/registry.h"

#include <algorithm>
#include <cstring>

#include "oscl/bounded_string.h"
#include "oscl/last_error.h"
#include "oscl/registry_image.h"
#include "oscl/stubs.h"

namespace {

using oscl::RegistryFailure;
using oscl::RegistryImage;
using oscl::RegistryKeyRecord;
using oscl::RegistryValueRecord;

// Runs the body of a registry function, stores its code and returns it.
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

// Returns the prefix of key names under a root, or null if the handle is not a root.
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

void CheckNotNull(const void* pointer) {
  if (pointer == nullptr) throw RegistryFailure(OSCL_ERROR_INVALID_PARAMETER);
}

void CheckNoRoot(HKEY key) {
  if (RootPrefix(key) != nullptr) throw RegistryFailure(OSCL_ERROR_NO_MEMORY);
}

// Loads the image and returns the key. Contract: the first key with the id only provides the name;
// the first key with that name is used.
RegistryKeyRecord& FindKey(RegistryImage& image, HKEY key, const char* subKey,
                           const char* valueName) {
  const RegistryKeyRecord* named = image.FindById(key);
  std::string path(named != nullptr ? named->name : "");
  if (subKey != nullptr) path += subKey;
  CheckNotNull(valueName);
  image.Load();
  RegistryKeyRecord* found = image.FindByName(path);
  if (found == nullptr) throw RegistryFailure(OSCL_ERROR_REG_KEY_NOT_FOUND);
  return *found;
}

// Contract: ignores the caller's size.
void CopyData(const RegistryValueRecord& value, void* data) {
  if (value.size == 0 || data == nullptr) return;
  if (oscl::IsRegistryNumber(value.type)) {
    memcpy_s(data, value.size, &value.number, value.size);
  } else {
    memcpy_s(data, value.size, value.text.data(), value.size - 1);
    static_cast<char*>(data)[value.size - 1] = '\0';
  }
}

RegistryValueRecord& FindOrAddValue(RegistryImage& image, RegistryKeyRecord& key,
                                    const char* name) {
  RegistryValueRecord* found = image.FindValue(key, name);
  if (found != nullptr) return *found;
  // A longer name would be read as two lines.
  if (std::strlen(name) > oscl::kRegistryLineLimit) {
    throw RegistryFailure(OSCL_ERROR_INVALID_PARAMETER);
  }
  return image.AddValue(key, name);
}

// Missing bytes count as 0, and a text needs no terminator.
void SetData(RegistryValueRecord& value, uint32_t type, const void* data, uint32_t size) {
  value.type = type;
  // Contract: a REG_DWORD takes 4 bytes, whatever the caller's size.
  value.size = type == REG_DWORD ? sizeof(value.number) : size;
  value.number = 0;
  value.text = {};
  if (data == nullptr) return;
  if (oscl::IsRegistryNumber(type)) {
    memcpy_s(&value.number, sizeof(value.number), data,
             std::min<uint32_t>(value.size, sizeof(value.number)));
  } else {
    const auto* text = static_cast<const char*>(data);
    value.text = {text, strnlen(text, value.size)};
  }
}

}  // namespace

uint32_t RegOpenKeyEx(HKEY key, const char* subKey, uint32_t /*options*/, uint32_t /*access*/,
                      HKEY* result) {
  return Report([&] {
    // Contract: a sub-key that does not fit is ignored, and the path is the prefix only.
    char path[oscl::kRegistryLineLimit + 1] = "";
    strcat_s(path, sizeof path, RootPrefix(key));
    strcat_s(path, sizeof path, subKey);
    RegistryImage image;
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
    CheckNoRoot(key);
    RegistryImage image;
    const RegistryKeyRecord& found = FindKey(image, key, subKey, valueName);
    const RegistryValueRecord* value = image.FindValue(found, valueName);
    if (value == nullptr) throw RegistryFailure(OSCL_ERROR_REG_VALUE_NOT_FOUND);
    CopyData(*value, data);
    if (type != nullptr) *type = value->type;
    if (size != nullptr) *size = value->size;
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
    CheckNoRoot(key);
    RegistryImage image;
    SetData(FindOrAddValue(image, FindKey(image, key, nullptr, valueName), valueName), type, data,
            size);
    image.Save();
    NotifyRegistryChange();
  });
}

uint32_t RegCloseKey_Linux(HKEY /*key*/) {
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  return OSCL_ERROR_SUCCESS;
}
