#!/usr/bin/env bash
# Checks that no fault makes the demo driver crash or hang. A signal ends a sweep and all processes that
# its runs have started.
#
#   sweep.sh ZULISIM DEMO_DRIVER BAD_DRIVER
set -euo pipefail
"$1" sweep --timeout 30 --reply 'kalo:0x20=status:0x80000001,private:000102030405060708090a0b0c0d0e0f' "$2"

# The program starts a process in another session, and hangs at the third operation.
export TMPDIR
TMPDIR=$(mktemp -d)
trap 'rm -rf "$TMPDIR"' EXIT
cat >"$TMPDIR/program" <<END
setsid sleep 1$$ >/dev/null 2>&1 &
exec $3
END
"$1" sweep --jobs 1 --operations write,read --faults busy,no-reply sh "$TMPDIR/program" >"$TMPDIR/out" &
sleep 3
kill -TERM $!
wait $! && status=0 || status=$?
cat "$TMPDIR/out"
[ "$status" = 143 ]
grep -q '^[1-9][0-9]* runs\?, ' "$TMPDIR/out"
[ -z "$(pgrep -f "sleep 1$$")" ]
[ "$(ls "$TMPDIR")" = "$(printf 'out\nprogram')" ]
