#!/usr/bin/env bash
# No fault at any operation makes our own drivers crash or hang, and the driver that uses kalo::Client
# notices every command that failed.
#
#   sweep.sh ZULISIM DEMO_DRIVER CLIENT_DRIVER
set -euo pipefail
"$1" sweep --reply 'kalo:0x20=status:0x80000001,private:000102030405060708090a0b0c0d0e0f' "$2"
result=$("$1" sweep "$3")
echo "$result"
grep -q recovered <<<"$result"
! grep unnoticed: <<<"$result"
