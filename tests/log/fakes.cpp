#include "tests/log/fakes.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace fakes {

std::optional<Clock> clock;
std::optional<pid_t> processId;
std::vector<Printed> printed;

}  // namespace fakes

extern "C" {

int clock_getres(clockid_t id, timespec* out) noexcept {
  if (!fakes::clock || id != CLOCK_MONOTONIC) {
    return static_cast<int>(syscall(SYS_clock_getres, id, out));
  }
  if (fakes::clock->resolutionResult == 0) *out = fakes::clock->resolution;
  return fakes::clock->resolutionResult;
}

int clock_gettime(clockid_t id, timespec* out) noexcept {
  if (!fakes::clock || id != CLOCK_MONOTONIC) {
    return static_cast<int>(syscall(SYS_clock_gettime, id, out));
  }
  if (fakes::clock->nowResult == 0) *out = fakes::clock->now;
  return fakes::clock->nowResult;
}

pid_t getpid() noexcept {
  return fakes::processId ? *fakes::processId : static_cast<pid_t>(syscall(SYS_getpid));
}

// The one in the program comes first, whatever else the platform has.
__attribute__((format(printf, 3, 4))) int __android_log_print(int priority, const char* tag,
                                                              const char* format, ...) {
  char text[256];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  fakes::printed.push_back({priority, tag != nullptr, format, text});
  return length;
}
}
