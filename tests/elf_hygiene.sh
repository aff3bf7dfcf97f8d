#!/usr/bin/env bash
# Checks the layout and the hardening of the library, the preload library and the tools against the
# rules of the platform.
#   elf_hygiene.sh BUILD_FOLDER CONFIGURATION
set -euo pipefail
build=$1 configuration=$2
library=$build/libkalodll.so
status=0
check() { # check DESCRIPTION COMMAND...
  if "${@:2}"; then echo "ok: $1"; else echo "FAILED: $1"; status=1; fi
}
has() { grep -qE "$1" <<<"$tables"; }
lacks() { ! has "$@"; }

aligned_for_16k() { [ "$(awk '$1 == "LOAD" {print $NF}' <<<"$tables" | sort -u)" = 0x4000 ]; }
relro_ends_on_16k() {
  local address size
  read -r address size < <(awk '$1 == "GNU_RELRO" {print $3, $6}' <<<"$tables")
  [ -n "$address" ] && [ $(((address + size) % 0x4000)) -eq 0 ]
}
only_folders() { # only_folders PATTERN: every folder in the search path matches
  ! sed -nE 's/.*R(UN)?PATH.*\[(.*)\]/\2/p' <<<"$tables" | tr : '\n' | grep -vE "$1"
}

# Except for the entry points, every function with a C name belongs to the compatibility layer.
reaches_own_functions() {
  local functions
  functions=$(nm -D --defined-only "$library" |
    awk '$2 == "T" && $3 !~ /^(_Z|Kalo|Fenu|StartIo)/ {print $3}')
  [ "$(wc -l <<<"$functions")" -gt 80 ] &&
    ! grep -qxF "$functions" <(readelf -rW "$library" | awk '{print $5}')
}

for file in "$build"/bin/{libzulisim_preload.so,zulisim,kaloctl} "$library"; do
  name=${file##*/}
  tables=$(readelf -hdlW "$file" && nm -D --undefined-only "$file")
  check "$name: loads at any address" has 'Type: +DYN'
  check "$name: symbols are bound at load" has 'BIND_NOW|FLAGS_1.*NOW'
  check "$name: the relocated data are read-only after load" has 'GNU_RELRO'
  check "$name: the stack is not executable" has 'GNU_STACK .* RW +0'
  check "$name: it has no text relocations" lacks 'TEXTREL'
  check "$name: stack protection is used" has ' __stack_chk_fail'
  [ "$file" = "$library" ] ||
    check "$name: dependencies are searched only beside it" only_folders '^\$ORIGIN(/|$)'
done

# The last tables are those of the library.
[ "$configuration" = Debug ] || check "calls are fortified" has ' __[a-z]+_chk(@|$)'
check "the SONAME is libkalodll.so" has 'SONAME.*\[libkalodll\.so\]'
check "the relocated data end at a multiple of 16 KiB" relro_ends_on_16k
check "segments are aligned for 16 KiB pages" aligned_for_16k
check "the library does not need another C++ runtime" lacks 'NEEDED.*(libstdc\+\+|libc\+\+)'
check "dependencies are searched only in the system's folders" only_folders '^/usr/lib/'
check "the library uses the program's copies of its data" lacks 'SYMBOLIC'
check "a program's functions do not replace the compatibility layer's" reaches_own_functions

# A linked file does not show these: libc's start-up objects may lack the mark that all objects need,
# and a program may have no frame that needs a probe.
shipped='CMakeFiles/(kalodll|kalodll_common|zulisim(_[a-z]+)?|kaloctl(_core)?)\.dir/'
mapfile -t objects < <(grep -oE -- "-o [^ ]*$shipped[^ ]*" "$build/compile_commands.json" | cut -c4-)
marked=$(cd "$build" && readelf -nW "${objects[@]}" | grep -c 'x86 feature: IBT, SHSTK') || true
[ "$configuration" = Debug ] || fortify='-D_FORTIFY_SOURCE=2 '
protected=$(grep -cE -- "-fstack-protector-strong -fstack-clash-protection .*${fortify-}.*-o [^ ]*$shipped" \
  "$build/compile_commands.json") || true
check "the objects are found" [ "${#objects[@]}" -gt 70 ]
check "every object is marked for control-flow protection" [ "$marked" -eq "${#objects[@]}" ]
check "every object protects and probes the stack, and fortifies its calls" [ "$protected" -eq "${#objects[@]}" ]
exit "$status"
