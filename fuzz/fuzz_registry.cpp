// Uses any text as the registry file, compares the library's parser with a second reader of the
// format and with kaloctl, and makes registry and settings calls. The first byte chooses the kind
// of setting. Also splits any bytes into strings.

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "fuzz/check.h"
#include "fuzz/scanf_reader.h"
#include "oscl/memory.h"
#include "oscl/registry.h"
#include "oscl/registry_image.h"
#include "oscl/user_feature.h"
#include "simulator/in_process/in_process_device.h"
#include "tools/registry/registry_text.h"

namespace {

// Stores the text in a file in memory that replaces the registry file.
void Store(const std::string& text) {
  static const int file = memfd_create("registry", 0);
  static zulisim::Engine engine;
  static const zulisim::InProcessDevice attachment(
      engine, {{"/etc/vrel_registry.txt", "/proc/self/fd/" + std::to_string(file)}});
  FUZZ_CHECK(ftruncate(file, 0) == 0 && pwrite(file, text.data(), text.size(), 0) >= 0);
}

// Splits the bytes into a list of strings. The block ends exactly at the last byte.
void Split(const std::string& bytes) {
  const size_t size = bytes.size();
  auto* buffer = static_cast<char*>(AllocMem(size));
  std::memcpy(buffer, bytes.data(), size);
  UserFeatureValue value = {nullptr, USER_FEATURE_MULTI_STRING, {}, 0, 0};
  // No string may be empty. The last one ends at the last byte, or at the one before it.
  const size_t end = bytes.rfind('\0');
  const bool good = size > 1 && end != std::string::npos && end + 2 >= size &&
                    ('\0' + bytes).find(std::string(2, '\0')) >= size - 1;
  FUZZ_CHECK((OSCL_UserFeature_SetMultiStringValue(&value, buffer, size) == S_OK) == good);
  if (!good) FreeMem(buffer);
  uint32_t offset = 0;
  for (uint32_t i = 0; i < value.size; ++i) {
    const UserFeatureString& string = value.data.strings[i];
    FUZZ_CHECK(string.text == buffer + offset && string.length == std::strlen(string.text));
    offset += string.length + 1;
  }
  FUZZ_CHECK(offset == value.totalLength && offset <= size);
  FUZZ_CHECK(good ? offset + 1 >= size : value.data.strings == nullptr);
  OSCL_UserFeature_ClearValue(&value);
  OSCL_UserFeature_ClearValue(&value);
}

// Checks that both readers, kaloctl and the library read the same, and that kaloctl writes what it
// reads and undoes what the library changes when it writes the file.
void CompareReaders(const kaloctl::RegistryText& registry, const std::string& text) {
  const ScanfReader reader(text);
  FUZZ_CHECK(registry.stop ? !reader.whole && registry.stop->code == reader.code : reader.whole);
  if (reader.code != 0) return;
  FUZZ_CHECK(FormatRegistry(registry) == reader.keys);
  // A text with a NUL ends there, and an empty text does not load again. kaloctl refuses to write
  // such a file.
  if (!reader.complete || text.find('\0') != std::string::npos) return;
  const kaloctl::RegistryText again = kaloctl::ParseRegistry(reader.keys);
  FUZZ_CHECK(FormatRegistry(again) == reader.keys && !again.stop && again.misread.empty());
  const std::string rewritten = oscl::RegistryImage(text).Rendered();
  const kaloctl::RegistryText repaired = kaloctl::RepairRegistry(rewritten);
  FUZZ_CHECK(FormatRegistry(repaired) == reader.keys && repaired.doubtful == reader.texts);
}

// Checks that a text is repaired only if the library would have written it.
void Repair(const std::string& text) {
  const kaloctl::RegistryText repaired = kaloctl::RepairRegistry(text);
  if (repaired.stop || repaired.doubtful || repaired.keys.empty()) return;
  FUZZ_CHECK(oscl::RegistryImage(FormatRegistry(repaired)).Rendered() == text);
}

// Makes calls that load the file, for a key and a value that many of the seeds have.
void ReadAndSet(const kaloctl::RegistryText& registry, uint32_t kind) {
  HKEY key = 0;
  const kaloctl::RegistryKey* const found = registry.FindByName("C");
  const bool opened = RegOpenKeyExA(0, "C", 0, 0, &key) == 0;
  FUZZ_CHECK(opened == (found != nullptr) && (!opened || key == found->id));
  UserFeatureKey setting = {0, "C", nullptr, 0};
  OSCL_UserFeature_ReadValue(nullptr, &setting, "v", kind);
  OSCL_UserFeature_DeleteValues(&setting);
  RegSetValueEx(key, "v", 0, REG_SZ, "x", 2);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string text(data + 1, data + size);
  const int32_t blocks = gAllocationCount;
  Split(text);
  const kaloctl::RegistryText registry = kaloctl::ParseRegistry(text);
  CompareReaders(registry, text);
  Repair(text);
  Store(text);
  // An uncaught exception is a finding.
  ReadAndSet(registry, *data % 10);
  FUZZ_CHECK(gAllocationCount == blocks);
  return 0;
}
