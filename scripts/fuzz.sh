#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one for a bounded
# time on a copy of its seed corpus. Any finding fails the run; the crashing
# input is kept under build-fuzz/findings/ to become a regression test.
#   scripts/fuzz.sh [SECONDS_PER_TARGET] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-30}
shift || true

cmake -S fuzz -B build-fuzz -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
      -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKU_WERROR=ON > build-fuzz.configure.log 2>&1 ||
  { cat build-fuzz.configure.log; exit 1; }
cmake --build build-fuzz -j "$(nproc)"

targets=("$@")
if ((${#targets[@]} == 0)); then
  for source in fuzz/*_fuzz.cpp; do
    [[ -e $source ]] || continue
    name=$(basename "$source" .cpp)
    targets+=("${name%_fuzz}")
  done
fi

mkdir -p build-fuzz/findings
status=0
for target in "${targets[@]}"; do
  work=$(mktemp -d)
  [[ -d fuzz/corpus/$target ]] && cp -r "fuzz/corpus/$target/." "$work/"
  flags=()
  [[ -f fuzz/$target.dict ]] && flags+=(-dict="$PWD/fuzz/$target.dict")
  # fuzz/<target>.options: further libFuzzer flags, one a line, # comments.
  [[ -f fuzz/$target.options ]] && flags+=($(grep -v '^#' "fuzz/$target.options"))
  echo "=== fuzz $target for ${seconds}s"
  if ! (cd build-fuzz/findings &&
        ASAN_OPTIONS=detect_leaks=1 ../"${target}_fuzz" -max_total_time="$seconds" \
          -print_final_stats=1 -close_fd_mask=3 -artifact_prefix="$PWD/${target}-" "${flags[@]}" \
          "$work" 2>&1 | tail -n 20); then
    echo "FINDING in $target (inputs under build-fuzz/findings/)" >&2
    status=1
  fi
  rm -rf "$work"
done
exit $status
