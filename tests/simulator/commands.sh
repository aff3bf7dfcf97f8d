#!/usr/bin/env bash
# Runs the commands of a file ("$ ..."), each of which must print and exit as it stands there: its
# output, what it says on stderr, and "? STATUS" where that is not 0. KALODLL_GOLDEN_WRITE=1 writes
# the file anew.
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
  # An empty line belongs to the comment below it, or to the output of the command above it.
  case $line in
    '') empty=yes; continue ;;
    '#'*) [ -z "$empty" ] || echo; echo "$line" ;;
  esac
  empty=
  [[ $line == '$ '* ]] || continue
  echo "$line"
  # Without what the test runner leaves open, a program's descriptors begin at 3.
  timeout 60 bash -c "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; ${line#??}" >out 2>err
  status=$?
  sed -E "s#$folder#FOLDER#g; s#$SCENARIOS#SCENARIOS#g; s#'/[^']*/(kaloctl|device_program)'#'PROGRAM'#g
    s#0x[5-7][0-9a-f]{10,}#ADDRESS#g" out err
  [ $status -eq 0 ] || echo "? $status"
done >now
[ -z "$(ls -A tmp)" ] || { echo "zulisim left something behind: $(ls tmp)"; exit 1; }
[ -z "${KALODLL_GOLDEN_WRITE-}" ] || cp now "$file"
diff -u "$file" now
