#!/bin/sh
# Every public header compiles on its own as C11 and as C++20, warning-free,
# with the flags the library's users get (CFLAGS). Where those flags widen
# time_t (a 32-bit target), a program built without them must stop at
# compile time with libku's message instead of passing a narrower time_t.
#   check_headers.sh INCLUDE GENERATED_INCLUDE CC CXX "CFLAGS"
set -eu
include=$1 generated=$2 cc=$3 cxx=$4 cflags=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for header in "$include"/ku.h "$include"/ku/*.h "$generated"/ku/*.h; do
  name=${header#"$include"/}
  name=${name#"$generated"/}
  printf '#include "%s"\nint ku_header_probe;\n' "$name" > "$work/probe.c"
  cp "$work/probe.c" "$work/probe.cpp"
  # shellcheck disable=SC2086 # CFLAGS is a list of words
  "$cc"  -std=c11   -Wall -Wextra -Werror -pedantic $cflags -I"$include" -I"$generated" -c "$work/probe.c"   -o "$work/probe_c.o"
  # shellcheck disable=SC2086
  "$cxx" -std=c++20 -Wall -Wextra -Werror -pedantic $cflags -I"$include" -I"$generated" -c "$work/probe.cpp" -o "$work/probe_cxx.o"
done
echo "ok: all headers compile as C11 and C++20"

cat > "$work/version.c" <<'PROBE'
#include <ku.h>
#if !KU_CHECK_VERSION(1, 0, 0) || !KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR, 0) || \
    KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR, KU_VERSION_PATCH + 1) || \
    KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR + 1, 0) || KU_CHECK_VERSION(KU_VERSION_MAJOR + 1, 0, 0)
#error "KU_CHECK_VERSION compares wrongly"
#endif
int ku_header_probe;
PROBE
# shellcheck disable=SC2086
"$cc" -std=c11 $cflags -I"$include" -I"$generated" -c "$work/version.c" -o "$work/version.o"
echo "ok: KU_CHECK_VERSION takes this version and older ones, not newer ones"

case " $cflags " in
  *" -D_TIME_BITS=64 "*)
    printf '#include <ku.h>\nint ku_header_probe;\n' > "$work/narrow.c"
    if "$cc" -std=c11 -I"$include" -I"$generated" -c "$work/narrow.c" -o "$work/narrow.o" 2> "$work/narrow.log"; then
      echo "FAIL: <ku.h> compiled with a 32-bit time_t" >&2
      exit 1
    fi
    grep -q 'libku needs a 64-bit time_t' "$work/narrow.log" ||
      { cat "$work/narrow.log" >&2; echo "FAIL: no clear message for a 32-bit time_t" >&2; exit 1; }
    echo "ok: a 32-bit time_t stops at compile time with libku's message" ;;
esac
