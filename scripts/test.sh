#!/usr/bin/env bash
# Installs what is missing, configures, builds and runs the whole test suite through ctest.
#   scripts/test.sh             release build in build/
#   scripts/test.sh --sanitize  AddressSanitizer + UndefinedBehaviorSanitizer build in build-sanitize/
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

build=build
flags=(-DCMAKE_BUILD_TYPE=Release -DVQMATH_BUILD_BENCH=OFF)
if [ "${1:-}" = "--sanitize" ]; then
  build=build-sanitize
  flags=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVQMATH_SANITIZE=ON -DVQMATH_BUILD_BENCH=OFF)
fi

# --mpi: the distributed library and its tests (run under mpirun by ctest) are part of the suite.
bash scripts/install-deps.sh --mpi

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$build" "${flags[@]}" >/dev/null
cmake --build "$build" -j "$jobs"

export OMP_NUM_THREADS=${OMP_NUM_THREADS:-2} MKL_NUM_THREADS=${MKL_NUM_THREADS:-2}
if [ "$build" = build-sanitize ]; then
  # LeakSanitizer checks every test program at exit; scripts/lsan.supp names the few leaks
  # inside Intel MKL itself, so that a leak of this library through MKL is still reported.
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
  export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/scripts/lsan.supp:print_suppressions=0}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
fi
cd "$build"
status=0
ctest --output-on-failure -j "$jobs" --timeout 600 || status=$?

# The pytest suite of the Python module runs inside ctest (python.pytest), in the sanitizer build
# too: there the AddressSanitizer runtime and libstdc++ are preloaded into the uninstrumented
# interpreter, with leak checking off (python3 keeps objects to the end on purpose; the suite
# checks reference counts and resident memory itself). Say so when it could not be built or run.
# The MPI library stays out of the sanitizer build: Open MPI's own allocations and its
# shared-memory transport would drown the reports about ours.
if [ ! -d python/vqmath ]; then
  echo "test.sh: Python tests skipped: the module was not built (needs python3-dev and pybind11-dev)"
elif ! ctest -N -R '^python\.pytest$' | grep -q 'python.pytest'; then
  echo "test.sh: Python tests skipped: the build's python3 lacks pytest, numpy or scipy"
fi
exit $status
