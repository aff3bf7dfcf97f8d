#pragma once

#include <string>
#include <utility>
#include <vector>

#include "log/logger.h"

namespace kaloctl {

// Collects the library's log lines in this process. The library owns the capture, because it cannot
// remove a sink. Not thread-safe.
class LogCapture : public LogSink {
 public:
  // Adds a capture to the log. `trace` enables the trace lines, here and in the library's log file.
  static LogCapture* Start(bool trace);

  // Returns the lines that were logged since the last call, without line feeds.
  std::vector<std::string> Take() { return std::exchange(lines_, {}); }

  void logMessage(const char* message) override;

 private:
  explicit LogCapture(bool trace) : trace_(trace) {}
  void RaiseLevel() const;

  const bool trace_;
  std::vector<std::string> lines_;
};

}  // namespace kaloctl
