#!/usr/bin/env bash
# Builds libku and runs its tests. With no argument it runs every suite but
# native, which builds is a superset of:
#   builds   the compiler matrix, everything built (tests, tools, examples,
#            benchmarks): GCC RelWithDebInfo (the native build, with its
#            tests), Clang (with the native tests), GCC Release, MinSizeRel
#            and Debug
#   native   Release-with-debug-info build, all tests, benchmarks compiled
#   asan     AddressSanitizer + UndefinedBehaviorSanitizer build, all tests
#   torture  every fallible call of every case failed once, in the asan build,
#            LeakSanitizer after each round (native only: no LSan under qemu)
#   tsan     ThreadSanitizer build, the concurrency tests
#   fuzz     every libFuzzer target for 30 s (clang, ASan + UBSan): no finding
#   memcheck every unit test under valgrind: no leaks, no invalid accesses
#   target   cross build for the device (mipsel), all tests under qemu-mipsel
#   packages Debian packages for both (lintian), installed into a scratch root
#            and linked there; libku.so's ABI against the baselines in abi/
# Every build treats warnings as errors (KU_WERROR). Missing packages are
# installed first (Debian, as root).
set -euo pipefail
cd "$(dirname "$0")/.."

suites=("$@")
((${#suites[@]})) || suites=(builds asan torture tsan fuzz memcheck target packages)

deps=()
[[ " ${suites[*]} " == *" target "* || " ${suites[*]} " == *" packages "* ]] && deps=(--target)
scripts/install-deps.sh "${deps[@]}"

jobs=$(nproc)

# build DIR CMAKE_ARGS... [-- TARGET]: configures and builds DIR (everything,
# or the one target after --), one directory per configuration so that a
# second run only rebuilds what changed; prints the time it took.
build() {
  local dir=$1 start=$SECONDS args=() target=()
  shift
  while (($#)); do
    if [[ $1 == -- ]]; then target=(--target "$2"); break; fi
    args+=("$1"); shift
  done
  cmake -S . -B "$dir" -G Ninja -DKU_WERROR=ON "${args[@]}" > "$dir.configure.log" 2>&1 ||
    { cat "$dir.configure.log"; exit 1; }
  cmake --build "$dir" -j "$jobs" "${target[@]}"
  echo "--- $dir built in $((SECONDS - start)) s"
}

# build_and_test DIR LABEL CMAKE_ARGS...: LABEL selects CTest cases by label
# ("" for all, "!name" for all but those labelled name).
build_and_test() {
  local dir=$1 label=$2
  shift 2
  local select=() extra=()
  case $label in
    "") ;;
    !*) select=(-LE "${label#!}") ;;
    *) select=(-L "$label") ;;
  esac
  # The torture suite builds only its program and prints the calls and rounds
  # of each case.
  [[ $label == torture ]] && { extra=(-- torture_test); select+=(-V); }
  build "$dir" "$@" "${extra[@]}"
  local start=$SECONDS
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "${select[@]}")
  echo "--- $dir tested in $((SECONDS - start)) s"
}

native() { build_and_test build "" -DKU_BUILD_BENCH=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo; }

for suite in "${suites[@]}"; do
  echo "=== $suite"
  case $suite in
    native) native ;;
    builds)
      native
      CC=clang CXX=clang++ build_and_test build-clang "" -DKU_BUILD_BENCH=ON
      for type in Release MinSizeRel Debug; do
        build "build-${type,,}" -DKU_BUILD_BENCH=ON -DCMAKE_BUILD_TYPE=$type
      done ;;
    asan)   build_and_test build-asan '!torture' -DKU_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug ;;
    torture) build_and_test build-asan torture -DKU_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug ;;
    tsan)   build_and_test build-tsan concurrency -DKU_TSAN=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    fuzz)   scripts/fuzz.sh 30 ;;
    memcheck)
      build_and_test build-memcheck "" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKU_BUILD_EXAMPLES=OFF \
        "-DKU_TEST_LAUNCHER=valgrind;-q;--error-exitcode=99;--leak-check=full;--errors-for-leak-kinds=definite,indirect;--show-leak-kinds=definite,indirect;--suppressions=$PWD/tests/support/valgrind.supp" ;;
    target) build_and_test build-mipsel "" -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mipsel-linux-gnu.cmake ;;
    packages) scripts/packages.sh; scripts/abi.sh check ;;
    *) echo "test.sh: unknown suite '$suite' (builds, native, asan, torture, tsan, fuzz, memcheck, target, packages)" >&2; exit 2 ;;
  esac
done
