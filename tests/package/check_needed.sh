#!/bin/sh
# The device has no C++ runtime: libku.so must not need libstdc++ or libatomic.
set -eu
lib=$1 readelf=${2:-readelf}
needed=$("$readelf" -d "$lib" | grep NEEDED) || { echo "FAIL: $readelf read no NEEDED entry" >&2; exit 1; }
echo "$needed"
if echo "$needed" | grep -E 'libstdc\+\+|libatomic|libgcc_s'; then
  echo "FAIL: $lib needs a C++ or atomic runtime" >&2
  exit 1
fi
echo "ok: no C++ runtime among NEEDED"
