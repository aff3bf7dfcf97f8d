#!/usr/bin/env bash
# Makes the man pages of a tool and of each of its commands from its --help and, for details, from
# the file PAGE.h2m in a folder "manual", which is optional.
#   manual.sh TOOL VERSION FOLDER
set -euo pipefail
tool=$1 version=$2 folder=$3
name=${tool##*/}
mkdir -p "$folder"
rm -f "$folder/$name".1* "$folder/$name"-*.1*
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

page() { # page NAME COMMAND...: help2man takes the name of a page from the program that it runs
  local page=$1
  shift
  printf '#!/bin/sh\nexec "%s" "$@"\n' "$* " | sed 's/" "$@"/ "$@"/; s/exec "/exec /' >"$scratch/$page"
  chmod +x "$scratch/$page"
  local about
  # sed reads all of the help, so the tool does not end with a broken pipe.
  about=$("$@" --help | sed -n 1p)
  local details=("$(dirname "$0")"/../*/manual/"$page.h2m")
  help2man --opt-include="${details[0]}" --no-info --section=1 --source="kalodll $version" --version-string="$version" \
    --manual="User Commands" --name="${about%.}" "$scratch/$page" |
    # Indented text keeps its lines, and the exit status has a section of its own.
    sed -e 's/^Exit status: /.SH "EXIT STATUS"\n/' \
      -e '/^\.IP$/,/^\.[PST]/ { s/^\.IP$/&\n.nf/; s/^\.[PST]/.fi\n&/ }' | gzip -9n >"$folder/$page.1.gz"
}

page "$name" "$tool"
# The help lists the commands under "Commands:", indented by two.
for command in $("$tool" --help | sed -n '/^Commands:/,$s/^  \([a-z]\+\) .*/\1/p'); do
  page "$name-$command" "$tool" "$command"
done
