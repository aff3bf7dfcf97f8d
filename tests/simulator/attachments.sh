#!/usr/bin/env bash
# What a program meets through the preload library or through the kernel's FUSE, and what is left of
# a device whose server or program ends. Exit status 77: no FUSE here.
#
#   attachments.sh preload ZULISIM DEVICE_PROGRAM KALOCTL ATTACHMENT_TEST EARLY_CALL
#   attachments.sh fuse ZULISIM DEVICE_PROGRAM KALOCTL ATTACHMENT_TEST STATIC_DEVICE_PROGRAM
set -uo pipefail
device=$1 zulisim=$2 program=$3 kaloctl=$4 attachment_test=$5 early=$6 static=$6
here=$(cd "$(dirname "$0")" && pwd)
if [ $device = fuse ]; then
  [ -w /dev/fuse ] || { echo "SKIPPED: there is no /dev/fuse to write to"; exit 77; }
  unshare -m true 2>/dev/null || unshare -Urm true 2>/dev/null ||
    { echo "SKIPPED: neither this user nor an unprivileged user namespace may mount"; exit 77; }
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
chmod 755 "$folder"
mkdir -m 777 "$folder/tmp" "$folder/mount"
export TMPDIR=$folder/tmp
cd "$folder" || exit
failures=0

complain() { echo "FAILED: $1"; failures=$((failures + 1)); }
same() { diff "$1" "$2" || complain "$1 and $2 differ"; }
holds() { grep -qE -- "$2" "$1" || { cat "$1"; complain "$1 lacks '$2'"; }; }
run() { timeout 60 "$zulisim" run --device $device "$@"; }
expect() {  # STATUS COMMAND...
  "${@:2}" >out 2>&1
  local status=$?
  [ $status -eq "$1" ] || complain "exit status $status, not $1: ${*:2}"
}
eventually() {  # COMMAND...
  local i
  for i in $(seq 100); do "$@" && return; sleep 0.1; done
  complain "never: $*"
}
no_mount_left() { ! grep -q "$folder" /proc/mounts; }
nothing_left() { [ -z "$(ls -A tmp mount | grep -v :)" ] && no_mount_left; }

# One suite of exchanges gives the same however the program is attached, recorded and played back.
mapfile -t options <"$here/exchange_suite.options"
suite() {  # NAME ARGUMENTS of zulisim...
  expect 0 timeout 60 "$zulisim" "${@:2}" -q --connection-numbers --transcript transcript.$1 \
    -- sh -c '"$@" >output' - "$here/exchange_suite.sh" "$program" "$kaloctl"
  mv output output.$1
  same output.preload output.$1
  # A recording knows neither why a device failed nor what a reply is that lacks its status.
  sed 's/  (.*)$//; /  read  /s/bytes  .*/bytes/' transcript.$1 >bare.$1
  same bare.preload bare.$1
}
suite preload run "${options[@]}"
operations=$(wc -l <transcript.preload)
[ "$operations" -gt 80 ] || complain "the transcript is too short"
if [ $device = preload ]; then
  # The recorder finds its device where any program would: here it is another engine's.
  suite recorded run -q "${options[@]}" -- "$zulisim" record -o recording
else
  suite $device run --device $device "${options[@]}"
  same transcript.preload transcript.$device
  suite recorded record --device $device -o recording "${options[@]}"
fi
expect 0 "$zulisim" check recording
holds out "recording: a recording of $operations operations"
suite replayed replay --device $device recording
holds out "all $operations operations of 'recording' were replayed"
head -c -20 recording >cut
expect 123 "$zulisim" replay -q cut -- "$here/exchange_suite.sh" "$program" "$kaloctl"
holds out "cut after operation $((operations - 1))"
expect 124 "$zulisim" replay -q --device $device recording -- "$program" open connect write:65 exit
holds out 'expected  write 64 bytes, command 0x10$'
holds out 'got       write 65 bytes, command 0x10$'

# Whatever ends the engine or the program during an exchange, the other goes on at once, with an
# error, and nothing is left. A client that takes a minute holds the program in its read.
"$zulisim" run --device $device --reply 'kalo:*=latency:60s' -- "$program" open connect write:20 \
  read:20 write:20 close open >killed 2>seen &
