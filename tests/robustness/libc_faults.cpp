#include "tests/robustness/libc_faults.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <new>
#include <set>
#include <utility>

namespace faults {

namespace {

bool counting = false;
bool struck = false;
std::string armedCall;
uint32_t callsLeft = 0;
int armedError = 0;
std::function<void()> strikes;
int wrongUnlocks = 0;
std::set<int> devices;
std::set<void*> heldMutexes;

// Whatever runs behind a call of the library belongs to the simulator or to the test.
class Outside {
 public:
  Outside() { counting = false; }
  ~Outside() { counting = saved_; }

 private:
  const bool saved_ = counting;
};

template <typename Function, typename... Arguments>
auto Real(Function* function, Arguments... arguments) {
  const Outside outside;
  return function(arguments...);
}

bool Fails(const char* call) {
  if (!counting || armedCall != call || struck || --callsLeft != 0) return false;
  struck = true;
  if (strikes) {
    const Outside outside;
    strikes();
  }
  errno = armedError;
  return true;
}

int New_open(const char* path, int flags, unsigned mode) {
  const bool device = strcmp(path, "/dev/zuli") == 0;
  if (Fails(device ? "open dev" : "open")) return -1;
  const Outside outside;
  const int descriptor = open(path, flags, mode);
  if (device && descriptor >= 0) devices.insert(descriptor);
  return descriptor;
}

int New_close(int descriptor) {
  bool device = false;
  int result = 0;
  {
    const Outside outside;
    device = devices.erase(descriptor) != 0;
    // The library may be built to close the standard output, which the test needs.
    if (descriptor != STDOUT_FILENO) result = close(descriptor);
  }
  return Fails(device ? "close dev" : "close") ? -1 : result;
}

const char* On(int descriptor, const char* device, const char* file) {
  return devices.count(descriptor) != 0 ? device : file;
}

ssize_t StreamRead(void* file, char* buffer, size_t length) {
  if (Fails("fread")) return -1;
  return static_cast<ssize_t>(Real(fread, buffer, 1, length, static_cast<FILE*>(file)));
}
ssize_t StreamWrite(void* file, const char* buffer, size_t length) {
  if (Fails("fwrite")) return 0;
  return static_cast<ssize_t>(Real(fwrite, buffer, 1, length, static_cast<FILE*>(file)));
}
int StreamClose(void* file) { return Real(fclose, static_cast<FILE*>(file)); }

// What libc does under the streams that the library reads or rewrites itself can fail too. The log
// file stays as it is, for the C++ runtime goes past the stream to its descriptor.
FILE* New_fopen(const char* path, const char* mode) {
  if (Fails("fopen")) return nullptr;
  const Outside outside;
  FILE* file = fopen(path, mode);
  const bool watched =
      strcmp(path, "/etc/vrel_registry.txt") == 0 || strcmp(path, "/proc/version") == 0;
  if (file == nullptr || !watched) return file;
  return fopencookie(file, mode, {StreamRead, StreamWrite, nullptr, StreamClose});
}

void* New__Znwm(size_t size) {
  if (Fails("malloc")) throw std::bad_alloc();
  return operator new(size);
}
void* New__Znam(size_t size) {
  if (Fails("malloc")) throw std::bad_alloc();
  return operator new[](size);
}

int New_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (Fails("lock")) return EINVAL;
  const int result = pthread_mutex_lock(mutex);
  if (!counting) return result;
  const Outside outside;
  heldMutexes.insert(mutex);
  return result;
}
int New_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  if (!counting) return pthread_mutex_unlock(mutex);
  {
    const Outside outside;
    if (heldMutexes.erase(mutex) == 0) {
      ++wrongUnlocks;
      return EPERM;
    }
    pthread_mutex_unlock(mutex);
  }
  return Fails("unlock") ? EPERM : 0;
}

// Calls that fail with a value, without effect, and run as they are otherwise.
#define PLAIN(name, call, result, failure, parameters, ...) \
  result New_##name parameters { return Fails(call) ? failure : Real(name, __VA_ARGS__); }
PLAIN(read, On(file, "read dev", "read"), ssize_t, -1, (int file, void* to, size_t size), file, to,
      size)
PLAIN(write, On(file, "write dev", "write"), ssize_t, -1, (int file, const void* from, size_t size),
      file, from, size)
