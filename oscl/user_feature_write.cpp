#include "oscl/user_feature_write.h"

#include <limits>
#include <memory>

#include "oscl/bounded_string.h"
#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/user_feature_key.h"

namespace {

struct ReleaseBlock {
  void operator()(char* block) const { FreeMem(block); }
};
using Block = std::unique_ptr<char, ReleaseBlock>;

// Bytes of all strings with their NULs and the closing one, or 0 when 32 bits cannot say it.
uint32_t JoinedSize(const UserFeatureValue& value) {
  uint64_t size = 1;
  for (uint32_t i = 0; i < value.size; ++i) size += uint64_t{value.data.strings[i].length} + 1;
  return size <= std::numeric_limits<uint32_t>::max() ? static_cast<uint32_t>(size) : 0;
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

HRESULT Write(HKEY key, const UserFeatureValue& value, uint32_t type, const void* data,
              uint32_t size) {
  return RegSetValueEx(key, value.name, 0, type, data, size);
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

}  // namespace

HRESULT OSCL_UserFeature_WriteValues(void* /*iface*/, UserFeatureKey* key) {
  if (key == nullptr || (key->values == nullptr && key->valueCount != 0)) return E_FAIL;
  const oscl::OpenedKey opened(key->rootType, key->path, 1);
  HRESULT result = opened.result();
  for (uint32_t i = 0; i < key->valueCount && result == S_OK; ++i) {
    result = WriteByKind(opened.get(), &key->values[i]);
  }
  return result;
}

HRESULT OSCL_UserFeature_WriteValueBinary(HKEY key, UserFeatureValue* value) {
  if (value == nullptr) return E_FAIL;
  return Write(key, *value, REG_BINARY, value->data.binary, value->size);
}

HRESULT OSCL_UserFeature_WriteValueString(HKEY key, UserFeatureValue* value) {
  if (value == nullptr) return E_FAIL;
  return Write(key, *value, REG_SZ, value->data.string, value->size);
}

HRESULT OSCL_UserFeature_WriteValueMultiString(HKEY key, UserFeatureValue* value) {
  if (value == nullptr || (value->data.strings == nullptr && value->size != 0)) return E_FAIL;
  const uint32_t size = JoinedSize(*value);
  if (size == 0) return E_FAIL;
  const Block joined(static_cast<char*>(AllocAndZeroMem(size)));
  if (joined == nullptr || !JoinStrings(*value, joined.get(), size)) return E_FAIL;
  return Write(key, *value, REG_MULTI_SZ, joined.get(), size);
}

HRESULT OSCL_UserFeature_WriteValuePrimitive(HKEY key, UserFeatureValue* value) {
  if (value == nullptr) return E_FAIL;
  switch (value->type) {
    case USER_FEATURE_NUMBER32_A:
    case USER_FEATURE_NUMBER32_B:
    case USER_FEATURE_NUMBER32_C:
      return Write(key, *value, REG_DWORD, &value->data, sizeof(uint32_t));
    case USER_FEATURE_NUMBER64_A:
    case USER_FEATURE_NUMBER64_B:
      return Write(key, *value, REG_QWORD, &value->data, sizeof(uint64_t));
    default:
      return Write(key, *value, REG_NONE, nullptr, 0);
  }
}
