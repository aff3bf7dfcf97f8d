#!/usr/bin/env bash
# Runs programs through the preload library or through the kernel's FUSE, and checks what is left when
# zulisim or a program ends. Exits with status 77 if FUSE is not available.
#
#   attachments.sh preload ZULISIM DEVICE_PROGRAM KALOCTL ATTACHMENT_TEST EARLY_CALL
#   attachments.sh fuse ZULISIM DEVICE_PROGRAM KALOCTL ATTACHMENT_TEST STATIC_DEVICE_PROGRAM
set -uo pipefail
device=$1 zulisim=$2 program=$3 kaloctl=$4 attachment_test=$5 early=$6 static=$6
here=$(cd "$(dirname "$0")" && pwd)
if [ $device = fuse ]; then
  [ -w /dev/fuse ] || { echo "SKIPPED: cannot write to /dev/fuse"; exit 77; }
  unshare -m true 2>/dev/null || unshare -Urm true 2>/dev/null ||
    { echo "SKIPPED: this user cannot mount, even in a user namespace"; exit 77; }
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
chmod 755 "$folder"
mkdir -m 777 "$folder/tmp" "$folder/mount"
export TMPDIR=$folder/tmp
cd "$folder" || exit
failures=0

fail() { echo "FAILED: $1"; failures=$((failures + 1)); }
same() { diff "$1" "$2" || fail "$1 and $2 differ"; }
contains() { grep -qE -- "$2" "$1" || { cat "$1"; fail "$1 lacks '$2'"; }; }
run() { timeout 60 "$zulisim" run --device $device "$@"; }
expect() {  # STATUS COMMAND...
  "${@:2}" >out 2>&1
  local status=$?
  [ $status -eq "$1" ] || fail "exit status $status, not $1: ${*:2}"
}
eventually() {  # COMMAND...
  local i
  for i in $(seq 100); do "$@" && return; sleep 0.1; done
  fail "never: $*"
}
no_mount_left() { ! grep -q "$folder" /proc/mounts; }
nothing_left() { [ -z "$(ls -A tmp mount | grep -v :)" ] && no_mount_left; }

# One suite of exchanges gives the same results on every attachment, when it is recorded, and when it
# is replayed.
mapfile -t options <"$here/exchange_suite.options"
suite() {  # NAME ARGUMENTS of zulisim...
  expect 0 timeout 60 "$zulisim" "${@:2}" -q --connection-numbers --transcript transcript.$1 \
    -- sh -c '"$@" >output' - "$here/exchange_suite.sh" "$program" "$kaloctl"
  mv output output.$1
  same output.preload output.$1
  # A recording does not contain the reason of a failure, or the meaning of a reply without status.
  sed 's/  (.*)$//; /  read  /s/bytes  .*/bytes/' transcript.$1 >bare.$1
  same bare.preload bare.$1
}
suite preload run "${options[@]}"
operations=$(wc -l <transcript.preload)
[ "$operations" -gt 80 ] || fail "the transcript is too short"
if [ $device = preload ]; then
  # Records the device of another zulisim, which the recorder opens like any program.
  suite recorded run -q "${options[@]}" -- "$zulisim" record -o recording
else
  suite $device run --device $device "${options[@]}"
  same transcript.preload transcript.$device
  suite recorded record --device $device -o recording "${options[@]}"
fi
expect 0 "$zulisim" check recording
contains out "recording: a recording of $operations operations"
suite replayed replay --device $device recording
contains out "replayed $operations operations of 'recording'"

# If zulisim or the program ends during an exchange, the other continues at once, with an error, and
# nothing is left. The reply takes a minute, so the program waits in its read.
"$zulisim" run --device $device --reply 'kalo:*=latency:60s' -- "$program" open connect write:20 \
  read:20 write:20 close open >killed 2>seen &
