// A program with functions of its own under the names of the compatibility layer, as shims for
// Windows code have them. The library must never call them.

#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

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
OWN(AllocAndZeroMem)
OWN(AllocMem)
OWN(CloseHandle)
OWN(CreateEventEx)
OWN(CreateFile)
OWN(EnterCriticalSection)
OWN(FillMemory)
OWN(FreeLibrary)
OWN(FreeMem)
OWN(GetFileSize)
OWN(GetLastError)
OWN(GetProcAddress)
OWN(InitializeCriticalSection)
OWN(LeaveCriticalSection)
OWN(LoadLibrary)
OWN(NotifyRegistryChange)
OWN(QueryPerformanceCounter)
OWN(QueryPerformanceFrequency)
OWN(ReadFile)
OWN(RegGetValue)
OWN(RegNotifyChangeKeyValue)
OWN(RegOpenKeyEx)
OWN(RegSetValueEx)
OWN(RegisterWaitForSingleObject)
OWN(SetFilePointer)
OWN(Sleep)
OWN(WriteFile)
OWN(ZeroMemory)
OWN(fopen_s)
OWN(localtime_s)
OWN(memcpy_s)
OWN(strcat_s)
OWN(strcpy_s)

// The registry, in a file of this test's.
extern "C" FILE* fopen(const char* path, const char* mode) {
  static const auto open =
      reinterpret_cast<FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "fopen"));
  static FILE* const registry = std::tmpfile();
  if (std::strcmp(path, "/etc/vrel_registry.txt") != 0) return open(path, mode);
  static const std::string copy = "/proc/self/fd/" + std::to_string(fileno(registry));
  static const int stored =
      std::fputs("[KEY]\n1\nHKEY_CURRENT_USER\\a\n[VALUE]\nv\n1\nx\n", registry) +
      std::fflush(registry);
  Check(stored >= 0, "the registry is stored");
  return open(copy.c_str(), mode);
}

int main(int, char** arguments) {
  library = dlopen(arguments[1], RTLD_NOW);
  if (library == nullptr) return std::fprintf(stderr, "%s\n", dlerror()), 1;
  int64_t ticks = 0;
  Call("OSCL_SleepMs", 1);
  Call("OSCL_GetLastError");
  Check(static_cast<int32_t>(Call("OSCL_QueryPerformanceCounter", &ticks)) == 1, "a counter");
  Check(static_cast<int32_t>(Call("OSCL_QueryPerformanceFrequency", &ticks)) == 1, "a frequency");
  void* module = reinterpret_cast<void*>(Call("OSCL_LoadLibrary", arguments[1]));
  Check(Call("OSCL_GetProcAddress", module, "Sleep") != 0, "an address");
  Check(static_cast<uint32_t>(Call("OSCL_FreeLibrary", module)) == 0, "a module");
  uint32_t size = 0;
  Check(static_cast<uint32_t>(Call("OSCL_AppendFile", "/dev/null", "a", 1)) == 0, "a file");
  Check(Call("OSCL_ReadFile", arguments[0], nullptr, &size) != 0 && size > 1000, "its content");
  char version[148];
  Check(static_cast<int32_t>(Call("GetVersionEx", version)) == 1, "the version");
  struct {
    uint32_t root = 1;
    const char* path = "a";
    uint64_t rest[2] = {};
  } key, watch;
  Check(static_cast<uint32_t>(Call("OSCL_UserFeature_ReadValue", nullptr, &key, "v", 7)) == 0 &&
            key.rest[0] != 0,
        "a setting");
  Check(static_cast<uint32_t>(Call("OSCL_UserFeature_WriteValues", nullptr, &key)) == 0, "a write");
  Call("OSCL_UserFeature_DeleteValues", &key);
  Call("OSCL_UserFeature_EnableNotification", nullptr, &watch);
  Call("OSCL_ReadRegistryValue", "a", "v", 1, 256, version);
  void* handle = nullptr;
  Call("KaloInit3", &handle);
  return failures;
}
