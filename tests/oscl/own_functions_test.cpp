// A program with functions of its own under the names of the compatibility layer, as shims for
// Windows code have them. The library must never call them.

#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace {

int failures = 0;
void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "not so: %s\n", what);
  ++failures;
}

void* library = nullptr;

// Calls the library's own function of that name.
template <typename... Arguments>
uint64_t Call(const char* name, Arguments... arguments) {
  using Function = uint64_t (*)(Arguments...);
  const auto function = reinterpret_cast<Function>(dlsym(library, name));
  Check(function != nullptr, name);
  return function != nullptr ? function(arguments...) : 0;
}

}  // namespace

#define OWN(name) \
  extern "C" uint64_t name() { return Check(false, "the program's " #name " is left alone"), 0; }
#define EACH(own)                                                                                \
  own(AllocAndZeroMem) own(AllocMem) own(CloseHandle) own(CreateEventEx) own(CreateFile)         \
      own(EnterCriticalSection) own(FillMemory) own(FreeLibrary) own(FreeMem) own(GetLastError)  \
          own(GetProcAddress) own(InitializeCriticalSection) own(LoadLibrary) own(ReadFile)      \
              own(QueryPerformanceCounter) own(RegGetValue) own(RegOpenKeyEx) own(RegSetValueEx) \
                  own(Sleep) own(WriteFile) own(fopen_s) own(memcpy_s) own(strcat_s) own(strcpy_s)
EACH(OWN)

// The registry, in the test's own folder.
constexpr char kRegistry[] = "own_functions_registry.txt";
extern "C" FILE* fopen(const char* path, const char* mode) {
  const auto open =
      reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "fopen"));
  return open(std::strcmp(path, "/etc/vrel_registry.txt") == 0 ? kRegistry : path, mode);
}

int main(int, char** arguments) {
  library = dlopen(arguments[1], RTLD_NOW);
  if (library == nullptr) return std::fprintf(stderr, "%s\n", dlerror()), 1;
  std::ofstream(kRegistry) << "[KEY]\n1\nHKEY_CURRENT_USER\\a\n[VALUE]\nv\n1\nx\n";
  Call("OSCL_SleepMs", 1);
  void* module = reinterpret_cast<void*>(Call("OSCL_LoadLibrary", arguments[1]));
  Check(Call("OSCL_GetProcAddress", module, "Sleep") != 0, "an address");
  Check(Call("OSCL_FreeLibrary", module) == 0, "a module");
  uint32_t size = 0;
  Check(Call("OSCL_AppendFile", "/dev/null", "a", 1) == 0, "a file");
  const uint64_t content = Call("OSCL_ReadFile", arguments[0], nullptr, &size);
  Check(size > 1000, "its content");
  Call("FreeMem", content);
  char read[256] = {};
  Check(Call("OSCL_ReadRegistryValue", "a", "v", 1, 256, read) == 0 && *read == 'x', "a value");
  struct {
    uint32_t root = 1;
    const char* path = "a";
    uint64_t rest[2] = {};
  } key;
  Check(Call("OSCL_UserFeature_ReadValue", nullptr, &key, "v", 7) == 0, "a setting");
  Check(Call("OSCL_UserFeature_WriteValues", nullptr, &key) == 0, "a write");
  Call("OSCL_UserFeature_DeleteValues", &key);
  void* handle = nullptr;
  Call("KaloInit3", &handle);
  return failures;
}
