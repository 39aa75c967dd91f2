#!/bin/sh
# The resampler runs on a CPU without an FPU: its object code must not hold a
# single floating-point instruction (x86 SSE/AVX scalar or packed float
# arithmetic and conversions, x87, MIPS coprocessor 1).
# Usage: check_integer_only.sh OBJDUMP "obj1;obj2;..." PATTERN
# Only instruction lines ("  addr:<tab>mnemonic ...") are read: llvm-objdump,
# which a Clang build uses, also puts a tab into its "file format" line.
set -eu
objdump=$1 objects=$2 pattern=$3
object=$(echo "$objects" | tr ';' '\n' | grep -e "$pattern" | head -n 1)
if [ -z "$object" ]; then
  echo "FAIL: no object matching $pattern" >&2
  exit 1
fi
float='^(v?(add|sub|mul|div|sqrt|min|max|rcp|rsqrt|round|comi|ucomi|hadd|hsub|addsub|dp|fn?m(add|sub)[0-9]*)(ss|sd|ps|pd|sh)|v?cvt[a-z0-9]*|f[a-z0-9]+|[a-z0-9]+\.(s|d|ps)|[ls][wd]c1|[ls][wd]xc1|m[tf]h?c1|[cb]c1[a-z]*)$'
found=$("$objdump" -d --no-show-raw-insn "$object" |
  awk -F'\t' '$1 ~ /^ *[0-9a-f]+: *$/ && NF >= 2 { split($2, word, " "); print word[1] }' |
  grep -E "$float" | sort | uniq -c || true)
if [ -n "$found" ]; then
  echo "FAIL: floating-point instructions in $object:" >&2
  echo "$found" >&2
  exit 1
fi
echo "ok: no floating-point instruction in $(basename "$object")"
