#include "log/delivery.h"

#include <inttypes.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>

#include "log/log_file.h"
#include "oscl/critical_section_guard.h"
#include "oscl/errno_keeper.h"

namespace logging {

namespace {

// Written under the log's lock only. A child of a fork finds it set when a delivery was cut short
// there, and that sink must not be deleted either.
std::atomic<bool> delivering{false};

std::string Prefix() {
  char text[64];
  std::snprintf(text, sizeof text, "[%08d] %" PRId64 " ", static_cast<int>(getpid()),
                Logger::GetHighResolutionCounterTick());
  return text;
}

void Deliver(const char* line) {
  const oscl::CriticalSectionGuard guard(Logger::logBase.lock);
  const std::vector<LogSink*>& sinks = Logger::logBase.sinks;
  delivering.store(true, std::memory_order_relaxed);
  // A sink holds the lock and so may append another.
  for (size_t i = 0; i < sinks.size(); ++i) {
    if (sinks[i] == nullptr) continue;
    try {
      sinks[i]->logMessage(line);
    } catch (...) {
      // The other sinks get the line all the same.
    }
  }
  delivering.store(false, std::memory_order_relaxed);
}

}  // namespace

std::atomic<bool> sinkSeen{false};

bool LookForSink() {
  const oscl::CriticalSectionGuard guard(Logger::logBase.lock);
  if (Logger::logBase.sinks.empty()) return false;
  sinkSeen.store(true, std::memory_order_relaxed);
  return true;
}

void Emit(int32_t level, const char* text) noexcept {
  if (level > Threshold()) return;
  if (Logger::logBase.plainOutput) return Deliver(text);
  try {
    Deliver((Prefix() + text).c_str());
  } catch (...) {
    // Out of memory: logging never reports a failure to the code that logs.
  }
}

bool DeliveryUnderWay() { return delivering.load(std::memory_order_relaxed); }

void AppendFileSink() {
  const oscl::ErrnoKeeper keeper;
  try {
    std::stringstream path;
    if (!DetermineLogFilePath(path)) return;
    auto sink = std::make_unique<FileLogSink>(path.str().c_str());
    const oscl::CriticalSectionGuard guard(Logger::logBase.lock);
    Logger::logBase.sinks.push_back(sink.get());
    sink.release();
    sinkSeen.store(true, std::memory_order_relaxed);
  } catch (...) {
  }
}

}  // namespace logging
