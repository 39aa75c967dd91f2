#!/bin/sh
# Builds a C program with the build's compiler and a bare -lku (no pkg-config,
# no -lresample) and runs it, through the emulator on a cross build: the
# library must export everything the program calls.
#   check_link_alone.sh SOURCE LIBDIR CC CFLAGS [EMULATOR...]
set -eu
source=$1 libdir=$2 cc=$3 cflags=$4
shift 4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# shellcheck disable=SC2086 # CFLAGS is a list of words
"$cc" -std=c11 -Wall -Wextra -Werror $cflags "$source" -o "$work/program" \
      -L"$libdir" -Wl,-rpath-link,"$libdir" -lku
out=$(LD_LIBRARY_PATH=$libdir "$@" "$work/program")
case $out in
  "ku consumer ok"*) echo "ok: $out" ;;
  *) echo "FAIL: the program printed: $out" >&2; exit 1 ;;
esac
