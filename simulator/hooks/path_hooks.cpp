// Hooks of the functions that take a path, and of what would look behind a descriptor's mask.

#include <cerrno>

#include "simulator/hooks/descriptors.h"
#include "simulator/hooks/device.h"
#include "simulator/hooks/libc.h"
#include "simulator/hooks/paths.h"

namespace zulisim::hooks {
namespace {

// Any character device that is always there answers for the device's attributes.
constexpr const char* kLookAlike = "/dev/null";

bool IsDevice(const char* path) { return DeviceServed() && SamePath(path, kDevicePath); }

const char* Target(const char* path) {
  const char* redirected = RedirectedPath(path);
  return redirected != nullptr ? redirected : path;
}

const char* AttributeTarget(const char* path) { return IsDevice(path) ? kLookAlike : Target(path); }

int OpenDevice(int flags, unsigned mode) {
  const int savedErrno = errno;
  const OpenedDevice opened = DeviceOpen(flags, mode);
  if (opened.descriptor < 0) {
    errno = opened.error;
    return -1;
  }
  if (!MarkDescriptor(opened.descriptor, opened.handle)) {
    DeviceClose(opened.handle, opened.descriptor);
    errno = EMFILE;
    return -1;
  }
  errno = savedErrno;
  return opened.descriptor;
}

// The device moves whole messages, which a buffered stream would cut: it cannot be one.
FILE* NoStream() {
  errno = EOPNOTSUPP;
  return nullptr;
}

}  // namespace

int HookOpen(const char* path, int flags, unsigned mode) ZULISIM_HOOK(open);
int HookOpen(const char* path, int flags, unsigned mode) {
  return IsDevice(path) ? OpenDevice(flags, mode) : Real().open(Target(path), flags, mode);
}

int HookOpen64(const char* path, int flags, unsigned mode) ZULISIM_HOOK(open64);
int HookOpen64(const char* path, int flags, unsigned mode) {
  return IsDevice(path) ? OpenDevice(flags, mode) : Real().open64(Target(path), flags, mode);
}

int HookOpenChecked(const char* path, int flags) ZULISIM_HOOK(__open_2);
int HookOpenChecked(const char* path, int flags) {
  return IsDevice(path) ? OpenDevice(flags, 0) : Real().__open_2(Target(path), flags);
}

int HookOpen64Checked(const char* path, int flags) ZULISIM_HOOK(__open64_2);
int HookOpen64Checked(const char* path, int flags) {
  return IsDevice(path) ? OpenDevice(flags, 0) : Real().__open64_2(Target(path), flags);
}

int HookOpenAt(int folder, const char* path, int flags, unsigned mode) ZULISIM_HOOK(openat);
int HookOpenAt(int folder, const char* path, int flags, unsigned mode) {
  if (IsDevice(path)) return OpenDevice(flags, mode);
  return Real().openat(folder, Target(path), flags, mode);
}

int HookOpenAt64(int folder, const char* path, int flags, unsigned mode) ZULISIM_HOOK(openat64);
int HookOpenAt64(int folder, const char* path, int flags, unsigned mode) {
  if (IsDevice(path)) return OpenDevice(flags, mode);
  return Real().openat64(folder, Target(path), flags, mode);
}

int HookOpenAtChecked(int folder, const char* path, int flags) ZULISIM_HOOK(__openat_2);
int HookOpenAtChecked(int folder, const char* path, int flags) {
  if (IsDevice(path)) return OpenDevice(flags, 0);
  return Real().__openat_2(folder, Target(path), flags);
}

int HookOpenAt64Checked(int folder, const char* path, int flags) ZULISIM_HOOK(__openat64_2);
int HookOpenAt64Checked(int folder, const char* path, int flags) {
  if (IsDevice(path)) return OpenDevice(flags, 0);
  return Real().__openat64_2(folder, Target(path), flags);
}

int HookCreat(const char* path, unsigned mode) ZULISIM_HOOK(creat);
int HookCreat(const char* path, unsigned mode) {
  if (IsDevice(path)) return OpenDevice(O_CREAT | O_WRONLY | O_TRUNC, mode);
  return Real().creat(Target(path), mode);
}

int HookCreat64(const char* path, unsigned mode) ZULISIM_HOOK(creat64);
int HookCreat64(const char* path, unsigned mode) {
  if (IsDevice(path)) return OpenDevice(O_CREAT | O_WRONLY | O_TRUNC, mode);
  return Real().creat64(Target(path), mode);
}

FILE* HookFopen(const char* path, const char* mode) ZULISIM_HOOK(fopen);
FILE* HookFopen(const char* path, const char* mode) {
  return IsDevice(path) ? NoStream() : Real().fopen(Target(path), mode);
}

FILE* HookFopen64(const char* path, const char* mode) ZULISIM_HOOK(fopen64);
FILE* HookFopen64(const char* path, const char* mode) {
  return IsDevice(path) ? NoStream() : Real().fopen64(Target(path), mode);
}

FILE* HookFreopen(const char* path, const char* mode, FILE* stream) ZULISIM_HOOK(freopen);
FILE* HookFreopen(const char* path, const char* mode, FILE* stream) {
  return IsDevice(path) ? NoStream() : Real().freopen(Target(path), mode, stream);
}

FILE* HookFreopen64(const char* path, const char* mode, FILE* stream) ZULISIM_HOOK(freopen64);
FILE* HookFreopen64(const char* path, const char* mode, FILE* stream) {
  return IsDevice(path) ? NoStream() : Real().freopen64(Target(path), mode, stream);
}

FILE* HookFdopen(int descriptor, const char* mode) ZULISIM_HOOK(fdopen);
FILE* HookFdopen(int descriptor, const char* mode) {
  return DeviceHandle(descriptor) ? NoStream() : Real().fdopen(descriptor, mode);
}

#define ZULISIM_STAT_HOOKS(name)                                      \
  int Hook_##name(const char* path, void* status) ZULISIM_HOOK(name); \
  int Hook_##name(const char* path, void* status) {                   \
    return Real().name(AttributeTarget(path), status);                \
  }
