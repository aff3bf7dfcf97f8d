#include "oscl/user_feature.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

#include "oscl/bounded_string.h"
#include "oscl/file.h"
#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/registry_image.h"
#include "oscl/stubs.h"

namespace {

constexpr uint32_t kRootCurrentUser = 1;
constexpr uint32_t kRootLocalMachine = 2;
constexpr uint32_t kNameRoom = USER_FEATURE_NAME_LIMIT + 1;

constexpr uint32_t kErrorMoreData = 234;
constexpr uint32_t kFirstLength = 128;
constexpr uint32_t kLongestLength = 2048;

constexpr uint32_t kNotifyLastSet = 4;
constexpr uint32_t kInfinite = 0xFFFFFFFFu;
constexpr uint32_t kExecuteOnce = 8;

// How the registry stores a kind of number. All members are 0 for other kinds.
struct NumberKind {
  uint32_t type;
  uint32_t flags;
  uint32_t size;
};

NumberKind NumberKindOf(const UserFeatureValue& value) {
  switch (value.type) {
    case USER_FEATURE_NUMBER32_A:
    case USER_FEATURE_NUMBER32_B:
    case USER_FEATURE_NUMBER32_C:
      return {REG_DWORD, RRF_RT_REG_DWORD, sizeof(uint32_t)};
    case USER_FEATURE_NUMBER64_A:
    case USER_FEATURE_NUMBER64_B:
      return {REG_QWORD, RRF_RT_REG_QWORD, sizeof(uint64_t)};
    default:
      return {REG_NONE, 0, 0};
  }
}

void ForgetData(UserFeatureValue& value) {
  value.data.binary = nullptr;
  value.size = 0;
  value.totalLength = 0;
}

bool OwnsData(uint32_t kind) {
  return kind == USER_FEATURE_BINARY || kind == USER_FEATURE_STRING ||
         kind == USER_FEATURE_MULTI_STRING;
}

// Returns the number of strings in the buffer, or 0 if it is not a list of strings.
uint32_t CountStrings(const char* buffer, uint32_t length) {
  uint32_t count = 0;
  uint32_t offset = 0;
  do {
    const uint32_t room = length - offset;
    const auto stringLength = static_cast<uint32_t>(strnlen(buffer + offset, room));
    if (stringLength == 0 || stringLength == room) return 0;
    ++count;
    offset += stringLength + 1;
  } while (offset < length - 1);
  return count;
}

// Allocates zeroed memory for `length` bytes or any value of the file, whichever is larger, and a
// NUL: RegGetValue copies the whole value, whatever length it reported.
void* ValueBuffer(uint32_t length) {
  return AllocAndZeroMem(std::max<std::size_t>(length, oscl::kRegistryValueLimit) + 1);
}

HRESULT ReadBlock(HKEY key, UserFeatureValue* value, uint32_t flags) {
  if (value == nullptr) return E_FAIL;
  return OSCL_UserFeature_ReadValueVarLen(key, value->name, flags, &value->data.binary,
                                          &value->size);
}

HRESULT ReadByKind(HKEY key, UserFeatureValue* value) {
  switch (value->type) {
    case USER_FEATURE_STRING:
      return OSCL_UserFeature_ReadValueString(key, value);
    case USER_FEATURE_MULTI_STRING:
      return OSCL_UserFeature_ReadValueMultiString(key, value);
    case USER_FEATURE_BINARY:
      return OSCL_UserFeature_ReadValueBinary(key, value);
    default:
      return OSCL_UserFeature_ReadValuePrimitive(key, value);
  }
}

HRESULT WriteByKind(HKEY key, UserFeatureValue* value) {
  switch (value->type) {
    case USER_FEATURE_STRING:
      return OSCL_UserFeature_WriteValueString(key, value);
    case USER_FEATURE_MULTI_STRING:
      return OSCL_UserFeature_WriteValueMultiString(key, value);
    case USER_FEATURE_BINARY:
      return OSCL_UserFeature_WriteValueBinary(key, value);
    default:
      return OSCL_UserFeature_WriteValuePrimitive(key, value);
  }
}

HRESULT WriteBlock(HKEY key, const UserFeatureValue* value, uint32_t type) {
  if (value == nullptr) return E_FAIL;
  return RegSetValueEx(key, value->name, 0, type, value->data.binary, value->size);
}

// Copies the strings into a zeroed buffer of `size` bytes.
bool JoinStrings(const UserFeatureValue& value, char* joined, uint32_t size) {
  uint32_t offset = 0;
  for (uint32_t i = 0; i < value.size; ++i) {
    const UserFeatureString& string = value.data.strings[i];
    if (memcpy_s(joined + offset, size - offset, string.text, string.length) != 0) return false;
    offset += string.length + 1;
  }
  return true;
}

void Close(HKEY key) {
  if (key != 0) RegCloseKey_Linux(key);
}

}  // namespace

