#!/usr/bin/env bash
# Mutation run: how many small faults planted in a family's source does its
# test program catch? Not part of CI (minutes per family).
#
#   scripts/mutate.sh [--max N] [--seed S] [--timeout SEC] [--build DIR] [FAMILY...]
#
# FAMILY is a source name (membuffer, json, https, ...; default: all). For each
# family a seeded sample of at most N mutants (default 40; 0 = all) is taken
# from src/<subsystem>/<family>.cpp (and the sources its test also covers,
# see scripts/mutate.py). Each mutant is written into the source, only
# <family>_test is rebuilt (-j1, nice) and run under `timeout`; the source is
# restored after every mutant and on any exit, Ctrl-C included.
# Prints per family: mutants, killed, survived, did not compile, score
# (killed / compiled), then every survivor as file:line and the change.
set -uo pipefail
cd "$(dirname "$0")/.."

max=40 seed=1 limit=20 build=build-mutate
families=()
while (($#)); do
  case $1 in
    --max) max=$2; shift 2 ;;
    --seed) seed=$2; shift 2 ;;
    --timeout) limit=$2; shift 2 ;;
    --build) build=$2; shift 2 ;;
    -h|--help) sed -n '2,14p' "$0"; exit 0 ;;
    *) families+=("$1"); shift ;;
  esac
done
((${#families[@]})) || mapfile -t families < <(python3 scripts/mutate.py families)

if [[ ! -f $build/build.ninja ]]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKU_BUILD_EXAMPLES=OFF \
    -DKU_BUILD_TOOLS=OFF > "$build.configure.log" 2>&1 || { cat "$build.configure.log"; exit 1; }
fi

stash=$(mktemp -d)
saved=()
restore() {
  local src
  for src in "${saved[@]}"; do cp -p "$stash/$(basename "$src")" "$src"; touch "$src"; done
}
trap 'restore; rm -rf "$stash"' EXIT
trap 'exit 130' INT TERM

build_test() { nice cmake --build "$build" -j1 --target "$1" > "$stash/build.log" 2>&1; }
run_test() { (cd "$build/tests" && nice timeout "$limit" "./$1" --gtest_brief=1) > /dev/null 2>&1; } 2> /dev/null

printf '%-14s %7s %6s %8s %4s %6s\n' family mutants killed survived dnc score
for family in "${families[@]}"; do
  target=${family}_test
  mapfile -t sources < <(python3 scripts/mutate.py sources "$family") || exit 1
  saved=()
  for src in "${sources[@]}"; do cp -p "$src" "$stash/$(basename "$src")"; saved+=("$src"); done
  if ! build_test "$target" || ! run_test "$target"; then
    echo "$family: $target fails without mutants, skipped" >&2
    continue
  fi
  killed=0 survived=0 dnc=0 survivors=()
  mapfile -t sample < <(python3 scripts/mutate.py list "$family" --max "$max" --seed "$seed" 2>/dev/null)
  for row in "${sample[@]}"; do
    index=${row%%$'\t'*}
    python3 scripts/mutate.py apply "$family" "$index" --max "$max" --seed "$seed"
    if ! build_test "$target"; then
      ((dnc++))
    elif run_test "$target"; then
      ((survived++)); survivors+=("${row#*$'\t'}")
    else
      ((killed++))
    fi
    restore
  done
  build_test "$target"
  compiled=$((killed + survived))
  score=$( ((compiled)) && echo "$((100 * killed / compiled))%" || echo -)
  printf '%-14s %7s %6s %8s %4s %6s\n' "$family" "${#sample[@]}" "$killed" "$survived" "$dnc" "$score"
  for s in "${survivors[@]}"; do printf '  survived %s\n' "$s"; done
done