PLAIN(writev, "write", ssize_t, -1, (int file, const iovec* pieces, int count), file, pieces, count)
PLAIN(lseek, "lseek", off_t, -1, (int file, off_t offset, int origin), file, offset, origin)
PLAIN(fstat, "fstat", int, -1, (int file, struct stat* status), file, status)
PLAIN(malloc, "malloc", void*, nullptr, (size_t size), size)
PLAIN(clock_getres, "clk res", int, -1, (clockid_t clock, timespec* out), clock, out)
PLAIN(clock_gettime, "clk time", int, -1, (clockid_t clock, timespec* out), clock, out)
PLAIN(dlopen, "dlopen", void*, nullptr, (const char* path, int mode), path, mode)
PLAIN(dlsym, "dlsym", void*, nullptr, (void* module, const char* name), module, name)
PLAIN(usleep, "usleep", int, -1, (useconds_t duration), duration)
PLAIN(localtime, "localtime", tm*, nullptr, (const time_t* time), time)
PLAIN(pthread_mutex_init, "mtx init", int, ENOMEM,
      (pthread_mutex_t * mutex, const pthread_mutexattr_t* kind), mutex, kind)
#undef PLAIN

int New_ioctl(int file, unsigned long request, void* argument) {
  if (Fails("ioctl dev")) return -1;
  const Outside outside;
  return ioctl(file, request, argument);
}

// Calls that release something, and then say that they failed; what a stream still has to write can
// fail beneath them.
#define RELEASE(name, call, failure, argument) \
  int New_##name(argument* released) {         \
    const int result = name(released);         \
    return Fails(call) ? failure : result;     \
  }
RELEASE(fclose, "fclose", EOF, FILE)
RELEASE(pthread_mutex_destroy, "mtx destr", EBUSY, pthread_mutex_t)
RELEASE(dlclose, "dlclose", -1, void)
#undef RELEASE

#define NEW(name) \
  { #name, reinterpret_cast < void*>(&New_##name) }
const std::map<std::string, void*> kReplacements = {
    NEW(open),
    NEW(ioctl),
    NEW(read),
    NEW(write),
    NEW(writev),
    NEW(close),
    NEW(lseek),
    NEW(fstat),
    NEW(fopen),
    {"fopen64", reinterpret_cast<void*>(&New_fopen)},
    NEW(fclose),
    NEW(malloc),
    NEW(_Znwm),
    NEW(_Znam),
    NEW(pthread_mutex_lock),
    NEW(pthread_mutex_unlock),
    NEW(pthread_mutex_init),
    NEW(pthread_mutex_destroy),
    NEW(clock_getres),
    NEW(clock_gettime),
    NEW(dlopen),
    NEW(dlsym),
    NEW(dlclose),
    NEW(usleep),
    NEW(localtime)};
#undef NEW

int ReplaceInModule(dl_phdr_info* info, size_t, void* found) {
  const bool library = strstr(info->dlpi_name, "libkalodll.so") != nullptr;
  if (!library && strstr(info->dlpi_name, "libstdc++.so") == nullptr) return 0;
  std::map<ElfW(Sxword), ElfW(Addr)> tags;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    if (info->dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
    const auto* tag =
        reinterpret_cast<const ElfW(Dyn)*>(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr);
    for (; tag->d_tag != DT_NULL; ++tag) tags[tag->d_tag] = tag->d_un.d_ptr;
  }
  const auto* symbols = reinterpret_cast<const ElfW(Sym)*>(tags[DT_SYMTAB]);
  const auto* names = reinterpret_cast<const char*>(tags[DT_STRTAB]);
  const std::pair<int, int> tables[] = {{DT_JMPREL, DT_PLTRELSZ}, {DT_RELA, DT_RELASZ}};
  for (const auto& [table, size] : tables) {
    const auto* entry = reinterpret_cast<const ElfW(Rela)*>(tags[table]);
    for (const auto* end = entry + tags[size] / sizeof *entry; entry != end; ++entry) {
      const auto type = ELF64_R_TYPE(entry->r_info);
      if (type != R_X86_64_JUMP_SLOT && type != R_X86_64_GLOB_DAT) continue;
      const auto row = kReplacements.find(names + symbols[ELF64_R_SYM(entry->r_info)].st_name);
      if (row == kReplacements.end()) continue;
      // The table is read-only once the loader has bound it.
      const auto address = info->dlpi_addr + entry->r_offset;
      mprotect(reinterpret_cast<void*>(address & ~ElfW(Addr){4095}), 4096, PROT_READ | PROT_WRITE);
      *reinterpret_cast<void**>(address) = row->second;
    }
  }
  if (library) *static_cast<bool*>(found) = true;
  return 0;
}

}  // namespace

bool Install() {
  bool found = false;
  dl_iterate_phdr(ReplaceInModule, &found);
  return found;
}

void Arm(const std::string& call, uint32_t number, int error, std::function<void()> onStrike) {
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

size_t CloseDevices() {
  const std::set<int> left = devices;
  for (const int descriptor : left) New_close(descriptor);
  return left.size();
}

int WrongUnlocks() { return wrongUnlocks; }

}  // namespace faults