engine=$!
eventually grep -qs "write    20" seen
sleep 0.2
kill -KILL $engine
wait $engine 2>/dev/null
eventually grep -qs "open=errno" killed
no_mount_left || fail "a mount is left after SIGKILL"
rm -r tmp/*
expect 137 run -q -- "$program" open connect raise:9
# A process that still waits in a read when the program ends does not delay the end of zulisim. Its read
# is not recorded as finished, and it can be replayed.
left_behind() { expect 0 timeout 20 "$@" -- sh -c '"$0" open connect write:9 read:9 & sleep 0.3' "$program"; }
slow=(--reply 'kalo:*=latency:60s')
left_behind "$zulisim" record --device $device -o left.engine "${slow[@]}"
[ $device = fuse ] || left_behind "$zulisim" run -q "${slow[@]}" -- "$zulisim" record -o left.device
for left in left.*; do
  contains $left '"abandoned":true,.*"still open when the service of the device ended"'
  contains $left '"read","length":9,.*"errno":"EBADF"'
  left_behind "$zulisim" replay -q --device $device $left
done
# This test also runs in-process. Here it uses the device of this attachment.
expect 0 run -q --reply 'kalo:*=latency:60s' -- env DEVICE_IS_SERVED=1 "$attachment_test" \
  --gtest_filter='*is_a_character_device'
contains out '1 test.*PASSED|PASSED.*1 test'
# A program that reaches its limit of descriptors gets EMFILE and continues.
expect 0 bash -c 'ulimit -n 40; exec timeout 20 "$@"' - "$zulisim" run -q --device $device -- \
  bash -c '(while exec {fd}<>/dev/zuli; do :; done); "$0" open connect write:20 read:20 close' "$program"
contains out 'Too many open files'
contains out 'read:20=20'
for signal in INT TERM QUIT; do  # a read that waits for a minute does not delay the end
  (trap - INT QUIT
    exec timeout -k 3 -s $signal 1 "$zulisim" run -q --device $device "${slow[@]}" -- \
      "$program" open connect write:9 read:9) >/dev/null 2>&1
  [ $? -eq 124 ] || fail "SIG$signal did not end a read"
done
nothing_left || fail "files are left after a signal or a crash of the program"
if [ $device = preload ]; then
  expect 0 run -q -- sh -c 'LD_PRELOAD=$LD_PRELOAD:$1 exec "$0" open close' "$program" "$early"
  contains out 'open=0'
  expect 0 run -q -- sh -c 'echo >/data/Marvoleth.log && mv /data/Marvoleth.log /etc/vrel_registry.txt && rm /etc/vrel_registry.txt'
  # A system call instruction is reported and does not affect other exchanges.
  expect 0 run -q -- "$program" open connect barewrite:20 write:21 bareread:99 bareread:9 read:30 close
  contains out 'bareread:9=0'
  contains out 'read:30=21'
  [ "$(grep -c 'system calls that the preload library cannot see' out)" = 1 ] ||
    fail "a system call that bypassed the hooks was not reported"
  expect 1 run -q -- od /dev/zuli
  contains out "cannot open '/dev/zuli' as a stream: use open, read and write"
  expect 0 run -q -- env -i "$program" open
  contains out 'open=errno 2'
  contains out 'the preload library was loaded, but nothing opened'
  contains killed 'read:20=errno 19, write:20=errno 19, close=0, open=errno 19'
  exit $((failures > 0))
fi
contains killed 'read:20=errno (103|107)'  # ECONNABORTED, ENOTCONN

# A statically linked program, in its own file tree. The log and the registry are in the root folder.
mkdir -p root/etc
echo here >root/etc/vrel_registry.txt
run_static() {
  expect 0 "$@" timeout 20 "$zulisim" run --device fuse --root root -- "$static" \
    open connect write:64 read:4096 read:16 close log
  contains out 'read:16=errno 11'
  contains out '   6  #1     KALO  close    ok'
}
run_static env
[ "$(cat root/data/Marvoleth.log)" = "a line" ] || fail "the log is not in the root"
expect 0 run -q --root root -- cat /etc/vrel_registry.txt
contains out here
[ -e /data/Marvoleth.log ] && [ /data/Marvoleth.log -nt root ] && fail "the log leaked"
if [ "$(id -u)" -eq 0 ] &&
  setpriv --reuid 65534 --clear-groups unshare -Urm test -x "$zulisim" -a -w /dev/fuse; then
  chmod -R a+rwX root
  run_static setpriv --reuid 65534 --regid 65534 --clear-groups
else
  echo "SKIPPED: the run as another user, who needs a user namespace and access to the build and /dev/fuse"
fi

# A write with O_APPEND is refused: the end of its message would be unknown.
expect 1 run -- sh -c 'echo >>/dev/zuli'
contains out 'refused a write with O_APPEND'

# The kernel splits a write with too many pieces. It must not become two messages.
expect 0 run -- "$program" open connect pieces:300 read:300 read:300 close
contains out 'the kernel has split a write'
contains out 'read:300=256'
contains out 'read:300=errno 11'

# 'zulisim tell' instructs a running 'zulisim serve'.
"$zulisim" serve --only failures --fuse mount/zuli --strict --reply 'kalo:*=hold' --lose read:40 \
  --trace trace --report report 2>served.control &
engine=$!
eventually grep -qs serving served.control
"$zulisim" record -o held --from mount/zuli -- "$program" open connect write:9 read:9 >held.out 2>held.seen &
holder=$!
eventually grep -qs "write    9 bytes" held.seen
expect 0 "$zulisim" tell mount/zuli release
contains out '^1 reply released$'
eventually grep -qs 'read:9=9' held.out
wait $holder
expect 125 "$zulisim" tell mount/zuli fault open:1=ENOSYS
contains out 'does not pass ENOSYS'
kill -HUP $engine
wait $engine
[ $? -eq 122 ] || fail "serve --strict: a fault that did not happen did not fail"
contains served.control 'lose read:40: never happened in 1 read$'
for output in served.control trace report; do contains $output 'tell release'; done
grep -q ENOSYS trace && fail "a refused instruction is in the trace"
nothing_left || fail "files are left after 'zulisim tell'"

# A dead mount remains after SIGKILL, and the next 'zulisim serve' says how to remove it.
"$zulisim" serve -q --fuse mount/zuli 2>served.killed &
engine=$!
eventually grep -qs serving served.killed
expect 1 dd if=mount/zuli bs=16 count=1
contains out 'not connected'
kill -KILL $engine
wait $engine 2>/dev/null
expect 125 "$zulisim" serve --fuse mount/zuli
contains out "umount .*mount/zuli'"
umount mount/zuli
rm mount/zuli*

expect 125 run --client kalo:max=1044481 -- true
contains out "is above 1044480"
expect 125 run --fault open:1=ENOSYS -- true
contains out "does not pass ENOSYS of open"
expect 125 "$zulisim" serve --fuse mount
contains out "not a regular file"
[ -e /dev/cuse ] || { expect 125 "$zulisim" serve --cuse; contains out "modprobe cuse"; }

[ "$failures" -eq 0 ]
