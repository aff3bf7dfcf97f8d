#!/usr/bin/env bash
# Builds Debian packages of the library and of the tools from the release preset, checks them with
# lintian, unpacks them into an empty tree, and runs the demo there with a driver built against the
# unpacked files.
#
#   scripts/package.sh [MAINTAINER]      leaves the packages in build/packages
#
# MAINTAINER is 'Name <address>'; the default is "$DEBFULLNAME <$DEBEMAIL>".
set -euo pipefail
cd "$(dirname "$0")/.."

maintainer=${1:-${DEBFULLNAME:-} <${DEBEMAIL:-}>}
if ! [[ $maintainer =~ ^[^\<]+\ \<[^@]+@[^@]+\>$ ]]; then
  echo "package.sh: '$maintainer' is not a maintainer; give 'Name <address>'," \
    "or set DEBFULLNAME and DEBEMAIL" >&2
  exit 2
fi
scripts/setup.sh build package
tree=$(mktemp -d)
trap 'rm -rf "$tree"' EXIT
quietly() { "$@" >"$tree/output" 2>&1 || { cat "$tree/output" >&2; exit 1; }; }
quietly cmake --preset release -DKALODLL_BUILD_TOOLS=ON
quietly cmake --build --preset release
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' build/release/CMakeCache.txt)
printf 'kalodll (%s) unstable; urgency=medium\n\n  * See CHANGELOG.md.\n\n -- %s  %s\n' "$version" \
  "$maintainer" "$(date -R -u -d "@${SOURCE_DATE_EPOCH:-$(date +%s)}")" |
  gzip -9n >build/release/changelog.gz
rm -rf build/packages
quietly cpack --config build/release/CPackConfig.cmake -B build/packages \
  -D CPACK_PACKAGE_CONTACT="$maintainer"

packages=(build/packages/*.deb)
for package in "${packages[@]}"; do
  dpkg-deb --extract "$package" "$tree"
  dpkg-deb --field "$package" Package Version Depends
done
[ ${#packages[@]} -eq 2 ] || { echo "package.sh: expected two packages, found: ${packages[*]}" >&2; exit 1; }

# Only errors fail the build. Warnings matter only to a maintainer who publishes the packages.
lintian --fail-on error "${packages[@]}" >"$tree/lintian" || {
  grep '^E:' "$tree/lintian" >&2
  echo "package.sh: lintian reports errors in the packages" >&2
  exit 1
}

usr=$tree/usr
for file in share/man/man1/{zulisim,zulisim-run,kaloctl,kaloctl-registry}.1 \
  share/bash-completion/completions/{zulisim,kaloctl} share/doc/kalodll/README.md; do
  [ -s "$usr/$file" ] || [ -s "$usr/$file.gz" ] || { echo "package.sh: the packages lack /usr/$file" >&2; exit 1; }
done
# Every link of an installed page leads to an installed file.
while IFS=: read -r page link; do
  target=${link#*](}
  target=${target%%[#)]*}
  [ -e "${page%/*}/$target" ] || { echo "package.sh: ${page#"$tree"}: dead link: $link" >&2; exit 1; }
done < <(grep -roE --include='*.md' '\]\([[:alnum:]./_-]+(#[^)]*)?\)' "$usr/share/doc")
"$usr/bin/zulisim" check "$usr"/share/kalodll/scenarios/*.toml >/dev/null
config=$(find "$usr/lib" -name kalodll.pc)
export PKG_CONFIG_PATH=${config%/*}
# shellcheck disable=SC2046  # words are meant
cc -std=c11 $(pkg-config --cflags kalodll) "$usr/share/doc/kalodll/examples/demo_driver.c" \
  -o "$tree/demo_driver" $(pkg-config --libs kalodll) -Wl,-rpath,"${config%/pkgconfig/*}"
scripts/demo.sh "$usr/bin" "$tree/demo_driver"
