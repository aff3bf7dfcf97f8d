#include "tools/call/log_capture.h"

#include <cstdint>
#include <utility>

#include "log/log_line.h"
#include "log/logger.h"

namespace kaloctl {
namespace {

void RaiseLevel() {
  __atomic_store_n(&Logger::logBase.level, logging::kTraceLevel, __ATOMIC_RELAXED);
}

class CaptureSink : public LogSink {
 public:
  CaptureSink(std::shared_ptr<std::vector<std::string>> lines, LogCapture::Detail detail)
      : lines_(std::move(lines)), detail_(detail) {}

  void logMessage(const char* message) override {
    // KaloInit3 resets the log level and then logs an ordinary line. Raising the level again at
    // that line keeps the trace lines that follow.
    if (detail_ == LogCapture::Detail::kTrace) RaiseLevel();
    std::string line = message;
    while (!line.empty() && line.back() == '\n') line.pop_back();
    lines_->push_back(std::move(line));
  }

 private:
  std::shared_ptr<std::vector<std::string>> lines_;
  LogCapture::Detail detail_;
};

}  // namespace

LogCapture::LogCapture(Detail detail) : lines_(std::make_shared<std::vector<std::string>>()) {
  if (detail == Detail::kTrace) RaiseLevel();
  auto sink = std::make_unique<CaptureSink>(lines_, detail);
  Logger::logBase.sinks.push_back(sink.get());
  sink.release();
}

std::vector<std::string> LogCapture::Take() { return std::exchange(*lines_, {}); }

}  // namespace kaloctl
