#pragma once

#include <optional>
#include <string>

#include "simulator/device/operation.h"

namespace zulisim {

class RunSummary;

// Writes one of a run's outputs. Only one thread at a time may call it.
class OutputWriter : public OperationObserver {
 public:
  // Called for a line of the library's log, such as "KaloInit3:80  Executing call to KaloInit3()
  // x2", which the library wrote before the next operation ended. `isFailure` marks a failed API
  // call.
  virtual void OnLogLine(const std::string& line, bool isFailure) = 0;
  // Called at the end of the run, after all other calls. `status` is the program's exit status, if
  // there is one.
  virtual void Finish(const RunSummary& /*summary*/, std::optional<int> /*status*/) {}
};

}  // namespace zulisim
