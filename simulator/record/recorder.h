#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/device.h"
#include "simulator/device/raw_operation.h"

namespace zulisim {

// Takes what a recording is made of, piece by piece; each piece is to be kept at once.
using RecordingSink = std::function<void(const std::string& text)>;

// Passes every operation on to a device and writes it into a recording as it completes. Any thread.
class Recorder : public Device, private OperationObserver {
 public:
  // `program` and `clients` stand in the recording's head. The device must outlive the recorder,
  // whose end completes the recording.
  Recorder(Device* device, RecordingSink sink, const std::vector<std::string>& program,
           const std::vector<Client>& clients);
  ~Recorder() override;
  Result Open(int flags, unsigned mode, int descriptor) override;
  Result Ioctl(std::uint64_t connection, std::uint32_t request, void* argument) override;
  Result Read(std::uint64_t connection, void* buffer, std::size_t length) override;
  Result Write(std::uint64_t connection, const void* buffer, std::size_t length) override;
  Result Close(std::uint64_t connection) override;
  void Release(std::uint64_t connection) override;
  void AddObserver(OperationObserver* observer) override { device_->AddObserver(observer); }
  void RemoveObserver(OperationObserver* observer) override { device_->RemoveObserver(observer); }

 private:
  void OnOperation(const OperationRecord& record) override;
  Result Finish(RawOperation* raw, Result result);

  Device* device_;
  const std::chrono::nanoseconds start_;
  std::mutex mutex_;  // guards all that follows
  RecordingSink sink_;
  std::uint64_t number_ = 0;
};

}  // namespace zulisim
