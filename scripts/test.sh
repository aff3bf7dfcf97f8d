#!/usr/bin/env bash
# Sets up, builds and runs every test.
#
#   scripts/test.sh [PRESET] [CTEST ARGUMENTS...]      (default: release)
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-release}
[ $# -gt 0 ] && shift
case "$preset" in
  release | debug | asan | tsan | clang) ;;
  *) echo "test.sh: unknown preset '$preset'; expected release, debug, asan, tsan or clang" >&2; exit 2 ;;
esac

scripts/setup.sh test
cmake --preset "$preset" -DKALODLL_BUILD_TESTS=ON | sed -n '/Left out/p'
cmake --build --preset "$preset"
log=build/$preset/Testing/Temporary/LastTest.log
status=0
ctest --preset "$preset" --parallel "$(nproc)" "$@" || status=$?
# ctest does not show why a test was skipped, but the test prints the reason.
awk '/^[0-9]+\/[0-9]+ Testing: / { name = $3 }
     /^(skipped|SKIPPED): / { sub("^[^:]*: ", ""); print "skipped: " name ": " $0 }
     /: Skipped$/ { getline; print "skipped: " name ": " $0 }' "$log"
exit "$status"
