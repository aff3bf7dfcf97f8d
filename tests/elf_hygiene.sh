#!/usr/bin/env bash
# Checks the layout and the hardening of the library, the preload library and the tools against the
# rules of the platform.
#   elf_hygiene.sh BUILD_FOLDER CONFIGURATION
set -euo pipefail
build=$1 configuration=$2
library=$build/libkalodll.so
status=0
check() { # check DESCRIPTION COMMAND...
  local description=$1
  shift
  if "$@"; then echo "ok: $description"; else echo "FAILED: $description"; status=1; fi
}
has() { grep -qE "$2" <<<"$1"; }
lacks() { ! has "$@"; }
read_file() { # read_file FILE: reads the tables that the checks use
  dynamic=$(readelf -dW "$1")
  segments=$(readelf -lW "$1")
  imports=$(nm -D --undefined-only "$1")
}

aligned_for_16k() { [ "$(awk '$1 == "LOAD" {print $NF}' <<<"$segments" | sort -u)" = 0x4000 ]; }
relro_ends_on_16k() {
  local address size
  read -r address size < <(awk '$1 == "GNU_RELRO" {print $3, $6}' <<<"$segments")
  [ -n "$address" ] && [ $(((address + size) % 0x4000)) -eq 0 ]
}
only_folders() { # only_folders PATTERN: every folder in the search path matches
  ! sed -nE 's/.*R(UN)?PATH.*\[(.*)\]/\2/p' <<<"$dynamic" | tr : '\n' | grep -vE "$1"
}

# Except for the entry points, every function with a C name belongs to the compatibility layer.
reaches_own_functions() {
  local functions relocations
  functions=$(nm -D --defined-only "$library" |
    awk '$2 == "T" && $3 !~ /^(_Z|Kalo|Fenu|StartIo)/ {print $3}')
  relocations=$(readelf -rW "$library" | awk '{print $5}')
  [ "$(wc -l <<<"$functions")" -gt 80 ] && ! grep -qxF "$functions" <<<"$relocations"
}

read_file "$library"
check "the SONAME is libkalodll.so" has "$dynamic" 'SONAME.*\[libkalodll\.so\]'
check "the relocated data end at a multiple of 16 KiB" relro_ends_on_16k
check "segments are aligned for 16 KiB pages" aligned_for_16k
check "the library does not need another C++ runtime" lacks "$dynamic" 'NEEDED.*(libstdc\+\+|libc\+\+)'
check "dependencies are searched only in the system's folders" only_folders '^/usr/lib/'
check "the library uses the program's copies of its data" lacks "$dynamic" 'SYMBOLIC'
check "a program's functions do not replace the compatibility layer's" reaches_own_functions

for file in "$library" "$build"/bin/{libzulisim_preload.so,zulisim,kaloctl}; do
  name=${file##*/}
  read_file "$file"
  check "$name: loads at any address" has "$(readelf -hW "$file")" 'Type: +DYN'
  check "$name: symbols are bound at load" has "$dynamic" 'BIND_NOW|FLAGS_1.*NOW'
  check "$name: the relocated data are read-only after load" has "$segments" 'GNU_RELRO'
  check "$name: the stack is not executable" has "$segments" 'GNU_STACK .* RW +0'
  check "$name: it has no text relocations" lacks "$dynamic" 'TEXTREL'
  check "$name: stack protection is used" has "$imports" ' __stack_chk_fail'
  [ "$configuration" = Debug ] || check "$name: calls are fortified" has "$imports" ' __[a-z]+_chk'
  [ "$file" = "$library" ] ||
    check "$name: dependencies are searched only beside it" only_folders '^\$ORIGIN(/|$)'
done
# A linked file does not show these: libc's start-up objects may lack the mark that all objects need,
# and a program may have no frame that needs a probe.
shipped='CMakeFiles/(kalodll|kalodll_common|zulisim(_[a-z]+)?|kaloctl(_core)?)\.dir/'
mapfile -t objects < <(find "$build" -name '*.o' | grep -E "$shipped")
marked=$(readelf -nW "${objects[@]}" | grep -c 'x86 feature: IBT, SHSTK') || true
mapfile -t commands < <(grep -E -- "-o [^ ]*$shipped" "$build/compile_commands.json")
protected=$(printf '%s\n' "${commands[@]}" |
  grep -cF -- '-fstack-protector-strong -fstack-clash-protection') || true
check "the objects are found" [ "${#objects[@]}" -gt 70 ]
check "their commands are found" [ "${#commands[@]}" -gt 70 ]
check "every object is marked for control-flow protection" [ "$marked" -eq "${#objects[@]}" ]
check "every object protects and probes the stack" [ "$protected" -eq "${#commands[@]}" ]
exit "$status"
