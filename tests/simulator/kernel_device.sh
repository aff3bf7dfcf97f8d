#!/usr/bin/env bash
# One suite of exchanges through the preload library and through the kernel's FUSE, which must give
# the same; what ends while a device is served must leave nothing. Exit status 77: no FUSE here.
#
#   kernel_device.sh ZULISIM DEVICE_PROGRAM STATIC_DEVICE_PROGRAM KALOCTL
set -uo pipefail
zulisim=$1 program=$2 static=$3 kaloctl=$4
here=$(cd "$(dirname "$0")" && pwd)
if ! [ -w /dev/fuse ]; then echo "SKIPPED: there is no /dev/fuse to write to"; exit 77; fi
if ! unshare -m true 2>/dev/null && ! unshare -Urm true 2>/dev/null; then
  echo "SKIPPED: neither this user nor an unprivileged user namespace may mount"; exit 77
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
chmod 755 "$folder"
mkdir -m 777 "$folder/tmp" "$folder/mount"
export TMPDIR=$folder/tmp
failures=0

complain() { echo "FAILED: $1"; failures=$((failures + 1)); }
same() { diff "$1" "$2" || complain "$1 and $2 differ"; }
holds() { grep -qF -- "$2" "$1" || { cat "$1"; complain "$1 lacks '$2'"; }; }
nothing_left() {
  local i
  for i in $(seq 50); do  # the clean-up after a SIGKILL takes its time
    [ -z "$(ls -A "$folder/tmp" "$folder/mount" | grep -v :)" ] && ! grep -q zulisim /proc/mounts && return
    sleep 0.1
  done
  ls -A "$folder/tmp" "$folder/mount"
  grep zulisim /proc/mounts
  complain "$1: something is left"
}
wait_for() {  # FILE TEXT
  local i
  for i in $(seq 100); do grep -qsF -- "$2" "$1" && return; sleep 0.1; done
  complain "$1 never showed '$2'"
}

mapfile -t options <"$here/exchange_suite.options"
for device in preload fuse; do
  timeout 60 "$zulisim" run -q --device $device --connection-numbers \
    --transcript "$folder/transcript.$device" "${options[@]}" \
    -- "$here/exchange_suite.sh" "$program" "$kaloctl" >"$folder/out.$device" 2>&1 ||
    complain "the suite under $device: exit status $?"
done
same "$folder/transcript.preload" "$folder/transcript.fuse"
same "$folder/out.preload" "$folder/out.fuse"
[ "$(wc -l <"$folder/transcript.fuse")" -gt 80 ] || complain "the transcript is too short"

# A statically linked program, in a file tree of its own whose log and registry are the root's.
mkdir -p "$folder/root/etc"
echo here >"$folder/root/etc/vrel_registry.txt"
run_static() {
  timeout 20 "$@" "$zulisim" run --device fuse --root "$folder/root" -- "$static" \
    open connect write:64 read:4096 read:16 close log >"$folder/out.static" 2>&1
}
run_static env || complain "the static program: exit status $?"
holds "$folder/out.static" 'read:16: errno 11'
holds "$folder/out.static" '   6  #1     KALO  close    ok'
[ "$(cat "$folder/root/data/Marvoleth.log")" = "a line" ] || complain "the log is not in the root"
"$zulisim" run -q --device fuse --root "$folder/root" -- cat /etc/vrel_registry.txt >"$folder/out"
holds "$folder/out" here
[ -e /data/Marvoleth.log ] && [ /data/Marvoleth.log -nt "$folder/root" ] && complain "the log leaked"
if [ "$(id -u)" -eq 0 ] && setpriv --reuid 65534 --clear-groups unshare -Urm test -x "$zulisim"; then
  chmod -R a+rwX "$folder/root"
  run_static setpriv --reuid 65534 --regid 65534 --clear-groups ||
    complain "the static program without root: exit status $?"
  holds "$folder/out.static" 'read:4096: 64'
else
  echo "not run as another user: a user namespace is not to be had, or the build is not to be read"
fi

# The kernel splits what has more pieces than it carries: never into two messages.
"$zulisim" run --device fuse -- "$program" open connect pieces:300 read:300 read:300 close \
  >"$folder/out" 2>&1
holds "$folder/out" 'the kernel has split a write'
holds "$folder/out" 'read:300: 256'
holds "$folder/out" 'read:300: errno 11'

# Whatever ends the engine or the program during an exchange, the other goes on at once, with an
# error, and nothing is left. A client that takes a minute holds the program in its read.
slow=(--reply 'kalo:*=latency:60s')
for device in preload fuse; do
  "$zulisim" run --device $device "${slow[@]}" -- "$program" open connect write:20 read:20 close open \
    >"$folder/killed.$device" 2>"$folder/seen" &
  engine=$!
  wait_for "$folder/seen" "write    20"
  sleep 0.2
  kill -KILL $engine
  wait $engine 2>/dev/null
  wait_for "$folder/killed.$device" "open: errno"
  nothing_left "SIGKILL under $device"
  timeout 20 "$zulisim" run -q --device $device -- "$program" open connect raise:9
  [ $? -eq 137 ] || complain "a crash of the program under $device"
  (trap - INT; exec timeout -s INT 1 "$zulisim" run -q --device $device -- sleep 20)
  nothing_left "a crash and SIGINT under $device"
done
holds "$folder/killed.preload" 'read:20: errno 19'
grep -qE 'read:20: errno (103|107)' "$folder/killed.fuse" || complain "under fuse, a read gave neither ECONNABORTED nor ENOTCONN"

# A file that is served until a signal.
for signal in INT KILL; do
  "$zulisim" serve -q --fuse "$folder/mount/zuli" 2>"$folder/served" &
  engine=$!
  wait_for "$folder/served" "serves"
  # 16 bytes from an unconnected file: the engine's answer, through the kernel.
  dd if="$folder/mount/zuli" bs=16 count=1 2>"$folder/out"
  holds "$folder/out" 'not connected'
  kill -$signal $engine
  wait $engine 2>/dev/null
  status=$?
  [ $signal = KILL ] || [ $status -eq 0 ] || complain "serve: exit status $status after SIG$signal"
  nothing_left "SIG$signal to serve"
done

refused() {  # TEXT COMMAND...
  "${@:2}" >"$folder/refused" 2>&1
  [ $? -eq 125 ] || complain "not refused: ${*:2}"
  holds "$folder/refused" "$1"
}
refused "is above 1044480" "$zulisim" run --device fuse --client kalo:max=1048576 -- true
refused "does not pass ENOSYS of open" "$zulisim" run --device fuse --fault open:1=ENOSYS -- true
refused "no regular file" "$zulisim" serve --fuse "$folder"
[ -e /dev/cuse ] || refused "modprobe cuse" "$zulisim" serve --cuse

[ "$failures" -eq 0 ]
