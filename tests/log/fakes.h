#pragma once

#include <sys/types.h>
#include <time.h>

#include <optional>
#include <string>
#include <vector>

// What this program puts in the place of libc's clock and process id, and of the platform's log.
namespace fakes {

struct Clock {
  timespec resolution{0, 1};
  int resolutionResult = 0;
  timespec now{0, 0};
  int nowResult = 0;
};

extern std::optional<Clock> clock;  // of CLOCK_MONOTONIC
extern std::optional<pid_t> processId;

struct Printed {
  int priority;
  bool tagged;
  std::string format;
  std::string text;
};
extern std::vector<Printed> printed;

}  // namespace fakes
