#!/usr/bin/env bash
# Boots Debian's kernel in an emulated machine, and runs the exchange suite there against a true
# character device "/dev/zuli". Installs only Debian packages, but not the kernel.
#
#   scripts/vm-test.sh [BUILD FOLDER]      (default: build/release, which is built first)
#
# Exit status: 0 passed, 1 failed, 77 skipped, with the reason.
set -euo pipefail
cd "$(dirname "$0")/.."

limit=120  # seconds
skip() { echo "vm-test: SKIPPED: $1"; exit 77; }

[ "$(uname -m)" = x86_64 ] || skip "the binaries are built for $(uname -m), the machine is x86_64"
scripts/setup.sh vm || skip "qemu and its helpers cannot be installed (scripts/setup.sh vm)"

build=${1:-build/release}
if [ $# -eq 0 ]; then
  scripts/setup.sh test
  cmake --preset release -DKALODLL_BUILD_TOOLS=ON -DKALODLL_BUILD_TESTS=ON >/dev/null
  cmake --build "$build" --target kalodll zulisim zulisim_preload kaloctl device_program >/dev/null
fi
build=$(cd "$build" && pwd)

# The kernel and its modules stay below build/ for the next run.
kernel=$(apt-cache depends linux-image-cloud-amd64 2>/dev/null |
  sed -n 's/^ *Depends: \(linux-image-[0-9].*\)$/\1/p' | head -n 1)
[ -n "$kernel" ] || skip "no package linux-image-cloud-amd64 is known here"
cache=$PWD/build/vm/$kernel
if ! [ -e "$cache/complete" ]; then
  rm -rf "$cache"
  mkdir -p "$cache/unpacked"
  (cd "$cache" && apt-get download "$kernel" >/dev/null 2>&1) || skip "$kernel cannot be downloaded"
  dpkg-deb -x "$cache"/*.deb "$cache/unpacked"
  mv "$cache"/unpacked/boot/vmlinuz-* "$cache/vmlinuz"
  for module in fuse cuse; do  # in the order of loading
    find "$cache/unpacked" -name "$module.ko*" -exec mv {} "$cache/" \;
    [ -e "$cache/$module.ko" ] || skip "$kernel has no plain module $module"
  done
  rm -rf "$cache/unpacked" "$cache"/*.deb
  touch "$cache/complete"
fi

# The machine's first file system holds the programs and their libraries, at the same paths as here.
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/tree"/{bin,proc,sys,dev,tmp,data,etc,suite}
programs=("$build/bin/zulisim" "$build/bin/kaloctl" "$build/tests/simulator/device_program")
files=("${programs[@]}" "$build/bin/libzulisim_preload.so")
for file in "${files[@]}"; do
  cp -L --parents "$file" "$root/tree"
  ldd "$file" | sed -n 's/^.*[[:space:]]\(\/[^ ]*\) (.*$/\1/p'
done | sort -u | while read -r library; do cp -L --parents "$library" "$root/tree"; done
cp /bin/busybox "$root/tree/bin/"
cp "$cache"/*.ko tests/simulator/exchange_suite.* "$root/tree/suite/"
# Runs the suite here with the preload library. The machine compares its own results with these.
options=($(<tests/simulator/exchange_suite.options))
"$build/bin/zulisim" run -q --connection-numbers --transcript "$root/tree/suite/transcript.preload" \
  "${options[@]}" -- tests/simulator/exchange_suite.sh "${programs[2]}" "${programs[1]}" \
  >"$root/tree/suite/out.preload" 2>&1
cp tests/simulator/machine_init.sh "$root/tree/init"
printf '%s\n' "${programs[@]}" >"$root/tree/suite/programs"
(cd "$root/tree" && find . | cpio --quiet -o -H newc | gzip -1) >"$root/initrd"

start=$(date +%s)
timeout "$limit" qemu-system-x86_64 -accel tcg -cpu max -m 512 -nodefaults \
  -no-reboot -display none -serial stdio -kernel "$cache/vmlinuz" -initrd "$root/initrd" \
  -append "console=ttyS0 quiet loglevel=3 panic=-1 mitigations=off" </dev/null >"$root/console" 2>&1 ||
  echo "vm-test: the machine did not stop within $limit seconds"
tr -d '\r' <"$root/console" | sed -n 's/^machine: /  /p'
if ! grep -q '^machine: passed' "$root/console"; then
  tail -n 20 "$root/console"
  echo "vm-test: FAILED under $kernel"
  exit 1
fi
echo "vm-test: passed under $kernel in $(($(date +%s) - start)) seconds"
