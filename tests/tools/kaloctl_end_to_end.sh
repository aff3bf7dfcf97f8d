#!/usr/bin/env bash
# Runs kaloctl under the software engine and checks its output and exit status.
#
#   kaloctl_end_to_end.sh KALOCTL ZULISIM
set -uo pipefail
PATH=$(dirname "$1"):$PATH
zulisim=$2
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
failures=0

fail() {
  echo "FAILED: $1"
  sed 's/^/  | /' "$root/out" "$root/err"
  failures=$((failures + 1))
}

# expect STATUS COMMAND...: runs the command. `shows` and `lacks` then check its output.
expect() {
  local wanted=$1 status=0
  shift
  title="$*"
  "$@" >"$root/out" 2>"$root/err" || status=$?
  [ "$status" -eq "$wanted" ] || fail "$title: exit status $status instead of $wanted"
}
shows() { grep -qF -- "$1" "$root/out" "$root/err" || fail "$title: lacks '$1'"; }
lacks() { ! grep -qF -- "$1" "$root/out" "$root/err" || fail "$title: shows '$1'"; }

# json EXPRESSION: parses the output as `d` and checks the expression.
json() {
  python3 -c "import json, sys; d = json.load(open(sys.argv[1])); assert $1, d" "$root/out" \
    2>>"$root/err" || fail "$title: not $1"
}
sim() { "$zulisim" run --root "$root/sim" "$@"; }
script() { printf '%s\n' "$@" >"$root/script"; }

expect 1 sim -q --fault ioctl:2=ENOTTY -- kaloctl probe --json
json '[(c["name"], c["maxMessageLength"]) for c in d["clients"]] == [("KALO", 4096), ("FENU", None)]'
json '"errno = 25" in d["clients"][1]["error"]["cause"]'
expect 3 sim -q --reply 'kalo:4=status:-5,private:000102030405060708090a0b0c0d0e0f' -- \
  kaloctl send --command 4 --json --log
json '(d["firmwareStatus"], d["privateData"][:6], d["error"], d["reply"][8:16]) == (-5, "000102", None, "04000000")'
json 'any("StartIoEx3" in line for line in d["log"])'
expect 1 sim -q --lose read:1-5 -- kaloctl send --command 4 --json
json 'd["reply"] is None and d["error"]["statusName"] == "KALO_DLL_STATUS_FAILURE"'

script 'KaloInit3 a' 'FenuInit3 f' 'KaloCleanup3 a' 'StartIoEx 4 16' 'KaloInit3 a' \
  'StartIoEx3 a 4 32 private'
expect 1 sim -- kaloctl run "$root/script"
shows "KALO_DLL_STATUS_NOT_INITIALIZED (6)"
shows "reply   32 bytes, status 0"
expect 1 sim -- kaloctl run --state "$root/script"
shows "kaloRefCountA         1"
shows 'fenuErrorText         "KALO Exception 0x6 StartIoEx() called before'
# A script may not send on a handle that it has closed. Another handle of the session stays usable.
script 'FenuInit3 f' 'FenuInit3 g' 'FenuCleanup3 f' 'StartIo3 g 0x30001 16' 'FenuCleanup3 g' \
  'FenuInit3 f' 'StartIo3 f 0x30001 16'
expect 0 sim -- kaloctl run "$root/script"
script 'FenuInit3 f' 'FenuCleanup3 f' 'StartIo3 f 4 16'
expect 2 kaloctl run "$root/script"
shows "line 3: unexpected 'f'; expected a handle that is not closed"
script 'KaloInit3 a' 'KaloCleanup3 a'
expect 0 sim -q -- kaloctl run --state --json "$root/script"
json 'd["kaloSessionA"][:2] == "0x" and d["kaloRefCountA"] == 0 and d["firmwareApiVersion"] == 0'
script 'KaloInit3 a' 'StartIo b 4'
expect 2 sim -- kaloctl run "$root/script"
shows "line 2: unexpected 'b'"
lacks "  open  "

