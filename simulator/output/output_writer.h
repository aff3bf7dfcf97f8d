#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "simulator/device/operation.h"

namespace zulisim {

class RunSummary;

// Writes one of a run's outputs. Only one thread at a time may call it.
class OutputWriter : public OperationObserver {
 public:
  // Called for a line of the library's log, such as "KaloInit3:80  Executing call to KaloInit3()
  // x2". The next operation or event was at `time`. `isFailure` marks a failed API call.
  virtual void OnLogLine(const std::string& line, bool isFailure,
                         std::chrono::nanoseconds time) = 0;
  // Called at the end of the run, after all other calls. `status` is the program's exit status, if
  // there is one.
  virtual void Finish(const RunSummary& /*summary*/, std::optional<int> /*status*/) {}
};

}  // namespace zulisim
