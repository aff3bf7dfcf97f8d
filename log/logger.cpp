#include "log/logger.h"

#include <pthread.h>

#include <locale>
#include <new>

#include "log/delivery.h"
#include "oscl/errno_keeper.h"
#include "oscl/kept_stores.h"
#include "oscl/timing.h"

// The second of the library's two static objects, whatever the link order.
__attribute__((init_priority(1002))) Logger::LogBase Logger::logBase;

namespace {

// Keeps the sinks that cannot be deleted because one is in use.
alignas(std::vector<LogSink*>) unsigned char keptSinks[sizeof(std::vector<LogSink*>)];

// Runs in the child of a fork, where the thread that held the lock may not exist.
void FreeLock() { pthread_mutex_init(&Logger::logBase.lock, nullptr); }

}  // namespace

Logger::LogBase::LogBase() : level(0), plainOutput(true) {
  // The library's own C++ library numbers the facets of a locale when it creates its first one. A
  // caller's stream, whose facets have numbers in that order, may be used before any stream of the
  // library.
  static_cast<void>(std::locale::classic());
  InitializeCriticalSection(&lock);
  if (this == &logBase) pthread_atfork(nullptr, nullptr, FreeLock);
}

Logger::LogBase::~LogBase() {
  // Contract: does not wait. If a sink that is delivering ends the process, or a thread of the
  // process is still in a sink, no sink can be deleted safely.
  if (this == &logBase && logging::DeliveryUnderWay()) {
    new (keptSinks) std::vector<LogSink*>(std::move(sinks));
    oscl::KeepStores(keptSinks);
    oscl::KeepStores(this);
    return;
  }
  // A message that arrives after unload has begun must find no sink.
  std::vector<LogSink*> owned;
  owned.swap(sinks);
  oscl::KeepStores(this);
  for (LogSink* sink : owned) delete sink;
}

Logger::Logger() : level(0) {}

Logger::~Logger() {
  const oscl::ErrnoKeeper keeper;
  if (level > logging::Threshold()) return;
  try {
    logging::Emit(level, str().c_str());
  } catch (...) {
    // If memory is exhausted, drop the line: logging never fails its caller.
  }
}

int64_t Logger::GetHighResolutionCounterTick() {
  // Contract: a clock without a frequency is not reported.
  LARGE_INTEGER frequency = 0;
  QueryPerformanceFrequency(&frequency);
  LARGE_INTEGER tick = 0;
  QueryPerformanceCounter(&tick);
  return tick;
}
