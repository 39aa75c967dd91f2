#!/usr/bin/env bash
# Installs what is missing, builds libku and runs the demo tour.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja > build.configure.log 2>&1 || { cat build.configure.log; exit 1; }
cmake --build build -j "$(nproc)" --target demo
exec build/examples/demo
