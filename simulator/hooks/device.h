#pragma once

#include <cstddef>
#include <cstdint>

#include "simulator/device/device_abi.h"

// Device operations for the hooks. Each program links one of two implementations: in_process/ calls
// an engine in the same process, and preload/ calls one in another process. The hooks and these
// functions do not use a C++ runtime library and never throw. Errors are errno values. A result
// with the value -1 contains an errno.
namespace zulisim::hooks {

// A descriptor of the device. The kernel allocated it, so no other file in the process can have its
// number. `handle` is the engine's name of the open file.
struct OpenedDevice {
  int descriptor = -1;
  std::uint64_t handle = 0;
  int error = 0;
};

// Returns true if a device is served. Never blocks, allocates or takes a lock.
bool DeviceServed();

// Returns the path that replaces `path`, or null. Never blocks, allocates or takes a lock.
const char* RedirectedPath(const char* path);

OpenedDevice DeviceOpen(int flags, unsigned mode);
Result DeviceIoctl(std::uint64_t handle, std::uint32_t request, void* argument);
// With `nonBlocking`, a read that would wait fails with EAGAIN.
Result DeviceRead(std::uint64_t handle, void* buffer, std::size_t length, bool nonBlocking);
Result DeviceWrite(std::uint64_t handle, const void* buffer, std::size_t length);
// Closes `descriptor`, the last one of `handle` in this process, even if the result is an error.
Result DeviceClose(std::uint64_t handle, int descriptor);

}  // namespace zulisim::hooks
