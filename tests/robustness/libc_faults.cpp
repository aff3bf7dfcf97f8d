// With fortification, calls have other names, and some functions have overloads whose address
// cannot be taken.
#undef _FORTIFY_SOURCE

#include "tests/robustness/libc_faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <link.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <new>
#include <utility>

namespace faults {

namespace {

bool counting = false;
bool injected = false;
std::string armedCall;
uint32_t callsLeft = 0;
int armedError = 0;
pthread_mutex_t* mutexNotLocked = nullptr;

// Stops counting during a call, because what runs inside the call belongs to the simulator or the
// test.
class CountingPause {
 public:
  CountingPause() { counting = false; }
  ~CountingPause() { counting = saved_; }

 private:
  const bool saved_ = counting;
};

bool Fails(const char* call) {
  if (!counting || armedCall != call || injected) return false;
  injected = --callsLeft == 0;
  if (injected) errno = armedError;
  return injected;
}

using Row = std::pair<const std::string, void*>;

// Replaces a libc function for the library. If it must fail, it has no effect; a function that
// releases something releases it first.
template <auto kReal, bool kReleases, typename Result, typename... Arguments, bool kNoexcept>
Row Hook(const char* function, Result (*)(Arguments...) noexcept(kNoexcept)) {
  static const char* name;
  name = function;
  Result (*const replacement)(Arguments...) = [](Arguments... arguments) -> Result {
    auto failure = static_cast<Result>(0);
    if constexpr (std::is_signed_v<Result>) {
      failure = strncmp(name, "pthread", 7) == 0 ? EINVAL : -1;
    }
    const bool fails = Fails(name);
    if (fails && !kReleases) return failure;
    const CountingPause pause;
    const Result result = kReal(arguments...);
    if (!fails) return result;
    errno = armedError;
    return failure;
  };
  return {name, reinterpret_cast<void*>(replacement)};
}

int Open(const char* path, int flags, unsigned mode) { return open(path, flags, mode); }

void* Dlopen(const char* name, int flags) {
  EXPECT_EQ(flags, RTLD_LAZY);
  return dlopen(name, flags);
}

int Ioctl(int descriptor, unsigned long request, void* argument) {
  return ioctl(descriptor, request, argument);
}

// Does not count writes to the device, because the simulator makes those fail.
ssize_t Write(int descriptor, const void* data, size_t size) {
  struct stat status = {};
  const bool onDevice = fstat(descriptor, &status) == 0 && S_ISCHR(status.st_mode);
  if (!onDevice && Fails("write")) return -1;
  const CountingPause pause;
  return write(descriptor, data, size);
}

size_t Fread(void* buffer, size_t size, size_t count, FILE* file) {
  if (!Fails("fread")) return fread(buffer, size, count, file);
  // Writing to a stream that is open for reading sets its error flag.
  fputc(0, file);
  return 0;
}

template <auto kReal>
void* New(size_t size) {
  if (Fails("malloc")) throw std::bad_alloc();
  return kReal(size);
}

int Lock(pthread_mutex_t* mutex) {
  const bool fails = Fails("lock");
  if (fails || mutexNotLocked == mutex) mutexNotLocked = fails ? mutex : nullptr;
  return fails ? EINVAL : pthread_mutex_lock(mutex);
}
int Unlock(pthread_mutex_t* mutex) {
  if (mutexNotLocked == mutex) return EPERM;
  pthread_mutex_unlock(mutex);
  return Fails("unlock") ? EPERM : 0;
}

#define FAILS(function) Hook<function, false>(#function, function)
#define RELEASES(function) Hook<function, true>(#function, function)
#define OWN(function, own) \
  { #function, reinterpret_cast < void*>(own) }
const Row kHooks[] = {FAILS(fopen),        FAILS(fwrite),        FAILS(read),
                      FAILS(lseek),        FAILS(fstat),         FAILS(malloc),
                      FAILS(clock_getres), FAILS(clock_gettime), RELEASES(close),
                      FAILS(dlsym),        FAILS(usleep),        FAILS(pthread_mutex_init)};
const Row kOthers[] = {RELEASES(pthread_mutex_destroy),
                       RELEASES(fclose),
                       RELEASES(dlclose),
                       Hook<Open, false>("open", Open),
                       Hook<Dlopen, false>("dlopen", Dlopen),
                       Hook<Ioctl, false>("ioctl", Ioctl),
                       {"fopen64", FAILS(fopen).second},
                       {"__read_chk", FAILS(read).second},
                       OWN(fread, Fread),
                       OWN(write, Write),
                       OWN(__write_chk, Write),
                       OWN(_Znwm, New<static_cast<void* (*)(size_t)>(operator new)>),
                       OWN(_Znam, New<static_cast<void* (*)(size_t)>(operator new[])>),
                       OWN(pthread_mutex_lock, Lock),
                       OWN(pthread_mutex_unlock, Unlock)};
#undef OWN
#undef RELEASES
#undef FAILS

void ReplaceEntries(const link_map& module) {
  std::map<std::string, void*> replacements(std::begin(kHooks), std::end(kHooks));
  replacements.insert(std::begin(kOthers), std::end(kOthers));
  const ElfW(Addr) base = module.l_addr;
  std::map<ElfW(Sxword), ElfW(Addr)> tags;
  for (const auto* tag = module.l_ld; tag->d_tag != DT_NULL; ++tag) {
    tags[tag->d_tag] = tag->d_un.d_ptr;
  }
  // The table's entries are addresses with some loaders, and offsets with others.
  const auto at = [&](ElfW(Sxword) tag) { return tags[tag] < base ? base + tags[tag] : tags[tag]; };
  const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(at(DT_SYMTAB));
  const auto* names = reinterpret_cast<const char*>(at(DT_STRTAB));
  for (const auto& [table, size] :
       {std::pair(DT_JMPREL, DT_PLTRELSZ), std::pair(DT_RELA, DT_RELASZ)}) {
    const auto* entry = reinterpret_cast<const ElfW(Rela)*>(at(table));
    for (const auto* end = entry + tags[size] / sizeof *entry; entry != end; ++entry) {
      const auto type = ELF64_R_TYPE(entry->r_info);
      if (type != R_X86_64_JUMP_SLOT && type != R_X86_64_GLOB_DAT) continue;
      const auto row = replacements.find(names + symbols[ELF64_R_SYM(entry->r_info)].st_name);
      if (row == replacements.end()) continue;
      // The loader makes the table read-only.
      const auto address = base + entry->r_offset;
      void* const page = reinterpret_cast<void*>(address & ~ElfW(Addr){4095});
      mprotect(page, 4096, PROT_READ | PROT_WRITE);
      *reinterpret_cast<void**>(address) = row->second;
    }
  }
}

}  // namespace

bool Install() {
  link_map* module = nullptr;
  for (const char* name : {"libstdc++.so.6", "libkalodll.so"}) {
    void* const handle = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
    module = nullptr;
    if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &module) != 0) continue;
    ReplaceEntries(*module);
    dlclose(handle);
  }
  return module != nullptr;
}

void Arm(const std::string& call, uint32_t number, int error) {
  armedError = error;
  armedCall = call;
  callsLeft = number;
  injected = false;
  counting = true;
}

bool Disarm() {
  counting = false;
  return injected;
}

}  // namespace faults
