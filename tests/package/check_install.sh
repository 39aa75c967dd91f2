#!/bin/sh
# Installs the built tree into a temporary prefix and builds a C and a C++
# consumer against the installed copy only: once through pkg-config, once
# through find_package(ku). Each consumer must run and print its greeting.
# The resample consumer calls libresample's functions while naming only ku.
# The installed ku tool must start from the prefix with no library path set.
set -eu
build=$1 consumer=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" > "$work/install.log"

libdir=$(dirname "$(find "$prefix" -name ku.pc)")
libdir=${libdir%/pkgconfig}
export PKG_CONFIG_PATH=$libdir/pkgconfig

if [ -x "$prefix/bin/ku" ]; then
  env -u LD_LIBRARY_PATH "$prefix/bin/ku" --version > "$work/ku-version.out" 2>&1 ||
    { cat "$work/ku-version.out" >&2; echo "FAIL: the installed ku does not start" >&2; exit 1; }
  echo "ok: the installed ku starts from its prefix: $(cat "$work/ku-version.out")"
fi
export LD_LIBRARY_PATH=$libdir

check_run() {
  out=$("$1")
  case $out in
    "ku consumer ok"*) echo "ok: $1" ;;
    *) echo "FAIL: $1 printed: $out" >&2; exit 1 ;;
  esac
}

# pkg-config, shared
cc  -std=c11   -Wall -Werror "$consumer/consumer.c"   -o "$work/c_pc"   $(pkg-config --cflags --libs ku)
c++ -std=c++20 -Wall -Werror "$consumer/consumer.cpp" -o "$work/cxx_pc" $(pkg-config --cflags --libs ku)
# libresample's functions, reached through ku.pc alone
cc  -std=c11   -Wall -Werror "$consumer/resample_consumer.c" -o "$work/resample_pc" $(pkg-config --cflags --libs ku)
check_run "$work/c_pc"
check_run "$work/cxx_pc"
check_run "$work/resample_pc"
# pkg-config, static: the dependencies come as pkg-config modules, so that
# --static brings their own private libraries. This machine lacks the -dev
# packages of libcurl's (nghttp2, ssh2, ...): a stand-in libcurl.pc without
# them is put first, while ku.pc itself is used as installed.
[ "$(pkg-config --print-requires-private ku | tr '\n' ' ')" = "libcurl json-c libcrypto " ] ||
  { echo "FAIL: ku.pc's Requires.private: $(pkg-config --print-requires-private ku)" >&2; exit 1; }
mkdir "$work/pc"
printf 'Name: libcurl\nDescription: stand-in\nVersion: %s\nLibs: -lcurl\nCflags:\n' \
  "$(pkg-config --modversion libcurl)" > "$work/pc/libcurl.pc"
export PKG_CONFIG_PATH=$work/pc:$PKG_CONFIG_PATH
cc -std=c11 -Wall -Werror "$consumer/consumer.c" -o "$work/c_static" $(pkg-config --cflags ku) \
   -Wl,-Bstatic -lku -Wl,-Bdynamic $(pkg-config --static --libs ku | sed "s/-lku //")
check_run "$work/c_static"
cc -std=c11 -Wall -Werror "$consumer/resample_consumer.c" -o "$work/resample_static" $(pkg-config --cflags ku) \
   -Wl,-Bstatic -lku -Wl,-Bdynamic $(pkg-config --static --libs ku | sed "s/-lku //")
check_run "$work/resample_static"

# find_package
cmake -S "$consumer" -B "$work/cm" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" > "$work/cm.log" 2>&1 ||
  { cat "$work/cm.log" >&2; exit 1; }
cmake --build "$work/cm" > "$work/cm-build.log" 2>&1 || { cat "$work/cm-build.log" >&2; exit 1; }
check_run "$work/cm/consumer_c"
check_run "$work/cm/consumer_cxx"
check_run "$work/cm/consumer_static"
check_run "$work/cm/consumer_resample"
check_run "$work/cm/consumer_resample_static"
check_run "$work/cm/again/consumer_again"
