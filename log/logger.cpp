#include "log/logger.h"

#include <pthread.h>

#include <locale>
#include <new>

#include "log/delivery.h"
#include "oscl/errno_keeper.h"
#include "oscl/kept_stores.h"
#include "oscl/timing.h"

// The second of the library's two static objects to be built, whatever the link order.
__attribute__((init_priority(1002))) Logger::LogBase Logger::logBase;

namespace {

// What cannot be freed because a sink is at work stays here.
alignas(std::vector<LogSink*>) unsigned char keptSinks[sizeof(std::vector<LogSink*>)];

// In the child of a fork: whoever held the lock there may not exist any more.
void FreeLock() { pthread_mutex_init(&Logger::logBase.lock, nullptr); }

}  // namespace

Logger::LogBase::LogBase() : level(0), plainOutput(true) {
  // A carried standard library numbers the parts of a locale when it makes its first one. A
  // caller's stream, whose parts are numbered in that order, may come before any stream of the
  // library's.
  static_cast<void>(std::locale::classic());
  InitializeCriticalSection(&lock);
  if (this == &logBase) pthread_atfork(nullptr, nullptr, FreeLock);
}

Logger::LogBase::~LogBase() {
  // Contract: waits for nobody. A delivery may be under way, in a sink that ends the process or in
  // a thread that the process does not wait for, and then no sink can be deleted safely.
  if (this == &logBase && logging::DeliveryUnderWay()) {
    new (keptSinks) std::vector<LogSink*>(std::move(sinks));
    oscl::KeepStores(keptSinks);
    oscl::KeepStores(this);
    return;
  }
  // A message that comes after unload has begun must find no sink.
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
    // Out of memory: logging never reports a failure to the code that logs.
  }
}

int64_t Logger::GetHighResolutionCounterTick() {
  // Contract: a clock without a frequency is reported to nobody.
  LARGE_INTEGER frequency = 0;
  QueryPerformanceFrequency(&frequency);
  LARGE_INTEGER tick = 0;
  QueryPerformanceCounter(&tick);
  return tick;
}
