#pragma once

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/uio.h>

// Every hooked function of libc: name, result, parameters. A variadic function is listed with its
// optional arguments; all supported calling conventions pass them in the same way.
#define ZULISIM_HOOKED_FUNCTIONS(X)                           \
  X(open, int, (const char*, int, unsigned))                  \
  X(__open_2, int, (const char*, int))                        \
  X(openat, int, (int, const char*, int, unsigned))           \
  X(__openat_2, int, (int, const char*, int))                 \
  X(fopen, FILE*, (const char*, const char*))                 \
  X(freopen, FILE*, (const char*, const char*, FILE*))        \
  X(fdopen, FILE*, (int, const char*))                        \
  X(stat, int, (const char*, void*))                          \
  X(lstat, int, (const char*, void*))                         \
  X(fstat, int, (int, void*))                                 \
  X(fstatat, int, (int, const char*, void*, int))             \
  X(statx, int, (int, const char*, int, unsigned, void*))     \
  X(access, int, (const char*, int))                          \
  X(eaccess, int, (const char*, int))                         \
  X(faccessat, int, (int, const char*, int, int))             \
  X(unlink, int, (const char*))                               \
  X(remove, int, (const char*))                               \
  X(rename, int, (const char*, const char*))                  \
  X(read, ssize_t, (int, void*, size_t))                      \
  X(__read_chk, ssize_t, (int, void*, size_t, size_t))        \
  X(readv, ssize_t, (int, const struct iovec*, int))          \
  X(write, ssize_t, (int, const void*, size_t))               \
  X(__write_chk, ssize_t, (int, const void*, size_t, size_t)) \
  X(writev, ssize_t, (int, const struct iovec*, int))         \
  X(ioctl, int, (int, unsigned long, void*))                  \
  X(close, int, (int))                                        \
  X(dup, int, (int))                                          \
  X(dup2, int, (int, int))                                    \
  X(dup3, int, (int, int, int))                               \
  X(fcntl, int, (int, int, void*))                            \
  X(syscall, long, (long, long, long, long, long, long, long))

// Begins the definition of a hook: a C++ function whose symbol is libc's name. It therefore does
// not need the parameter types or the noexcept of libc's declaration.
#define ZULISIM_HOOK(result, name, ...)                                                        \
  result Hook_##name(__VA_ARGS__) __asm__(#name) __attribute__((visibility("default"), used)); \
  result Hook_##name(__VA_ARGS__)

// Gives the hook of `name` a second symbol, for another name of the same function. Where off_t has
// 64 bits, open64 is open. The attribute `alias` does not work here, because libc's headers define
// some of the functions inline.
#define ZULISIM_ALIAS(name, other) __asm__(".globl " #other "\n.set " #other ", " #name);
static_assert(sizeof(off_t) == 8, "open64 is not open");

namespace zulisim::hooks {

// Pointers to libc's own functions.
struct Libc {
#define ZULISIM_DECLARE(name, result, parameters) result(*name) parameters;
  ZULISIM_HOOKED_FUNCTIONS(ZULISIM_DECLARE)
#undef ZULISIM_DECLARE
};

// Returns the functions. The first call resolves all of them, at the latest when the process
// starts.
const Libc& Real();

}  // namespace zulisim::hooks
