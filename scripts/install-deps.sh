#!/usr/bin/env bash
# Installs, with apt on Debian 12 as root, everything that the build, the tests,
# the benchmarks and the fuzzers need. Safe to run again: packages that are
# already installed are skipped, and apt is not touched when nothing is missing.
#
#   scripts/install-deps.sh            native build, tests, benchmarks
#   scripts/install-deps.sh --target   also the mipsel cross toolchain, the
#                                      target's libraries and qemu-user
#   scripts/install-deps.sh --demo     only what building libku and the ku
#                                      tool and running scripts/demo.sh need
set -euo pipefail

# Building the library and the tool.
build=(
  build-essential cmake ninja-build pkg-config
  libcurl4-openssl-dev libjson-c-dev libssl-dev libresample1-dev
)
# The demo's tour also serves files on loopback with python3.
demo=("${build[@]}" python3)
native=(
  "${build[@]}" git
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev valgrind
  # test peers and stand-ins
  nginx-light openssl curl busybox iproute2 util-linux procps python3
  libsamplerate0-dev libspeexdsp-dev
  doxygen man-db
  # packages and the ABI guard (scripts/packages.sh, scripts/abi.sh)
  lintian abigail-tools dpkg-dev
  # peer of the ku tool benchmark (xxd -r -p)
  xxd
)

# The target's libraries come from Debian's mipsel architecture (multiarch,
# under /usr/lib/mipsel-linux-gnu). libstdc++6 and libatomic1 are for the test
# programs only: the library itself needs neither.
target=(
  g++-mipsel-linux-gnu binutils-mipsel-linux-gnu qemu-user
  libcurl4-openssl-dev:mipsel libjson-c-dev:mipsel libssl-dev:mipsel
  libgtest-dev:mipsel libgmock-dev:mipsel libstdc++6:mipsel libatomic1:mipsel
)
# libresample1 is not multiarch (its files sit in /usr/lib for every
# architecture), so the mipsel build is unpacked into the multiarch directory.
resample_dir=/usr/lib/mipsel-linux-gnu
resample_lib=$resample_dir/libresample.so.1.0

apt_opts=(-y -q --no-install-recommends -o DPkg::Lock::Timeout=600)
export DEBIAN_FRONTEND=noninteractive

missing_of() {
  local pkg
  for pkg in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
      echo "$pkg"
    fi
  done
}

candidate() {
  apt-cache policy "$1" 2>/dev/null | awk '/Candidate:/ {print $2}'
}

installed_version() {
  dpkg-query -W -f='${Version}' "$1" 2>/dev/null || true
}

# Multi-Arch: same packages must have one version in every architecture, and
# Debian's security archive has no mipsel builds: a host package updated from
# there has no mipsel twin. apt then only says that a mipsel package "is not
# going to be installed". Each package it names is added to the request, and
# one whose host version differs from the mipsel candidate is asked for at
# that version in both architectures (this may move the host package back to
# the last point release).
install_target_packages() {
  local request=("$@") out name base ver host attempt grown
  local -A asked=() pinned=()
  for name in "${request[@]}"; do asked[${name%%:*}]=1; done
  for attempt in $(seq 1 30); do
    if out=$(apt-get install -s "${apt_opts[@]}" --allow-downgrades "${request[@]}" 2>&1); then
      apt-get install "${apt_opts[@]}" --allow-downgrades "${request[@]}"
      return
    fi
    grown=0
    for name in $(grep -oE '(^ |Depends: )[a-z0-9][a-z0-9.+-]*' <<< "$out" | sed -E 's/^ |Depends: //' | sort -u); do
      base=$name
      ver=$(candidate "$base:mipsel")
      [[ -n "$ver" && "$ver" != "(none)" ]] || continue
      host=$(installed_version "$base:amd64")
      if [[ -n "$host" && "$host" != "$ver" ]]; then
        [[ -z "${pinned[$base]:-}" ]] || continue
        local kept=()
        for name in "${request[@]}"; do
          [[ "$name" == "$base:mipsel" ]] || kept+=("$name")
        done
        request=("${kept[@]}" "$base:amd64=$ver" "$base:mipsel=$ver")
        pinned[$base]=1 asked[$base]=1 grown=1
      elif [[ -z "${asked[$base]:-}" ]]; then
        request+=("$base:mipsel")
        asked[$base]=1 grown=1
      fi
    done
    if ((grown == 0)); then
      echo "$out" >&2
      echo "install-deps: apt cannot install the mipsel packages" >&2
      exit 1
    fi
    echo "install-deps: retrying with ${request[*]}"
  done
  echo "install-deps: gave up aligning mipsel and host package versions" >&2
  exit 1
}

install_resample_for_target() {
  local work
  work=$(mktemp -d)
  (cd "$work" && apt-get download -q -o APT::Sandbox::User=root libresample1:mipsel libresample1-dev:mipsel)
  for deb in "$work"/*.deb; do
    dpkg-deb -x "$deb" "$work/unpacked"
  done
  mkdir -p "$resample_dir"
  cp -a "$work"/unpacked/usr/lib/libresample.so* "$work"/unpacked/usr/lib/libresample.a "$resample_dir"/
  rm -rf "$work"
  echo "install-deps: unpacked libresample for mipsel into $resample_dir"
}

want_target=0
case ${1:-} in
  --target) want_target=1 ;;
  --demo) native=("${demo[@]}") ;;
  "") ;;
  *) echo "install-deps: unknown option '$1' (--target, --demo)" >&2; exit 2 ;;
esac

updated=0
update_once() {
  if ((updated == 0)); then
    apt-get update -q
    updated=1
  fi
}

mapfile -t missing < <(missing_of "${native[@]}")
if ((${#missing[@]})); then
  echo "install-deps: installing ${missing[*]}"
  update_once
  apt-get install "${apt_opts[@]}" "${missing[@]}"
fi

if ((want_target)); then
  if ! dpkg --print-foreign-architectures | grep -qx mipsel; then
    dpkg --add-architecture mipsel
    updated=0
  fi
  mapfile -t missing < <(missing_of "${target[@]}")
  if ((${#missing[@]})); then
    echo "install-deps: installing ${missing[*]}"
    update_once
    install_target_packages "${missing[@]}"
  fi
  if [[ ! -e "$resample_lib" ]]; then
    update_once
    install_resample_for_target
  fi
fi

echo "install-deps: everything is installed"
