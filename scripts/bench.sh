#!/usr/bin/env bash
# Builds the optimised library and its benchmarks, runs them all and prints one table.
#
#   scripts/bench.sh              takes about two minutes; use an idle machine
#   scripts/bench.sh --svg FILE   also draws the parts of a command's time
set -euo pipefail
cd "$(dirname "$0")/.."

svg=
case "${1:-}" in
  "") ;;
  --svg) svg=${2:?bench.sh: --svg needs the name of a file} ;;
  *) echo "bench.sh: unknown option '$1'; expected --svg FILE or no option" >&2; exit 2 ;;
esac

scripts/setup.sh bench
cmake --preset release -B build/bench -DKALODLL_BUILD_BENCH=ON -DKALODLL_BUILD_TESTS=OFF \
  -DKALODLL_BUILD_TOOLS=ON >/dev/null
cmake --build build/bench | tail -n 1 >&2
programs=build/bench/bench
library=build/bench/libkalodll.so

results=$(mktemp -d /tmp/kalodll_results.XXXXXX)
trap 'rm -rf "$results"' EXIT

# Compared benchmarks run alternately, so that changes of the machine's load affect both.
# run_times NAME[=GROUP] [COMMAND THAT RUNS THE PROGRAM...]
run_times() {
  local name=${1%%=*} group=${1##*=}
  shift
  echo "Timing: $name" >&2
  "$@" "$programs/bench_time" "$group" --benchmark_enable_random_interleaving=true \
    --benchmark_repetitions=11 --benchmark_min_time=0.03 --benchmark_report_aggregates_only=true \
    --benchmark_out="$results/$name.json" --benchmark_out_format=json >/dev/null \
    2>"$results/errors" || { cat "$results/errors" >&2; return 1; }
}

run_times bare
run_times sinks
if [ -e /dev/zuli ]; then
  run_times device
else
  # Measures a command through the kernel, if the kernel allows a private file tree.
  run_times device build/bench/bin/zulisim run --quiet --device fuse -- || {
    rm -f "$results/device.json"
    echo "Skipped: a command through the kernel: this machine cannot serve /dev/zuli" >&2
  }
fi
run_times preload=device build/bench/bin/zulisim run --quiet --

echo "Counting instructions" >&2
# scripts/instructions.sh checks the counts.
scripts/instructions.sh >"$results/instructions" 2>/dev/null || true
scripts/instructions.sh --peers >"$results/peers" 2>/dev/null

echo "Measuring size and start" >&2
strip -o "$results/libkalodll.so" "$library"
stat -c %s "$results/libkalodll.so" >"$results/size"
readelf -rW "$library" | grep -c R_X86_64 >"$results/relocations"
system=$(dirname "$(gcc -print-file-name=libtss2-tcti-device.so)")
"$programs/bench_load" "$library" "$(realpath "$system/libtss2-tcti-device.so")" \
  "$(realpath "$system/libspdlog.so")" "$(realpath "$system/libglog.so")" >"$results/load"

echo "Machine:   $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) cores;" \
  "load $(cut -d ' ' -f 1-3 /proc/loadavg)"
echo "System:    $(uname -sr); $(ldd --version | head -n 1 | grep -o '[^ ]*$') (libc);" \
  "$(c++ --version | head -n 1)"
echo "Build:     $(grep '^CMAKE_BUILD_TYPE' build/bench/CMakeCache.txt | cut -d = -f 2)," \
  "$(git describe --always --dirty 2>/dev/null || echo 'no revision')"
echo
python3 bench/report.py "$results" ${svg:+--svg "$svg"}