HRESULT OSCL_UserFeature_ParsePath(void* /*iface*/, const char* path, uint32_t* rootType,
                                   char** subPath) {
  if (path == nullptr || rootType == nullptr || subPath == nullptr) return E_FAIL;
  const char* backslash = std::strchr(path, '\\');
  if (backslash == nullptr || backslash[1] == '\0') return E_FAIL;
  const std::string_view root(path, static_cast<std::size_t>(backslash - path));
  if (root == "HKEY_LOCAL_MACHINE") {
    *rootType = kRootLocalMachine;
  } else if (root == "HKEY_CURRENT_USER") {
    *rootType = kRootCurrentUser;
  } else {
    return E_FAIL;
  }
  *subPath = const_cast<char*>(backslash + 1);
  return S_OK;
}

HRESULT OSCL_UserFeature_OpenRegistry(uint32_t rootType, const char* path, uint32_t access,
                                      HKEY* key) {
  const HKEY root = rootType == kRootCurrentUser    ? HKEY_CURRENT_USER
                    : rootType == kRootLocalMachine ? HKEY_LOCAL_MACHINE
                                                    : 0;
  return RegOpenKeyEx(root, path, 0, access, key);
}

HRESULT OSCL_UserFeature_ClearValue(UserFeatureValue* value) {
  if (value == nullptr) return S_OK;
  FreeMem(value->name);
  value->name = nullptr;
  if (!OwnsData(value->type)) return S_OK;
  if (value->type == USER_FEATURE_MULTI_STRING && value->data.strings != nullptr &&
      value->size != 0) {
    FreeMem(value->data.strings[0].text);
  }
  FreeMem(value->data.binary);
  ForgetData(*value);
  return S_OK;
}

HRESULT OSCL_UserFeature_SetValueName(UserFeatureValue* value, const char* name) {
  if (value == nullptr || name == nullptr) return E_FAIL;
  const std::size_t length = strnlen(name, kNameRoom);
  if (length > USER_FEATURE_NAME_LIMIT) return E_FAIL;
  if (value->name == nullptr) value->name = static_cast<char*>(AllocAndZeroMem(kNameRoom));
  if (value->name == nullptr) return E_FAIL;
  // `name` may point to the value's own name.
  std::memmove(value->name, name, length);
  value->name[length] = '\0';
  return S_OK;
}

HRESULT OSCL_UserFeature_DeleteValues(UserFeatureKey* key) {
  if (key == nullptr || key->valueCount == 0) return S_OK;
  if (key->values != nullptr) {
    for (uint32_t i = 0; i < key->valueCount; ++i) OSCL_UserFeature_ClearValue(&key->values[i]);
  }
  FreeMem(key->values);
  key->values = nullptr;
  key->valueCount = 0;
  return S_OK;
}

HRESULT OSCL_UserFeature_Cleanup(void* /*iface*/, UserFeatureKey* key) {
  return OSCL_UserFeature_DeleteValues(key);
}

HRESULT OSCL_UserFeature_ReadValueInit(UserFeatureKey* key, const char* name, uint32_t kind) {
  if (key == nullptr || name == nullptr) return E_FAIL;
  // Copied because clearing releases the name if it belongs to a value of the list. A name that is
  // too long is refused later.
  char keptName[kNameRoom + 1] = {};
  std::memcpy(keptName, name, strnlen(name, kNameRoom));
  if (key->valueCount == 1 && key->values != nullptr) {
    OSCL_UserFeature_ClearValue(key->values);
  } else {
    OSCL_UserFeature_DeleteValues(key);
    key->values = static_cast<UserFeatureValue*>(AllocAndZeroMem(sizeof(UserFeatureValue)));
    if (key->values == nullptr) return E_FAIL;
    key->valueCount = 1;
  }
  key->values->type = kind;
  // The field may hold a number instead of a pointer, and then nothing can be freed.
  if (OwnsData(kind)) ForgetData(*key->values);
  return OSCL_UserFeature_SetValueName(key->values, keptName);
}

