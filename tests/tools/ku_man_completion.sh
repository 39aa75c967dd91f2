#!/bin/sh
# The man page and the bash completion against the built ku: the page must
# render without a single groff warning, and both must know every command
# that `ku --help` lists, so a new command cannot ship undocumented.
set -eu
ku=$1 page=$2 completion=$3

warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null) ||
  { echo "man failed: $warnings" >&2; exit 1; }
[ -z "$warnings" ] || { echo "man page warnings:" >&2; echo "$warnings" >&2; exit 1; }

commands=$("$ku" --help | awk '/^commands:/ { on = 1; next } on && /^  [a-z]/ { print $1 } on && /^$/ { exit }')
[ -n "$commands" ] || { echo "no commands in ku --help" >&2; exit 1; }

offered=$(bash -c '
  source "$1"
  complete -p ku > /dev/null
  COMP_WORDS=(ku ""); COMP_CWORD=1; _ku; echo "${COMPREPLY[*]}"
  COMP_WORDS=(ku b64 d); COMP_CWORD=2; _ku; echo "b64 d: ${COMPREPLY[*]}"
  COMP_WORDS=(ku json set --s); COMP_CWORD=3; _ku; echo "json set --s: ${COMPREPLY[*]}"' \
  completion "$completion")
echo "$offered" | grep -qx 'b64 d: decode' || { echo "completion: $offered" >&2; exit 1; }
echo "$offered" | grep -qx 'json set --s: --string' || { echo "completion: $offered" >&2; exit 1; }

rendered=$(MANWIDTH=200 man -l "$page" 2>/dev/null | sed 's/.\x08//g')
for command in $commands; do
  echo "$offered" | head -n 1 | tr ' ' '\n' | grep -qx "$command" ||
    { echo "completion does not offer '$command'" >&2; exit 1; }
  echo "$rendered" | grep -q "ku $command" ||
    { echo "man page does not describe '$command'" >&2; exit 1; }
done
echo "ok: $(echo $commands | wc -w) commands in the man page and the completion"
