#!/usr/bin/env bash
# Sets up, builds, and shows a driver's day against the security engine in software.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build
echo "Building the library and the tools ..."
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
{
  cmake --preset release -DKALODLL_BUILD_TOOLS=ON
  cmake --build --preset release --target kalodll zulisim zulisim_preload kaloctl driver_day
} >"$folder/build.log" 2>&1 || { cat "$folder/build.log" >&2; exit 1; }

bin=build/release/bin
cat <<'END'
A driver program talks to firmware in software through libkalodll.so. Numbered lines are what reaches
the device: its descriptor, the firmware client, the operation, the bytes.
END
"$bin/zulisim" run --root "$folder" \
  --reply 'kalo:0x20=status:0x80000001,private:000102030405060708090a0b0c0d0e0f' \
  --lose read:5 --lose write:5,opens=9,errno=ENOENT \
  -- "$bin/driver_day" 2>&1

echo
echo "-- what the log says of it, made readable (x2: each KaloInit3 adds a sink for the same file)"
"$bin/kaloctl" log "$folder/data/Marvoleth.log" | grep -B4 -A1 'General Exception'
