#!/bin/busybox sh
# The first process of the virtual machine that scripts/vm-test.sh starts. Its messages begin with
# "machine: ".
/bin/busybox --install -s /bin
export PATH=/bin
mount -t proc proc /proc
mount -t sysfs sysfs /sys
mount -t devtmpfs devtmpfs /dev
{ read -r zulisim; read -r kaloctl; read -r program; } </suite/programs
failures=0

say() { echo "machine: $1"; }
fail() { say "FAILED: $1"; failures=$((failures + 1)); }
same() { cmp -s "$1" "$2" || { diff "$1" "$2" | head -n 20; fail "$1 and $2 differ"; }; }
serve() {  # OPTIONS...: starts a server of the device, and waits until it serves
  "$zulisim" serve --cuse "$@" 2>/tmp/served &
  engine=$!
  for i in $(seq 100); do grep -q serving /tmp/served && return; sleep 0.1; done
  cat /tmp/served
  fail "serve --cuse did not start"
}

suite() {  # ARGUMENTS of zulisim...
  "$zulisim" "$@" -q --device fuse -- /bin/sh /suite/exchange_suite.sh "$program" "$kaloctl" \
    >/tmp/out.$1 2>/tmp/err || { cat /tmp/err; fail "the suite, $1: exit status $?"; }
}

say "$(uname -sr)"
insmod /suite/fuse.ko && insmod /suite/cuse.ko || fail "cannot load a module"

# The suite gives the same results as through the preload library.
options=$(cat /suite/exchange_suite.options)
serve -q --connection-numbers --transcript /tmp/transcript.cuse $options
[ "$(stat -c '%F %a' /dev/zuli)" = "character special file 666" ] || fail "not every user can open /dev/zuli"
sh /suite/exchange_suite.sh "$program" "$kaloctl" >/tmp/out.cuse 2>&1
kill -INT $engine
wait $engine || fail "serve --cuse: exit status $? after SIGINT"
[ -e /dev/zuli ] && fail "/dev/zuli still exists"
# Records the character device and replays the recording. Both programs run in a file tree of their
# own.
serve -q $options
suite record -o /tmp/recording
kill -INT $engine
wait $engine
suite replay /tmp/recording
# The preload library cannot serve the static shell here, so its suite ran outside.
same /suite/transcript.preload /tmp/transcript.cuse
for results in /suite/out.preload /tmp/out.record /tmp/out.replay; do same $results /tmp/out.cuse; done
operations=$(wc -l </tmp/transcript.cuse)
[ "$operations" -gt 80 ] || fail "the suite made only $operations operations"
[ "$failures" -eq 0 ] && say "passed: $operations operations, the same transcript through cuse and preload"
poweroff -f
