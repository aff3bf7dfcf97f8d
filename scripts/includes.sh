#!/usr/bin/env bash
# Checks that includes run in one direction: the list below names the other folders that each folder
# may include from. Tests, fuzz targets and benchmarks may include everything.
set -euo pipefail
cd "$(dirname "$0")/.."

allowed='
oscl:
log: oscl
transport: log oscl
api: transport log oscl

common:
simulator/device: common
simulator/engine: simulator/device common
simulator/scenario: simulator/engine simulator/device common
simulator/record: simulator/scenario simulator/engine simulator/device common
simulator/output: simulator/device common
simulator/hooks: simulator/device
simulator/program: simulator/device common
simulator/preload: simulator/program simulator/hooks simulator/device common
simulator/in_process: simulator/hooks simulator/engine simulator/device
simulator/kernel: simulator/program simulator/scenario simulator/engine simulator/device common
simulator/sweep: simulator/record simulator/scenario simulator/engine simulator/device common
simulator/control: simulator/scenario simulator/engine simulator/device common
simulator/cli: simulator/sweep simulator/control simulator/kernel simulator/preload simulator/program simulator/output simulator/record simulator/scenario simulator/engine simulator/device common

tools/registry: oscl common
tools/call: api transport log oscl common
tools/cli: tools/call tools/registry api transport log oscl common
tools/demo: api
'

git grep -n '^ *# *include *"' -- '*.h' '*.c' '*.cpp' | awk -v allowed="$allowed" '
  BEGIN {
    count = split(allowed, lines, "\n")
    for (i = 1; i <= count; ++i) {
      if (split(lines[i], part, ":") < 2) continue
      order[part[1]] = " " part[1] part[2] " "
    }
    anything["tests"] = anything["fuzz"] = anything["bench"] = 1
  }
  {
    split($0, place, ":")
    split($0, quoted, "\"")
    file = place[1]; target = quoted[2]
    folder = file; sub("/[^/]*$", "", folder)
    top = folder; sub("/.*", "", top)
    if (top in anything) next
    if (!(folder in order)) {
      complaint = "the folder " folder " is missing in the list of scripts/includes.sh; add it"
    } else {
      from = target; sub("/[^/]*$", "", from)
      if (from == target) complaint = "must use the path from the root"
      else if (index(order[folder], " " from " ") == 0) complaint = "is not allowed: " folder " may include only from" order[folder]
      else complaint = ""
    }
    if (complaint == "") next
    print file ":" place[2] ": #include \"" target "\" " complaint > "/dev/stderr"
    failed = 1
  }
  END { exit failed }'
