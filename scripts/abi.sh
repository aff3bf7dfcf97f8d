#!/usr/bin/env bash
# Compares the library's binary interface with api/abi-baseline.xml: functions, data, and the layouts
# that they use. Reports additions; fails if anything was changed or removed.
#
#   scripts/abi.sh [--update]      (--update rewrites the baseline)
set -euo pipefail
cd "$(dirname "$0")/.."

case "${1:-}" in
  "" | --update) ;;
  *) echo "abi.sh: unknown option '$1'; expected --update or no option" >&2; exit 2 ;;
esac
[ $# -le 1 ] || { echo "abi.sh: too many arguments; expected at most --update" >&2; exit 2; }

scripts/setup.sh build abi
tree=build/abi
baseline=api/abi-baseline.xml
# Unoptimised with debug information, and without this machine's paths, so that any machine with
# the same compiler gets the same description.
cmake -G Ninja -B "$tree" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=g++ \
  -DCMAKE_CXX_FLAGS="-ffile-prefix-map=$PWD/=" \
  -DKALODLL_BUILD_TESTS=OFF -DKALODLL_BUILD_TOOLS=OFF >/dev/null
cmake --build "$tree" >"$tree/build.log" || { cat "$tree/build.log" >&2; exit 1; }
rm -rf "$tree/stage"
cmake --install "$tree" --prefix "$tree/stage" >/dev/null
abidw --headers-dir "$tree/stage/include/kalodll" --suppressions api/abi-baseline.supp \
  --exported-interfaces-only --no-show-locs --no-comp-dir-path --no-corpus-path \
  --out-file "$tree/abi.xml" "$tree/libkalodll.so"

if [ "${1:-}" = --update ]; then
  cp "$tree/abi.xml" "$baseline"
  echo "abi.sh: $baseline written"
  exit 0
fi

# Succeeds if the library has everything in $1 unchanged.
unchanged() { abidiff --no-added-syms "$1" "$tree/abi.xml"; }

# The check must notice a removed function, a moved field and a changed parameter type, or it would
# check nothing.
for change in 's/FenuCleanup3/FenuCleanup4/' \
              "s/layout-offset-in-bits='25504'/layout-offset-in-bits='25568'/" \
              "/function-decl name='StartIo3'/,/function-decl>/s/\(type-id-[0-9]*\)' name='outputLength'/\10' name='outputLength'/"; do
  sed "$change" "$baseline" >"$tree/doctored.xml"
  if cmp -s "$baseline" "$tree/doctored.xml" || unchanged "$tree/doctored.xml" >/dev/null 2>&1; then
    echo "abi.sh: the check does not notice this change: $change" >&2
    exit 1
  fi
done

if ! unchanged "$baseline"; then
  echo "abi.sh: the binary interface has changed. Drivers are built against it: restore it." >&2
  exit 1
fi
abidiff "$baseline" "$tree/abi.xml" || echo "abi.sh: the library has additions; run scripts/abi.sh --update"
echo "abi.sh: $(grep -c '<elf-symbol' "$baseline") symbols and their types match $baseline"
