#include "simulator/preload/log_detail.h"

#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>

#include "simulator/preload/protocol.h"

namespace zulisim::hooks {
namespace {

constexpr std::int32_t kTraceLevel = 100;
// Logger::logBase, whose first member is the threshold.
constexpr const char* kLogBase = "_ZN6Logger7logBaseE";

}  // namespace

void RaiseLogLevel() {
  if (getenv(protocol::kDetailVariable) == nullptr) return;
  // The driver may have loaded the library with RTLD_LOCAL, which hides its names from
  // dlsym(RTLD_DEFAULT).
  void* const library = dlopen("libkalodll.so", RTLD_LAZY | RTLD_NOLOAD);
  if (library == nullptr) return;
  if (void* const level = dlsym(library, kLogBase)) {
    __atomic_store_n(static_cast<std::int32_t*>(level), kTraceLevel, __ATOMIC_RELAXED);
  }
  dlclose(library);
}

}  // namespace zulisim::hooks