HRESULT OSCL_UserFeature_SetMultiStringValue(UserFeatureValue* value, char* buffer,
                                             uint32_t length) {
  if (value == nullptr || buffer == nullptr || length == 0) return E_FAIL;
  const uint32_t count = CountStrings(buffer, length);
  if (count == 0) return E_FAIL;
  auto* strings = static_cast<UserFeatureString*>(
      AllocAndZeroMem(std::size_t{count} * sizeof(UserFeatureString)));
  if (strings == nullptr) return E_FAIL;
  uint32_t offset = 0;
  for (uint32_t i = 0; i < count; ++i) {
    strings[i].text = buffer + offset;
    strings[i].length = static_cast<uint32_t>(std::strlen(strings[i].text));
    offset += strings[i].length + 1;
  }
  value->data.strings = strings;
  value->size = count;
  value->totalLength = offset;
  return S_OK;
}

HRESULT OSCL_UserFeature_ReadValue(void* /*iface*/, UserFeatureKey* key, const char* name,
                                   uint32_t kind) {
  if (key == nullptr) return E_FAIL;
  HKEY opened = 0;
  HRESULT result = OSCL_UserFeature_OpenRegistry(key->rootType, key->path, 0, &opened);
  if (result != S_OK) return result;
  result = OSCL_UserFeature_ReadValueInit(key, name, kind);
  if (result == S_OK) result = ReadByKind(opened, key->values);
  Close(opened);
  return result;
}

HRESULT OSCL_UserFeature_ReadValues(void* /*iface*/, ...) { return E_FAIL; }

HRESULT OSCL_UserFeature_ReadValueVarLen(HKEY key, const char* name, uint32_t flags, void** data,
                                         uint32_t* size) {
  if (data == nullptr || size == nullptr) return E_FAIL;
  *data = nullptr;
  *size = 0;
  void* buffer = ValueBuffer(kFirstLength);
  if (buffer == nullptr) return E_FAIL;
  uint32_t length = kFirstLength;
  uint32_t result = RegGetValue(key, nullptr, name, flags, nullptr, buffer, &length);
  const bool longer = result == kErrorMoreData;
  if (longer) {
    FreeMem(buffer);
    buffer = length <= kLongestLength ? ValueBuffer(length) : nullptr;
    if (buffer == nullptr) return E_FAIL;
    result = RegGetValue(key, nullptr, name, flags, nullptr, buffer, &length);
  }
  if (result != 0) {
    FreeMem(buffer);
    // Contract: a missing value is a success without data.
    return longer ? result : S_OK;
  }
  *data = buffer;
  *size = length;
  return S_OK;
}

HRESULT OSCL_UserFeature_ReadValueBinary(HKEY key, UserFeatureValue* value) {
  return ReadBlock(key, value, RRF_RT_REG_BINARY);
}

HRESULT OSCL_UserFeature_ReadValueString(HKEY key, UserFeatureValue* value) {
  return ReadBlock(key, value, RRF_RT_REG_SZ);
}

HRESULT OSCL_UserFeature_ReadValueMultiString(HKEY key, UserFeatureValue* value) {
  if (value == nullptr) return E_FAIL;
  void* buffer = nullptr;
  uint32_t length = 0;
  const HRESULT read =
      OSCL_UserFeature_ReadValueVarLen(key, value->name, RRF_RT_REG_MULTI_SZ, &buffer, &length);
  if (read != S_OK || buffer == nullptr) return E_FAIL;
  const HRESULT split =
      OSCL_UserFeature_SetMultiStringValue(value, static_cast<char*>(buffer), length);
  if (split != S_OK) FreeMem(buffer);
  return split;
}

HRESULT OSCL_UserFeature_ReadValuePrimitive(HKEY key, UserFeatureValue* value) {
  if (value == nullptr) return E_FAIL;
  const NumberKind kind = NumberKindOf(*value);
  uint8_t read[oscl::kRegistryValueLimit];
  uint32_t length = kind.size;
  const uint32_t result = RegGetValue(key, nullptr, value->name, kind.flags, nullptr,
                                      kind.size != 0 ? read : nullptr, &length);
  if (kind.size == 0) return E_FAIL;
  // Contract: returns success after any failure and does not change the number, so callers can
  // preset a default.
  if (result == 0) std::memcpy(&value->data, read, std::min(length, kind.size));
  return S_OK;
}

HRESULT OSCL_ReadRegistryValue(const char* path, const char* name, uint32_t expectedType,
                               uint32_t size, void* data) {
  HKEY key = 0;
  if (RegOpenKeyExA(HKEY_CURRENT_USER, path, 0, 1, &key) != 0) return E_FAIL;
  uint32_t type = 0;
  uint32_t length = size;
  const uint32_t result = RegQueryValueExA(key, name, nullptr, &type, data, &length);
  RegCloseKey_Linux(key);
  return result == 0 && type == expectedType && length != 0 ? S_OK : E_FAIL;
}

