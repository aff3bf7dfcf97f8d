#!/usr/bin/env bash
# Compares the symbols of a built library with the list of exported symbols: names, kinds, and sizes of
# data.
#   exported_surface.sh LIBRARY EXPORTS_MAP
set -euo pipefail
library=$1 map=$2
status=0
exported=$(nm -D -S -f posix -t d --defined-only "$library" | awk '
  $2 ~ /^[TW]$/ {print $1, "function"; next}
  $2 ~ /^[BDRV]$/ {print $1, "object", $4 + 0; next}
  {print $1, "type", $2}')
# A * in the list stands for part of a name.
listed=$(sed -nE 's/^ +([A-Za-z_0-9*]+); +# (.*)$/\1 \2/p' "$map" | sed 's/\*/.*/')
while read -r symbol; do
  found=$(grep -cxE "$symbol" <<<"$exported") || true
  [ "$found" -eq 1 ] || { echo "$symbol: expected one symbol, found $found"; status=1; }
done <<<"$listed"
if grep -vxEf <(echo "$listed") <<<"$exported"; then
  echo "the symbols above are exported, but $map does not list them in this form"
  status=1
fi
[ "$(wc -l <<<"$listed")" -gt 100 ] || { echo "$map lists too few symbols"; status=1; }
exit "$status"
