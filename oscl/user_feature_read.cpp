#include "oscl/user_feature_read.h"

#include <algorithm>
#include <cstring>

#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/registry_image.h"
#include "oscl/user_feature_key.h"
#include "oscl/user_feature_value.h"

namespace {

constexpr uint32_t kErrorMoreData = 234;
constexpr uint32_t kFirstLength = 128;
constexpr uint32_t kLongestLength = 2048;

// Zeroed room for `length` bytes or any value of the file, whichever is more, and for a NUL:
// RegGetValue copies the whole value whatever length is announced to it.
void* ValueBuffer(uint32_t length) {
  return AllocAndZeroMem(std::max<std::size_t>(length, oscl::kRegistryValueLimit) + 1);
}

// Bytes of a number of that kind, 0 for another kind.
uint32_t NumberSize(uint32_t kind) {
  switch (kind) {
    case USER_FEATURE_NUMBER32_A:
    case USER_FEATURE_NUMBER32_B:
    case USER_FEATURE_NUMBER32_C:
      return sizeof(uint32_t);
    case USER_FEATURE_NUMBER64_A:
    case USER_FEATURE_NUMBER64_B:
      return sizeof(uint64_t);
    default:
      return 0;
  }
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

}  // namespace

HRESULT OSCL_UserFeature_ReadValue(void* /*iface*/, UserFeatureKey* key, const char* name,
                                   uint32_t kind) {
  if (key == nullptr) return E_FAIL;
  const oscl::OpenedKey opened(key->rootType, key->path, 0);
  if (opened.result() != S_OK) return opened.result();
  const HRESULT prepared = OSCL_UserFeature_ReadValueInit(key, name, kind);
  return prepared == S_OK ? ReadByKind(opened.get(), key->values) : prepared;
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
  const uint32_t numberSize = NumberSize(value->type);
  if (numberSize == 0) {
    RegGetValue(key, nullptr, value->name, 0, nullptr, nullptr, nullptr);
    return E_FAIL;
  }
  const uint32_t flags = numberSize == sizeof(uint32_t) ? RRF_RT_REG_DWORD : RRF_RT_REG_QWORD;
  uint8_t read[oscl::kRegistryValueLimit];
  uint32_t length = numberSize;
  // Any failure counts as a success that leaves the number: callers preset their default there.
  if (RegGetValue(key, nullptr, value->name, flags, nullptr, read, &length) == 0) {
    std::memcpy(&value->data, read, std::min(length, numberSize));
  }
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
