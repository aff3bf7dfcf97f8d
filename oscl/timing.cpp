#include "oscl/timing.h"

#include <time.h>
#include <unistd.h>

#include "oscl/last_error.h"

namespace {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

// Returns the nanoseconds per tick, or 0 if the clock cannot serve as a counter.
int64_t TickLength() {
  timespec resolution{};
  if (clock_getres(CLOCK_MONOTONIC, &resolution) != 0 || resolution.tv_sec != 0) return 0;
  return resolution.tv_nsec;
}

BOOL Deliver(LARGE_INTEGER* out, int64_t value) {
  oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
  *out = value;
  return 1;
}

}  // namespace

BOOL QueryPerformanceFrequency(LARGE_INTEGER* out) {
  const int64_t tick = TickLength();
  if (tick == 0) return 0;
  return Deliver(out, kNanosecondsPerSecond / tick);
}

BOOL QueryPerformanceCounter(LARGE_INTEGER* out) {
  const int64_t tick = TickLength();
  timespec now{};
  if (tick == 0 || clock_gettime(CLOCK_MONOTONIC, &now) != 0) return 0;
  return Deliver(out, (now.tv_sec * kNanosecondsPerSecond + now.tv_nsec) / tick);
}

BOOL OSCL_QueryPerformanceFrequency(LARGE_INTEGER* out) { return QueryPerformanceFrequency(out); }

BOOL OSCL_QueryPerformanceCounter(LARGE_INTEGER* out) { return QueryPerformanceCounter(out); }

// Contract: microseconds, despite the names.
void Sleep(uint32_t duration) {
  if (usleep(duration) == 0) oscl::SetLastErrorCode(OSCL_ERROR_SUCCESS);
}

void OSCL_SleepMs(uint32_t duration) { Sleep(duration); }
