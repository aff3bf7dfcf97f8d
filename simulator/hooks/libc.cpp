#include "simulator/hooks/libc.h"

#include <dlfcn.h>

#include <atomic>

namespace zulisim::hooks {
namespace {

Libc functions;
std::atomic<bool> resolved{false};

void* FindInLibc(const char* name) {
  void* function = dlsym(RTLD_NEXT, name);
  // dlsym finds no default version of functions that only old programs use.
  return function != nullptr ? function : dlvsym(RTLD_NEXT, name, "GLIBC_2.2.5");
}

void Resolve() {
  Libc found;
#define ZULISIM_RESOLVE(name, result, parameters) \
  found.name = reinterpret_cast<result(*) parameters>(FindInLibc(#name));
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
