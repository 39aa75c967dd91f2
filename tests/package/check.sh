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
dynamic)  # LIB READELF SONAME: the soname holds the ABI major; the device has no C++ runtime
  "$2" -d "$1" > "$work/dynamic" && grep -qF "Library soname: [$3]" "$work/dynamic" ||
    fail "$1's soname is not $3"
  grep NEEDED "$work/dynamic" > "$work/needed" || fail "$2 read no NEEDED entry"
  ! grep -E 'libstdc\+\+|libatomic|libgcc_s' "$work/needed" || fail "$1 needs a C++ runtime" ;;
exports)  # LIB NM: every defined dynamic symbol is API, in the version node KU_1
  api='(ku|kutable|kulock|kuprocess|circle_buf|dynamic_mem|membuffer|memptr|miniresample|resample)'
  api="${api}_[a-z0-9_]+|strupr|strlwr|str_alloc|json_(file|buf)_get_int|Https[A-Za-z]+"
  api="$api|(Get|Put)Ini[A-Za-z]+|KEY_ENC|lrs[A-Za-z]+"
  # __odr_asan.* are AddressSanitizer's markers of exported data, not ours.
  "$2" -D --defined-only "$1" | awk '$2 ~ /^[TDBRVWiu]$/ {print $3}' | grep -v '^__odr_asan\.' |
    sort -u > "$work/symbols"
  [ -s "$work/symbols" ] || fail "$2 found no exported symbol in $1"
  ! grep -Ev "^($api)@@KU_1$" "$work/symbols" || fail "exported outside the API or KU_1 (above)" ;;
headers)  # INCLUDE GENERATED CC CXX "CFLAGS": each header alone is valid C11 and C++20
  set -- "$1" "$2" "$3" "$4" "$5 -I$1 -I$2"
  for header in "$1"/ku.h "$1"/ku/*.h "$2"/ku/*.h; do
    printf '#include "%s"\nint ku_header_probe;\n' "$header" | tee "$work/p.c" > "$work/p.cpp"
    "$3" -std=c11 -Wall -Wextra -Werror -pedantic $5 -c "$work/p.c" -o "$work/p.o"
    "$4" -std=c++20 -Wall -Wextra -Werror -pedantic $5 -c "$work/p.cpp" -o "$work/p.o"
  done
  # Where CFLAGS widen time_t, a program built without them must stop.
  case " $5 " in *" -D_TIME_BITS=64 "*)
    ! "$3" -std=c11 -I"$1" -I"$2" -x c -c "$1/ku.h" -o "$work/p.o" 2> "$work/narrow.log" ||
      fail "<ku.h> compiled with a 32-bit time_t"
    grep -q 'libku needs a 64-bit time_t' "$work/narrow.log" || fail "no message for 32-bit time_t"
  esac ;;
link_alone)  # SOURCE LIBDIR CC "CFLAGS" [EMULATOR...]: a bare -lku reaches every function
  "$3" -std=c11 -Wall -Wextra -Werror $4 "$1" -o "$work/program" -L"$2" -Wl,-rpath-link,"$2" -lku
  export LD_LIBRARY_PATH="$2"
  shift 4
  run "$@" "$work/program" ;;
install)  # BUILD CONSUMER: consumers of the installed copy only, by pkg-config and CMake
  prefix=$work/prefix
  cmake --install "$1" --prefix "$prefix" > /dev/null
  libdir=$(dirname "$(dirname "$(find "$prefix" -name ku.pc)")")
  export PKG_CONFIG_PATH="$work:$libdir/pkgconfig"
  # The tool, where built, starts from its prefix with no library path.
  [ ! -x "$prefix/bin/ku" ] || env -u LD_LIBRARY_PATH "$prefix/bin/ku" --version ||
    fail "the installed ku does not start"
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
  for program in consumer_c consumer_cpp resample_consumer_c again/consumer_again \
                 consumer_c_static consumer_cpp_static resample_consumer_c_static; do
    run "$work/cm/$program"
  done ;;
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
