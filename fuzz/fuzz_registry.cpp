// Uses any text as the registry file, compares the library's parser with a second reader of the
// format, and makes registry and settings calls. Also passes any bytes to the settings calls.

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/check.h"
#include "fuzz/registry_file.h"
#include "oscl/last_error.h"
#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/user_feature.h"
#include "tests/oscl/scanf_reader.h"

namespace {

// Splits the bytes into a list of strings and writes it. The block ends exactly at the last byte.
void SplitAndJoin(const std::string& bytes, const RegistryFile& file) {
  const auto length = static_cast<uint32_t>(bytes.size());
  auto* buffer = static_cast<char*>(AllocMem(length));
  std::memcpy(buffer, bytes.data(), length);
  UserFeatureValue value = {nullptr, USER_FEATURE_MULTI_STRING, {}, 0, 0};
  if (OSCL_UserFeature_SetMultiStringValue(&value, buffer, length) != S_OK) {
    FUZZ_CHECK(value.data.strings == nullptr);
    return FreeMem(buffer);
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

void ParsePath(const std::string& path) {
  uint32_t root = 7;
  char* rest = nullptr;
  const HRESULT result = OSCL_UserFeature_ParsePath(nullptr, path.c_str(), &root, &rest);
  const size_t backslash = path.find('\\');
  const std::string prefix = path.substr(0, backslash);
  const bool good = backslash != std::string::npos && backslash + 1 < path.size() &&
                    (prefix == "HKEY_LOCAL_MACHINE" || prefix == "HKEY_CURRENT_USER");
  FUZZ_CHECK((result == S_OK) == good);
  FUZZ_CHECK(good ? rest == path.c_str() + backslash + 1 : root == 7 && rest == nullptr);
}

// Makes calls that load the file, for a key and a value that many of the seeds have.
void ReadAndSet(const std::string& rendered, uint32_t kind) {
  HKEY key = 0;
  const uint32_t code = RegOpenKeyExA(0, "C", 0, 0, &key);
  FUZZ_CHECK(code == 0 || code == OSCL_ERROR_REG_ID_NOT_FOUND ||
             rendered == "code " + std::to_string(code));
  char data[256];
  uint32_t size = 0;
  RegGetValue(key, nullptr, "v", 0, nullptr, data, &size);
  FUZZ_CHECK(size <= sizeof data);
  UserFeatureKey setting = {0, "C", nullptr, 0};
  OSCL_UserFeature_ReadValue(nullptr, &setting, "v", kind);
  OSCL_UserFeature_DeleteValues(&setting);
  RegSetValueEx(key, "v", 0, REG_SZ, "x", 2);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const RegistryFile* const file = new RegistryFile;
  FuzzedDataProvider input(bytes, size);
  const auto kind = static_cast<uint32_t>(input.ConsumeIntegral<uint64_t>() % 10);
  const std::string text = input.ConsumeRemainingBytesAsString();
  const int32_t blocks = gAllocationCount;
  SplitAndJoin(text, *file);
  ParsePath(text.c_str());
  const std::string rendered = RenderedByScanf(text);
  FUZZ_CHECK(RenderedByLibrary(text) == rendered);
  file->Store(text);
  // An uncaught exception is a finding.
  ReadAndSet(rendered, kind);
  FUZZ_CHECK(gAllocationCount == blocks);
  return 0;
}
