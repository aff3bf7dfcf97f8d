#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "simulator/device/device_abi.h"
#include "simulator/device/operation.h"

namespace zulisim {

// Sets the program's process and thread for the operations that the calling thread begins from now
// on; 0 for unknown. Attachments call it before they call the device.
void SetCaller(int process, int thread);

// Serves "/dev/zuli": the engine in software, the kernel's own device, or the replay of a
// recording. An attachment turns a program's calls into Open, Ioctl, Read, Write and Close. Each
// call is one operation and every observer sees it. Thread-safe.
class Device {
 public:
  Device() = default;
  virtual ~Device() = default;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // `value` of the result is the number of the connection, which counts from 1. `descriptor` is the
  // program's number for it, or -1 when the attachment does not know it.
  Result Open(int flags, unsigned mode, int descriptor);
  // `argument` holds as many bytes as the size field of `request` says, or is null.
  Result Ioctl(std::uint64_t connection, std::uint32_t request, void* argument);
  // With `nonBlocking`, a read that would have to wait fails at once with EAGAIN.
  Result Read(std::uint64_t connection, void* buffer, std::size_t length, bool nonBlocking);
  // `length` may exceed the size of `buffer` when it is above kLongestMessage.
  Result Write(std::uint64_t connection, const void* buffer, std::size_t length);
  // Ends the connection, even when the result is a failure. A read that waits on it returns. When
  // the program did not make the close and the connection is not open, nothing happens.
  Result Close(std::uint64_t connection, CloseReason reason);

  // Returns true if an operation has ended.
  bool IsUsed() const { return used_; }
  // Performs the operation, completes its record and shows it to the observers. The record holds
  // what the program passed. The output also goes to `target`, unless that is null.
  virtual Result Perform(OperationRecord record, void* target) = 0;

  // The observer is not owned. It must live until it is removed or the device is destroyed.
  void AddObserver(OperationObserver* observer);
  // Returns when the observer's last call has ended.
  void RemoveObserver(OperationObserver* observer);

 protected:
  // Observers see the operations and events in the order of these calls.
  void Notify(const OperationRecord& record);
  void Notify(const DeviceEvent& event);

 private:
  std::atomic<bool> used_{false};
  std::mutex observersMutex_;
  std::vector<OperationObserver*> observers_;
};

}  // namespace zulisim