# The log file has each line that the calls caused exactly once, whatever the number of sinks. It has
# trace lines even though each KaloInit3 resets the level.
rm -rf "$root/sim"
script 'KaloInit3 a' 'KaloStateInit 3.0 1' 'KaloInit3 b' 'KaloInit3 c' 'FenuInit' 'FenuInit3 f' \
  'StartIoEx3 a 4 32' 'StartIo3 null 4 16' 'StartIoEx 0x30002 64 private' 'StartIo 4 8' \
  'KaloInit' 'KaloCleanup3 b' 'KaloCleanup' 'KaloCleanup' 'FenuCleanup3 f' 'FenuCleanup' 'FenuInit'
expect 1 sim --lose read:2 --fault close:1=EIO --fault write:2=EIO -- kaloctl run --trace "$root/script"
squeeze() { tr -s ' ' | sed 's/ $//'; }
sed -n 's/^ *log  *\([A-Za-z0-9~]*\):\([0-9]*\): /\1 \2 /p' "$root/out" | squeeze >"$root/caused"
kaloctl log "$root/sim/data/Marvoleth.log" | sed 's/^ *\(x[0-9]*\)* *//' | squeeze >"$root/read"
diff "$root/caused" "$root/read" >"$root/out" || fail "the log file differs from the lines of the calls"
[ "$(wc -l <"$root/read")" -gt 100 ] || fail "the log is too short for this check"

log=$root/sim/data/Marvoleth.log
expect 0 kaloctl log --failures --json "$log"
grep -m 1 StartIoEx3 "$root/out" >"$root/line" && mv "$root/line" "$root/out"
json 'd["function"] == "StartIoEx3" and d["tag"] > 0 and "failed" in d["text"]'
timeout 1.5 kaloctl log --follow "$root/later" >"$root/out" 2>"$root/err" &
sleep 0.3 && printf 'KaloInit3:1: one' >"$root/later"
sleep 0.6 && printf 'KaloInit3:2: two' >>"$root/later"
wait $!
title="log --follow"
shows "2  two"
[ "$(wc -l <"$root/out")" -eq 2 ] || fail "log --follow: not two lines"
expect 2 timeout 5 kaloctl log --follow "$root"
shows "not a regular file"
expect 0 timeout 5 sh -c "kaloctl log --follow '$log' | head -n 1"
expect 2 kaloctl send --json --data zz
json '"hexadecimal digits" in d["error"]["text"]'
: >"$root/request"
expect 2 kaloctl send "$root/request" --output "$root/../${root##*/}/request"
shows "--output is the same file"

key='HKEY_LOCAL_MACHINE\Software\Video'
mkdir -p "$root/sim/etc"
printf '[KEY]\n1\n%s\n[VALUE]\nLevel\n4\n3\n' "$key" >"$root/sim/etc/vrel_registry.txt"
cp "$root/sim/etc/vrel_registry.txt" "$root/before"
expect 0 sim -- kaloctl registry set "$key" Level 5
expect 2 sim -- kaloctl registry set "$key" Title 7
shows "add --type"
expect 0 sim -- kaloctl registry set "$key" Title 7 --type qword
expect 0 sim -- kaloctl registry set "$key" Title 'a b' --type string
expect 0 sim -- kaloctl registry list
shows 'Level = 5 (0x5)  dword'
shows 'Title = "a b"  string'
expect 2 sim -- kaloctl registry set "$key" Title ' a'
expect 1 sim -- kaloctl registry get "$key" Nothing
shows "code 8"
file=$root/r.txt
printf '[KEY]\n7\nA\\b\n[VALUE]\nx\n4\n-3\n' >"$file"
expect 0 kaloctl registry check --file "$file"
expect 0 kaloctl registry add 'A\c' --file "$file"
expect 0 kaloctl registry set 'A\c' name text --type string --file "$file"
expect 0 kaloctl registry list --json --file "$file"
json '[(k["name"], k["id"], [v["data"] for v in k["values"]]) for k in d["keys"]] == [("A\\b", 7, [-3]), ("A\\c", 1, ["text"])]'
expect 0 kaloctl registry delete 'A\c' name --file "$file"
expect 0 kaloctl registry delete 'A\b' --file "$file"
expect 1 kaloctl registry delete 'A\b' --file "$file"
[ "$(tr -d '\t\n' <"$file")" = '[KEY]0x00000001A\c' ] || fail "registry delete: wrong content"
expect 2 kaloctl registry get "$file" a b c d
shows "unexpected argument 'b'"
# Lines after a text may belong to the text, even if they look like keys.
for text in $'b\n[KEY]\n5\nHKEY_USERS\\evil' $'b \n[KEY] \n\t0x00000005 \n\tHKEY_USERS\\evil'; do
  printf '[KEY] \n\t0x00000001 \n\t%s \n\t\t[VALUE] \n\t\t\tTitle \n\t\t\t1 \n\t\t\t%s \n' "$key" "$text" \
    >"$root/sim/etc/vrel_registry.txt"
  expect 1 sim -- kaloctl registry set "$key" Title c
  shows "kaloctl registry repair"
  expect 2 sim -- kaloctl registry repair
  shows 'evil  [0x00000005]'
  shows 'was not changed'
