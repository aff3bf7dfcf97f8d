#include "oscl/registry_writer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "oscl/bounded_string.h"
#include "oscl/last_error.h"
#include "oscl/registry.h"

namespace oscl {

namespace {

// The first 4 bytes of the data; bytes that are not there count as 0.
int32_t NumberOf(const std::vector<uint8_t>& data) {
  int32_t number = 0;
  std::memcpy(&number, data.data(), std::min(data.size(), sizeof(number)));
  return number;
}

void WriteData(std::FILE* file, const RegistryValueRecord& value) {
  if (value.type == REG_DWORD || value.type == REG_QWORD) {
    std::fprintf(file, "\t\t\t%d \n", NumberOf(value.data));
    return;
  }
  // The text need not be terminated.
  const auto* text = reinterpret_cast<const char*>(value.data.data());
  std::fputs("\t\t\t", file);
  std::fwrite(text, 1, strnlen(text, value.data.size()), file);
  std::fputs(" \n", file);
}

void WriteValue(std::FILE* file, const RegistryValueRecord& value) {
  std::fprintf(file, "\t\t%s \n", kRegistryValueMark);
  if (!value.name.empty()) std::fprintf(file, "\t\t\t%s \n", value.name.c_str());
  std::fprintf(file, "\t\t\t%d \n", static_cast<int32_t>(value.type));
  if (!value.data.empty()) WriteData(file, value);
}

void WriteKey(std::FILE* file, const RegistryKeyRecord& key) {
  std::fprintf(file, "%s \n", kRegistryKeyMark);
  std::fprintf(file, "\t0x%.8x \n", key.keyId);
  std::fprintf(file, "\t%s \n", key.name.c_str());
  for (const RegistryValueRecord& value : key.values) WriteValue(file, value);
}

}  // namespace

void SaveRegistry(const RegistryImage& image) {
  std::FILE* file = nullptr;
  fopen_s(&file, kRegistryPath, "w+");
  if (file == nullptr) throw RegistryFailure(OSCL_ERROR_REG_FILE_UNWRITABLE);
  for (const RegistryKeyRecord& key : image.keys()) WriteKey(file, key);
  const bool failed = std::ferror(file) != 0;
  if (std::fclose(file) != 0 || failed) throw RegistryFailure(OSCL_ERROR_REG_FILE_UNWRITABLE);
}

}  // namespace oscl
