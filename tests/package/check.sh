#!/bin/sh
# Checks on libku as a user receives it: check.sh CHECK ARGUMENTS...
set -eu
check=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
  echo "FAIL: $*" >&2
  exit 1
}
# Runs a consumer program, which must greet.
run() {
  out=$("$@") || fail "$* failed"
  case $out in "ku consumer ok"*) echo "ok: $out" ;; *) fail "$* printed: $out" ;; esac
}
case $check in
needed)  # LIB READELF: the device has no C++ runtime
  needed=$("$2" -d "$1" | grep NEEDED) || fail "$2 read no NEEDED entry"
  ! echo "$needed" | grep -E 'libstdc\+\+|libatomic|libgcc_s' || fail "$1 needs a C++ runtime" ;;
exports)  # LIB NM: every defined dynamic symbol is API, in the version node KU_1
  api='ku_[a-z0-9_]+|kutable_[a-z_]+|kulock_[a-z_]+|kuprocess_[a-z_]+|circle_buf_[a-z_]+'
  api="$api|dynamic_mem_[a-z_]+|membuffer_[a-z_]+|memptr_[a-z_]+|miniresample_[a-z_]+|strupr"
  api="$api|strlwr|str_alloc|json_(file|buf)_get_int|Https[A-Za-z]+|(Get|Put)Ini[A-Za-z]+"
  api="$api|KEY_ENC|resample_[a-z_]+|lrs[A-Za-z]+"
  # __odr_asan.* are AddressSanitizer's markers of exported data, not ours.
  "$2" -D --defined-only "$1" | awk '$2 ~ /^[TDBRVWiu]$/ {print $3}' | grep -v '^__odr_asan\.' |
    sort -u > "$work/symbols"
  [ -s "$work/symbols" ] || fail "$2 found no exported symbol in $1"
  ! grep -Ev "^($api)@@KU_1$" "$work/symbols" || fail "exported outside the API or KU_1 (above)"
  # libresample's ten functions, so that -lku alone reaches them
  for name in resample_open resample_dup resample_get_filter_width resample_process \
              resample_close lrsSrcUp lrsSrcUD lrsFilterUp lrsFilterUD lrsLpFilter; do
    grep -qx "$name@@KU_1" "$work/symbols" || fail "$1 does not export $name"
  done ;;
