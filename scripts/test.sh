#!/usr/bin/env bash
# Builds libku and runs its tests. With no argument it runs every suite:
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
# Missing packages are installed first (Debian, as root).
set -euo pipefail
cd "$(dirname "$0")/.."

suites=("$@")
((${#suites[@]})) || suites=(native asan torture tsan fuzz memcheck target packages)

deps=()
[[ " ${suites[*]} " == *" target "* || " ${suites[*]} " == *" packages "* ]] && deps=(--target)
scripts/install-deps.sh "${deps[@]}"

jobs=$(nproc)

# build_and_test DIR LABEL [CMAKE_ARGS...]: LABEL selects CTest cases by
# label; "!name" selects all but those labelled name.
build_and_test() {
  local dir=$1 label=$2
  shift 2
  cmake -S . -B "$dir" -G Ninja "$@" > "$dir.configure.log" 2>&1 ||
    { cat "$dir.configure.log"; exit 1; }
  local select=() target=()
  case $label in
    "") ;;
    !*) select=(-LE "${label#!}") ;;
    *) select=(-L "$label") ;;
  esac
  # The torture suite prints its table of calls and rounds.
  [[ $label == torture ]] && { target=(--target torture_test); select+=(-V); }
  cmake --build "$dir" -j "$jobs" "${target[@]}"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "${select[@]}")
}

for suite in "${suites[@]}"; do
  echo "=== $suite"
  case $suite in
    native) build_and_test build "" -DKU_BUILD_BENCH=ON ;;
    asan)   build_and_test build-asan '!torture' -DKU_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug ;;
    torture) build_and_test build-asan torture -DKU_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug ;;
    tsan)   build_and_test build-tsan concurrency -DKU_TSAN=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo ;;
    fuzz)   scripts/fuzz.sh 30 ;;
    memcheck)
      build_and_test build-memcheck "" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKU_BUILD_EXAMPLES=OFF \
        "-DKU_TEST_LAUNCHER=valgrind;-q;--error-exitcode=99;--leak-check=full;--errors-for-leak-kinds=definite,indirect;--show-leak-kinds=definite,indirect;--suppressions=$PWD/tests/support/valgrind.supp" ;;
    target) build_and_test build-mipsel "" -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mipsel-linux-gnu.cmake ;;
    packages) scripts/packages.sh; scripts/abi.sh check ;;
    *) echo "test.sh: unknown suite '$suite' (native, asan, torture, tsan, fuzz, memcheck, target, packages)" >&2; exit 2 ;;
  esac
done
