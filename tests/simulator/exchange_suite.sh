#!/bin/sh
# Makes exchanges on "/dev/zuli", directly and through the library. Prints the same on every
# attachment when the engine runs with the options in exchange_suite.options.
#
#   exchange_suite.sh DEVICE_PROGRAM KALOCTL
steps=$1 kaloctl=$2

"$steps" open connect write:64 read:4096 read:16 read:16 write:5000 write:24 close
"$steps" open write:20 read:20 close
"$steps" open connect connect connect write:24 read:24 close

masked() { "$kaloctl" "$@" 2>&1 | sed '/^ *log /d; s/^\( *handle *\)0x.*/\1.../'; }
masked probe
masked send --command 0x10
masked send --command 0x30 --body --data '01 02 03'
masked run - <<'END'
KaloInit3 a
StartIoEx3 a 4 64 private
FenuInit3 f
StartIo3 f 0x30001 100        # the write loses the device, and the next open fails
FenuCleanup3 f
FenuInit3 f
StartIo3 f 0x30001 600        # longer than the client's maximum
StartIo3 f 0x30001 100
StartIoEx3 a 0x10 64 private
StartIoEx3 a 0x40 32          # no reply
StartIoEx3 a 6 32             # the read fails
StartIoEx3 a 4 48             # lost five times
StartIoEx3 a 5 48
FenuCleanup3 f
KaloCleanup3 a
END
"$steps" open connect:1 nonblock write:20 read:20 close  # the reply arrives after a minute
"$steps" open connect badwrite:20 write:20 badread:20 read:20 close
