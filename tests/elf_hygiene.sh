#!/usr/bin/env bash
# Holds the layout of a built library against what the platform demands.
#   elf_hygiene.sh LIBRARY
set -euo pipefail
library=$1
dynamic=$(readelf -dW "$library")
segments=$(readelf -lW "$library")
status=0
check() { # check DESCRIPTION COMMAND...
  local description=$1
  shift
  if "$@"; then echo "ok: $description"; else echo "FAILED: $description"; status=1; fi
}
has() { grep -qE "$2" <<<"$1"; }
lacks() {
  local found=0
  has "$@" || found=$?
  [ $found -eq 1 ]
}

aligned_for_16k() {
  local loads
  loads=$(awk '$1 == "LOAD" {print $NF}' <<<"$segments")
  [ -n "$loads" ] && ! grep -qvE '^0x4000$' <<<"$loads"
}
relro_ends_on_16k() {
  local address size
  read -r address size < <(awk '$1 == "GNU_RELRO" {print $3, $6}' <<<"$segments")
  [ -n "$address" ] && [ $(((address + size) % 0x4000)) -eq 0 ]
}
only_absolute_folders() {
  local folder
  while IFS= read -r -d: folder; do
    [[ $folder == [/$]* ]] || return 1
  done < <(sed -nE 's/.*R(UN)?PATH.*\[(.*)\]/\2:/p' <<<"$dynamic")
}

# Entry points aside, every function with a plain name is one of the compatibility layer.
reaches_own_functions() {
  local functions relocations
  functions=$(nm -D --defined-only "$library" |
    awk '$2 == "T" && $3 !~ /^(_Z|Kalo|Fenu|StartIo)/ {print $3}')
  relocations=$(readelf -rW "$library" | awk '{print $5}')
  [ "$(wc -l <<<"$functions")" -gt 80 ] && ! grep -qxF "$functions" <<<"$relocations"
}

check "the SONAME is libkalodll.so" has "$dynamic" 'SONAME.*\[libkalodll\.so\]'
check "symbols are bound at load" has "$dynamic" 'BIND_NOW|FLAGS_1.*NOW'
check "the relocated data are read-only after load" relro_ends_on_16k
check "the stack is not executable" has "$segments" 'GNU_STACK .* RW +0'
check "there are no text relocations" lacks "$dynamic" 'TEXTREL'
check "segments are aligned for 16 KiB pages" aligned_for_16k
check "no C++ runtime is needed from outside" lacks "$dynamic" 'NEEDED.*(libstdc\+\+|libc\+\+)'
check "no dependency is looked for in the current folder" only_absolute_folders
check "data is found where a program has copied it" lacks "$dynamic" 'SYMBOLIC'
check "a program's functions do not replace the compatibility layer's" reaches_own_functions
exit "$status"
