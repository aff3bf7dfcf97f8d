#pragma once

#include <valgrind/callgrind.h>

namespace bench {

// Runs `operation` a few times to warm up. Then callgrind counts the instructions of kCountedRuns
// runs and writes the count under `name`. Without callgrind, this only runs the operation.
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
