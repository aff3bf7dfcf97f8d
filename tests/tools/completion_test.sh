#!/usr/bin/env bash
# Calls the completion function with the words of a command line, like bash.
#   completion_test.sh COMPLETION FOLDER: FOLDER holds zulisim and kaloctl
set -uo pipefail
PATH=$2:$PATH
# shellcheck source=tools/completion.bash
. "$1"
failures=0
complete -p zulisim kaloctl >/dev/null || exit
compopt() { COMPREPLY+=("$2"); }

# offers 'WORDS' WORD...: checks the completions of the last of WORDS.
offers() {
  read -ra COMP_WORDS <<<"$1"
  [[ $1 != *' ' ]] || COMP_WORDS+=('')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _kalodll_complete
  [ "${COMPREPLY[*]}" = "${*:2}" ] && return
  echo "FAILED: '$1' offers '${COMPREPLY[*]}' instead of '${*:2}'"
  failures=$((failures + 1))
}

offers 'zulisim re' record replay
offers 'zulisim run --re' --report --reply --refuse
offers 'zulisim run --device ' preload fuse
offers 'zulisim run --device = f' fuse
offers 'zulisim run --device =' preload fuse
offers 'zulisim run -q --fault ' open: ioctl: read: write: close: nospace
offers 'zulisim run --reply ' kalo: fenu: sab: nospace
offers 'zulisim run --report '
offers 'zulisim run ./driver --de'
offers 'zulisim run -- --de'
offers 'zulisim record --output f --forc' --force
offers 'zulisim replay f --in' --in-time
offers 'zulisim tell /tmp/zuli lo' lose
offers 'kaloctl registry set a b 1 --type ' string dword qword
offers 'kaloctl log f -' -h --help -f --follow --failures --json
offers 'kaloctl frobnicate --he' --help

[ "$failures" -eq 0 ]
