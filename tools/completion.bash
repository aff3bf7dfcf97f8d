# Completion of zulisim and kaloctl for bash. It offers the commands and options that --help lists,
# and the values of an option where --help lists them; everything else completes to file names.

# Prints the options of a help text: each name with the shape of its value, if it takes one.
_kalodll_options() {
  sed -nE 's/^  (-[a-z]), (--[-a-z]+)( ([^ ]+))?(  .*)?$/\1 \4\n\2 \4/p
           s/^  (--[-a-z]+)( ([^ ]+))?(  .*)?$/\1 \3/p' <<<"$1"
}

_kalodll_complete() {
  local current=${COMP_WORDS[COMP_CWORD]} call=("${COMP_WORDS[0]}")
  local help options commands='' shape='' word arguments
  COMPREPLY=()
  [ "$current" = = ] && current=''
  for word in '' "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [ "$word" = -- ] && [[ $help == *' PROGRAM '* ]]; then return; fi
    if [ "$word" = = ]; then continue; fi  # as in --device=fuse
    if [ -n "$shape" ]; then
      shape=''
    elif [[ $word == -* ]]; then
      shape=$(sed -n "s/^$word //p" <<<"$options")
    elif [ -z "$word" ] || grep -qxF -- "$word" <<<"$commands"; then
      [ -z "$word" ] || call+=("$word")
      help=$("${call[@]}" --help 2>/dev/null) || return
      options=$(_kalodll_options "$help")
      commands=$(sed -n '/^\(Commands\|Instructions\):/,/^$/s/^  \([a-z][-a-z]*\)\( .*\)\?$/\1/p' <<<"$help" | sort -u)
      # How many words precede the program; without one, no word does.
      arguments=$(sed -n '/^Usage:.* PROGRAM /s/.*OPTIONS\]\( --[a-z]* FILE\)\?\(.*\) \[--\].*/\2/p' <<<"$help" | wc -w)
    elif [[ $help == *' PROGRAM '* ]] && [ $((arguments--)) -eq 0 ]; then
      return
    fi
  done
  case "$shape" in
    '') word="$commands $(cut -d ' ' -f 1 <<<"$options")" ;;
    *FILE* | DIR | PATH) return ;;
    *:*)
      word=${shape%%:*} word=${word/OPERATION/open|ioctl|read|write|close}
      word=${word/CLIENT/kalo|fenu|sab} word=${word//|/: }:
      ;;
    *) word=${shape//|/ } ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$word" -- "$current")
  [[ ${COMPREPLY[0]} != *: ]] || compopt -o nospace 2>/dev/null
}
complete -o default -F _kalodll_complete zulisim kaloctl