headers)  # INCLUDE GENERATED CC CXX "CFLAGS": each header alone is valid C11 and C++20
  set -- "$1" "$2" "$3" "$4" "$5 -I$1 -I$2"
  for header in "$1"/ku.h "$1"/ku/*.h "$2"/ku/*.h; do
    name=$(echo "$header" | sed "s|^$1/||;s|^$2/||")
    printf '#include "%s"\nint ku_header_probe;\n' "$name" > "$work/p.c"
    cp "$work/p.c" "$work/p.cpp"
    "$3" -std=c11 -Wall -Wextra -Werror -pedantic $5 -c "$work/p.c" -o "$work/p.o"
    "$4" -std=c++20 -Wall -Wextra -Werror -pedantic $5 -c "$work/p.cpp" -o "$work/p.o"
  done
  cat > "$work/version.c" <<'PROBE'
#include <ku.h>
#if !KU_CHECK_VERSION(1, 0, 0) || !KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR, 0) || \
    KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR, KU_VERSION_PATCH + 1) || \
    KU_CHECK_VERSION(KU_VERSION_MAJOR, KU_VERSION_MINOR + 1, 0) || \
    KU_CHECK_VERSION(KU_VERSION_MAJOR + 1, 0, 0)
#error "KU_CHECK_VERSION compares wrongly"
#endif
int ku_header_probe;
PROBE
  "$3" -std=c11 $5 -c "$work/version.c" -o "$work/p.o"
  # Where CFLAGS widen time_t, a program built without them must stop.
  case " $5 " in *" -D_TIME_BITS=64 "*)
    ! "$3" -std=c11 -I"$1" -I"$2" -c "$work/version.c" -o "$work/p.o" 2> "$work/narrow.log" ||
      fail "<ku.h> compiled with a 32-bit time_t"
    grep -q 'libku needs a 64-bit time_t' "$work/narrow.log" || fail "no message for 32-bit time_t"
  esac ;;
link_alone)  # SOURCE LIBDIR CC "CFLAGS" [EMULATOR...]: a bare -lku reaches every function
  source=$1 libdir=$2 cc=$3 cflags=$4
  shift 4
  "$cc" -std=c11 -Wall -Wextra -Werror $cflags "$source" -o "$work/program" -L"$libdir" \
    -Wl,-rpath-link,"$libdir" -lku
  export LD_LIBRARY_PATH="$libdir"
  run "$@" "$work/program" ;;
install)  # BUILD CONSUMER: consumers of the installed copy only, by pkg-config and CMake
  prefix=$work/prefix
  cmake --install "$1" --prefix "$prefix" > /dev/null
  libdir=$(dirname "$(dirname "$(find "$prefix" -name ku.pc)")")
  export PKG_CONFIG_PATH="$work:$libdir/pkgconfig"
  if [ -x "$prefix/bin/ku" ]; then  # starts from its prefix with no library path
    env -u LD_LIBRARY_PATH "$prefix/bin/ku" --version || fail "the installed ku does not start"
  fi
  export LD_LIBRARY_PATH="$libdir"
  [ "$(pkg-config --print-requires-private ku | tr '\n' ' ')" = "libcurl json-c libcrypto " ] ||
    fail "ku.pc's Requires.private: $(pkg-config --print-requires-private ku)"
  # --static brings the dependencies' own private libraries: this machine
  # lacks the -dev packages of libcurl's, so a stand-in libcurl.pc goes first.
  printf 'Name: libcurl\nDescription: stand-in\nVersion: %s\nLibs: -lcurl\nCflags:\n' \
    "$(pkg-config --modversion libcurl)" > "$work/libcurl.pc"
  # the flags are lists of words: unquoted; libresample comes in only statically
  cc -std=c11 -Wall -Werror "$2/consumer.c" -o "$work/shared" $(pkg-config --cflags --libs ku)
  run "$work/shared"
  for program in consumer.c resample_consumer.c; do
    cc -std=c11 -Wall -Werror "$2/$program" -o "$work/static" $(pkg-config --cflags ku) \
      -Wl,-Bstatic -lku -Wl,-Bdynamic $(pkg-config --static --libs ku | sed "s/-lku //")
    run "$work/static"
  done
  { cmake -S "$2" -B "$work/cm" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" &&
    cmake --build "$work/cm"; } > "$work/log" 2>&1 || { cat "$work/log" >&2; fail "find_package"; }
  for program in consumer_c consumer_cpp resample_consumer_c; do
    run "$work/cm/$program"
    run "$work/cm/${program}_static"
  done
  run "$work/cm/again/consumer_again" ;;
subproject)  # SOURCE CONSUMER: add_subdirectory gives the library alone, without GoogleTest
  mkdir "$work/parent"
  cat > "$work/parent/CMakeLists.txt" <<PARENT
cmake_minimum_required(VERSION 3.25)
project(parent C CXX)
add_subdirectory("$1" ku)
add_executable(app "$2/consumer.c")
target_link_libraries(app PRIVATE ku::ku)
PARENT
  cmake -S "$work/parent" -B "$work/build" -G Ninja -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON \
    -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON > "$work/log" 2>&1 ||
    { cat "$work/log" >&2; fail "the parent project does not configure"; }
  for option in KU_BUILD_TESTS KU_BUILD_TOOLS KU_BUILD_EXAMPLES KU_WERROR; do
    grep -qx "$option:BOOL=OFF" "$work/build/CMakeCache.txt" || fail "$option is not OFF"
  done ;;
*) fail "unknown check $check" ;;
esac
echo "ok: $check"
