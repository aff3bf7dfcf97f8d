#!/usr/bin/env bash
# Compares the system headers and functions that the built library uses with a list. Its own code and
# the C++ runtime inside it have separate sections.
#   imported_functions.sh BUILD_FOLDER CONFIGURATION COMPILER_FLAGS
set -euo pipefail
build=$1 root=$(dirname "$0")/.. runtime=libstdc++
[[ $3 != *-stdlib=libc++* ]] || runtime=libc++
list=$root/api/imports.txt

section() { awk -v wanted="[$1]" '/^\[/ {on = $0 == wanted; next} on && NF && !/^#/' "$list"; }
# The C library of this machine adds a prefix to some standard names.
plain() { sed -E 's/@.*//; s/^__isoc[0-9]+_//' | LC_ALL=C sort -u; }
reject() { # reject WHAT ALLOWED: rejects every line of standard input that is not in ALLOWED
  local unknown
  unknown=$(LC_ALL=C comm -23 - <(LC_ALL=C sort -u <<<"$2"))
  [ -z "$unknown" ] && return
  echo "$1 but not in $list:" $unknown
  exit 1
}

included=$(grep -rhoE '^ *# *include *<[^>]*\.h>' "$root"/{api,transport,log,oscl} |
  sed -E 's/.*<(.*)>/\1/' | LC_ALL=C sort -u)
[ -n "$included" ] || { echo "the sources under $root include nothing"; exit 1; }
reject "included by the library" "$(section headers)" <<<"$included"

mapfile -t files < <(find "$build/CMakeFiles/kalodll.dir" -name '*.o')
[ "${#files[@]}" -gt 20 ] || { echo "only ${#files[@]} objects under $build"; exit 1; }
own=$(section "own code"; section "host names"; section "Android names")
defined=$(nm --defined-only -f posix "${files[@]}" 2>/dev/null | awk 'NF >= 2 {print $1}' | plain)

# C++ names and functions that the compiler calls belong to the runtime.
called=$(nm --undefined-only -f posix "${files[@]}" | awk 'NF == 2 {print $1}' |
  grep -vE '^(_Z|_Unwind_|__cxa_|__gxx_|__clang_call|_GLOBAL_OFFSET_TABLE_|__dso_handle|DW\.ref)' | plain)
[ -n "$called" ] || { echo "the objects under $build call nothing"; exit 1; }
reject "called by the library's own code" "$own"$'\n'"$defined" <<<"$called"

imported=$(nm -D --undefined-only "$build/libkalodll.so" | awk '{print $2}' | plain)
reject "imported by the library" "$own"$'\n'"$(section "runtime $runtime")" <<<"$imported"
