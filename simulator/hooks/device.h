#pragma once

#include <cstddef>
#include <cstdint>

#include "simulator/device/device_abi.h"

// What the hooks of libc's functions ask of whatever serves the device. One of two sources
// implements it: in-process against an engine of the same process, or remote against an engine in
// another. Nothing here, and nothing in the hooks, needs a C++ runtime library, and no function
// throws. Errors are errno values; a result of -1 goes with one.
namespace zulisim::hooks {

// A descriptor of the device: a real one of the kernel, which nothing else in the process can be
// given, and the engine's handle of the open file.
struct OpenedDevice {
  int descriptor = -1;
  std::uint64_t handle = 0;
  int error = 0;
};

// True when a device is served at all. Never blocks, allocates or takes a lock.
bool DeviceServed();

// Where `path` is redirected to, or null. Never blocks, allocates or takes a lock.
const char* RedirectedPath(const char* path);

OpenedDevice DeviceOpen(int flags, unsigned mode);
Result DeviceIoctl(std::uint64_t handle, std::uint32_t request, void* argument);
// With `nonBlocking`, a read that would have to wait fails with EAGAIN.
Result DeviceRead(std::uint64_t handle, void* buffer, std::size_t length, bool nonBlocking);
Result DeviceWrite(std::uint64_t handle, const void* buffer, std::size_t length);
// Closes `descriptor`, the last one of `handle` in this process, whatever the result.
Result DeviceClose(std::uint64_t handle, int descriptor);

}  // namespace zulisim::hooks
