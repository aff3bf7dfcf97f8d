#include "bench/registry_file.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/free_device.h"
#include "oscl/registry.h"

namespace bench {

namespace {

constexpr char kPath[] = "/etc/vrel_registry.txt";
constexpr char kLinePattern[] = "%255[^\n]\n";

std::FILE* Open(const char* mode) {
  std::FILE* file = std::fopen(kPath, mode);
  if (file != nullptr) return file;
  std::perror("cannot open the registry file of the scratch folder");
  std::exit(1);
}

void ReadRegistryOnce() {
  std::FILE* file = Open("r");
  char line[256];
  unsigned int keyId = 0;
  while (std::fscanf(file, kLinePattern, line) == 1) {
    if (std::strcmp(line, "[KEY]") == 0 && std::fscanf(file, "%x\n", &keyId) != 1) break;
  }
  std::fclose(file);
}

}  // namespace

void WriteRegistry(unsigned int keys) {
  std::FILE* file = Open("w");
  for (unsigned int key = 1; key <= keys; ++key) {
    std::fprintf(file, "[KEY]\n\t0x%.8x\n\tHKEY_LOCAL_MACHINE\\Software\\Media\\%u\n", key, key);
    std::fprintf(file, "\t\t[VALUE]\n\t\t\tNumber\n\t\t\t4\n\t\t\t%u\n", key);
    std::fprintf(file, "\t\t[VALUE]\n\t\t\tText\n\t\t\t1\n\t\t\ttext of key %u\n", key);
  }
  std::fclose(file);
}

void GetRegistryValue(unsigned int keys) {
  uint32_t number[64];
  const uint32_t key = keys / 2;
  const uint32_t code = RegGetValue(key, nullptr, "Number", 0, nullptr, number, nullptr);
  if (code == 0 && number[0] == key) return;
  std::fprintf(stderr, "RegGetValue returned %u with the number %u\n", code, number[0]);
  std::exit(1);
}

void SetRegistryValue(unsigned int keys) {
  const uint32_t number = keys;
  const uint32_t code = RegSetValueEx(keys / 2, "Number", 0, REG_DWORD, &number, sizeof number);
  if (code == 0) return;
  std::fprintf(stderr, "RegSetValueEx returned %u\n", code);
  std::exit(1);
}

void ReadRegistryTwice() {
  ReadRegistryOnce();
  ReadRegistryOnce();
}

}  // namespace bench
