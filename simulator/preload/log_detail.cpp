#include "simulator/preload/log_detail.h"

#include <dlfcn.h>
#include <limits.h>
#include <link.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "simulator/preload/protocol.h"

namespace zulisim::hooks {
namespace {

constexpr std::int32_t kTraceLevel = 100;
// Logger::logBase, whose first member is the threshold.
constexpr const char* kLogBase = "_ZN6Logger7logBaseE";

// Finds the library among all loaded objects, because a driver may have loaded it without making
// its names public. Only copies its path: dlopen here could deadlock with another thread that is
// loading a library.
int FindLibrary(struct dl_phdr_info* object, std::size_t, void* path) {
  const char* const name = object->dlpi_name;
  if (strstr(name, "libkalodll") == nullptr || strlen(name) >= PATH_MAX) return 0;
  strcpy(static_cast<char*>(path), name);
  return 1;
}

}  // namespace

void RaiseLogLevel() {
  char path[PATH_MAX];
  if (getenv(protocol::kDetailVariable) == nullptr) return;
  if (dl_iterate_phdr(FindLibrary, path) == 0) return;
  void* const library = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
  if (library == nullptr) return;
  if (void* const level = dlsym(library, kLogBase)) {
    __atomic_store_n(static_cast<std::int32_t*>(level), kTraceLevel, __ATOMIC_RELAXED);
  }
  dlclose(library);
}

}  // namespace zulisim::hooks