ZULISIM_STAT_HOOKS(stat)
ZULISIM_STAT_HOOKS(stat64)
ZULISIM_STAT_HOOKS(lstat)
ZULISIM_STAT_HOOKS(lstat64)

#define ZULISIM_XSTAT_HOOKS(name)                                                  \
  int Hook_##name(int version, const char* path, void* status) ZULISIM_HOOK(name); \
  int Hook_##name(int version, const char* path, void* status) {                   \
    return Real().name(version, AttributeTarget(path), status);                    \
  }
ZULISIM_XSTAT_HOOKS(__xstat)
ZULISIM_XSTAT_HOOKS(__xstat64)
ZULISIM_XSTAT_HOOKS(__lxstat)
ZULISIM_XSTAT_HOOKS(__lxstat64)

#define ZULISIM_ACCESS_HOOKS(name)                                \
  int Hook_##name(const char* path, int mode) ZULISIM_HOOK(name); \
  int Hook_##name(const char* path, int mode) { return Real().name(AttributeTarget(path), mode); }
ZULISIM_ACCESS_HOOKS(access)
ZULISIM_ACCESS_HOOKS(eaccess)
ZULISIM_ACCESS_HOOKS(euidaccess)

int HookFaccessAt(int folder, const char* path, int mode, int flags) ZULISIM_HOOK(faccessat);
int HookFaccessAt(int folder, const char* path, int mode, int flags) {
  return Real().faccessat(folder, AttributeTarget(path), mode, flags);
}

int HookFstat(int descriptor, void* status) ZULISIM_HOOK(fstat);
int HookFstat(int descriptor, void* status) {
  return DeviceHandle(descriptor) ? Real().stat(kLookAlike, status)
                                  : Real().fstat(descriptor, status);
}

int HookFstat64(int descriptor, void* status) ZULISIM_HOOK(fstat64);
int HookFstat64(int descriptor, void* status) {
  return DeviceHandle(descriptor) ? Real().stat64(kLookAlike, status)
                                  : Real().fstat64(descriptor, status);
}

int HookFxstat(int version, int descriptor, void* status) ZULISIM_HOOK(__fxstat);
int HookFxstat(int version, int descriptor, void* status) {
  return DeviceHandle(descriptor) ? Real().__xstat(version, kLookAlike, status)
                                  : Real().__fxstat(version, descriptor, status);
}

int HookFxstat64(int version, int descriptor, void* status) ZULISIM_HOOK(__fxstat64);
int HookFxstat64(int version, int descriptor, void* status) {
  return DeviceHandle(descriptor) ? Real().__xstat64(version, kLookAlike, status)
                                  : Real().__fxstat64(version, descriptor, status);
}

// With an empty path, fstatat and statx look at the descriptor itself.
bool IsDeviceItself(int descriptor, const char* path) {
  return path != nullptr && *path == '\0' && DeviceHandle(descriptor);
}

int HookFstatAt(int folder, const char* path, void* status, int flags) ZULISIM_HOOK(fstatat);
int HookFstatAt(int folder, const char* path, void* status, int flags) {
  const char* target = IsDeviceItself(folder, path) ? kLookAlike : AttributeTarget(path);
  return Real().fstatat(folder, target, status, flags);
}

int HookFstatAt64(int folder, const char* path, void* status, int flags) ZULISIM_HOOK(fstatat64);
int HookFstatAt64(int folder, const char* path, void* status, int flags) {
  const char* target = IsDeviceItself(folder, path) ? kLookAlike : AttributeTarget(path);
  return Real().fstatat64(folder, target, status, flags);
}

int HookStatx(int folder, const char* path, int flags, unsigned mask, void* status)
    ZULISIM_HOOK(statx);
int HookStatx(int folder, const char* path, int flags, unsigned mask, void* status) {
  const char* target = IsDeviceItself(folder, path) ? kLookAlike : AttributeTarget(path);
  return Real().statx(folder, target, flags, mask, status);
}

int HookUnlink(const char* path) ZULISIM_HOOK(unlink);
int HookUnlink(const char* path) { return Real().unlink(Target(path)); }

int HookRemove(const char* path) ZULISIM_HOOK(remove);
int HookRemove(const char* path) { return Real().remove(Target(path)); }

int HookRename(const char* from, const char* to) ZULISIM_HOOK(rename);
int HookRename(const char* from, const char* to) { return Real().rename(Target(from), Target(to)); }

int HookTruncate(const char* path, off_t length) ZULISIM_HOOK(truncate);
int HookTruncate(const char* path, off_t length) { return Real().truncate(Target(path), length); }

int HookTruncate64(const char* path, off_t length) ZULISIM_HOOK(truncate64);
int HookTruncate64(const char* path, off_t length) {
  return Real().truncate64(Target(path), length);
}

}  // namespace zulisim::hooks
