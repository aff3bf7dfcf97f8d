#pragma once

#include <valgrind/callgrind.h>

namespace bench {

// Has callgrind count the instructions of kCountedRuns runs of `operation`, after some that warm
// up, and write them out under `name`. Without callgrind it only runs them.
constexpr int kWarmUpRuns = 3;
constexpr int kCountedRuns = 10;

template <typename Operation>
void Count(const char* name, Operation operation) {
  for (int i = 0; i < kWarmUpRuns; ++i) operation();
  CALLGRIND_ZERO_STATS;
  for (int i = 0; i < kCountedRuns; ++i) {
    CALLGRIND_TOGGLE_COLLECT;
    operation();
    CALLGRIND_TOGGLE_COLLECT;
  }
  CALLGRIND_DUMP_STATS_AT(name);
}

}  // namespace bench
