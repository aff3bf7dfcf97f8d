#!/usr/bin/env bash
# Installs the Debian packages that a task needs and that are not installed yet. If this system
# lacks a package, the script skips it with a message, and CMake leaves out the part that needs it.
#
#   scripts/setup.sh [GROUP]...      (default: build; groups: the names below, and all)
#
# The group browser is not part of all: it is large, and only the picture of a report needs it.
# Without root, the script only names the packages that are missing.
set -euo pipefail

# The compilers have no version here, because clang 14 and g++ 12 or later all work.
declare -A groups=(
  [build]="cmake ninja-build g++ pkg-config android-liblog-dev libcli11-dev libfmt-dev
    libtomlplusplus-dev nlohmann-json3-dev libfuse3-dev help2man"
  [test]="googletest binutils python3 fuse3 clang lld libc++-dev libc++abi-dev"
  [bench]="libbenchmark-dev libgoogle-glog-dev libspdlog-dev libtss2-dev valgrind binutils python3"
  [fuzz]="clang llvm libclang-rt-dev libgmock-dev"
  [abi]="abigail-tools"
  [vm]="qemu-system-x86 busybox-static cpio"
  [lint]="clang-format clang-tidy"
  [coverage]="gcovr"
  [package]="dpkg-dev file lintian"
  [browser]="chromium fonts-dejavu-core")

wanted=()
for group in "${@:-build}"; do
  case "$group" in
    all) members=(build test bench fuzz abi vm lint coverage package) ;;
    lint | package) members=("$group") ;;
    *) members=(build "$group") ;;
  esac
  for member in "${members[@]}"; do
    [ -n "${groups[$member]:-}" ] || {
      echo "setup.sh: unknown group '$group'; expected all or one of: ${!groups[*]}" >&2
      exit 2
    }
    # shellcheck disable=SC2206  # a list of words
    wanted+=(${groups[$member]})
  done
done

missing=()
for package in "${wanted[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || [[ " ${missing[*]} " == *" $package "* ]] ||
    missing+=("$package")
done
[ "${#missing[@]}" -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then as_root=(); elif command -v sudo >/dev/null; then as_root=(sudo)
else
  echo "setup.sh: cannot install packages: not root: install these first: ${missing[*]}" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() { # apt ARGUMENTS...
  "${as_root[@]}" apt-get -q "$@" >"$log" 2>&1 || {
    cat "$log" >&2
    echo "setup.sh: apt-get $*: failed: see above" >&2
    exit 1
  }
}

apt update
available=()
for package in "${missing[@]}"; do
  if [[ $(apt-cache policy "$package") =~ Candidate:\ [^\(] ]]; then
    available+=("$package")
  else
    echo "setup.sh: skipped the package $package: this system does not have it" >&2
  fi
done
[ "${#available[@]}" -eq 0 ] && exit 0
echo "Installing: ${available[*]}" >&2
apt install -y --no-install-recommends "${available[@]}"
