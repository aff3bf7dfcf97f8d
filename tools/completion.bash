# Completion of zulisim and kaloctl for bash: commands and options are those that --help names, all
# else are files.
_kalodll_complete() {
  local word help commands="" words=("${COMP_WORDS[0]}")
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    help=$("${words[@]}" --help 2>/dev/null) || return
    commands=$(sed -n '/^\(Commands\|What can be told\):/,/^$/s/^  \([a-z]\+\) .*/\1/p' <<<"$help")
    [ "$word" = -- ] && return
    grep -qxF -- "$word" <<<"$commands" && words+=("$word")
  done
  [ "${COMP_WORDS[COMP_CWORD]}" = "${words[-1]}" ] && unset 'words[-1]'
  local options
  options=$(sed -n 's/^  \(-[-a-z]*\(, --[-a-z]*\)\?\).*/\1/p' <<<"$help" | tr -s ', ' '\n')
  mapfile -t COMPREPLY < <(compgen -W "$commands $options" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -o default -F _kalodll_complete zulisim kaloctl
