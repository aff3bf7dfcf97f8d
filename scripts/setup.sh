#!/usr/bin/env bash
# Installs the Debian packages that a task needs, and nothing that is already there.
#
#   scripts/setup.sh [build|test|bench|fuzz|abi|fuse|vm|lint|coverage|package|browser|all]...      (default: build)
#
# A browser is not among all: it is large, and only a picture of a report needs it.
#
# Without root the packages are only checked for, and the missing ones are named.
set -euo pipefail

build=(cmake ninja-build g++ pkg-config android-liblog-dev libcli11-dev libfmt-dev
       libtomlplusplus-dev nlohmann-json3-dev libfuse3-dev help2man)
test=(googletest binutils python3 clang-14 lld-14 libc++-14-dev libc++abi-14-dev)
bench=(libbenchmark-dev libgoogle-glog-dev libspdlog-dev libtss2-dev valgrind binutils python3)
fuzz=(clang-14 llvm-14 libclang-rt-14-dev libgmock-dev)
abi=(abigail-tools clang-14 libc++-14-dev libc++abi-14-dev)
fuse=(fuse3)
vm=(qemu-system-x86 busybox-static cpio)
coverage=(gcovr)
browser=(chromium fonts-dejavu-core)
lint=(clang-format clang-tidy)
package=(dpkg-dev file)

wanted=()
for group in "${@:-build}"; do
  case "$group" in
    build) wanted+=("${build[@]}") ;;
    test) wanted+=("${build[@]}" "${test[@]}") ;;
    bench) wanted+=("${build[@]}" "${bench[@]}") ;;
    fuzz) wanted+=("${build[@]}" "${fuzz[@]}") ;;
    abi) wanted+=("${build[@]}" "${abi[@]}") ;;
    fuse) wanted+=("${build[@]}" "${fuse[@]}") ;;
    lint) wanted+=("${lint[@]}") ;;
    vm) wanted+=("${build[@]}" "${vm[@]}") ;;
    coverage) wanted+=("${build[@]}" "${coverage[@]}") ;;
    package) wanted+=("${package[@]}") ;;
    browser) wanted+=("${build[@]}" "${browser[@]}") ;;
    all)
      wanted+=("${build[@]}" "${test[@]}" "${bench[@]}" "${fuzz[@]}" "${abi[@]}" "${fuse[@]}" "${vm[@]}" "${lint[@]}"
              "${coverage[@]}" "${package[@]}")
      ;;
    *) echo "setup.sh: unknown group '$group': build, test, bench, fuzz, abi, fuse, vm, lint, coverage, package, browser or all is expected" >&2; exit 2 ;;
  esac
done

missing=()
for package in "${wanted[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$package")
done
[ "${#missing[@]}" -eq 0 ] && exit 0

if [ "$(id -u)" -eq 0 ]; then as_root=(); elif command -v sudo >/dev/null; then as_root=(sudo)
else
  echo "setup.sh: run as root, or install first: ${missing[*]}" >&2
  exit 1
fi
echo "Installing: ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp)
trap 'rm -f "$log"' EXIT
for step in "update" "install -y --no-install-recommends ${missing[*]}"; do
  # shellcheck disable=SC2086  # words are meant
  "${as_root[@]}" apt-get -q $step >"$log" 2>&1 || {
    cat "$log" >&2
    echo "setup.sh: apt-get $step has failed" >&2
    exit 1
  }
done
