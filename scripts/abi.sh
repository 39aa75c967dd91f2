#!/usr/bin/env bash
# The ABI guard of libku.so. abi/libku-x86_64.abi and abi/libku-mipsel.abi are
# abidw dumps (abigail-tools) of the library for this machine and for the
# device: every exported symbol with its signature and every record declared
# in include/ku, the records with a public layout (ku_circle_buf_state,
# ku_dynamic_mem, ku_plugin, HttpsOption, membuffer, memptr, ku_tm) included
# even where no exported function reaches them.
#
#   scripts/abi.sh check  [x86_64|mipsel]...  build libku.so and compare it with
#                                             the baselines: any change other
#                                             than an added symbol fails (a
#                                             removed symbol, a changed
#                                             signature or record layout)
#   scripts/abi.sh update [x86_64|mipsel]...  rewrite the baselines from the
#                                             current sources, for a deliberate
#                                             change; commit them with it
#
# The builds are build-dist and build-dist-mipsel, shared with
# scripts/packages.sh; only libku.so is built here.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD

mode=${1:-}
[[ $mode == check || $mode == update ]] || {
  echo "usage: scripts/abi.sh check|update [x86_64|mipsel]..." >&2; exit 2; }
shift
arches=("$@")
((${#arches[@]})) || arches=(x86_64 mipsel)

# Build paths and file locations other than the header's name stay out of
# the dump, so that it is the same on every machine.
dump() {
  abidw --no-corpus-path --no-comp-dir-path --short-locs \
    --headers-dir "$root/include/ku" --drop-private-types --load-all-types \
    --out-file "$2" "$1"
}

# The records whose layout callers use must be in every dump with their
# size, whatever reaches them.
public_records=(ku_circle_buf_state ku_dynamic_mem ku_plugin HttpsOption membuffer memptr ku_tm)
check_records() {
  local record
  for record in "${public_records[@]}"; do
    grep -q "<class-decl name='$record' size-in-bits=" "$1" ||
      { echo "abi: $1 lacks the record $record" >&2; exit 1; }
  done
}

failed=0
for arch in "${arches[@]}"; do
  case $arch in
    x86_64) dir=build-dist options=() ;;
    mipsel) dir=build-dist-mipsel
            options=(-DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mipsel-linux-gnu.cmake
                     -DCMAKE_INSTALL_LIBDIR=lib/mipsel-linux-gnu) ;;
    *) echo "abi.sh: unknown architecture '$arch' (x86_64, mipsel)" >&2; exit 2 ;;
  esac
  if [[ ! -f $dir/CMakeCache.txt ]]; then
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
      -DKU_BUILD_TESTS=OFF -DKU_BUILD_EXAMPLES=OFF "${options[@]}" > "$dir.configure.log" 2>&1 ||
      { cat "$dir.configure.log"; exit 1; }
  fi
  # The dump needs the debug information of a RelWithDebInfo or Debug build.
  grep -Eq '^CMAKE_BUILD_TYPE:[A-Z]+=(RelWithDebInfo|Debug)$' "$dir/CMakeCache.txt" ||
    { echo "abi.sh: $dir is not a build with debug information" >&2; exit 1; }
  cmake --build "$dir" -j "$(nproc)" --target ku_shared > "$dir/abi-build.log" 2>&1 ||
    { cat "$dir/abi-build.log"; exit 1; }
  library=$(readlink -f "$dir/libku.so")
  baseline=abi/libku-$arch.abi
  if [[ $mode == update ]]; then
    mkdir -p abi
    dump "$library" "$baseline"
    check_records "$baseline"
    echo "abi: wrote $baseline from $library"
    continue
  fi
  [[ -f $baseline ]] || { echo "abi: no $baseline (scripts/abi.sh update $arch makes it)" >&2; exit 1; }
  current=$dir/libku-$arch.abi
  dump "$library" "$current"
  check_records "$current"
  # -t compares the records that no exported function reaches, too; added
  # symbols are compatible and not reported.
  if abidiff --non-reachable-types --no-added-syms "$baseline" "$current" > "$dir/abidiff.txt"; then
    echo "abi: $arch matches $baseline"
  else
    echo "abi: $arch differs from $baseline:" >&2
    cat "$dir/abidiff.txt" >&2
    failed=1
  fi
done
if ((failed)); then
  echo "abi: an incompatible change needs a new major version; a deliberate compatible one," >&2
  echo "     scripts/abi.sh update, with the new baselines committed beside it" >&2
  exit 1
fi
