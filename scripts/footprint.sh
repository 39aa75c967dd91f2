#!/usr/bin/env bash
# What libku costs on the device, measured on the mipsel cross build:
#   - the stripped size of libku.so at -O2 (RelWithDebInfo) and -Os (MinSizeRel);
#   - the NEEDED entries of the -Os library;
#   - resident memory of examples/footprint (one call into each family)
#     against footprint_baseline (the same program without the library),
#     natively and under qemu-mipsel.
# Builds in build-mipsel-O2, build-mipsel-Os and build-footprint; prints a
# Markdown table for the README.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh --target > /dev/null

jobs=$(nproc)
toolchain=-DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mipsel-linux-gnu.cmake
targets=(--target ku_shared footprint footprint_baseline)

configure_and_build() {
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja -DKU_BUILD_TESTS=OFF "$@" > "$dir.configure.log" 2>&1 ||
    { cat "$dir.configure.log"; exit 1; }
  cmake --build "$dir" -j "$jobs" "${targets[@]}" > /dev/null
}

stripped_size() {
  local dir=$1
  mipsel-linux-gnu-strip -o "$dir/libku.stripped.so" "$dir/libku.so"
  stat -c %s "$dir/libku.stripped.so"
}

kib() { echo "$(( ($1 + 1023) / 1024 ))"; }

# "vm_rss N KiB, mapped M KiB, libku L KiB" -> field 2, 5 or 8
figure() { awk -v field="$2" '{print $field}' <<< "$1"; }

configure_and_build build-mipsel-O2 "$toolchain" -DCMAKE_BUILD_TYPE=RelWithDebInfo
configure_and_build build-mipsel-Os "$toolchain" -DCMAKE_BUILD_TYPE=MinSizeRel
configure_and_build build-footprint -DCMAKE_BUILD_TYPE=MinSizeRel

o2=$(stripped_size build-mipsel-O2)
os=$(stripped_size build-mipsel-Os)
needed=$(mipsel-linux-gnu-readelf -d build-mipsel-Os/libku.so | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
         paste -sd ' ' -)

qemu=(qemu-mipsel -L /)
native_with=$(build-footprint/examples/footprint 2> /dev/null)
native_without=$(build-footprint/examples/footprint_baseline 2> /dev/null)
target_with=$("${qemu[@]}" build-mipsel-Os/examples/footprint 2> /dev/null)
target_without=$("${qemu[@]}" build-mipsel-Os/examples/footprint_baseline 2> /dev/null)

echo "| measure (mipsel unless said) | value |"
echo "|---|---|"
echo "| libku.so stripped, -O2 | $o2 bytes ($(kib "$o2") KiB) |"
echo "| libku.so stripped, -Os | $os bytes ($(kib "$os") KiB) |"
echo "| NEEDED of libku.so | $needed |"
echo "| VmRSS, footprint vs baseline, x86-64 native | $(figure "$native_with" 2) KiB vs $(figure "$native_without" 2) KiB |"
echo "| resident pages of own mappings, footprint vs baseline, under qemu-mipsel | $(figure "$target_with" 5) KiB vs $(figure "$target_without" 5) KiB |"
echo "| of which libku.so's own mappings, under qemu-mipsel | $(figure "$target_with" 8) KiB |"
