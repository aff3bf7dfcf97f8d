#include "oscl/user_feature_value.h"

#include <cstring>

#include "oscl/bounded_string.h"
#include "oscl/memory.h"

namespace {

constexpr uint32_t kNameRoom = USER_FEATURE_NAME_LIMIT + 1;

void FreeMultiString(const UserFeatureValue& value) {
  if (value.data.strings == nullptr) return;
  if (value.size != 0) FreeMem(value.data.strings[0].text);
  FreeMem(value.data.strings);
}

// Counts the strings in the buffer; 0 when it is no list of strings.
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

}  // namespace

void OSCL_UserFeature_ClearValue(UserFeatureValue* value) {
  if (value == nullptr) return;
  FreeMem(value->name);
  if (value->type == USER_FEATURE_STRING || value->type == USER_FEATURE_BINARY) {
    FreeMem(value->data.binary);
  } else if (value->type == USER_FEATURE_MULTI_STRING) {
    FreeMultiString(*value);
  }
  value->name = nullptr;
  value->data.number64 = 0;
  value->size = 0;
  value->totalLength = 0;
}

HRESULT OSCL_UserFeature_SetValueName(UserFeatureValue* value, const char* name) {
  if (value == nullptr || name == nullptr) return E_FAIL;
  const std::size_t length = strnlen(name, kNameRoom);
  if (length > USER_FEATURE_NAME_LIMIT) return E_FAIL;
  if (value->name == nullptr) value->name = static_cast<char*>(AllocAndZeroMem(kNameRoom));
  if (value->name == nullptr) return E_FAIL;
  // The name may be the value's own.
  std::memmove(value->name, name, length);
  value->name[length] = '\0';
  return S_OK;
}

void OSCL_UserFeature_DeleteValues(UserFeatureKey* key) {
  if (key == nullptr || key->valueCount == 0) return;
  if (key->values != nullptr) {
    for (uint32_t i = 0; i < key->valueCount; ++i) OSCL_UserFeature_ClearValue(&key->values[i]);
  }
  FreeMem(key->values);
  key->values = nullptr;
  key->valueCount = 0;
}

void OSCL_UserFeature_Cleanup(void* /*iface*/, UserFeatureKey* key) {
  OSCL_UserFeature_DeleteValues(key);
}

HRESULT OSCL_UserFeature_ReadValueInit(UserFeatureKey* key, const char* name, uint32_t kind) {
  if (key == nullptr || name == nullptr) return E_FAIL;
  // Kept aside because clearing releases the name when it belongs to a value of the list; one that
  // is too long stays so.
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
