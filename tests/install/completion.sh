#!/usr/bin/env bash
# The bash completion offers commands, each command's options and the values
# of options that take a fixed set, as bash-completion runs it.
set -uo pipefail
script=$1
source /usr/share/bash-completion/bash_completion
source "$script"

failed=0
expect() {  # expect "WANTED REPLY" WORDS... (the last word is being completed)
  local want=$1
  shift
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMP_LINE="$*"
  COMP_POINT=${#COMP_LINE}
  COMPREPLY=()
  _pxhost
  if [ "${COMPREPLY[*]}" != "$want" ]; then
    echo "completing '$*': got '${COMPREPLY[*]}', want '$want'"
    failed=1
  fi
}

expect "thumbnail" pxhost th
expect "--plugin --version --help" pxhost -
expect "--help --plugin -s --no-render --time-limit --memory-limit --render-unconfined" pxhost thumbnail -
expect "gpl json css" pxhost --plugin x.so palette -f ""
expect "--help --plugin --json -r -L --ext -j --jobs" pxhost --plugin x.so identify -
expect "required1 required2 required3 required4 advance-state" pxhost call 2 f.pdf --withhold ""
expect "preview" pxhost help pre
exit $failed
