#!/usr/bin/env bash
# Installs a build, then builds and runs a C and a C++ driver with the installed files: with the CMake
# package, and, after moving the files, with pkg-config.
#   installed_package.sh BUILD_DIR CONFIGURATION CXX_FLAGS CC CXX
set -euo pipefail
build=$1 cxx_flags=$3 cc=$4 cxx=$5
consumer=$(dirname "$0")/package/consumer
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
quietly() { "$@" >"$folder/output" 2>&1 || { cat "$folder/output"; exit 1; }; }

quietly cmake --install "$build" --prefix "$folder/first"
quietly cmake -S "$consumer" -B "$folder/build" -G Ninja -DCMAKE_PREFIX_PATH="$folder/first" \
  -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$cxx_flags"
quietly cmake --build "$folder/build"
for driver in c_driver cpp_driver engine_test; do "$folder/build/$driver"; done

mv "$folder/first" "$folder/moved"
config=$(find "$folder/moved" -name kalodll.pc)
export PKG_CONFIG_PATH=${config%/*}
# shellcheck disable=SC2046  # the output must be split into words
"$cc" -std=c11 $(pkg-config --cflags kalodll) "$consumer/driver.c" -o "$folder/pc_driver" \
  $(pkg-config --libs kalodll)
LD_LIBRARY_PATH=$(pkg-config --variable=libdir kalodll) "$folder/pc_driver"

# Each header compiles alone in C++, and also in C unless its first line excludes that.
include=$(pkg-config --variable=includedir kalodll)
mapfile -t headers < <(cd "$include" && find api transport log oscl -name '*.h')
[ ${#headers[@]} -gt 25 ] || { echo "found only ${#headers[@]} headers in $include"; exit 1; }
for header in "${headers[@]}"; do
  compile=(-fsyntax-only -pedantic -Wall -Wextra -Werror "-I$include" -include "$header" /dev/null)
  quietly "$cxx" $cxx_flags -std=c++17 -x c++ "${compile[@]}"
  case "$header" in api/kalo_dll.h) standard=c89 ;; *) standard=c99 ;; esac
  if grep -q '^/\* For C++ only. \*/$' "$include/$header"; then
    errors=$("$cc" -std=$standard -x c "${compile[@]}" 2>&1 || true)
    grep -q "error: .*$header is for C++ only" <<<"$errors" || { echo "$header: $errors"; exit 1; }
  else
    quietly "$cc" -std=$standard -x c "${compile[@]}"
  fi
done
