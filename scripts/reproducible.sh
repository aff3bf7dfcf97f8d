#!/usr/bin/env bash
# Run this before a release. Builds the shipped files again from a copy of the sources in a deeper
# folder, without a compiler cache, and compares them with the release preset's build.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh build

targets=(kalodll zulisim_preload zulisim kaloctl)
files=(libkalodll.so bin/libzulisim_preload.so bin/zulisim bin/kaloctl)
cmake --preset release >/dev/null
cmake --build --preset release --target "${targets[@]}" | tail -n 1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
copy=$work/a/folder/that/is/deeper/than/the/other
mkdir -p "$copy"
git ls-files -z | tar -c --null --files-from=- | tar -x -C "$copy"
unset CMAKE_C_COMPILER_LAUNCHER CMAKE_CXX_COMPILER_LAUNCHER
(cd "$copy"
 cmake --preset release -DKALODLL_BUILD_TESTS=OFF >/dev/null
 cmake --build --preset release --target "${targets[@]}" | tail -n 1)

for file in "${files[@]}"; do
  cmp "build/release/$file" "$copy/build/release/$file" || {
    echo "reproducible.sh: $file depends on the build folder or on the time" >&2
    exit 1
  }
done
echo "reproducible.sh: ${#files[@]} files are identical"
