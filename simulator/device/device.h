#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "simulator/device/device_abi.h"
#include "simulator/device/operation.h"

namespace zulisim {

// Whatever serves "/dev/zuli": the engine in software, the kernel's own device, a recording
// that is played back. An attachment turns a program's calls into these; each but a Release of what
// is closed already is one operation, of which every observer is told. Any thread.
class Device {
 public:
  Device() = default;
  virtual ~Device() = default;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // `value` of the result is the number of the connection, from 1 on; `descriptor` is the number
  // that the program will know it by, or -1.
  virtual Result Open(int flags, unsigned mode, int descriptor) = 0;
  // `argument` holds as many bytes as the size field of `request` says, or is null.
  virtual Result Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) = 0;
  virtual Result Read(std::uint64_t connection, void* buffer, std::size_t length) = 0;
  // `length` may be more than what `buffer` holds when it is above kLongestMessage.
  virtual Result Write(std::uint64_t connection, const void* buffer, std::size_t length) = 0;
  // The connection is gone afterwards, whatever the result.
  virtual Result Close(std::uint64_t connection) = 0;
  // Closes a connection whose program did not, and says `why` it was done. One that is not open is
  // left alone. A read that waits on it returns.
  virtual void Release(std::uint64_t connection, const char* why) = 0;
  // From when on a read will not wait, in the time of Now(): at once when there is something to
  // read, or an error. Nothing while no message is on its way. Does not wait itself.
  virtual std::optional<std::chrono::nanoseconds> ReadableAt(std::uint64_t connection) = 0;

  // The observer is not owned and must stay alive until it is removed or the device is gone.
  virtual void AddObserver(OperationObserver* observer) = 0;
  virtual void RemoveObserver(OperationObserver* observer) = 0;
};

}  // namespace zulisim
