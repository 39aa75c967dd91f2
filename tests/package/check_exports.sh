#!/bin/sh
# Every defined dynamic symbol of libku.so must be part of the public API:
# no C++ internals, no helper that forgot its anonymous namespace.
set -eu
lib=$1 nm=${2:-nm}
api='^(ku_[a-z0-9_]+|kutable_[a-z_]+|kulock_[a-z_]+|kuprocess_[a-z_]+|circle_buf_[a-z_]+|dynamic_mem_[a-z_]+|membuffer_[a-z_]+|memptr_[a-z_]+|miniresample_[a-z_]+|json_file_get_int|json_buf_get_int|strupr|strlwr|str_alloc|Https[A-Za-z]+|(Get|Put)Ini[A-Za-z]+|KEY_ENC|resample_[a-z_]+|lrs[A-Za-z]+)$'
"$nm" -D --defined-only "$lib" > /dev/null  # fail here, not with an empty list
# __odr_asan.* are AddressSanitizer's markers of exported data, not ours.
symbols=$("$nm" -D --defined-only "$lib" | awk '$2 ~ /^[TDBRVWiu]$/ {print $3}' | sed 's/@.*//' |
          grep -v '^__odr_asan\.' | sort -u)
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
echo "ok: $count exported symbols, all in the API"
