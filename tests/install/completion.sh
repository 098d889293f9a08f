#!/usr/bin/env bash
# The bash completion the build made from pxhost's command table, run by
# bash-completion itself: commands, each command's options (long and short),
# the values of options that take a fixed set, files where a path goes and
# nothing where a number goes. Every value offered is one pxhost accepts.
# The script is made again here by the pxhost under test, and must be the
# build's copy byte for byte (a stale copy would install completions of
# another command table).
set -uo pipefail
built=$1
pxhost=$2
script=$(mktemp)
trap 'rm -f "$script"' EXIT
"$pxhost" --bash-completion >"$script" || { echo "pxhost --bash-completion failed"; exit 1; }
if ! cmp -s "$script" "$built"; then
  echo "the build's completion differs from what pxhost --bash-completion prints"
  exit 1
fi
source /usr/share/bash-completion/bash_completion
source "$script"

failed=0
complete_words() {  # complete_words WORDS... (the last word is being completed)
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMP_LINE="$*"
  COMP_POINT=${#COMP_LINE}
  COMPREPLY=()
  _pxhost
}
expect() {  # expect "WANTED REPLY" WORDS...
  local want=$1
  shift
  complete_words "$@"
  if [ "${COMPREPLY[*]}" != "$want" ]; then
    echo "completing '$*': got '${COMPREPLY[*]}', want '$want'"
    failed=1
  fi
}

work=$(mktemp -d) || exit 1
trap 'rm -rf "$script" "$work"' EXIT
cd "$work" || exit 1
touch book.sxf page.ps
expect "thumbnail" pxhost th
expect "-h --help --version --plugin" pxhost -
expect "gpl json css" pxhost --plugin x.so palette -f ""
expect "gpl json css" pxhost palette --format ""
expect "json" pxhost palette --format=j
expect "--output" pxhost palette --ou
expect "--recursive" pxhost identify --rec
expect "--follow" pxhost method --fo
expect "--size" pxhost thumbnail --si
expect "" pxhost thumbnail -s ""
expect "" pxhost preview -j ""
expect "" pxhost identify --ext ""
expect "" pxhost call --file-type ""
expect "page.ps" pxhost preview --output p
expect "book.sxf" pxhost --plugin b
expect "book.sxf" pxhost xmp --plugin b
expect "page.ps" pxhost thumbnail -s 64 p
expect "" pxhost palette -f b
expect "book.sxf" pxhost palette -f gpl b
expect "" pxhost frobnicate -
expect "book.sxf" pxhost palette b
expect "required1 required2 required3 required4 advance-state" pxhost call 2 f.pdf --withhold ""
expect "preview" pxhost help pre

# Each command offers exactly the options its help lists, and every value
# offered for an option is taken by pxhost.
for command in $(complete_words pxhost ""; echo "${COMPREPLY[*]}"); do
  [ "$command" = help ] && continue
  complete_words pxhost "$command" -
  offered=$(printf '%s\n' "${COMPREPLY[@]}" | grep -v '^--plugin$' | sort)
  listed=$("$pxhost" "$command" --help | grep -oE '^  +(-[A-Za-z],)?--?[A-Za-z][-A-Za-z]*' |
    tr ',' '\n' | tr -d ' ' | sort)
  if [ "$offered" != "$listed" ]; then
    echo "$command: offered $(echo $offered), help lists $(echo $listed)"
    failed=1
  fi
done
for value in gpl json css; do
  "$pxhost" palette --format "$value" --help >/dev/null || failed=1
done
for value in required1 required2 required3 required4 advance-state; do
  "$pxhost" call 2 book.sxf --withhold "$value" --help >/dev/null || failed=1
done
exit $failed
