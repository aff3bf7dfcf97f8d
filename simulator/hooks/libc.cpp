#include "simulator/hooks/libc.h"

#include <dlfcn.h>

#include <atomic>

namespace zulisim::hooks {
namespace {

Libc functions;
std::atomic<bool> resolved{false};

void Resolve() {
  Libc found;
#define ZULISIM_RESOLVE(name, result, parameters) \
  found.name = reinterpret_cast<result(*) parameters>(dlsym(RTLD_NEXT, #name));
  ZULISIM_HOOKED_FUNCTIONS(ZULISIM_RESOLVE)
#undef ZULISIM_RESOLVE
  // Several threads can reach this point before main. They write the same values.
  functions = found;
  resolved.store(true, std::memory_order_release);
}

__attribute__((constructor(101))) void ResolveAtStart() { Real(); }

}  // namespace

const Libc& Real() {
  if (!resolved.load(std::memory_order_acquire)) Resolve();
  return functions;
}

}  // namespace zulisim::hooks