done
expect 0 sim -- kaloctl registry repair --force
# The target of a link is replaced completely or not at all, and keeps its mode.
for number in {1..200}; do printf '[KEY]\n%x\na%s\n' "$number" "$number"; done >"$root/before"
cp "$root/before" "$root/registry"
chmod 640 "$root/registry"
ln -s registry "$root/link"
expect 0 kaloctl registry set a1 Level 5 --type dword --file "$root/link"
[ "$(stat -c %a "$root/registry")" = 640 ] && [ -L "$root/link" ] || fail "the mode or the link has changed"
expect 0 kaloctl registry get a1 Level --file "$root/registry"
cp "$root/before" "$root/registry"
expect 1 sh -c "ulimit -f 4; kaloctl registry set a1 Level 5 --type dword --file '$root/link'"
shows "cannot change '$root/link': File too large"
cmp -s "$root/before" "$root/registry" || fail "a cut file"
[ "$(echo "$root"/registry*)" = "$root/registry" ] || fail "a file left behind"
# The log or the device does not take the place of a closed stream. Android's libc reopens it.
if ! env test -e /proc/self/fd/1 >&-; then
  expect 1 sim -- sh -c 'kaloctl send --command 4 >&-'
  shows "cannot write to standard output"
fi
printf '[KEY]\n1\na\n\n  [VALUE]\n  x\n  3\n' >"$root/sim/etc/vrel_registry.txt"
expect 1 sim -- kaloctl registry list
shows "line 7: '3': expected a type"
shows "code 12"

expect 1 sim --fault open:1-=EACCES -- kaloctl doctor
shows "failed   device"
shows "remedy: use a user"
expect 1 sim --fault write:1=EIO -- kaloctl doctor
shows "failed   round-trip"
expect 1 sim --fault open:1-=ENOENT -- kaloctl doctor
shows "failed   kalo        Cannot open ZULI device."
expect 1 sim --client kalo:max=8 -- kaloctl doctor
shows "maximum 8 bytes, less than a header"
expect 0 sim -q -- kaloctl doctor --json
json 'd["commandsCanBeSent"]'
json '{c["name"] for c in d["checks"] if c["result"] == "warning"} == {"registry"}'
expect 2 kaloctl frobnicate
shows "unknown command 'frobnicate'; expected one of probe, "
expect 2 kaloctl run /dev/zero
shows "'/dev/zero' is longer than"
for command in 'kaloctl --help' 'kaloctl registry check --file a' 'kaloctl run --state'; do
  expect 1 sh -c "cd '$root' && : >a && $command >/dev/full"
  shows "cannot write to standard output"
done
for command in 'zulisim --help' 'zulisim --version' 'zulisim check a'; do
  expect 125 sh -c "cd '$root' && : >a && $command >/dev/full"
  shows "cannot write to standard output"
done

[ "$failures" -eq 0 ]
