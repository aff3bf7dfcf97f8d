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
  *) echo "test.sh: unknown preset '$preset': release, debug, asan, tsan or clang is expected" >&2; exit 2 ;;
esac

scripts/setup.sh test
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" --parallel "$(nproc)" "$@"