HRESULT OSCL_UserFeature_WriteValues(void* /*iface*/, UserFeatureKey* key) {
  if (key == nullptr || (key->values == nullptr && key->valueCount != 0)) return E_FAIL;
  HKEY opened = 0;
  HRESULT result = OSCL_UserFeature_OpenRegistry(key->rootType, key->path, 1, &opened);
  for (uint32_t i = 0; i < key->valueCount && result == S_OK; ++i) {
    result = WriteByKind(opened, &key->values[i]);
  }
  Close(opened);
  return result;
}

HRESULT OSCL_UserFeature_WriteValueBinary(HKEY key, UserFeatureValue* value) {
  return WriteBlock(key, value, REG_BINARY);
}

HRESULT OSCL_UserFeature_WriteValueString(HKEY key, UserFeatureValue* value) {
  return WriteBlock(key, value, REG_SZ);
}

HRESULT OSCL_UserFeature_WriteValueMultiString(HKEY key, UserFeatureValue* value) {
  if (value == nullptr || (value->data.strings == nullptr && value->size != 0)) return E_FAIL;
  uint64_t size = 1;
  for (uint32_t i = 0; i < value->size; ++i) size += uint64_t{value->data.strings[i].length} + 1;
  if (size > std::numeric_limits<uint32_t>::max()) return E_FAIL;
  const std::unique_ptr<char, decltype(&FreeMem)> joined(static_cast<char*>(AllocAndZeroMem(size)),
                                                         FreeMem);
  const auto length = static_cast<uint32_t>(size);
  if (joined == nullptr || !JoinStrings(*value, joined.get(), length)) return E_FAIL;
  return RegSetValueEx(key, value->name, 0, REG_MULTI_SZ, joined.get(), length);
}

HRESULT OSCL_UserFeature_WriteValuePrimitive(HKEY key, UserFeatureValue* value) {
  if (value == nullptr) return E_FAIL;
  const NumberKind kind = NumberKindOf(*value);
  return RegSetValueEx(key, value->name, 0, kind.type, kind.size != 0 ? &value->data : nullptr,
                       kind.size);
}

HRESULT OSCL_UserFeature_EnableNotification(void* /*iface*/, UserFeatureNotifyKey* key) {
  if (key == nullptr) return E_FAIL;
  key->changed = 0;
  if (key->notifyData == nullptr) {
    key->notifyData =
        static_cast<UserFeatureNotifyData*>(AllocAndZeroMem(sizeof(UserFeatureNotifyData)));
    if (key->notifyData == nullptr) return E_FAIL;
  }
  UserFeatureNotifyData& watch = *key->notifyData;
  if (watch.key == 0) {
    const HRESULT opened = OSCL_UserFeature_OpenRegistry(key->rootType, key->path, 0, &watch.key);
    if (opened != S_OK) return opened;
  }
  if (watch.event == nullptr) watch.event = CreateEventEx(nullptr, nullptr, 0, 0);
  if (watch.event == nullptr) return E_FAIL;
  if (watch.wait != nullptr) {
    if (UnregisterWaitEx(watch.wait, nullptr) == 0) return E_FAIL;
    watch.wait = nullptr;
  }
  if (RegNotifyChangeKeyValue(watch.key, 0, kNotifyLastSet, watch.event, 1) != 0) return E_FAIL;
  const BOOL registered = RegisterWaitForSingleObject(
      &watch.wait, watch.event, OSCL_UserFeature_RegistryCallback, key, kInfinite, kExecuteOnce);
  return registered != 0 ? S_OK : E_FAIL;
}

HRESULT OSCL_UserFeature_DisableNotification(void* /*iface*/, UserFeatureNotifyKey* key) {
  if (key == nullptr || key->notifyData == nullptr) return S_OK;
  const UserFeatureNotifyData& watch = *key->notifyData;
  if (watch.wait != nullptr) UnregisterWaitEx(watch.wait, nullptr);
  Close(watch.key);
  // Contract: the event is the constant 1, so this closes descriptor 1.
  if (watch.event != nullptr) CloseHandle(watch.event);
  FreeMem(key->notifyData);
  key->notifyData = nullptr;
  return S_OK;
}

void OSCL_UserFeature_RegistryCallback(void* context, uint8_t /*timedOut*/) {
  if (context != nullptr) static_cast<UserFeatureNotifyKey*>(context)->changed = 1;
}
