#!/usr/bin/env bash
# Sets up, builds with coverage in build/coverage, runs every test, and prints the share of covered
# lines and branches of the library's folders, and the lines that are not covered. Ignores branches
# that only an exception of the standard library takes.
#
#   scripts/coverage.sh [CTEST ARGUMENTS...]
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh test coverage
folder=build/coverage
cmake -S . -B "$folder" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=--coverage \
  -DCMAKE_EXE_LINKER_FLAGS=--coverage -DCMAKE_SHARED_LINKER_FLAGS=--coverage \
  -DCMAKE_MODULE_LINKER_FLAGS=--coverage >/dev/null
cmake --build "$folder"
find "$folder" -name '*.gcda' -delete
# Leaves out the tests of the library file: coverage adds functions that no list contains.
status=0
ctest --test-dir "$folder" --parallel "$(nproc)" --output-on-failure \
  -E 'imported_functions|elf_hygiene|exported_surface' "$@" || status=$?
gcovr --root . --object-directory "$folder" --exclude-throw-branches --exclude-unreachable-branches \
  --filter api/ --filter transport/ --filter log/ --filter oscl/ \
  --txt "$folder/lines.txt" --print-summary "$folder"
grep -v '100% *$' "$folder/lines.txt"
gcovr --root . --object-directory "$folder" --exclude-throw-branches --exclude-unreachable-branches \
  --filter api/ --filter transport/ --filter log/ --filter oscl/ \
  --branches "$folder"
exit "$status"
