#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "simulator/device/device.h"
#include "simulator/record/recording.h"

namespace zulisim {

// Receives one line of a recording in each call. It must store each line at once.
using RecordingSink = std::function<void(const std::string& line)>;

// Writes every operation of a device into a recording as it completes. Thread-safe.
class Recorder : private OperationObserver {
 public:
  // Fills in the start time of `header`. The first operation writes the header, so nothing is
  // written if there is no operation. The device must outlive the recorder. The destructor
  // completes the recording.
  Recorder(Device* device, RecordingSink sink, RecordingHeader header);
  ~Recorder() override;
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

 private:
  void OnOperation(const OperationRecord& record) override;

  Device* device_;
  const std::chrono::nanoseconds start_;
  const RecordingSink sink_;
  RecordingHeader header_;
  bool started_ = false;
};

}  // namespace zulisim
