#!/usr/bin/env bash
# Runs the commands of a file ("$ ..."). After each command, the file has its output on stdout, its
# output on stderr, and "? STATUS" unless the exit status is 0. All must be the same again.
# KALODLL_GOLDEN_WRITE=1 rewrites the file.
#
#   commands.sh FILE PROGRAM...
set -uo pipefail
file=$1
for program in "${@:2}"; do PATH=$(dirname "$program"):$PATH; done
SCENARIOS=$(cd "$(dirname "$0")/../../simulator/scenarios" && pwd)
export PATH SCENARIOS
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder" && mkdir tmp && export TMPDIR=$folder/tmp
exec 3<"$file"
empty=
while IFS= read -r line <&3; do
  # An empty line is kept before a comment. Others belong to the output of a command.
  case $line in
    '') empty=yes; continue ;;
    '#'*) [ -z "$empty" ] || echo; echo "$line" ;;
  esac
  empty=
  [[ $line == '$ '* ]] || continue
  echo "$line"
  # Closes the descriptors of the test runner, so that a program's own begin at 3.
  timeout 60 bash -c "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ${line#??}" >out 2>err
  status=$?
  sed -E "s#$folder#FOLDER#g; s#$SCENARIOS#SCENARIOS#g; s#'/[^']*/(kaloctl|device_program)'#'PROGRAM'#g
    s#0x[5-7][0-9a-f]{10,}#ADDRESS#g" out err
  [ $status -eq 0 ] || echo "? $status"
done >now
[ -z "$(ls -A tmp)" ] || { echo "zulisim left files: $(ls tmp)"; exit 1; }
[ -z "${KALODLL_GOLDEN_WRITE-}" ] || cp now "$file"
diff -u "$file" now
