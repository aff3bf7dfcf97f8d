// The helpers of the settings that take memory from their caller: multi-strings, paths and names,
// each exactly as long as it is said to be.

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/check.h"
#include "fuzz/registry_file.h"
#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/user_feature.h"

namespace {

void SplitAndJoin(const std::string& bytes, const RegistryFile& file) {
  const auto length = static_cast<uint32_t>(bytes.size());
  auto* buffer = static_cast<char*>(AllocMem(length));
  std::memcpy(buffer, bytes.data(), length);
  UserFeatureValue value = {};
  value.type = USER_FEATURE_MULTI_STRING;
  if (OSCL_UserFeature_SetMultiStringValue(&value, buffer, length) != S_OK) {
    FUZZ_CHECK(value.data.strings == nullptr);
    FreeMem(buffer);
    return;
  }
  FUZZ_CHECK(value.totalLength <= length && value.totalLength + 1 >= length);
  uint32_t offset = 0;
  for (uint32_t i = 0; i < value.size; ++i) {
    const UserFeatureString& string = value.data.strings[i];
    FUZZ_CHECK(string.text == buffer + offset && string.length == std::strlen(string.text));
    offset += string.length + 1;
  }
  FUZZ_CHECK(offset == value.totalLength);
  file.Store("[KEY]\n1\nkey\n");
  OSCL_UserFeature_SetValueName(&value, "list");
  FUZZ_CHECK(OSCL_UserFeature_WriteValueMultiString(1, &value) == S_OK);
  OSCL_UserFeature_ClearValue(&value);
}

void ParsePath(const std::string& text) {
  const auto path = Exact(text);
  uint32_t root = 7;
  char* rest = nullptr;
  const HRESULT result = OSCL_UserFeature_ParsePath(nullptr, path.get(), &root, &rest);
  const std::string whole = path.get();
  const size_t backslash = whole.find('\\');
  const std::string prefix = whole.substr(0, backslash);
  const bool good = backslash != std::string::npos && backslash + 1 < whole.size() &&
                    (prefix == "HKEY_LOCAL_MACHINE" || prefix == "HKEY_CURRENT_USER");
  FUZZ_CHECK((result == S_OK) == good);
  FUZZ_CHECK(good ? rest == path.get() + backslash + 1 : root == 7 && rest == nullptr);
}

void NameValues(FuzzedDataProvider& input) {
  UserFeatureKey key = {};
  while (input.remaining_bytes() != 0) {
    const auto name = Exact(input.ConsumeRandomLengthString(300));
    const HRESULT result =
        OSCL_UserFeature_ReadValueInit(&key, name.get(), input.ConsumeIntegralInRange(0, 9));
    FUZZ_CHECK((result == S_OK) == (std::strlen(name.get()) <= 255));
    FUZZ_CHECK(key.valueCount == 1);
    if (result == S_OK) FUZZ_CHECK(std::strcmp(key.values->name, name.get()) == 0);
  }
  OSCL_UserFeature_Cleanup(nullptr, &key);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const RegistryFile* file = new RegistryFile;
  FuzzedDataProvider input(data, size);
  const int32_t blocks = gAllocationCount;
  const auto choice = input.ConsumeIntegralInRange(0, 2);
  if (choice == 0) SplitAndJoin(input.ConsumeRemainingBytesAsString(), *file);
  if (choice == 1) ParsePath(input.ConsumeRemainingBytesAsString());
  if (choice == 2) NameValues(input);
  FUZZ_CHECK(gAllocationCount == blocks);
  return 0;
}
