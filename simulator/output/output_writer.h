#pragma once

#include <cstddef>
#include <string>

#include "common/log_splitter.h"
#include "simulator/device/operation.h"

namespace zulisim {

// A line of the library's log; each KaloInit3 of a program has one more copy of it written.
struct LogLine {
  common::LogRecord record;
  std::size_t copies = 1;
};

// "KaloInit3:80  Executing call to KaloInit3()  x2"
std::string LogLineText(const LogLine& line);

// What a run tells those who write it down. Calls come one at a time.
class OutputWriter : public OperationObserver {
 public:
  // The line was written before the next operation that is told of ended.
  virtual void OnLogLine(const LogLine& line) = 0;
  // The program has ended; none of this comes for one that nobody waits for.
  virtual void OnExit(int /*status*/) {}
};

}  // namespace zulisim
