#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "simulator/device/client.h"
#include "simulator/device/device.h"

namespace zulisim {

// Takes what a recording is made of, piece by piece; each piece is to be kept at once.
using RecordingSink = std::function<void(const std::string& text)>;

// Writes every operation of a device into a recording as it completes.
class Recorder : private OperationObserver {
 public:
  // `program` and `clients` stand in the recording's head, which is written with the first
  // operation; without any, nothing is. `redact`: without bodies. The device must outlive the
  // recorder, whose end completes the recording.
  Recorder(Device* device, RecordingSink sink, const std::vector<std::string>& program,
           const std::vector<Client>& clients, bool redact = false);
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

 private:
  void OnOperation(const OperationRecord& record) override;

  Device* device_;
  const std::chrono::nanoseconds start_;
  const RecordingSink sink_;
  const std::string head_;
  const bool redact_;
  std::uint64_t number_ = 0;
};

}  // namespace zulisim
