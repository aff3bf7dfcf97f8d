#!/usr/bin/env bash
# Runs programs through the preload library or through the kernel's FUSE, and checks what is left when
# zulisim or a program ends. Exits with status 77 if FUSE is not available.
#
#   attachments.sh preload ZULISIM DEVICE_PROGRAM KALOCTL ATTACHMENT_TEST
#   attachments.sh fuse ZULISIM DEVICE_PROGRAM KALOCTL ATTACHMENT_TEST STATIC_DEVICE_PROGRAM
set -uo pipefail
device=$1 zulisim=$2 program=$3 kaloctl=$4 attachment_test=$5 static=${6-}
here=$(cd "$(dirname "$0")" && pwd)
if [ $device = fuse ]; then
  [ -w /dev/fuse ] && { unshare -m true || unshare -Urm true; } 2>/dev/null ||
    { echo "SKIPPED: this user cannot mount a file through /dev/fuse"; exit 77; }
fi
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" && chmod 755 . && mkdir -m 777 tmp mount && export TMPDIR=$folder/tmp || exit
failures=0

fail() { echo "FAILED: $1"; failures=$((failures + 1)); }
same() { diff "$1" "$2" || fail "$1 and $2 differ"; }
contains() { grep -qE -- "$2" "$1" || { cat "$1"; fail "$1 lacks '$2'"; }; }
run() { timeout 60 "$zulisim" run --device $device "$@"; }
expect() {  # STATUS PATTERN COMMAND...
  "${@:3}" >out 2>&1
  local status=$?
  [ $status -eq "$1" ] || fail "exit status $status, not $1: ${*:3}"
  [ -z "$2" ] || contains out "$2"
}
begin() {  # NAME PATTERN COMMAND...: runs COMMAND in the background and waits for a message
  : >$1  # may hold the message of an earlier command
  "${@:3}" >$1.out 2>$1 &
  eventually $1 "$2"
}
eventually() {  # FILE PATTERN
  timeout 10 sh -c 'until grep -qE "$2" "$1"; do sleep 0.1; done' - "$@" || contains "$@"
}
end() {  # SIGNAL PROCESS: returns its exit status
  kill -$1 $2
  wait $2 2>/dev/null
}
nothing_left() {  # AFTER
  [ -z "$(ls -A tmp mount | grep -v :)" ] && ! grep "$folder" /proc/mounts || fail "files are left after $1"
}

# One suite of exchanges gives the same results on every attachment, when it is recorded, and when it
# is replayed.
options=($(<"$here/exchange_suite.options"))
suite() {  # NAME PATTERN ARGUMENTS of zulisim...
  expect 0 "$2" timeout 60 "$zulisim" "${@:3}" -q --connection-numbers --transcript transcript.$1 \
    -- sh -c '"$@" >output.'$1 - "$here/exchange_suite.sh" "$program" "$kaloctl"
  same output.preload output.$1
  # A recording does not contain the reason of a failure, or the meaning of a reply without status.
  sed 's/  (.*)$//; /  read  /s/bytes  .*/bytes/' transcript.$1 >bare.$1
  same bare.preload bare.$1
}
suite preload '' run "${options[@]}"
operations=$(wc -l <transcript.preload)
[ "$operations" -gt 80 ] || fail "the transcript is too short"
if [ $device = preload ]; then
  # Records the device of another zulisim, which the recorder opens like any program.
  suite recorded '' run -q "${options[@]}" -- "$zulisim" record -o recording
else
  suite $device '' run --device $device "${options[@]}"
  same transcript.preload transcript.$device
  suite recorded '' record --device $device -o recording "${options[@]}"
fi
suite replayed "replayed $operations operations of 'recording'" replay --device $device recording

# If zulisim or the program ends during an exchange, the other continues at once, with an error, and
# nothing is left. The reply takes a minute, so the program waits in its read.
slow=(--reply 'kalo:*=latency:60s')
begin killed "write    20" "$zulisim" run --device $device "${slow[@]}" -- \
  env --block-signal=USR2 "$program" open connect write:20 read:20 write:20 close open
