#!/bin/sh
# The man page renders without a groff warning, and it and the bash
# completion know every command `ku --help` lists.
set -eu
ku=$1 page=$2 completion=$3
warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null) || true
[ -z "$warnings" ] || { echo "man page warnings: $warnings" >&2; exit 1; }
offered=$(bash -c 'source "$1"; complete -p ku > /dev/null
  c() { COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _ku; echo "${*:2}: ${COMPREPLY[*]}"; }
  c ku ""; c ku b64 d; c ku json set --s' _ "$completion")
echo "$offered" | grep -qx 'b64 d: decode' && echo "$offered" | grep -qx 'json set --s: --string' ||
  { echo "completion: $offered" >&2; exit 1; }
rendered=$(MANWIDTH=200 man -l "$page" 2>/dev/null | sed 's/.\x08//g')
for command in $("$ku" --help | sed -n '/^commands:/,/^$/s/^  \([a-z0-9]*\) .*/\1/p'); do
  echo "$offered" | head -n 1 | tr ' ' '\n' | grep -qx "$command" ||
    { echo "no completion: $command" >&2; exit 1; }
  echo "$rendered" | grep -q "ku $command" || { echo "man page lacks: $command" >&2; exit 1; }
done
