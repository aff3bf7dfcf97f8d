#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "common/log_splitter.h"
#include "simulator/device/operation.h"

namespace zulisim {

class RunSummary;

// A line of the library's log. The library writes one more copy of each line after each KaloInit3.
struct LogLine {
  common::LogRecord record;
  std::size_t copies = 1;

  // True for the one line that the library writes when an API call fails.
  bool IsFailure() const {
    return record.text.find("Exception") != std::string::npos ||
           record.text.find("API failed") != std::string::npos;
  }
};

// "KaloInit3:80  Executing call to KaloInit3()  x2"
std::string LogLineText(const LogLine& line);

// Writes one of a run's outputs. Calls come one at a time.
class OutputWriter : public OperationObserver {
 public:
  // The library wrote the line before the next operation ended.
  virtual void OnLogLine(const LogLine& line) = 0;
  // Something else happened at `time`, in the time of Now(): "tell lose".
  virtual void OnNote(const std::string& text, std::chrono::nanoseconds time) = 0;
  // The run has ended; nothing follows. `status` is the program's exit status, if there is one.
  virtual void Finish(const RunSummary& /*summary*/, std::optional<int> /*status*/) {}
};

}  // namespace zulisim
