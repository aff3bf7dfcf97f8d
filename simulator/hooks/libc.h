#pragma once

#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <atomic>

namespace zulisim::hooks {

// Calls libc's own function, which a hook replaces for the program. Any thread may call it at any
// time.
template <typename Function>
class LibcFunction;

template <typename Result, typename... Parameters>
class LibcFunction<Result(Parameters...)> {
 public:
  constexpr explicit LibcFunction(const char* name) : name_(name) {}

  Result operator()(Parameters... parameters) const {
    const auto function = function_.load(std::memory_order_relaxed);
    return function != nullptr ? function(parameters...) : Find()(parameters...);
  }
  // Threads that call this at the same time find the same function.
  auto Find() const {
    // dlsym finds its caller by the return address, so the call must not become a tail call.
    // Without volatile, it does where nothing reads the result, and the process crashes at its
    // start.
    void* const volatile symbol = dlsym(RTLD_NEXT, name_);
    const auto function = reinterpret_cast<Result (*)(Parameters...)>(symbol);
    function_.store(function, std::memory_order_relaxed);
    return function;
  }

 private:
  const char* const name_;
  mutable std::atomic<Result (*)(Parameters...)> function_{nullptr};
};

// Begins the definition of a hook: a C++ function whose symbol is libc's name. It therefore does
// not need the parameter types or the noexcept of libc's declaration. A variadic function has its
// optional arguments as parameters; all supported calling conventions pass them in the same way.
// Real_NAME calls libc's function. It is found when the process starts, because dlsym is not safe
// in a signal handler.
#define ZULISIM_HOOK(result, name, ...)                                                        \
  const LibcFunction<result(__VA_ARGS__)> Real_##name(#name);                                  \
  __attribute__((constructor(101))) static void Find_##name() { Real_##name.Find(); }          \
  result Hook_##name(__VA_ARGS__) __asm__(#name) __attribute__((visibility("default"), used)); \
  result Hook_##name(__VA_ARGS__)

// Gives the hook of `name` a second symbol, for another name of the same function. Where off_t has
// 64 bits, open64 is open. The attribute `alias` does not work here, because libc's headers define
// some of the functions inline.
#define ZULISIM_ALIAS(name, other) __asm__(".globl " #other "\n.set " #other ", " #name);
static_assert(sizeof(off_t) == 8, "open64 is not open");

// Defined with their hooks, for callers elsewhere. The constructor is constexpr.
// NOLINTBEGIN(bugprone-dynamic-static-initializers)
extern const LibcFunction<int(int)> Real_close;
extern const LibcFunction<int(int, int, void*)> Real_fcntl;
extern const LibcFunction<int(int, void*)> Real_fstat;
extern const LibcFunction<int(int, unsigned long, void*)> Real_ioctl;
extern const LibcFunction<int(const char*, int, unsigned)> Real_open;
extern const LibcFunction<ssize_t(int, const void*, size_t)> Real_write;
// NOLINTEND(bugprone-dynamic-static-initializers)

}  // namespace zulisim::hooks