sleep 0.2
# The program handles the first signal, blocks the second, and continues after the others.
for signal in USR1 USR2 TSTP STOP; do pkill -$signal -P $!; done
sleep 0.2
pkill -CONT -P $!
end KILL $!
# ECONNABORTED and ENOTCONN through FUSE, ENODEV through the preload library.
gone='errno (103|107)' closed="(0|errno (103|107))"
[ $device = fuse ] || gone='errno 19' closed=0
eventually killed.out "read:20=$gone, write:20=$gone, close=$closed, open=$gone"
grep -q "$folder" /proc/mounts && fail "a mount is left after SIGKILL"
rm -r tmp/*
expect 137 '' run -q -- sh -c '"$0" open connect; kill -KILL $$' "$program"
# A process that still waits in a read when the program ends does not delay the end of zulisim. Its read
# is not recorded as finished, and it can be replayed.
left_behind() { expect 0 '' timeout 20 "$@" -- sh -c '"$0" open connect write:9 read:9 & sleep 0.3' "$program"; }
left_behind "$zulisim" record --device $device -o left.engine "${slow[@]}"
[ $device = fuse ] || left_behind "$zulisim" run -q "${slow[@]}" -- "$zulisim" record -o left.device
for left in left.*; do
  contains $left '"abandoned":true,.*"still open when the service of the device ended"'
  contains $left '"read","length":9,.*"errno":"EBADF"'
  left_behind "$zulisim" replay -q --device $device $left
done
# A read that waits for the end of the recording ends when another process leaves the recording.
expect 124 'read:9=errno 19' timeout 20 "$zulisim" replay -q --device $device left.engine -- sh -c \
  '"$0" open connect write:9 read:9 >seen & until grep -q =9 seen; do sleep 0.1; done; "$0" open; wait; cat seen' "$program"
# This test also runs in-process. Here it uses the device of this attachment. The kernel splits a write
# with too many pieces, and the rest must not become a message.
declare -A pieces=([preload]=300 [fuse]=256)
expect 0 '1 test.*PASSED|PASSED.*1 test' run -q "${slow[@]}" -- env PIECES_SERVED=${pieces[$device]} \
  "$attachment_test" --gtest_filter='*is_a_character_device'
[ $device = preload ] || contains out 'split a write; refused all but its first 256 bytes'
# zulisim waits for the closes at the end of the program.
expect 0 'read:20=20' run -q --transcript seen -- bash -c \
  '"$0" open connect write:20 read:20; for i in {1..20}; do exec {fd}<>/dev/zuli; done' "$program"
grep 'service of the device' seen && fail "a close at the end of the program was lost"
for signal in 2 3 15; do  # a read that waits for a minute does not delay the end
  [ $signal = 2 ] || interrupt='(sleep 0.4; kill -USR1 $$) &'  # the kernel reports only the first signal
  expect $((128 + signal)) '' env --default-signal timeout --preserve-status -k 3 -s $signal 1 "$zulisim" run -q \
    --device $device "${slow[@]}" -- sh -c "${interrupt-}"' exec "$0" open connect write:9 read:9' "$program"
done
expect 5 '' timeout 20 "$zulisim" run -q --device $device "${slow[@]}" -- bash -c 'exec 9<>/dev/zuli
  "$0" on:9 connect write:9; exec python3 -c "import os, threading, time
threading.Thread(target=os.read, args=(9, 9)).start(); time.sleep(0.3); os._exit(5)"' "$program"
nothing_left "a signal or a crash of the program"
if [ $device = preload ]; then
  expect 0 '' run -q -- sh -c 'log=/data/Marvoleth.log registry=/etc/vrel_registry.txt
    echo >$log && mv $log $registry && env test -r $registry && rm $registry'
  # A call that the hooks do not see is reported and does not affect other exchanges.
  expect 0 'bare:20=84, write:21=21, read:30=21' run -q -- "$program" open connect bare:20 write:21 read:30
  contains out 'system calls that the preload library cannot see'
  expect 1 "cannot open '/dev/zuli' as a stream: use open, read and write" run -q -- od /dev/zuli
  exit $((failures > 0))
fi

# A statically linked program, in its own file tree. The log and the registry are in the root folder.
mkdir -p root/etc
echo here >root/etc/vrel_registry.txt
run_static() {
  expect 0 '   6  #1     KALO  close    ok' "$@" timeout 20 "$zulisim" run --device fuse --root root \
    -- "$static" open connect write:64 read:4096 read:16 close log
}
run_static env
[ "$(cat root/data/Marvoleth.log)" = "a line" ] || fail "the log is not in the root"
expect 0 'here 666' run -q --root root -- sh -c 'echo $(cat /etc/vrel_registry.txt; stat -c %a /dev/zuli)'
# That tree shows the machine's files, and itself only once. The program inherits no descriptor of zulisim.
tree="find / /dev /etc -mindepth 1 -maxdepth 1 ! -name .zulisim ! -name data ! -name zuli \
  ! -name vrel_registry.txt -printf '%y %m %p %l\n' | sort; ls /proc/self/fd"
sh -c "$tree" >tree.outside
run -q -- sh -c "$tree; ls -A tmp/*/tree" >tree.inside 2>out
same tree.outside tree.inside
if setpriv --reuid 65534 --clear-groups unshare -Urm test -x "$zulisim" -a -w /dev/fuse; then
  chmod -R a+rwX root
  run_static setpriv --reuid 65534 --regid 65533 --clear-groups
  expect 0 65534 setpriv --reuid 65534 --regid 65533 --clear-groups "$zulisim" run -q --device fuse -- id -u
  expect 0 open=0 run -q -- setpriv --reuid 65534 --regid 65533 --clear-groups "$static" open
