#!/usr/bin/env bash
# Counts the instructions of each operation and fails if a count has grown by more than 3 %.
#
#   scripts/instructions.sh             compares with bench/instructions.txt
#   scripts/instructions.sh --update    writes the counts into it
#   scripts/instructions.sh --peers     prints the counts of similar operations in other libraries
#
# Counts are the same on every machine: they do not depend on time, load or processor.
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  "" | --update) program=bench_instructions ;;
  --peers) program=bench_peer_instructions ;;
  *) echo "instructions.sh: unknown option '$1'; expected --update, --peers or no option" >&2
     exit 2 ;;
esac

scripts/setup.sh bench
cmake --preset release -B build/bench -DKALODLL_BUILD_BENCH=ON -DKALODLL_BUILD_TESTS=OFF \
  -DKALODLL_BUILD_TOOLS=OFF >/dev/null
cmake --build build/bench --target "$program" | tail -n 1 >&2

counts=$(mktemp -d /tmp/kalodll_counts.XXXXXX)
trap 'rm -rf "$counts"' EXIT

# A baseline processor and an empty environment make libc choose the same functions everywhere.
plain=-AVX512F,-AVX512VL,-AVX512BW,-AVX2,-AVX,-AVX_Fast_Unaligned_Load,-ERMS,-FSRM,-RTM,-BMI2
plain+=,-BMI1,-LZCNT,-MOVBE,-XSAVEC,-XSAVE,-SSSE3,-SSE4_1,-SSE4_2
if ! env -i PATH="$PATH" GLIBC_TUNABLES="glibc.cpu.hwcaps=$plain" \
  valgrind -q --tool=callgrind --collect-atstart=no --callgrind-out-file="$counts/out" \
  "build/bench/bench/$program" >"$counts/output" 2>&1; then
  cat "$counts/output" >&2
  exit 1
fi
python3 bench/instructions.py read "$counts" >"$counts/table"

case "${1:-}" in
  "") python3 bench/instructions.py compare "$counts/table" bench/instructions.txt ;;
  --update) python3 bench/instructions.py update "$counts/table" bench/instructions.txt
            python3 bench/instructions.py compare "$counts/table" bench/instructions.txt ;;
  --peers) cat "$counts/table" ;;
esac
