// Hooks of the functions that take a descriptor.

#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "simulator/hooks/descriptors.h"
#include "simulator/hooks/device.h"
#include "simulator/hooks/libc.h"
#include "simulator/hooks/paths.h"

namespace zulisim::hooks {
namespace {

// read and write are cancellation points: a cancelled thread unwinds through the hook. A hook that
// calls libc's function therefore has no object with a destructor and no exception handler.

// Performs an operation of the device. Changes errno only if it fails.
template <typename Operation>
std::int64_t Perform(Operation operation) {
  const int savedErrno = errno;
  const Result result = operation();
  errno = result.value == -1 ? result.error : savedErrno;
  return result.value;
}

int Fail(int error) {
  errno = error;
  return -1;
}

// Returns true if the descriptor was opened for reading (O_RDONLY) or writing (O_WRONLY).
bool IsOpenedFor(int access, int descriptor) {
  const int opened = DeviceFlags(descriptor) & O_ACCMODE;
  return opened == access || opened == O_RDWR;
}

ssize_t ReadDevice(std::uint64_t handle, int descriptor, void* buffer, std::size_t length) {
  if (!IsOpenedFor(O_RDONLY, descriptor)) return Fail(EBADF);
  const bool nonBlocking = (Real_fcntl(descriptor, F_GETFL, nullptr) & O_NONBLOCK) != 0;
  return Perform([=] { return DeviceRead(handle, buffer, length, nonBlocking); });
}

ssize_t WriteDevice(std::uint64_t handle, int descriptor, const void* buffer, std::size_t length) {
  if (!IsOpenedFor(O_WRONLY, descriptor)) return Fail(EBADF);
  return Perform([=] { return DeviceWrite(handle, buffer, length); });
}

// A driver sees 32 bits of the request, even if the caller's int was sign-extended.
int ControlDevice(std::uint64_t handle, int descriptor, unsigned long request, void* argument) {
  const auto number = static_cast<std::uint32_t>(request);
  switch (number) {
    // Linux handles these for every file without calling its driver.
    case FIOCLEX:
    case FIONCLEX:
    case FIONBIO:
      return Real_ioctl(descriptor, request, argument);
    case FIOASYNC:  // the socket could send signals, but the device cannot
      if (argument == nullptr) return Fail(EFAULT);
      return *static_cast<const int*>(argument) == 0 ? 0 : Fail(ENOTTY);
    default:
      return static_cast<int>(Perform([=] { return DeviceIoctl(handle, number, argument); }));
  }
}

// Transfers one piece after another, as the kernel does for a driver without vector operations.
// Stops at the first piece that fails or is short.
template <typename Transfer>
ssize_t TransferPieces(Transfer transfer, std::uint64_t handle, int descriptor,
                       const struct iovec* pieces, int count) {
  ssize_t total = 0;
  for (int i = 0; i < count; ++i) {
    const ssize_t moved = transfer(handle, descriptor, pieces[i].iov_base, pieces[i].iov_len);
    if (moved < 0) return total > 0 ? total : moved;
    total += moved;
    if (static_cast<std::size_t>(moved) < pieces[i].iov_len) break;
  }
  return total;
}

int CloseDevice(int descriptor, std::uint64_t handle) {
  if (!UnmarkDescriptor(descriptor, handle)) return Real_close(descriptor);
  return static_cast<int>(Perform([=] { return DeviceClose(handle, descriptor); }));
}

int MarkDuplicate(int source, const std::optional<std::uint64_t>& handle, int duplicate) {
  if (handle && duplicate >= 0 && !MarkDescriptor(duplicate, *handle, DeviceFlags(source))) {
    Real_close(duplicate);
    return Fail(EMFILE);
  }
  return duplicate;
}

// Returns what fcntl of the device would return. `result` is what fcntl of the socket returned.
int FcntlResult(int descriptor, int command, int result) {
  const bool isDuplication = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
  if (result < 0 || (!isDuplication && command != F_GETFL)) return result;
  const auto handle = DeviceHandle(descriptor);
  if (isDuplication) return MarkDuplicate(descriptor, handle, result);
  // The socket stores the flags that a program can change. The other flags are those of the open.
  constexpr int kChangeable = O_APPEND | O_NONBLOCK | O_ASYNC;
  constexpr int kOnlyForOpen = O_CREAT | O_EXCL | O_NOCTTY | O_TRUNC | O_CLOEXEC;
  if (!handle) return result;
  return (result & kChangeable) | (DeviceFlags(descriptor) & ~(kChangeable | kOnlyForOpen));
}

}  // namespace

ZULISIM_HOOK(ssize_t, read, int descriptor, void* buffer, size_t length) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real_read(descriptor, buffer, length);
  return ReadDevice(*handle, descriptor, buffer, length);
}

