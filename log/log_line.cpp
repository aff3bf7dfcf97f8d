#include "log/log_line.h"

#include <atomic>

#include "oscl/critical_section_guard.h"

namespace logging {

namespace {

// Sinks are never taken away while the library is loaded, so that once one has been seen nobody
// needs to look again.
std::atomic<bool> sinkSeen{false};

}  // namespace

bool SinkRegistered() {
  if (sinkSeen.load(std::memory_order_relaxed)) return true;
  const oscl::ErrnoKeeper keeper;
  const oscl::CriticalSectionGuard guard(Logger::logBase.lock);
  if (Logger::logBase.sinks.empty()) return false;
  sinkSeen.store(true, std::memory_order_relaxed);
  return true;
}

LogLine::LogLine(int32_t level, const char* function, int tag) {
  logger_.level = level;
  logger_ << function << ':' << tag << ": ";
}

}  // namespace logging
