#!/usr/bin/env bash
# Builds the Debian packages of libku for this machine and for the device
# (mipsel), checks them with lintian, and tries them as a user would:
#   - the packages of this machine are unpacked into a scratch root, and a C
#     program is built against that root only, once through pkg-config and
#     once through find_package(ku) in a parent and in a subdirectory (the
#     consumers of tests/package/consumer), and run;
#   - the installed ku starts from the scratch root and its manual page renders;
#   - the mipsel ku starts from its own scratch root under qemu-mipsel.
#
#   scripts/packages.sh [native|mipsel]...   (default: both)
#
# The builds are build-dist and build-dist-mipsel (prefix /usr, tests off);
# scripts/abi.sh check reads the same builds.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
arches=("$@")
((${#arches[@]})) || arches=(native mipsel)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

configure_and_package() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DKU_BUILD_TESTS=OFF -DKU_BUILD_EXAMPLES=OFF \
    "-DCMAKE_SHARED_LINKER_FLAGS=-Wl,-z,relro,-z,now" "-DCMAKE_EXE_LINKER_FLAGS=-Wl,-z,relro,-z,now" \
    "$@" > "$dir.configure.log" 2>&1 || { cat "$dir.configure.log"; exit 1; }
  cmake --build "$dir" -j "$(nproc)" --target deb > "$dir/deb.log" 2>&1 ||
    { cat "$dir/deb.log"; exit 1; }
  ls "$dir"/packages/*.deb
  # lintian prints errors as E: lines and exits non-zero on them.
  local status=0
  lintian --fail-on error --suppress-tags initial-upload-closes-no-bugs "$dir"/packages/*.deb \
    > "$dir/lintian.log" 2>&1 || status=$?
  grep -v 'running with root privileges' "$dir/lintian.log" || true
  ((status == 0)) || { echo "FAIL: lintian (status $status)" >&2; exit 1; }
}

unpack() {
  local dir=$1 into=$2 deb
  for deb in "$dir"/packages/*.deb; do dpkg -x "$deb" "$into"; done
}

check_run() {
  local out
  out=$("$@")
  [[ $out == "ku consumer ok"* ]] || { echo "FAIL: $* printed: $out" >&2; exit 1; }
  echo "ok: ${*: -1}"
}

for arch in "${arches[@]}"; do
  echo "=== packages: $arch"
  case $arch in
  native)
    configure_and_package build-dist
    scratch=$work/root
    unpack build-dist "$scratch"
    libdir=$scratch/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)
    export LD_LIBRARY_PATH=$libdir

    export PKG_CONFIG_PATH=$libdir/pkgconfig PKG_CONFIG_SYSROOT_DIR=
    cc -std=c11 -Wall -Werror tests/package/consumer/consumer.c -o "$work/c_pc" \
      $(pkg-config --cflags --libs ku)
    check_run "$work/c_pc"
    loaded=$(ldd "$work/c_pc")
    [[ $loaded == *"$libdir/libku.so.1"* ]] ||
      { echo "FAIL: c_pc does not load the unpacked libku: $loaded" >&2; exit 1; }

    cmake -S tests/package/consumer -B "$work/cm" -G Ninja -DCMAKE_PREFIX_PATH="$scratch/usr" \
      > "$work/cm.log" 2>&1 || { cat "$work/cm.log" >&2; exit 1; }
    cmake --build "$work/cm" > "$work/cm-build.log" 2>&1 || { cat "$work/cm-build.log" >&2; exit 1; }
    for program in consumer_c consumer_c_static resample_consumer_c again/consumer_again; do
      check_run "$work/cm/$program"
    done

    "$scratch/usr/bin/ku" --version
    [[ $(echo hello | "$scratch/usr/bin/ku" b64 encode) == aGVsbG8K ]]
    warnings=$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$scratch/usr/share/man/man1/ku.1.gz" 2>&1 >/dev/null)
    [[ -z $warnings ]] || { echo "FAIL: man page: $warnings" >&2; exit 1; }
    [[ -f $scratch/usr/share/bash-completion/completions/ku ]]
    unset LD_LIBRARY_PATH PKG_CONFIG_PATH
    echo "ok: the installed ku runs and its manual page renders"
    ;;
  mipsel)
    configure_and_package build-dist-mipsel -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mipsel-linux-gnu.cmake \
      -DCMAKE_INSTALL_LIBDIR=lib/mipsel-linux-gnu
    depends=$(dpkg-deb -f build-dist-mipsel/packages/libku[0-9]*_mipsel.deb Depends)
    [[ $depends == *libcurl4* ]] ||
      { echo "FAIL: dpkg-shlibdeps found no mipsel dependencies: $depends" >&2; exit 1; }
    scratch=$work/root-mipsel
    unpack build-dist-mipsel "$scratch"
    qemu-mipsel -L / -E LD_LIBRARY_PATH="$scratch/usr/lib/mipsel-linux-gnu" \
      "$scratch/usr/bin/ku" --version
    echo "ok: the mipsel ku runs from its unpacked packages"
    ;;
  *) echo "packages.sh: unknown '$arch' (native, mipsel)" >&2; exit 2 ;;
  esac
done
