#!/usr/bin/env bash
# Sets up, builds, and runs a small driver against the security engine in software.
#
#   scripts/demo.sh [BIN DRIVER]      uses the tools in BIN and a driver; builds nothing
set -euo pipefail
cd "$(dirname "$0")/.."

bin=${1:-build/release/bin}
driver=${2:-$bin/demo_driver}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
if [ $# -eq 0 ]; then
  scripts/setup.sh build
  cmake --preset release -DKALODLL_BUILD_TOOLS=ON >"$folder/log" || { cat "$folder/log" >&2; exit 1; }
  grep 'Left out' "$folder/log" || true
  cmake --build --preset release --target kalodll zulisim zulisim_preload kaloctl demo_driver
  echo
fi
cat <<'END'
A driver uses libkalodll.so to talk to simulated firmware. Each numbered line is a device operation:
its descriptor, firmware client, kind and bytes.
END
"$bin/zulisim" run --root "$folder" \
  --reply 'kalo:0x20=status:0x80000001,private:000102030405060708090a0b0c0d0e0f' \
  --lose read:5 --lose write:5,opens=9,errno=ENOENT \
  -- "$driver" 2>&1

echo
echo "-- the failures in the log (x2: each KaloInit3 adds a sink for the same file)"
"$bin/kaloctl" log "$folder/data/Marvoleth.log" | grep -B4 -A1 'General Exception'
