#!/usr/bin/env bash
# Checks the format of the sources, the order of includes, and a few rules of clang-tidy.
#
#   scripts/lint.sh           runs all checks, about four minutes
#   scripts/lint.sh --quick   skips clang-tidy, like the pre-commit hook
#   scripts/lint.sh --fix     only formats the files
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  "" | --quick | --fix) ;;
  *) echo "lint.sh: unknown option '$1'; expected --quick, --fix or no option" >&2; exit 2 ;;
esac
scripts/setup.sh lint

mapfile -t sources < <(git ls-files '*.cpp' '*.h' '*.c')
if [ "${1:-}" = --fix ]; then
  clang-format -i "${sources[@]}"
  exit 0
fi
if ! clang-format --dry-run --Werror "${sources[@]}"; then
  echo "lint.sh: some files are not formatted; run scripts/lint.sh --fix" >&2
  exit 1
fi
scripts/includes.sh
[ "${1:-}" = --quick ] && exit 0

scripts/setup.sh build
scripts/android_sources.py
cmake --preset release >/dev/null
# Only the library and the tools; tests may be terser.
run-clang-tidy -quiet -j "$(nproc)" -p build/release \
  "^$PWD/(api|transport|log|oscl|common|simulator|tools)/" >build/release/tidy.log 2>/dev/null || {
  grep -E 'error:|warning:' build/release/tidy.log | sort -u >&2
  echo "lint.sh: clang-tidy has findings; see build/release/tidy.log" >&2
  exit 1
}
echo "lint.sh: ${#sources[@]} files passed"
