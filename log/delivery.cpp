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

// `delivering`: the thread that holds the log's lock is delivering. `deliveringUnlocked`: how many
// threads deliver without the lock because locking failed. A child of a fork inherits both: a sink
// whose delivery the fork interrupted must not be deleted in the child.
std::atomic<bool> delivering{false};
std::atomic<int> deliveringUnlocked{0};

std::string Prefix() {
  char text[64];
  std::snprintf(text, sizeof text, "[%08d] %" PRId64 " ", static_cast<int>(getpid()),
                Logger::GetHighResolutionCounterTick());
  return text;
}

// A sink may write into its text, so every sink but the last gets a copy. If memory is exhausted, a
// sink gets the original.
const char* TextForSink(const char* line, bool last, std::string& copy) {
  if (last) return line;
  try {
    return copy.assign(line).c_str();
  } catch (...) {
    return line;
  }
}

void Deliver(const char* line) {
  const oscl::CriticalSectionGuard guard(Logger::logBase.lock);
  const std::vector<LogSink*>& sinks = Logger::logBase.sinks;
  if (guard.Entered()) {
    delivering.store(true, std::memory_order_relaxed);
  } else {
    ++deliveringUnlocked;
  }
  std::string copy;
  // The sinks run under the lock, so one may append another.
  for (size_t i = 0; i < sinks.size(); ++i) {
    if (sinks[i] == nullptr) continue;
    try {
      sinks[i]->logMessage(TextForSink(line, i + 1 == sinks.size(), copy));
    } catch (...) {
      // The other sinks still get the line.
    }
  }
  if (guard.Entered()) {
    delivering.store(false, std::memory_order_relaxed);
  } else {
    --deliveringUnlocked;
  }
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
    // If memory is exhausted, drop the line: logging never fails its caller.
  }
}

bool DeliveryUnderWay() {
  return delivering.load(std::memory_order_relaxed) || deliveringUnlocked != 0;
}

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
