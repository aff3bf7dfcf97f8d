#!/usr/bin/env bash
# Builds the fuzz targets and runs each for a while, starting from the seeds in fuzz/corpus/ and the
# inputs that earlier runs found. Fails on a finding and prints the command that reproduces it.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]      (default: 30 seconds, every target)
#   scripts/fuzz.sh --coverage [TARGET...]     lines of each target's own code that the seeds reach
#
# With KALODLL_FUZZ_SEED=N a run starts only from the seeds and is repeatable. Without it, each run
# uses new random numbers and continues from the inputs of the last run.
set -euo pipefail
cd "$(dirname "$0")/.."

all=(engine registry scenario recording kaloctl)
seconds=${1:-30}
[ $# -gt 0 ] && shift
if ! [[ $seconds =~ ^([1-9][0-9]*|--coverage)$ ]]; then
  echo "fuzz.sh: '$seconds' is not a number of seconds: give 1 or more, or --coverage" >&2
  exit 2
fi
seed=${KALODLL_FUZZ_SEED:-0}
if ! [[ $seed =~ ^[0-9]+$ ]]; then
  echo "fuzz.sh: KALODLL_FUZZ_SEED='$seed' is not a seed: give a number; 0 draws one" >&2
  exit 2
fi
targets=("${@:-${all[@]}}")
for target in "${targets[@]}"; do
  if ! [[ " ${all[*]} " == *" $target "* ]]; then
    echo "fuzz.sh: unknown target '$target': expected one of: ${all[*]}" >&2
    exit 2
  fi
done

scripts/setup.sh build fuzz
if [ "$seconds" = --coverage ]; then
  # The code that each target tests.
  declare -A own=(
    [engine]='(api|transport|log)/[^/]*'
    [registry]='oscl/(registry[^/]*|user_feature)'
    [scenario]='simulator/scenario/[^/]*'
    [recording]='simulator/record/(rec|rep)[^/]*'
    [kaloctl]='[a-z/]*/(script|log_splitter|log_folder)')
  cmake --preset fuzz -B build/fuzz-coverage -DKALODLL_SANITIZE=fuzzer-no-link \
    -DCMAKE_CXX_FLAGS='-fprofile-instr-generate -fcoverage-mapping' >/dev/null
  cmake --build build/fuzz-coverage --target "${targets[@]/#/fuzz_}" >build/fuzz-coverage/build.log ||
    { cat build/fuzz-coverage/build.log >&2; exit 1; }
  # The folder of clang itself has the LLVM tools of the same version.
  llvm=$(sed -n 's/^KALODLL_CLANG_CXX:.*=//p' build/fuzz-coverage/CMakeCache.txt)
  llvm=$(dirname "$(readlink -f "$llvm")")
  printf '%-10s %6s %7s %9s\n' target seeds lines reached
  for target in "${targets[@]}"; do
    program=build/fuzz-coverage/fuzz/fuzz_$target
    LLVM_PROFILE_FILE=$program.raw "$program" -runs=0 "fuzz/corpus/$target" 2>"$program.log" >&2
    "$llvm/llvm-profdata" merge "$program.raw" -o "$program.profile"
    "$llvm/llvm-cov" report "$program" -object build/fuzz-coverage/libkalodll.so \
      -instr-profile "$program.profile" |
      awk -v target="$target" -v seeds="$(find "fuzz/corpus/$target" -type f | wc -l)" \
        -v own="^([.][.]/)*${own[$target]}[.]cpp$" '
        $1 ~ own { lines += $8; missed += $9 }
        END { printf "%-10s %6d %7d %7.0f %%\n", target, seeds, lines, 100 * (1 - missed / lines) }'
  done
  exit 0
fi

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target "${targets[@]/#/fuzz_}" >build/fuzz/build.log ||
  { cat build/fuzz/build.log >&2; exit 1; }

# Contract: a failed connection leaks its record. So the engine target checks for leaks once, at the
# end, with this list of exceptions.
export LSAN_OPTIONS=suppressions=$PWD/tests/support/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1
failed=0
printf '%-10s %12s %9s %7s %8s\n' target executions per-sec edges corpus
for target in "${targets[@]}"; do
  work=build/fuzz/corpus/$target
  log=build/fuzz/$target.log
  if [ "$seed" -ne 0 ]; then
    work=build/fuzz/corpus-of-seed/$target
    rm -rf "$work"
  fi
  mkdir -p "$work" build/fuzz/findings
  options=(-max_total_time="$seconds" -max_len=2048 -timeout=10 -print_final_stats=1 -seed="$seed"
    -artifact_prefix="build/fuzz/findings/$target-")
  [ "$target" = engine ] && options+=(-detect_leaks=0)
  if "build/fuzz/fuzz/fuzz_$target" "${options[@]}" "$work" "fuzz/corpus/$target" >"$log" 2>&1; then
    awk -v target="$target" '
      /DONE/ { for (i = 1; i < NF; ++i) { if ($i == "cov:") edges = $(i + 1)
                                          if ($i == "corp:") corpus = $(i + 1) } }
      /number_of_executed_units/ { runs = $2 }
      /average_exec_per_sec/ { rate = $2 }
      END { printf "%-10s %12d %9d %7d %8s\n", target, runs, rate, edges, corpus }' "$log"
  else
    failed=1
    tail -n 40 "$log" >&2
    echo "fuzz.sh: target $target has a finding; see $log. Reproduce it with:" >&2
    echo "  build/fuzz/fuzz/fuzz_$target build/fuzz/findings/$target-*" >&2
  fi
done
exit "$failed"
