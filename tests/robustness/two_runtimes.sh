#!/usr/bin/env bash
# Runs a host with one C++ runtime and the library with another in one process.
#   two_runtimes.sh ZULISIM HOST LIBRARY OTHER-RUNTIME
set -euo pipefail
zulisim=$1 host=$2 library=$3 other=$4

readelf -dW "$host" | grep -q "NEEDED.*$other" || { echo "the host has no $other of its own"; exit 1; }
if readelf -dW "$library" | grep -qE 'NEEDED.*(libc\+\+|libstdc\+\+)'; then
  echo "the library does not carry its runtime"
  exit 1
fi
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
"$zulisim" run --quiet --root "$root" -- "$host" "$library"
log=$(find "$root" -name Marvoleth.log)
for text in 'Call to StartIoEx3() API completed successfully.' 'Input buffer < kalo header size' \
            'General Exception : Call to StartIoEx3() API failed.'; do
  grep -qF "$text" "$log" || { echo "the log lacks: $text"; exit 1; }
done
