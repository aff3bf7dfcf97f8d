#!/usr/bin/env bash
# Compares the symbols of the built library with the list of exported symbols: names, kinds, and sizes
# of data.
#   exported_surface.sh BUILD_FOLDER
set -euo pipefail
map=$(dirname "$0")/../api/exports.map
listed=$(sed -nE 's/^ +([A-Za-z_0-9*]+); +# (.*)$/\1 \2/p' "$map" | sort)
[ "$(wc -l <<<"$listed")" -gt 100 ] || { echo "$map lists too few symbols"; exit 1; }
# A * in the list stands for part of a name.
shorten=$(sed -nE 's/^(.*)\*(.*)$/s|^\1[^ ]*\2$|&|/p' <<<"$listed")
exported=$(nm -D -S -f posix -t d --defined-only "$1/libkalodll.so" | awk '
  $2 ~ /^[TW]$/ {print $1, "function"; next}
  $2 ~ /^[BDRV]$/ {print $1, "object", $4 + 0; next}
  {print $1, "type", $2}' | sed "$shorten" | sort)
diff <(echo "$listed") <(echo "$exported") && exit
echo "the library does not export the symbols after '<'; $map does not list those after '>'"
exit 1