ZULISIM_HOOK(ssize_t, __read_chk, int descriptor, void* buffer, size_t length, size_t room) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle || length > room) return Real___read_chk(descriptor, buffer, length, room);
  return ReadDevice(*handle, descriptor, buffer, length);
}

ZULISIM_HOOK(ssize_t, readv, int descriptor, const struct iovec* pieces, int count) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real_readv(descriptor, pieces, count);
  return TransferPieces(ReadDevice, *handle, descriptor, pieces, count);
}

ZULISIM_HOOK(ssize_t, write, int descriptor, const void* buffer, size_t length) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real_write(descriptor, buffer, length);
  return WriteDevice(*handle, descriptor, buffer, length);
}

ZULISIM_HOOK(ssize_t, __write_chk, int descriptor, const void* buffer, size_t length, size_t room) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle || length > room) return Real___write_chk(descriptor, buffer, length, room);
  return WriteDevice(*handle, descriptor, buffer, length);
}

ZULISIM_HOOK(ssize_t, writev, int descriptor, const struct iovec* pieces, int count) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real_writev(descriptor, pieces, count);
  return TransferPieces(WriteDevice, *handle, descriptor, pieces, count);
}

ZULISIM_HOOK(int, ioctl, int descriptor, unsigned long request, void* argument) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real_ioctl(descriptor, request, argument);
  return ControlDevice(*handle, descriptor, request, argument);
}

ZULISIM_HOOK(int, close, int descriptor) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real_close(descriptor);
  return CloseDevice(descriptor, *handle);
}

ZULISIM_HOOK(int, dup, int descriptor) {
  return MarkDuplicate(descriptor, DeviceHandle(descriptor), Real_dup(descriptor));
}

// If the target is a descriptor of the device, closes it first, so that the engine sees the close.
ZULISIM_HOOK(int, dup3, int source, int target, int flags) {
  const auto handle = DeviceHandle(source);
  const auto replaced = DeviceHandle(target);
  const bool possible = source != target && Real_fcntl(source, F_GETFD, nullptr) >= 0;
  if (replaced && possible) CloseDevice(target, *replaced);
  return MarkDuplicate(source, handle, Real_dup3(source, target, flags));
}

ZULISIM_HOOK(int, dup2, int source, int target) {
  return source == target ? Real_dup2(source, target) : Hook_dup3(source, target, 0);
}

ZULISIM_HOOK(int, fcntl, int descriptor, int command, void* argument) {
  return FcntlResult(descriptor, command, Real_fcntl(descriptor, command, argument));
}
ZULISIM_ALIAS(fcntl, fcntl64)

// Handles the device's system calls by number and passes all others to the kernel.
ZULISIM_HOOK(long, syscall, long number, long a, long b, long c, long d, long e, long f) {
#ifdef SYS_open
  if (number == SYS_open && IsDevice(reinterpret_cast<const char*>(a))) {
    return OpenDevice(static_cast<int>(b), static_cast<unsigned>(c));
  }
#endif
  if (number == SYS_openat && IsDevice(reinterpret_cast<const char*>(b))) {
    return OpenDevice(static_cast<int>(c), static_cast<unsigned>(d));
  }
  const int descriptor = static_cast<int>(a);
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real_syscall(number, a, b, c, d, e, f);
  auto* const buffer = reinterpret_cast<void*>(b);
  const auto* const pieces = static_cast<const struct iovec*>(buffer);
  const auto length = static_cast<std::size_t>(c);
  const int count = static_cast<int>(c);
  switch (number) {
    case SYS_read:
      return ReadDevice(*handle, descriptor, buffer, length);
    case SYS_write:
      return WriteDevice(*handle, descriptor, buffer, length);
    case SYS_readv:
      return TransferPieces(ReadDevice, *handle, descriptor, pieces, count);
    case SYS_writev:
      return TransferPieces(WriteDevice, *handle, descriptor, pieces, count);
    case SYS_ioctl:
      return ControlDevice(*handle, descriptor, static_cast<unsigned long>(b),
                           reinterpret_cast<void*>(c));
    case SYS_close:
      return CloseDevice(descriptor, *handle);
    default:  // the first argument may not even be a descriptor
      return Real_syscall(number, a, b, c, d, e, f);
  }
}

}  // namespace zulisim::hooks
