#include "bench/free_device.h"

// Use the kernel's header, because libc's header declares that poll() does not read its first
// argument, which this poll() does.
#include <asm/poll.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

// Descriptors that the kernel never returns.
constexpr int kZuli = 0x40000000;
constexpr int kTpm = 0x40000001;

bool zuliServed = true;

// A reply of the right length whose status is not negative, so no private data follows.
constexpr unsigned char kZuliReply[bench::kMessageLength] = {0};

// The reply of a TPM 2 device: tag, length (big-endian) and response code 0.
constexpr unsigned char kTpmReply[bench::kMessageLength] = {0x80, 0x01, 0,
                                                            0,    0,    bench::kMessageLength};
size_t tpmPosition = 0;

ssize_t ReadZuli(void* buffer, size_t length) {
  const size_t size = std::min(length, sizeof kZuliReply);
  std::memcpy(buffer, kZuliReply, size);
  return static_cast<ssize_t>(size);
}

// Returns a reply in pieces, as the kernel's device does.
ssize_t ReadTpm(void* buffer, size_t length) {
  const size_t size = std::min(length, sizeof kTpmReply - tpmPosition);
  std::memcpy(buffer, kTpmReply + tpmPosition, size);
  tpmPosition += size;
  return static_cast<ssize_t>(size);
}

int DeviceDescriptor(const char* path) {
  if (std::strcmp(path, "/dev/zuli") == 0 && zuliServed) return kZuli;
  if (std::strcmp(path, "/dev/tpm0") == 0) return kTpm;
  return -1;
}

std::FILE* OpenStream(const char* name, const char* path, const char* mode) {
  using Open = std::FILE* (*)(const char*, const char*);
  const auto real = reinterpret_cast<Open>(dlsym(RTLD_NEXT, name));
  if (std::strcmp(path, "/data/Marvoleth.log") == 0) {
    return real(bench::ScratchPath("log").c_str(), mode);
  }
  if (std::strcmp(path, "/etc/vrel_registry.txt") == 0) {
    return real(bench::ScratchPath("registry").c_str(), mode);
  }
  return real(path, mode);
}

struct ScratchFolder {
  ScratchFolder() {
    // Ignores TMPDIR: a path of constant length keeps the instruction counts equal.
    char name[] = "/tmp/kalodll_bench.XXXXXX";
    if (mkdtemp(name) == nullptr) {
      std::perror("cannot create the folder /tmp/kalodll_bench.XXXXXX");
      std::exit(1);
    }
    path = name;
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::string path;
};

}  // namespace

namespace bench {

void ServeZuli(bool served) { zuliServed = served; }

const std::string& Scratch() {
  static const ScratchFolder folder;
  return folder.path;
}

std::string ScratchPath(const std::string& name) { return Scratch() + "/" + name; }

}  // namespace bench

extern "C" {

int open(const char* path, int flags, ...) {
  const int device = DeviceDescriptor(path);
  if (device != -1) return device;
  va_list arguments;
  va_start(arguments, flags);
  const unsigned int mode = va_arg(arguments, unsigned int);
  va_end(arguments);
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

ssize_t read(int descriptor, void* buffer, size_t length) {
  if (descriptor == kZuli) return ReadZuli(buffer, length);
  if (descriptor == kTpm) return ReadTpm(buffer, length);
  return syscall(SYS_read, descriptor, buffer, length);
}

ssize_t write(int descriptor, const void* buffer, size_t length) {
  if (descriptor == kZuli) return static_cast<ssize_t>(length);
  if (descriptor == kTpm) {
    tpmPosition = 0;
    return static_cast<ssize_t>(length);
  }
  return syscall(SYS_write, descriptor, buffer, length);
}

int ioctl(int descriptor, unsigned long request, ...) {
  if (descriptor == kZuli) return 0;
  va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

int close(int descriptor) {
  if (descriptor == kZuli || descriptor == kTpm) return 0;
  return static_cast<int>(syscall(SYS_close, descriptor));
}

int poll(pollfd* descriptors, unsigned long count, int timeout) {
  if (count == 1 && descriptors->fd == kTpm) {
    descriptors->revents = POLLIN;
    return 1;
  }
  return static_cast<int>(syscall(SYS_poll, descriptors, count, timeout));
}

std::FILE* fopen(const char* path, const char* mode) { return OpenStream("fopen", path, mode); }

std::FILE* fopen64(const char* path, const char* mode) { return OpenStream("fopen64", path, mode); }

}  // extern "C"
