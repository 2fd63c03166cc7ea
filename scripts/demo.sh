#!/usr/bin/env bash
# Installs what is missing, builds, and runs the built-in demonstration: a generated 3D solid,
# one static load case and its lowest modes by every method that suits the size. The picture
# goes to build/vqsolve-demo.svg unless --svg FILE or --no-svg is given.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/install-deps.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j "$jobs" --target vqsolve
export OMP_NUM_THREADS=${OMP_NUM_THREADS:-$jobs} MKL_NUM_THREADS=${MKL_NUM_THREADS:-$jobs}
picture=(--svg build/vqsolve-demo.svg)
for arg in "$@"; do
  case "$arg" in --svg|--svg=*|--no-svg) picture=() ;; esac
done
exec build/tools/vqsolve demo "${picture[@]}" "$@"
