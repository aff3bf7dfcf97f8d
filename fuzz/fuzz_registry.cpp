// Any file in the place of the registry: every call of the registry and every setting, held against
// a second reader of the format.

#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/registry_file.h"
#include "tests/oscl/registry_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static const RegistryFile* file = new RegistryFile;
  FuzzedDataProvider input(bytes, size);
  auto choices = input.ConsumeIntegral<uint64_t>();
  file->Store(input.ConsumeRemainingBytesAsString());
  // An exception that nobody catches is a finding.
  CheckRegistry(file->path(), [&](size_t limit) {
    const auto choice = static_cast<uint32_t>(choices % limit);
    choices /= limit;
    return choice;
  });
  return 0;
}
