#!/usr/bin/env bash
# Holds the sources to their format, their order of includes and a few checks of clang-tidy.
#
#   scripts/lint.sh           everything, about four minutes
#   scripts/lint.sh --quick   without clang-tidy, as the pre-commit hook does
#   scripts/lint.sh --fix     formats what is not formatted, and checks nothing else
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  "" | --quick | --fix) ;;
  *) echo "lint.sh: unknown option '$1': --quick, --fix or nothing is expected" >&2; exit 2 ;;
esac
scripts/setup.sh lint

mapfile -t sources < <(git ls-files '*.cpp' '*.h' '*.c')
if [ "${1:-}" = --fix ]; then
  clang-format -i "${sources[@]}"
  exit 0
fi
if ! clang-format --dry-run --Werror "${sources[@]}"; then
  echo "lint.sh: not formatted: scripts/lint.sh --fix mends it" >&2
  exit 1
fi
scripts/includes.sh
[ "${1:-}" = --quick ] && exit 0

scripts/setup.sh build
scripts/android_sources.py
cmake --preset release >/dev/null
# The library and the tools; tests may be terser.
run-clang-tidy -quiet -j "$(nproc)" -p build/release \
  "^$PWD/(api|transport|log|oscl|common|simulator|tools)/" >build/release/tidy.log 2>/dev/null || {
  grep -E 'error:|warning:' build/release/tidy.log | sort -u >&2
  echo "lint.sh: clang-tidy has found something; the whole report is in build/release/tidy.log" >&2
  exit 1
}
echo "lint.sh: ${#sources[@]} files are as they should be"
