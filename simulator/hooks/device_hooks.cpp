// Hooks of the functions that work on a descriptor.

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "simulator/hooks/descriptors.h"
#include "simulator/hooks/device.h"
#include "simulator/hooks/libc.h"

namespace zulisim::hooks {
namespace {

// A call that falls through keeps no object with a destructor alive and passes no handler: read and
// write are cancellation points, and a cancelled thread unwinds through the hook.

std::int64_t Deliver(int savedErrno, const Result& result) {
  errno = result.value == -1 ? result.error : savedErrno;
  return result.value;
}

ssize_t ReadDevice(std::uint64_t handle, void* buffer, std::size_t length) {
  const int savedErrno = errno;
  return Deliver(savedErrno, DeviceRead(handle, buffer, length));
}

ssize_t WriteDevice(std::uint64_t handle, const void* buffer, std::size_t length) {
  const int savedErrno = errno;
  return Deliver(savedErrno, DeviceWrite(handle, buffer, length));
}

// As the kernel does for a driver that knows no vectors: piece by piece, up to the first piece that
// fails or falls short.
template <typename Transfer>
ssize_t EachPiece(const struct iovec* pieces, int count, Transfer transfer) {
  ssize_t total = 0;
  for (int i = 0; i < count; ++i) {
    const ssize_t moved = transfer(pieces[i].iov_base, pieces[i].iov_len);
    if (moved < 0) return total > 0 ? total : moved;
    total += moved;
    if (static_cast<std::size_t>(moved) < pieces[i].iov_len) break;
  }
  return total;
}

// Closes a descriptor of the device.
int CloseDevice(int descriptor, std::uint64_t handle) {
  if (!UnmarkDescriptor(descriptor, handle)) return Real().close(descriptor);
  const int savedErrno = errno;
  return static_cast<int>(Deliver(savedErrno, DeviceClose(handle, descriptor)));
}

void CloseDevices(int first, int last) {
  for (int descriptor = first; descriptor <= last && descriptor < MarkedEnd(); ++descriptor) {
    if (const auto handle = DeviceHandle(descriptor)) CloseDevice(descriptor, *handle);
  }
}

int Duplicated(const std::optional<std::uint64_t>& handle, int duplicate) {
  if (handle && duplicate >= 0 && !MarkDescriptor(duplicate, *handle)) {
    Real().close(duplicate);
    errno = EMFILE;
    return -1;
  }
  return duplicate;
}

// dup2 and dup3: a target of the device is closed first, so that its driver is told.
template <typename Duplicate>
int DuplicateOnto(int source, int target, Duplicate duplicate) {
  const auto handle = DeviceHandle(source);
  const auto replaced = DeviceHandle(target);
  const bool possible = source != target && Real().fcntl(source, F_GETFD, nullptr) >= 0;
  if (replaced && possible) CloseDevice(target, *replaced);
  const int result = duplicate();
  return source == target ? result : Duplicated(handle, result);
}

bool IsDuplication(int command) { return command == F_DUPFD || command == F_DUPFD_CLOEXEC; }

}  // namespace

ZULISIM_HOOK(ssize_t, read, int descriptor, void* buffer, size_t length) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real().read(descriptor, buffer, length);
  return ReadDevice(*handle, buffer, length);
}

ZULISIM_HOOK(ssize_t, __read_chk, int descriptor, void* buffer, size_t length, size_t room) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle || length > room) return Real().__read_chk(descriptor, buffer, length, room);
  return ReadDevice(*handle, buffer, length);
}

ZULISIM_HOOK(ssize_t, readv, int descriptor, const struct iovec* pieces, int count) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real().readv(descriptor, pieces, count);
  return EachPiece(pieces, count, [&handle](void* buffer, std::size_t length) {
    return ReadDevice(*handle, buffer, length);
  });
}

ZULISIM_HOOK(ssize_t, write, int descriptor, const void* buffer, size_t length) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real().write(descriptor, buffer, length);
  return WriteDevice(*handle, buffer, length);
}

ZULISIM_HOOK(ssize_t, __write_chk, int descriptor, const void* buffer, size_t length, size_t room) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle || length > room) return Real().__write_chk(descriptor, buffer, length, room);
  return WriteDevice(*handle, buffer, length);
}

ZULISIM_HOOK(ssize_t, writev, int descriptor, const struct iovec* pieces, int count) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real().writev(descriptor, pieces, count);
  return EachPiece(pieces, count, [&handle](const void* buffer, std::size_t length) {
    return WriteDevice(*handle, buffer, length);
  });
}

ZULISIM_HOOK(int, ioctl, int descriptor, unsigned long request, void* argument) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real().ioctl(descriptor, request, argument);
  const int savedErrno = errno;
  // A driver sees 32 bits, whether or not the caller's int was sign-extended.
  return static_cast<int>(
      Deliver(savedErrno, DeviceIoctl(*handle, static_cast<std::uint32_t>(request), argument)));
}

ZULISIM_HOOK(int, close, int descriptor) {
  const auto handle = DeviceHandle(descriptor);
  if (!handle) return Real().close(descriptor);
  return CloseDevice(descriptor, *handle);
}

ZULISIM_HOOK(int, close_range, unsigned first, unsigned last, int flags) {
  constexpr int kMarkCloseOnExec = 1 << 2;
  constexpr unsigned kHighest = kDescriptorLimit - 1;
  if ((flags & kMarkCloseOnExec) == 0 && first <= last && first <= kHighest) {
    CloseDevices(static_cast<int>(first), static_cast<int>(last < kHighest ? last : kHighest));
  }
  // Not libc's function, which Android's had only later.
  return static_cast<int>(syscall(SYS_close_range, first, last, flags));
}

ZULISIM_HOOK(void, closefrom, int first) {
  CloseDevices(first < 0 ? 0 : first, kDescriptorLimit - 1);
  Real().closefrom(first);
}

ZULISIM_HOOK(int, dup, int descriptor) {
  return Duplicated(DeviceHandle(descriptor), Real().dup(descriptor));
}

ZULISIM_HOOK(int, dup2, int source, int target) {
  return DuplicateOnto(source, target, [=] { return Real().dup2(source, target); });
}

ZULISIM_HOOK(int, dup3, int source, int target, int flags) {
  return DuplicateOnto(source, target, [=] { return Real().dup3(source, target, flags); });
}

ZULISIM_HOOK(int, fcntl, int descriptor, int command, void* argument) {
  const int result = Real().fcntl(descriptor, command, argument);
  return IsDuplication(command) ? Duplicated(DeviceHandle(descriptor), result) : result;
}

ZULISIM_HOOK(int, fcntl64, int descriptor, int command, void* argument) {
  const int result = Real().fcntl64(descriptor, command, argument);
  return IsDuplication(command) ? Duplicated(DeviceHandle(descriptor), result) : result;
}

}  // namespace zulisim::hooks
