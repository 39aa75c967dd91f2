#!/bin/sh
# Every public header compiles on its own as C11 and as C++20, warning-free.
set -eu
include=$1 cc=$2 cxx=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for header in "$include"/ku.h "$include"/ku/*.h; do
  name=${header#"$include"/}
  printf '#include "%s"\nint ku_header_probe;\n' "$name" > "$work/probe.c"
  cp "$work/probe.c" "$work/probe.cpp"
  "$cc"  -std=c11   -Wall -Wextra -Werror -pedantic -I"$include" -c "$work/probe.c"   -o "$work/probe_c.o"
  "$cxx" -std=c++20 -Wall -Wextra -Werror -pedantic -I"$include" -c "$work/probe.cpp" -o "$work/probe_cxx.o"
done
echo "ok: all headers compile as C11 and C++20"
