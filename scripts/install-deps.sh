#!/usr/bin/env bash
# Installs, with apt on Debian 12 as root, everything that the build, the tests,
# the benchmarks and the fuzzers need. Safe to run again: packages that are
# already installed are skipped, and apt is not touched when nothing is missing.
#
#   scripts/install-deps.sh            native build, tests, benchmarks
#   scripts/install-deps.sh --target   also the mipsel cross toolchain, the
#                                      target's libraries and qemu-user
set -euo pipefail

native=(
  build-essential cmake ninja-build pkg-config git
  libcurl4-openssl-dev libjson-c-dev libssl-dev libresample1-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev valgrind
  # test peers and stand-ins
  nginx-light openssl curl busybox iproute2 util-linux procps python3
  libsamplerate0-dev libspeexdsp-dev
  doxygen
)

target=(
  g++-mipsel-linux-gnu qemu-user
  libcurl4-openssl-dev:mipsel libjson-c-dev:mipsel libssl-dev:mipsel
  libresample1-dev:mipsel libgtest-dev:mipsel libgmock-dev:mipsel
)

want=("${native[@]}")
if [[ "${1:-}" == "--target" ]]; then
  if ! dpkg --print-foreign-architectures | grep -qx mipsel; then
    dpkg --add-architecture mipsel
  fi
  want+=("${target[@]}")
fi

missing=()
for pkg in "${want[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$pkg")
  fi
done

if ((${#missing[@]} == 0)); then
  echo "install-deps: everything is installed"
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -q
apt-get install -y -q --no-install-recommends "${missing[@]}"
