#!/usr/bin/env bash
# Runs the commands of a file ("$ ...", continued by "> ..."). After each command, the file has its
# output on stdout, its output on stderr, and "? STATUS" unless the exit status is 0. All must be the
# same again. KALODLL_GOLDEN_WRITE=1 rewrites the file.
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

# Runs COMMAND once for each argument, which replaces '%' or becomes the standard input of a COMMAND
# that ends in " -". Prints stdout, the first line of stderr, and an exit status other than STATUS.
refused() {  # STATUS COMMAND ARGUMENTS...
  local argument status
  for argument in "${@:3}"; do
    if [[ $2 == *' -' ]]; then printf %b "$argument" | eval "$2"; else eval "${2//%/$argument}"; fi 2>reason
    status=$?
    head -n 1 reason
    [ $status -eq "$1" ] || echo "exit status $status for $argument"
  done
}
sim() { zulisim run -q --root sim "$@"; }
json() { python3 -c 'import json, sys; print(json.dumps(json.load(sys.stdin)))'; }
# Runs a command on a terminal; '^' replaces the beginning of an escape sequence.
tty() { SHELL=/bin/sh TERM=xterm NO_COLOR='' script -qec "$*" /dev/null </dev/null | sed 's/\x1b\[/^/g; s/\r//'; }
export -f refused sim json tty

# Runs a command and prints what the file has to contain. Replaces folders, addresses and the numbers of
# lines of the library's source, which differ between machines, runs and versions.
run() {
  # Closes the descriptors of the test runner, so that a program's own begin at 3.
  timeout 120 bash -o pipefail -c "exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-; $1" >stdout 2>stderr
  local status=$?
  sed -E "s#$folder#FOLDER#g; s#$SCENARIOS#SCENARIOS#g; s#'/[^']*/(kaloctl|device_program)'#'PROGRAM'#g" \
    stdout stderr | perl -pe 's/0x[5-7][0-9a-f]{10,}/$name{$&} ||= "ADDRESS" . ++$count/ge;
      s/\b(Kalo(Init3|Cleanup3|StateInit)|StartIo(Ex)?3|IoMessage|Connect|ReadFromZuli)(:| +)\K\d\d+/LINE/g' |
    fold -sw 159 | awk '{ sub(/ *$/, ""); print }' || { echo 'the output cannot be filtered' >&2; exit 1; }
  [ $status -eq 0 ] || echo "? $status"
}
exec 3<"$file"
empty= command=
while IFS= read -r line <&3 || { line=; [ "$command" ]; }; do
  if [ "$command" ] && [[ $line != '> '* ]]; then
    run "$command"
    command=
  fi
  # An empty line is kept before a comment. Others belong to the output of a command.
  case $line in
    '') empty=yes; continue ;;
    '#'*) [ -z "$empty" ] || echo ;;
    '$ '*) command=${line#??} ;;
    '> '*) [ "$command" ] && command+=$'\n'${line#??} || continue ;;
    *) continue ;;
  esac
  empty=
  echo "$line"
done >golden
[ -z "$(ls -A tmp)" ] || { echo "zulisim left files: $(ls tmp)"; exit 1; }
[ -z "${KALODLL_GOLDEN_WRITE-}" ] || cp golden "$file"
diff -u "$file" golden
