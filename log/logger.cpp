#include "log/logger.h"

#include <inttypes.h>
#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <locale>
#include <string>

#include "log/stream_source.h"
#include "oscl/critical_section_guard.h"
#include "oscl/errno_keeper.h"
#include "oscl/timing.h"

// The second of the library's two static objects to be built, whatever the link order.
__attribute__((init_priority(1002))) Logger::LogBase Logger::logBase;

namespace {

std::string Prefix() {
  char text[64];
  std::snprintf(text, sizeof text, "[%08d] %" PRId64 " ", static_cast<int>(getpid()),
                Logger::GetHighResolutionCounterTick());
  return text;
}

void Deliver(const std::string& line) {
  const oscl::CriticalSectionGuard guard(Logger::logBase.lock);
  const std::vector<LogSink*>& sinks = Logger::logBase.sinks;
  // A sink holds the lock and so may append another.
  for (size_t i = 0; i < sinks.size(); ++i) {
    if (sinks[i] == nullptr) continue;
    try {
      sinks[i]->logMessage(line.c_str());
    } catch (...) {
      // The other sinks get the line all the same.
    }
  }
}

// False when the section is not free within a second. Whoever holds it may be a sink that ends the
// process, one that never comes back, or a thread that a fork has left behind.
bool EnteredInTime(CRITICAL_SECTION* section) {
  timespec end{};
  clock_gettime(CLOCK_REALTIME, &end);
  ++end.tv_sec;
  return pthread_mutex_timedlock(section, &end) == 0;
}

}  // namespace

Logger::LogBase::LogBase() : level(0), plainOutput(true) {
  // A carried standard library numbers the parts of a locale when it makes its first one. A
  // caller's stream, whose parts are numbered in that order, may come before any stream of the
  // library's.
  std::locale::classic();
  InitializeCriticalSection(&lock);
}

Logger::LogBase::~LogBase() {
  // A message that comes after unload has begun must find no sink.
  std::vector<LogSink*> owned;
  const bool entered = EnteredInTime(&lock);
  owned.swap(sinks);
  if (!entered) return;
  LeaveCriticalSection(&lock);
  for (LogSink* sink : owned) delete sink;
}

Logger::Logger() : basic_stringstream(logging::StreamSource().Take()), level(0) {}

Logger::~Logger() {
  const oscl::ErrnoKeeper keeper;
  if (level > __atomic_load_n(&logBase.level, __ATOMIC_RELAXED)) return;
  try {
    Deliver(logBase.plainOutput ? str() : Prefix() + str());
  } catch (...) {
    // Logging never reports a failure to the code that logs.
  }
}

int64_t Logger::GetHighResolutionCounterTick() {
  // A clock without a frequency is told to nobody, which is meant.
  LARGE_INTEGER frequency = 0;
  QueryPerformanceFrequency(&frequency);
  LARGE_INTEGER tick = 0;
  QueryPerformanceCounter(&tick);
  return tick;
}