else
  echo "SKIPPED: the run as another user, who needs a user namespace and access to the build and /dev/fuse"
fi

# A device of the tree in which the recorder runs.
expect 0 'read:20=20' run -q "$zulisim" record -q --device fuse -o inner "$static" open connect write:20 read:20
# The end of the message of a write with O_APPEND would be unknown.
expect 1 'refused a write with O_APPEND' run -- sh -c 'echo >>/dev/zuli'

# 'zulisim tell' instructs a running 'zulisim serve'.
begin served serving "$zulisim" serve --only failures --fuse mount/zuli --strict --reply 'kalo:*=hold' \
  --lose read:40 --trace trace --report report
engine=$!
begin held "write    9 bytes" env -C mount "$zulisim" record --device fuse -o ../recorded --from zuli -- \
  "$program" open connect write:9 read:9
expect 0 '^1 reply released$' sh -c '"$0" tell mount/zuli release 2>/dev/null' "$zulisim"
wait $!
contains held.out 'read:9=9'
[ $UID -ne 0 ] || expect 0 '' setpriv --reuid 65534 --clear-groups sh -c ': <mount/zuli'
expect 125 "'fault open:1=ENOSYS': .*does not pass ENOSYS" "$zulisim" tell mount/zuli fault open:1=ENOSYS
expect 125 "zuli' is already served" timeout 20 "$zulisim" serve --fuse mount/zuli
end HUP $engine
[ $? -eq 122 ] || fail "serve --strict: a fault that did not happen did not fail"
contains served 'lose read:40: never happened in 1 read$'
for output in served trace report; do contains $output 'tell release'; done
contains report '"program":"zulisim serve /.*mount/zuli","instructions":"--reply kalo:.*=hold --lose read:40"'
grep -q ENOSYS trace && fail "a refused instruction is in the trace"
nothing_left "'zulisim tell'"

# Instructions at the limits of the kernel. commands.txt goes beyond them.
expect 0 'connect=1044480, write:20=20, read:20=errno 38, read:20=errno 19' run -q --client kalo:max=1044480 \
  --fault read:1=ENOSYS --lose read:2,errno=ENOSYS -- "$program" open connect write:20 read:20 read:20
expect 125 "not a regular file.*mount/zuli'$" "$zulisim" serve --fuse mount
expect 125 "cannot create the file '/none/zuli'.*No such file" "$zulisim" serve --fuse /none/zuli
echo kept >kept
for file in kept new; do expect 125 '' "$zulisim" serve --fuse $file --trace /none/trace; done
[ "$(cat kept)" = kept ] && [ ! -e new ] || fail "serve removed a file that it had not created, or left its own"
# A signal or an unmount ends the service. After SIGKILL, a dead mount remains, and the next 'zulisim
# serve' says how to remove it.
for how in 'INT 0' 'TERM 125 --trace /dev/full' 'QUIT 0' 'umount 125' 'KILL 137'; do
  set -- $how
  begin served.$1 serving env --default-signal "$zulisim" serve -q --fuse mount/zuli "${@:3}"
  if [ $1 = umount ]; then umount mount/zuli; wait $!; else end $1 $!; fi
  [ $? -eq $2 ] || fail "serve ended with another exit status than $2 after $1"
done
contains served.umount 'the kernel ended the service'
expect 125 "umount .*mount/zuli'" timeout 20 "$zulisim" serve --fuse mount/zuli
umount mount/zuli
rm mount/zuli*
nothing_left "'zulisim serve'"
[ -e /dev/cuse ] || expect 125 'modprobe cuse' "$zulisim" serve --cuse --client kalo:max=126976

[ "$failures" -eq 0 ]
