#!/bin/sh
# A parent project that adds libku's source tree with add_subdirectory, as a
# distribution or a device's firmware build does, gets the library alone:
# no tests, tools or examples, so GoogleTest and Google Benchmark are not
# needed, and ku::ku links its program.
set -eu
source=$1 consumer=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/parent"
cat > "$work/parent/CMakeLists.txt" <<PARENT
cmake_minimum_required(VERSION 3.25)
project(parent C CXX)
add_subdirectory("$source" ku)
add_executable(app "$consumer/consumer.c")
target_link_libraries(app PRIVATE ku::ku)
PARENT
cmake -S "$work/parent" -B "$work/build" -G Ninja -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON \
      -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON > "$work/configure.log" 2>&1 ||
  { cat "$work/configure.log" >&2; echo "FAIL: the parent project does not configure" >&2; exit 1; }
for option in KU_BUILD_TESTS KU_BUILD_TOOLS KU_BUILD_EXAMPLES KU_WERROR; do
  grep -qx "$option:BOOL=OFF" "$work/build/CMakeCache.txt" ||
    { echo "FAIL: $option is not OFF under add_subdirectory" >&2; exit 1; }
done
echo "ok: libku configures as a subproject without GoogleTest, library only"
