#include "tests/robustness/libc_faults.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <set>
#include <utility>
#include <vector>

namespace faults {

namespace {

bool counting = false;
bool struck = false;
Call armedCall = Call::kCount;
uint32_t callsLeft = 0;
int armedError = 0;
std::function<void()> strikes;
int wrongUnlocks = 0;
std::vector<int> devices;
std::set<void*> heldMutexes;

bool Fails(Call call) {
  if (!counting || call != armedCall || struck || --callsLeft != 0) return false;
  struck = true;
  if (strikes) {
    const Outside outside;
    strikes();
  }
  errno = armedError;
  return true;
}

bool IsDevice(int descriptor) {
  return std::find(devices.begin(), devices.end(), descriptor) != devices.end();
}

#define REPLACED_FUNCTIONS(X)                                                                  \
  X(open)                                                                                      \
  X(ioctl) X(read) X(write) X(writev) X(close) X(lseek) X(fstat) X(fopen) X(fopen64) X(fclose) \
      X(malloc) X(_Znwm) X(_Znam) X(pthread_mutex_lock) X(pthread_mutex_unlock)                \
          X(pthread_mutex_init) X(pthread_mutex_destroy) X(clock_getres) X(clock_gettime)      \
              X(dlopen) X(dlsym) X(dlclose) X(usleep) X(localtime)

// What the library would reach without this file.
#define DECLARE_SLOT(name) void* slot_##name = nullptr;
REPLACED_FUNCTIONS(DECLARE_SLOT)
#undef DECLARE_SLOT

template <typename Result, typename... Arguments>
Result CallReal(void* slot, Arguments... arguments) {
  return reinterpret_cast<Result (*)(Arguments...)>(slot)(arguments...);
}

// Whatever runs behind a call of the library on the device belongs to the simulator.
template <typename Result, typename... Arguments>
Result CallOutside(void* slot, Arguments... arguments) {
  const Outside outside;
  return CallReal<Result>(slot, arguments...);
}

int New_open(const char* path, int flags, unsigned mode) {
  const bool device = strcmp(path, "/dev/zuli") == 0;
  if (Fails(device ? Call::kDeviceOpen : Call::kOpen)) return -1;
  const int descriptor = CallOutside<int>(slot_open, path, flags, mode);
  const Outside outside;
  if (device && descriptor >= 0) devices.push_back(descriptor);
  return descriptor;
}

ssize_t New_read(int descriptor, void* buffer, size_t length) {
  if (Fails(IsDevice(descriptor) ? Call::kDeviceRead : Call::kRead)) return -1;
  return CallOutside<ssize_t>(slot_read, descriptor, buffer, length);
}

ssize_t New_write(int descriptor, const void* buffer, size_t length) {
  if (Fails(IsDevice(descriptor) ? Call::kDeviceWrite : Call::kWrite)) return -1;
  return CallOutside<ssize_t>(slot_write, descriptor, buffer, length);
}

int New_close(int descriptor) {
  const bool device = IsDevice(descriptor);
  // The library may be built to close the standard output, which the test needs.
  const int result = descriptor == STDOUT_FILENO ? 0 : CallOutside<int>(slot_close, descriptor);
  if (device) devices.erase(std::find(devices.begin(), devices.end(), descriptor));
  return Fails(device ? Call::kDeviceClose : Call::kClose) ? -1 : result;
}

// Streams that the library reads or rewrites itself: what libc does under them can fail too. The
// log file stays as it is, for the C++ runtime goes past the stream to its descriptor.
bool IsWatchedStream(const char* path) {
  return strcmp(path, "/etc/vrel_registry.txt") == 0 || strcmp(path, "/proc/version") == 0;
}

ssize_t StreamRead(void* file, char* buffer, size_t length) {
  if (Fails(Call::kStreamRead)) return -1;
  const Outside outside;
  return static_cast<ssize_t>(fread(buffer, 1, length, static_cast<FILE*>(file)));
}
ssize_t StreamWrite(void* file, const char* buffer, size_t length) {
  if (Fails(Call::kStreamWrite)) return 0;
  const Outside outside;
  return static_cast<ssize_t>(fwrite(buffer, 1, length, static_cast<FILE*>(file)));
}
int StreamClose(void* file) {
  const Outside outside;
  return fclose(static_cast<FILE*>(file));
}

FILE* FopenWith(void* slot, const char* path, const char* mode) {
  if (Fails(Call::kFopen)) return nullptr;
  const Outside outside;
  FILE* file = CallReal<FILE*>(slot, path, mode);
  if (file == nullptr || !IsWatchedStream(path)) return file;
  return fopencookie(file, mode, {StreamRead, StreamWrite, nullptr, StreamClose});
}
FILE* New_fopen(const char* path, const char* mode) { return FopenWith(slot_fopen, path, mode); }
FILE* New_fopen64(const char* path, const char* mode) {
  return FopenWith(slot_fopen64, path, mode);
}
void* New__Znwm(size_t size) {
  if (Fails(Call::kAlloc)) throw std::bad_alloc();
  return CallReal<void*>(slot__Znwm, size);
}
void* New__Znam(size_t size) {
  if (Fails(Call::kAlloc)) throw std::bad_alloc();
  return CallReal<void*>(slot__Znam, size);
}

int New_pthread_mutex_lock(void* mutex) {
  if (!counting) return CallReal<int>(slot_pthread_mutex_lock, mutex);
  if (Fails(Call::kLock)) return EINVAL;
  const int result = CallReal<int>(slot_pthread_mutex_lock, mutex);
  const Outside outside;
  heldMutexes.insert(mutex);
  return result;
}
int New_pthread_mutex_unlock(void* mutex) {
  if (!counting) return CallReal<int>(slot_pthread_mutex_unlock, mutex);
  {
    const Outside outside;
    if (heldMutexes.erase(mutex) == 0) {
      ++wrongUnlocks;
      return EPERM;
    }
  }
  const int result = CallReal<int>(slot_pthread_mutex_unlock, mutex);
  return Fails(Call::kUnlock) ? EPERM : result;
}
// Calls that fail with a value, without effect, and run as they are otherwise.
#define PLAIN(name, call, result, failure, parameters, ...)                             \
  result New_##name parameters {                                                        \
    return Fails(Call::call) ? failure : CallOutside<result>(slot_##name, __VA_ARGS__); \
  }
PLAIN(ioctl, kDeviceIoctl, int, -1, (int file, unsigned long request, void* argument), file,
      request, argument)
PLAIN(writev, kWrite, ssize_t, -1, (int file, const void* pieces, int count), file, pieces, count)
PLAIN(lseek, kSeek, off_t, -1, (int file, off_t offset, int origin), file, offset, origin)
PLAIN(fstat, kStat, int, -1, (int file, void* status), file, status)
PLAIN(malloc, kAlloc, void*, nullptr, (size_t size), size)
PLAIN(pthread_mutex_init, kMutexInit, int, ENOMEM, (void* mutex, const void* kind), mutex, kind)
PLAIN(clock_getres, kClockResolution, int, -1, (clockid_t clock, timespec* out), clock, out)
PLAIN(clock_gettime, kClockTime, int, -1, (clockid_t clock, timespec* out), clock, out)
PLAIN(dlopen, kDlopen, void*, nullptr, (const char* path, int mode), path, mode)
PLAIN(dlsym, kDlsym, void*, nullptr, (void* module, const char* name), module, name)
PLAIN(usleep, kSleep, int, -1, (useconds_t duration), duration)
PLAIN(localtime, kLocaltime, tm*, nullptr, (const time_t* time), time)
#undef PLAIN

// Calls that release something, and then say that they failed; what a stream still has to write can
// fail beneath them.
#define RELEASE(name, call, failure, argument)               \
  int New_##name(argument* released) {                       \
    const int result = CallReal<int>(slot_##name, released); \
    return Fails(Call::call) ? failure : result;             \
  }
RELEASE(fclose, kFclose, EOF, FILE)
RELEASE(pthread_mutex_destroy, kMutexDestroy, EBUSY, void)
RELEASE(dlclose, kDlclose, -1, void)
#undef RELEASE

struct Replacement {
  const char* name;
  void** slot;
  void* replacement;
};

#define REPLACEMENT(name) {#name, &slot_##name, reinterpret_cast<void*>(&New_##name)},
const Replacement kReplacements[] = {REPLACED_FUNCTIONS(REPLACEMENT)};
#undef REPLACEMENT

void Replace(void** entry, const char* name) {
  for (const Replacement& row : kReplacements) {
    if (strcmp(row.name, name) != 0) continue;
    // Not what the entry holds: that may be the way to a loader that would bind it anew.
    *row.slot = dlsym(RTLD_DEFAULT, name);
    // The table is read-only once the loader has bound it.
    const auto page = reinterpret_cast<uintptr_t>(entry) & ~uintptr_t{4095};
    mprotect(reinterpret_cast<void*>(page), 4096, PROT_READ | PROT_WRITE);
    *entry = row.replacement;
  }
}

int ReplaceInModule(dl_phdr_info* info, size_t, void* found) {
  const bool library = strstr(info->dlpi_name, "libkalodll.so") != nullptr;
  if (!library && strstr(info->dlpi_name, "libstdc++.so") == nullptr) return 0;
  const ElfW(Dyn)* dynamic = nullptr;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
    dynamic = reinterpret_cast<const ElfW(Dyn)*>(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr);
  }
  const ElfW(Sym)* symbols = nullptr;
  const char* names = nullptr;
  const ElfW(Rela) * tables[2] = {};
  size_t sizes[2] = {};
  for (; dynamic->d_tag != DT_NULL; ++dynamic) {
    const auto address = dynamic->d_un.d_ptr;
    if (dynamic->d_tag == DT_SYMTAB) symbols = reinterpret_cast<const ElfW(Sym)*>(address);
    if (dynamic->d_tag == DT_STRTAB) names = reinterpret_cast<const char*>(address);
    if (dynamic->d_tag == DT_JMPREL) tables[0] = reinterpret_cast<const ElfW(Rela)*>(address);
    if (dynamic->d_tag == DT_PLTRELSZ) sizes[0] = dynamic->d_un.d_val;
    if (dynamic->d_tag == DT_RELA) tables[1] = reinterpret_cast<const ElfW(Rela)*>(address);
    if (dynamic->d_tag == DT_RELASZ) sizes[1] = dynamic->d_un.d_val;
  }
  for (int t = 0; t < 2; ++t) {
    for (size_t i = 0; i < sizes[t] / sizeof(ElfW(Rela)); ++i) {
      const ElfW(Rela)& entry = tables[t][i];
      const auto type = ELF64_R_TYPE(entry.r_info);
      if (type != R_X86_64_JUMP_SLOT && type != R_X86_64_GLOB_DAT) continue;
      Replace(reinterpret_cast<void**>(info->dlpi_addr + entry.r_offset),
              names + symbols[ELF64_R_SYM(entry.r_info)].st_name);
    }
  }
  if (library) *static_cast<bool*>(found) = true;
  return 0;
}

}  // namespace

bool Install() {
  static const bool installed = [] {
    bool found = false;
    dl_iterate_phdr(ReplaceInModule, &found);
    return found;
  }();
  return installed;
}

void Arm(Call call, uint32_t number, int error, std::function<void()> onStrike) {
  armedCall = call;
  callsLeft = number;
  armedError = error;
  strikes = std::move(onStrike);
  struck = false;
  counting = true;
}

bool Disarm() {
  counting = false;
  return struck;
}

Outside::Outside() : saved_(counting) { counting = false; }

Outside::~Outside() { counting = saved_; }

size_t CloseDevices() {
  const std::vector<int> left = devices;
  for (const int descriptor : left) New_close(descriptor);
  return left.size();
}

int WrongUnlocks() { return wrongUnlocks; }

}  // namespace faults
