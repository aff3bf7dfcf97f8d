// Any file in the place of the registry: every call of the registry and every setting, held against
// a second reader of the format.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>
#include <memory>

#include "fuzz/check.h"
#include "fuzz/registry_file.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "tests/oscl/registry_model.h"

namespace {

bool IsRoot(uint32_t id) { return id - HKEY_CLASSES_ROOT < 4; }

void CheckReading(const Model& model, const ModelKey& key) {
  HKEY opened = 0;
  FUZZ_CHECK(RegOpenKeyEx(0, key.name.c_str(), 0, 0, &opened) == 0);
  FUZZ_CHECK(opened == model.FindByName(key.name)->id);
  const ModelKey& served = *model.FindByName(model.FindById(key.id)->name);
  for (const ModelValue& named : key.values) {
    const ModelValue* value = served.Find(named.name.c_str());
    const uint32_t expected = IsRoot(key.id) ? 1 : value == nullptr ? 8 : 0;
    const size_t room = expected == 0 ? value->data.size() : 0;
    const std::unique_ptr<char[]> data(new char[room]);
    uint32_t type = 0;
    uint32_t size = 0;
    FUZZ_CHECK(RegGetValue(key.id, nullptr, named.name.c_str(), 0, &type, data.get(), &size) ==
               expected);
    FUZZ_CHECK(GetLastError() == expected);
    if (expected == 0) FUZZ_CHECK(std::string(data.get(), size) == value->data);
  }
}

void ReadSetting(const ModelKey& key, const char* name, uint32_t kind) {
  UserFeatureKey description = {0, key.name.c_str(), nullptr, 0};
  const HRESULT result = OSCL_UserFeature_ReadValue(nullptr, &description, name, kind);
  FUZZ_CHECK(result == S_OK || result == E_FAIL);
  if (result == S_OK && kind == USER_FEATURE_MULTI_STRING) {
    const UserFeatureValue& value = *description.values;
    uint32_t total = 0;
    for (uint32_t i = 0; i < value.size; ++i) {
      FUZZ_CHECK(std::strlen(value.data.strings[i].text) == value.data.strings[i].length);
      total += value.data.strings[i].length + 1;
    }
    FUZZ_CHECK(total == value.totalLength);
  }
  OSCL_UserFeature_DeleteValues(&description);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const RegistryFile* file = new RegistryFile;
  FuzzedDataProvider input(bytes, size);
  const auto picked = input.ConsumeIntegral<uint8_t>();
  const auto kind = input.ConsumeIntegralInRange<uint32_t>(0, 9);
  const auto type = input.ConsumeIntegralInRange<uint32_t>(0, 12);
  const auto room = input.ConsumeIntegralInRange<uint32_t>(0, 40);
  file->Store(input.ConsumeRemainingBytesAsString());
  const Model model = ReadModel(file->path());
  const int32_t blocks = gAllocationCount;
  HKEY opened = 0;
  const bool present = model.FindByName("HKEY_USERS\\sub key") != nullptr;
  FUZZ_CHECK(RegOpenKeyExA(HKEY_USERS, "sub key", 0, 0, &opened) ==
             (model.code != 0 ? model.code
              : present       ? 0
                              : 15));
  if (model.code == 0 && !model.keys.empty()) {
    const ModelKey& key = model.keys[picked % model.keys.size()];
    CheckReading(model, key);
    const std::string name = key.values.empty() ? "v" : key.values[picked % key.values.size()].name;
    ReadSetting(key, name.c_str(), kind);
    char small[256];
    OSCL_ReadRegistryValue(key.name.c_str(), name.c_str(), 1, 1, small);
    UserFeatureNotifyKey watch = {0, key.name.c_str(), 0, nullptr};
    OSCL_UserFeature_EnableNotification(nullptr, &watch);
    FreeMem(watch.notifyData);
    // Exactly as much data as is announced, without an end.
    const std::unique_ptr<char[]> data(new char[room]);
    std::memset(data.get(), 'd', room);
    const uint32_t result = RegSetValueEx(key.id, name.c_str(), 0, type, data.get(), room);
    FUZZ_CHECK(result == (IsRoot(key.id) ? 1u : 0u));
    if (result == 0) FUZZ_CHECK(RegOpenKeyEx(key.id, nullptr, 0, 0, &opened) == 13);
  }
  FUZZ_CHECK(gAllocationCount == blocks);
  return 0;
}
