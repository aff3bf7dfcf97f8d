#include "tools/call/log_capture.h"

#include <memory>

#include "log/log_line.h"

namespace kaloctl {

LogCapture* LogCapture::Start(bool trace) {
  std::unique_ptr<LogCapture> capture(new LogCapture(trace));
  capture->RaiseLevel();
  Logger::logBase.sinks.push_back(capture.get());
  return capture.release();
}

void LogCapture::RaiseLevel() const {
  if (trace_) __atomic_store_n(&Logger::logBase.level, logging::kTraceLevel, __ATOMIC_RELAXED);
}

void LogCapture::logMessage(const char* message) {
  // KaloInit3 resets the log level and then logs an ordinary line. Raising the level again at that
  // line keeps the trace lines that follow.
  RaiseLevel();
  std::string& line = lines_.emplace_back(message);
  while (!line.empty() && line.back() == '\n') line.pop_back();
}

}  // namespace kaloctl
