#!/bin/sh
# Every defined dynamic symbol of libku.so must be part of the public API, in
# the version node KU_1: no C++ internals, no helper that forgot its anonymous
# namespace, no unversioned symbol. libresample's ten functions are among
# them, so that a program linked with -lku alone can call them.
set -eu
lib=$1 nm=${2:-nm}
api='^(ku_[a-z0-9_]+|kutable_[a-z_]+|kulock_[a-z_]+|kuprocess_[a-z_]+|circle_buf_[a-z_]+|dynamic_mem_[a-z_]+|membuffer_[a-z_]+|memptr_[a-z_]+|miniresample_[a-z_]+|json_file_get_int|json_buf_get_int|strupr|strlwr|str_alloc|Https[A-Za-z]+|(Get|Put)Ini[A-Za-z]+|KEY_ENC|resample_[a-z_]+|lrs[A-Za-z]+)$'
resample='resample_open resample_dup resample_get_filter_width resample_process resample_close
          lrsSrcUp lrsSrcUD lrsFilterUp lrsFilterUD lrsLpFilter'
"$nm" -D --defined-only "$lib" > /dev/null  # fail here, not with an empty list
# __odr_asan.* are AddressSanitizer's markers of exported data, not ours; the
# version node itself is listed as an absolute symbol.
versioned=$("$nm" -D --defined-only "$lib" | awk '$2 ~ /^[TDBRVWiu]$/ {print $3}' |
            grep -v '^__odr_asan\.' | sort -u)
symbols=$(echo "$versioned" | sed 's/@.*//')
bad=$(echo "$symbols" | grep -Ev "$api" || true)
count=$(echo "$symbols" | grep -c . || true)
if [ "$count" -eq 0 ]; then
  echo "FAIL: $nm found no exported symbol in $lib" >&2
  exit 1
fi
if [ -n "$bad" ]; then
  echo "FAIL: symbols exported outside the API:" >&2
  echo "$bad" >&2
  exit 1
fi
unversioned=$(echo "$versioned" | grep -v '@@KU_1$' || true)
if [ -n "$unversioned" ]; then
  echo "FAIL: symbols outside the version node KU_1:" >&2
  echo "$unversioned" >&2
  exit 1
fi
for name in $resample; do
  echo "$versioned" | grep -qx "$name@@KU_1" || { echo "FAIL: $lib does not export $name" >&2; exit 1; }
done
echo "ok: $count exported symbols, all in the API and in KU_1, libresample's ten included"
