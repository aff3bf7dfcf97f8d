// Hooks of the functions that take a path, and of those that would show a program that a device
// descriptor is a socket.

#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "simulator/hooks/descriptors.h"
#include "simulator/hooks/device.h"
#include "simulator/hooks/libc.h"
#include "simulator/hooks/paths.h"

namespace zulisim::hooks {
namespace {

// A character device that exists on every machine. The hooks report its attributes as those of the
// device.
constexpr const char* kAnyCharacterDevice = "/dev/null";

const char* Target(const char* path) {
  const char* redirected = RedirectedPath(path);
  return redirected != nullptr ? redirected : path;
}

const char* AttributeTarget(const char* path) {
  return IsDevice(path) ? kAnyCharacterDevice : Target(path);
}

// Streams of libc make system calls that the hooks do not see.
FILE* RefuseStream() {
  static constexpr char kText[] =
      "zulisim: cannot open '/dev/zuli' as a stream: use open, read and write\n";
  Real_write(STDERR_FILENO, kText, sizeof(kText) - 1);
  errno = EOPNOTSUPP;
  return nullptr;
}

}  // namespace

bool IsDevice(const char* path) { return DeviceServed() && SamePath(path, kDevicePath); }

int OpenDevice(int flags, unsigned mode) {
  // Linux handles these flags without calling the driver, so any character device gives the same
  // result.
  const bool isNew = (flags & O_CREAT) != 0 && (flags & O_EXCL) != 0;
  if (isNew || (flags & (O_DIRECTORY | O_PATH)) != 0) {
    return Real_open(kAnyCharacterDevice, flags, mode);
  }
  const int savedErrno = errno;
  const OpenedDevice opened = DeviceOpen(flags, mode);
  if (opened.descriptor < 0) {
    errno = opened.error;
    return -1;
  }
  if (!MarkDescriptor(opened.descriptor, opened.handle, flags)) {
    DeviceClose(opened.handle, opened.descriptor);
    errno = EMFILE;
    return -1;
  }
  const std::uintptr_t kept = static_cast<unsigned>(flags) & (O_APPEND | O_NONBLOCK);
  if (kept != 0) Real_fcntl(opened.descriptor, F_SETFL, reinterpret_cast<void*>(kept));
  errno = savedErrno;
  return opened.descriptor;
}

ZULISIM_HOOK(int, open, const char* path, int flags, unsigned mode) {
  return IsDevice(path) ? OpenDevice(flags, mode) : Real_open(Target(path), flags, mode);
}

ZULISIM_HOOK(int, __open_2, const char* path, int flags) {
  return IsDevice(path) ? OpenDevice(flags, 0) : Real___open_2(Target(path), flags);
}

ZULISIM_HOOK(int, openat, int folder, const char* path, int flags, unsigned mode) {
  if (IsDevice(path)) return OpenDevice(flags, mode);
  return Real_openat(folder, Target(path), flags, mode);
}

ZULISIM_HOOK(int, __openat_2, int folder, const char* path, int flags) {
  if (IsDevice(path)) return OpenDevice(flags, 0);
  return Real___openat_2(folder, Target(path), flags);
}

ZULISIM_HOOK(int, creat, const char* path, unsigned mode) {
  return Hook_open(path, O_CREAT | O_WRONLY | O_TRUNC, mode);
}

ZULISIM_HOOK(FILE*, fopen, const char* path, const char* mode) {
  return IsDevice(path) ? RefuseStream() : Real_fopen(Target(path), mode);
}

ZULISIM_HOOK(FILE*, freopen, const char* path, const char* mode, FILE* stream) {
  return IsDevice(path) ? RefuseStream() : Real_freopen(Target(path), mode, stream);
}

ZULISIM_HOOK(FILE*, fdopen, int descriptor, const char* mode) {
  return DeviceHandle(descriptor) ? RefuseStream() : Real_fdopen(descriptor, mode);
}

ZULISIM_HOOK(int, stat, const char* path, void* status) {
  return Real_stat(AttributeTarget(path), status);
}

ZULISIM_HOOK(int, lstat, const char* path, void* status) {
  return Real_lstat(AttributeTarget(path), status);
}

ZULISIM_HOOK(int, access, const char* path, int mode) {
  return Real_access(AttributeTarget(path), mode);
}

ZULISIM_HOOK(int, eaccess, const char* path, int mode) {
  return Real_eaccess(AttributeTarget(path), mode);
}

ZULISIM_HOOK(int, faccessat, int folder, const char* path, int mode, int flags) {
  return Real_faccessat(folder, AttributeTarget(path), mode, flags);
}

ZULISIM_HOOK(int, fstat, int descriptor, void* status) {
  return DeviceHandle(descriptor) ? Real_stat(kAnyCharacterDevice, status)
                                  : Real_fstat(descriptor, status);
}

// With an empty path, fstatat and statx examine the descriptor itself.
const char* AttributeTargetAt(int descriptor, const char* path) {
  const bool isItself = path != nullptr && *path == '\0' && DeviceHandle(descriptor);
  return isItself ? kAnyCharacterDevice : AttributeTarget(path);
}

ZULISIM_HOOK(int, fstatat, int folder, const char* path, void* status, int flags) {
  return Real_fstatat(folder, AttributeTargetAt(folder, path), status, flags);
}

ZULISIM_HOOK(int, statx, int folder, const char* path, int flags, unsigned mask, void* status) {
  return Real_statx(folder, AttributeTargetAt(folder, path), flags, mask, status);
}

ZULISIM_HOOK(int, truncate, const char* path, off_t length) {
  return Real_truncate(Target(path), length);
}

ZULISIM_HOOK(int, unlink, const char* path) { return Real_unlink(Target(path)); }

ZULISIM_HOOK(int, unlinkat, int folder, const char* path, int flags) {
  return Real_unlinkat(folder, Target(path), flags);
}

ZULISIM_HOOK(int, remove, const char* path) { return Real_remove(Target(path)); }

ZULISIM_HOOK(int, rename, const char* from, const char* to) {
  return Real_rename(Target(from), Target(to));
}

ZULISIM_HOOK(int, renameat, int fromFolder, const char* from, int toFolder, const char* to) {
  return Real_renameat(fromFolder, Target(from), toFolder, Target(to));
}

ZULISIM_HOOK(int, renameat2, int fromFolder, const char* from, int toFolder, const char* to,
             unsigned flags) {
  return Real_renameat2(fromFolder, Target(from), toFolder, Target(to), flags);
}

ZULISIM_ALIAS(eaccess, euidaccess)
ZULISIM_ALIAS(open, open64)
ZULISIM_ALIAS(__open_2, __open64_2)
ZULISIM_ALIAS(openat, openat64)
ZULISIM_ALIAS(__openat_2, __openat64_2)
ZULISIM_ALIAS(creat, creat64)
ZULISIM_ALIAS(fopen, fopen64)
ZULISIM_ALIAS(freopen, freopen64)
ZULISIM_ALIAS(truncate, truncate64)
ZULISIM_ALIAS(stat, stat64)
ZULISIM_ALIAS(lstat, lstat64)
ZULISIM_ALIAS(fstat, fstat64)
ZULISIM_ALIAS(fstatat, fstatat64)

}  // namespace zulisim::hooks
