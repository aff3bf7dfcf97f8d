#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "simulator/device/operation.h"

namespace zulisim {

class RunSummary;

// Writes one of a run's outputs. Calls come one at a time.
class OutputWriter : public OperationObserver {
 public:
  // The library wrote the line before the next operation ended, as in
  // "KaloInit3:80  Executing call to KaloInit3()  x2". `isFailure` marks a failed API call.
  virtual void OnLogLine(const std::string& line, bool isFailure) = 0;
  // Something else happened at `time`, in the time of Now(): "tell lose".
  virtual void OnNote(const std::string& text, std::chrono::nanoseconds time) = 0;
  // The run has ended; nothing follows. `status` is the program's exit status, if there is one.
  virtual void Finish(const RunSummary& /*summary*/, std::optional<int> /*status*/) {}
};

}  // namespace zulisim