engine=$!
eventually grep -qs "write    20" seen
sleep 0.2
kill -KILL $engine
wait $engine 2>/dev/null
eventually grep -qs "open: errno" killed
no_mount_left || complain "a mount is left after SIGKILL"
rm -r tmp/*
expect 137 run -q -- "$program" open connect raise:9
# What a program leaves behind in a read does not hold up the engine's end, is not said to have
# ended, and can be played back.
left_behind() { expect 0 timeout 20 "$@" -- sh -c '"$0" open connect write:9 read:9 & sleep 0.3' "$program"; }
slow=(--reply 'kalo:*=latency:60s')
left_behind "$zulisim" record --device $device -o left.engine "${slow[@]}"
[ $device = fuse ] || left_behind "$zulisim" run -q "${slow[@]}" -- "$zulisim" record -o left.device
for left in left.*; do
  holds $left '"abandoned":true,.*"still open when the service of the device ended"'
  holds $left '"read","length":9,.*"errno":"EBADF"'
  left_behind "$zulisim" replay -q --device $device $left
done
# The same as in-process: this case of the test runs on whatever serves the device.
expect 0 run -q --reply 'kalo:*=latency:60s' -- env DEVICE_IS_SERVED=1 "$attachment_test" \
  --gtest_filter='*is_a_character_device'
holds out '1 test.*PASSED|PASSED.*1 test'
# A program that runs into its limit learns it and goes on; many threads share what is open.
expect 0 bash -c 'ulimit -n 40; exec timeout 20 "$@"' - "$zulisim" run -q --device $device -- \
  "$program" fill:99 open connect fill:99 write:20 read:20 close
[ "$(grep -c 'fill:99: 0' out)" = 2 ] || complain "no EMFILE at a limit"
holds out 'read:20: 20'
expect 0 run -q -- "$program" open connect share:200 close
holds out 'share:200: 0'
for signal in INT TERM QUIT; do  # a read that waits for a minute does not hold up the end
  (trap - INT QUIT
    exec timeout -k 3 -s $signal 1 "$zulisim" run -q --device $device "${slow[@]}" -- \
      "$program" open connect write:9 read:9) >/dev/null 2>&1
  [ $? -eq 124 ] || complain "SIG$signal did not end a read"
done
nothing_left || complain "something is left after a signal or a crash of the program"
if [ $device = preload ]; then
  expect 0 run -q -- sh -c 'LD_PRELOAD=$LD_PRELOAD:$1 exec "$0" open close' "$program" "$early"
  holds out 'open: 0'
  # syscall(2) is served. A system call instruction is reported and harms no other exchange.
  expect 0 run -q -- "$program" open flags connect syswrite:20 sysread:20 close
  holds <(sed 's/^[^ ]*: //' out | tr '\n' ' ') '^0 2 4096 20 20 0 $'
  expect 0 run -q -- "$program" open connect barewrite:20 write:21 bareread:99 bareread:9 read:30 close
  holds out 'bareread:9: 0'
  holds out 'read:30: 21'
  [ "$(grep -c 'system calls that the preload library cannot see' out)" = 1 ] ||
    complain "no report of a system call that passed by"
  expect 1 run -q -- od /dev/zuli
  holds out "cannot open '/dev/zuli' as a stream: use open, read and write"
  expect 0 run -q -- env -i "$program" open
  holds out 'open: errno 2'
  holds out 'the preload library was loaded, but nothing opened'
  holds <(tr '\n' ' ' <killed) 'read:20: errno 19 write:20: errno 19 close: 0 open: errno 19'
  exit $((failures > 0))
fi
holds killed 'read:20: errno (103|107)'  # ECONNABORTED, ENOTCONN

# A statically linked program, in a file tree of its own whose log and registry are the root's.
mkdir -p root/etc
echo here >root/etc/vrel_registry.txt
run_static() {
  expect 0 "$@" timeout 20 "$zulisim" run --device fuse --root root -- "$static" \
    open connect write:64 read:4096 read:16 close log
  holds out 'read:16: errno 11'
  holds out '   6  #1     KALO  close    ok'
}
run_static env
[ "$(cat root/data/Marvoleth.log)" = "a line" ] || complain "the log is not in the root"
expect 0 run -q --root root -- cat /etc/vrel_registry.txt
holds out here
[ -e /data/Marvoleth.log ] && [ /data/Marvoleth.log -nt root ] && complain "the log leaked"
if [ "$(id -u)" -eq 0 ] &&
  setpriv --reuid 65534 --clear-groups unshare -Urm test -x "$zulisim" -a -w /dev/fuse; then
  chmod -R a+rwX root
  run_static setpriv --reuid 65534 --regid 65534 --clear-groups
else
  echo "SKIPPED: as another user, who lacks a user namespace, or access to the build or /dev/fuse"
fi

# The kernel splits what has more pieces than it carries: never into two messages.
expect 0 run -- "$program" open connect pieces:300 read:300 read:300 close
holds out 'the kernel has split a write'
holds out 'read:300: 256'
holds out 'read:300: errno 11'

# What is served can be told things, by its owner alone.
"$zulisim" serve --only failures --fuse mount/zuli --strict --reply 'kalo:*=hold' --lose read:40 \
  --trace trace --report report 2>served.told &
engine=$!
eventually grep -qs serves served.told
tell() { expect "$1" "$zulisim" tell mount/zuli "${@:2}"; }
[ "$(stat -c %a mount/zuli.control)" = 600 ] || complain "others may tell"
tell 0 lose
expect 1 head -c 1 mount/zuli
expect 1 head -c 1 mount/zuli
tell 0 back
tell 0 fault open:2=EACCES
expect 1 dd if=mount/zuli bs=16 count=1
holds out 'not connected'
expect 1 head -c 1 mount/zuli
holds out 'Permission denied'
"$zulisim" record -o held --from mount/zuli -- "$program" open connect write:9 read:9 >held.out 2>held.seen &
holder=$!
eventually grep -qs "write    9 bytes" held.seen
tell 0 release
holds out '^1 reply released$'
eventually grep -qs 'read:9: 9' held.out
wait $holder
tell 0 counts
holds out '^5 opens, 1 ioctl, .*; 0 open descriptors$'
holds out '^tell fault open:2=EACCES: happened 1 time in 3 opens$'
tell 125 fault open:1=ENOSYS
holds out 'does not pass ENOSYS'
tell 125 lsoe
holds out "unknown instruction 'lsoe'"
kill -INT $engine
wait $engine
[ $? -eq 122 ] || complain "serve --strict: what did not happen was no failure"
holds served.told 'lose read:40: never happened in 2 reads$'
for note in 'tell lose' 'tell back' 'tell fault open:2=EACCES' 'tell release'; do
  for output in served.told trace report; do holds $output "$note"; done
done
grep -q 'counts\|ENOSYS' trace && complain "a question or a refused instruction is in the trace"
nothing_left || complain "something is left of what was told"

# A file that is served until a signal.
for signal in INT KILL; do
  "$zulisim" serve -q --fuse mount/zuli 2>served.$signal &
  engine=$!
  eventually grep -qs serves served.$signal
  # 16 bytes from an unconnected file: the engine's answer, through the kernel.
  expect 1 dd if=mount/zuli bs=16 count=1
  holds out 'not connected'
  kill -$signal $engine
  wait $engine 2>/dev/null
  status=$?
  [ $signal = KILL ] || [ $status -eq 0 ] || complain "serve: exit status $status after SIG$signal"
  [ $signal = KILL ] || nothing_left || complain "something is left of serve"
done
expect 125 "$zulisim" serve --fuse mount/zuli
holds out "umount .*mount/zuli'"
umount mount/zuli
rm mount/zuli*

expect 125 run --client kalo:max=1048576 -- true
holds out "is above 1044480"
expect 125 run --fault open:1=ENOSYS -- true
holds out "does not pass ENOSYS of open"
expect 125 "$zulisim" serve --fuse mount
holds out "not a regular file"
[ -e /dev/cuse ] || { expect 125 "$zulisim" serve --cuse; holds out "modprobe cuse"; }

[ "$failures" -eq 0 ]
