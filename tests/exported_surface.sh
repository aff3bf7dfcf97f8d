#!/usr/bin/env bash
# Compares the symbols of a built library with the list of exported symbols: names, kinds, and sizes of
# data.
#   exported_surface.sh LIBRARY EXPORTS_MAP
set -euo pipefail
library=$1
map=$2
status=0
fail() { echo "$*"; status=1; }

declare -A kind size claimed
while read -r name type _ bytes; do
  case "$type" in
    T | W) kind[$name]=function ;;
    B | D | R | V) kind[$name]=object ;;
    *) kind[$name]="type $type" ;;
  esac
  size[$name]=$((16#${bytes:-0}))
done < <(nm -D -S -f posix --defined-only "$library")
[ "${#kind[@]}" -gt 0 ] || fail "$library exports nothing"

listed=0
while read -r pattern _ wanted bytes; do
  listed=$((listed + 1))
  matches=()
  for name in "${!kind[@]}"; do
    # shellcheck disable=SC2053  # names in the list are patterns
    [[ $name == $pattern ]] && matches+=("$name")
  done
  if [ "${#matches[@]}" -ne 1 ]; then
    fail "$pattern: expected one symbol, found ${#matches[@]}: ${matches[*]-}"
    continue
  fi
  name=${matches[0]}
  claimed[$name]=1
  [ "${kind[$name]}" = "$wanted" ] || fail "$name: ${kind[$name]}, listed as $wanted"
  [ "$wanted" != object ] || [ "${size[$name]}" -eq "$bytes" ] ||
    fail "$name: ${size[$name]} bytes, listed with $bytes"
done < <(sed -nE 's/^ +([A-Za-z_0-9*]+); +# (.*)$/\1 # \2/p' "$map")
[ "$listed" -gt 100 ] || fail "$map lists only $listed symbols"

for name in "${!kind[@]}"; do
  [ -n "${claimed[$name]-}" ] || fail "$name is exported but not in $map"
done
[ "$status" -ne 0 ] || echo "$listed symbols, all as listed"
exit "$status"
