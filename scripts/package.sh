#!/usr/bin/env bash
# Makes Debian packages of the library and of the tools, unpacks them into an empty tree, and runs the
# demonstration from there, its driver built against what was unpacked.
#
#   scripts/package.sh      leaves the packages in build/package/packages
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh build package
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
quietly() { "$@" >"$tree/output" 2>&1 || { cat "$tree/output" >&2; exit 1; }; }
quietly cmake --preset release -B build/package -DCMAKE_INSTALL_PREFIX=/usr \
  -DKALODLL_BUILD_TOOLS=ON -DKALODLL_BUILD_TESTS=OFF
quietly cmake --build build/package
rm -rf build/package/packages
(cd build/package && quietly cpack)

packages=(build/package/packages/*.deb)
for package in "${packages[@]}"; do
  dpkg-deb --extract "$package" "$tree"
  dpkg-deb --field "$package" Package Version Depends
done
[ ${#packages[@]} -eq 2 ] || { echo "package.sh: not two packages: ${packages[*]}" >&2; exit 1; }

usr=$tree/usr
for file in share/man/man1/{zulisim,zulisim-run,kaloctl,kaloctl-registry}.1 \
  share/bash-completion/completions/{zulisim,kaloctl} share/doc/kalodll/README.md; do
  [ -s "$usr/$file" ] || [ -s "$usr/$file.gz" ] || { echo "package.sh: no /usr/$file" >&2; exit 1; }
done
"$usr/bin/zulisim" check "$usr"/share/kalodll/scenarios/*.toml >/dev/null
config=$(find "$usr/lib" -name kalodll.pc)
export PKG_CONFIG_PATH=${config%/*}
# shellcheck disable=SC2046  # words are meant
cc -std=c11 $(pkg-config --cflags kalodll) "$usr/share/doc/kalodll/examples/driver_day.c" \
  -o "$tree/driver_day" $(pkg-config --libs kalodll) -Wl,-rpath,"${config%/pkgconfig/*}"
scripts/demo.sh "$usr/bin" "$tree/driver_day"
