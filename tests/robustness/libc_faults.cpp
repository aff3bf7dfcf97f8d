// With fortification, calls have other names, and some functions have overloads whose address
// cannot be taken.
#undef _FORTIFY_SOURCE

#include "tests/robustness/libc_faults.h"
#include "tests/support/standard_headers.h"

#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

namespace faults {

namespace {

std::string_view armedCall;
uint32_t callsLeft = 0;  // 0 after the failure, and while nothing is counted
int armedError = 0;

bool Fails(std::string_view call) {
  return callsLeft != 0 && call == armedCall && --callsLeft == 0;
}

bool OnDevice(...) { return false; }
bool OnDevice(int descriptor, const void*, size_t) {
  struct stat status = {};
  return fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode);
}

using Row = std::pair<const char*, void*>;

// Replaces a libc function for the library. If it must fail and kActs is false, it has no effect.
template <auto kReal, bool kActs, typename Result, typename... Arguments, bool kNoexcept>
Row Hook(const char* function, Result (*)(Arguments...) noexcept(kNoexcept)) {
  static const char* const name = function;
  Result (*const replacement)(Arguments...) = [](Arguments... arguments) {
    const bool fails = !OnDevice(arguments...) && Fails(name);
    if (!fails || kActs) {
      // What runs inside the call belongs to the simulator or the test.
      const uint32_t left = std::exchange(callsLeft, 0);
      const Result result = kReal(arguments...);
      callsLeft = left;
      if (!fails) return result;
    }
    if (armedError != 0) errno = armedError;
    return (Result)(std::is_signed_v<Result> ? -1L : 0L);
  };
  return {name, reinterpret_cast<void*>(replacement)};
}

// Replace the libc functions of these names in the table below.
int open(const char* path, int flags, unsigned mode) { return ::open(path, flags, mode); }
int ioctl(int descriptor, unsigned long request, void* argument) {
  return ::ioctl(descriptor, request, argument);
}
void* dlopen(const char* name, int flags) {
  EXPECT_EQ(flags, RTLD_LAZY);
  return ::dlopen(name, flags);
}
int usleep(unsigned microseconds) {
  EXPECT_EQ(microseconds, 7u);
  return ::usleep(microseconds);
}

size_t Fread(void* buffer, size_t size, size_t count, FILE* file) {
  if (!Fails("fread")) return fread(buffer, size, count, file);
  // Writing to a stream that is open for reading sets its error flag.
  fputc(0, file);
  return 0;
}

template <void* (*kReal)(size_t)>
void* New(size_t size) {
  if (Fails("malloc")) throw std::bad_alloc();
  return kReal(size);
}

#define FAILS(function) Hook<function, false>(#function, function)
#define ACTS(function) Hook<function, true>(#function, function)
#define OWN(function, own) Row(#function, reinterpret_cast<void*>(own))
// clang-format off
const Row kHooks[] = {
    FAILS(open), FAILS(ioctl), FAILS(read), FAILS(write), FAILS(lseek), FAILS(fstat), FAILS(fopen),
    FAILS(fwrite), FAILS(malloc), FAILS(usleep), FAILS(clock_getres), FAILS(clock_gettime),
    FAILS(dlopen), FAILS(dlsym), ACTS(close), ACTS(fclose), ACTS(dlclose), ACTS(pthread_mutex_init),
    ACTS(pthread_mutex_lock), ACTS(pthread_mutex_unlock), ACTS(pthread_mutex_destroy),
    OWN(fread, Fread), OWN(_Znwm, New<operator new>), OWN(_Znam, New<operator new[]>),
    OWN(fopen64, FAILS(fopen).second), OWN(__read_chk, FAILS(read).second)};
// clang-format on

// Replaces the functions' addresses in the writable segments of a module. They also hold data,
// which may have parts that the address sanitizer does not let other code read.
__attribute__((no_sanitize("address"))) int ReplaceAddresses(dl_phdr_info* module, size_t, void*) {
  const char* const path = module->dlpi_name;
  if (!strstr(path, "/libkalodll.so") && !strstr(path, "/libstdc++.so")) return 0;
  for (int i = 0; i < module->dlpi_phnum; ++i) {
    const auto& segment = module->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) == 0) continue;
    const ElfW(Addr) address = module->dlpi_addr + segment.p_vaddr, offset = address % 4096;
    auto** const words = reinterpret_cast<void**>(address - offset);
    const size_t size = offset + segment.p_filesz;
    // The loader has made the linkage table read-only.
    mprotect(words, size, PROT_READ | PROT_WRITE);
    for (const auto& [function, replacement] : kHooks) {
      void* const real = dlsym(RTLD_DEFAULT, function);
      if (real == nullptr) continue;  // another libc or runtime lacks some
      for (size_t word = 0; word < size / sizeof real; ++word) {
        if (words[word] == real) words[word] = replacement;
      }
    }
  }
  return 0;
}

}  // namespace

void Arm(std::string_view call, uint32_t number, int error) {
  [[maybe_unused]] static const int once = dl_iterate_phdr(ReplaceAddresses, nullptr);
  armedCall = call;
  callsLeft = number;
  armedError = error;
}

bool Disarm() { return std::exchange(callsLeft, 0) == 0; }

}  // namespace faults
