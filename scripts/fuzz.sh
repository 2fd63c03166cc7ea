#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang (AddressSanitizer + UndefinedBehaviorSanitizer)
# in build-fuzz/ and runs each of them for a while on its seed corpus.
#   scripts/fuzz.sh              every target, 60 seconds each
#   scripts/fuzz.sh 300          every target, 300 seconds each
#   scripts/fuzz.sh 60 sparse_mtx solver_direct    only the named targets
#   VQFUZZ_RUNS=1000000 scripts/fuzz.sh 3600   each target until it ran 10^6 inputs, the seconds
#                                              staying a cap
#   VQFUZZ_BUILD=0 scripts/fuzz.sh ...         reuse build-fuzz/ as it is (no configure or build)
# New inputs that reach new code are kept in build-fuzz/corpus/<target>/ (the committed seeds in
# fuzz/corpus/<target>/ are only read). A crash, a leak, a sanitizer report or a broken property
# stops that target; its input is saved as build-fuzz/artifacts/<target>/crash-* and the script
# exits non-zero after the remaining targets ran. Replay one with: build-fuzz/fuzz_<target> <file>
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

seconds=${1:-60}
shift || true

# clang and its compiler runtime (libFuzzer, the sanitizers; only recommended by clang, so named
# here) are installed for fuzzing only.
bash scripts/install-deps.sh clang libclang-rt-14-dev

build=build-fuzz
if [ "${VQFUZZ_BUILD:-1}" != 0 ]; then
  cmake -S fuzz -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
  cmake --build "$build" -j "${VQFUZZ_JOBS:-2}"
fi
runs_limit=()
[ -z "${VQFUZZ_RUNS:-}" ] || runs_limit=(-runs="$VQFUZZ_RUNS")

if [ $# -gt 0 ]; then
  targets=("$@")
else
  targets=()
  for f in fuzz/fuzz_*.cpp; do
    t=$(basename "$f" .cpp)
    targets+=("${t#fuzz_}")
  done
fi

# MKL and the OpenMP runtime run single-threaded: the fuzzer itself is the load. Allocations
# beyond 128 MB (a file announcing a huge matrix) fail as they would on a host out of memory and
# must come back as status -1 (AddressSanitizer does not turn a failed `new` into std::bad_alloc,
# so library code that relies on catching it for input-sized requests shows up as a finding).
export OMP_NUM_THREADS=1 MKL_NUM_THREADS=1
# Out-of-core factorisations (chosen by many inputs) get a core of 64 MB instead of 2000: PARDISO
# clears the whole core per factorisation, which made such an input of ten equations cost 1.5 s.
export MKL_PARDISO_OOC_MAX_CORE_SIZE=${MKL_PARDISO_OOC_MAX_CORE_SIZE:-64}
export ASAN_OPTIONS=${ASAN_OPTIONS:-allocator_may_return_null=1:max_allocation_size_mb=128:detect_leaks=1}
export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$root/scripts/lsan.supp:print_suppressions=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
# Scratch files go to memory when it can hold them: the targets write a file per input.
if [ -z "${TMPDIR:-}" ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
export TMPDIR=${TMPDIR:-/tmp}

failed=()
summary=()
for t in "${targets[@]}"; do
  exe="$build/fuzz_$t"
  [ -x "$exe" ] || { echo "fuzz: no target $t" >&2; failed+=("$t"); continue; }
  corpus="$build/corpus/$t"
  artifacts="$build/artifacts/$t"
  mkdir -p "$corpus" "$artifacts" "fuzz/corpus/$t"
  log="$build/fuzz_$t.log"
  # A target may bound its inputs with a line "// fuzz max_len: N" (default 8192 bytes) and the
  # largest allocation that succeeds with "// fuzz max_allocation_mb: N" (a reader that allocates
  # what a file announces spends its time zeroing memory otherwise).
  max_len=$(sed -n 's|^// fuzz max_len: *\([0-9]*\).*|\1|p' "fuzz/fuzz_$t.cpp" 2>/dev/null | head -1)
  max_mb=$(sed -n 's|^// fuzz max_allocation_mb: *\([0-9]*\).*|\1|p' "fuzz/fuzz_$t.cpp" 2>/dev/null |
    head -1)
  asan=$ASAN_OPTIONS
  [ -z "$max_mb" ] || asan="$asan:max_allocation_size_mb=$max_mb"
  work=$(mktemp -d)   # the targets' scratch files and the solvers' working directory
  echo "fuzz: $t for ${seconds}s${VQFUZZ_RUNS:+ or $VQFUZZ_RUNS inputs}"
  status=0
  (cd "$work" && ASAN_OPTIONS=$asan "$root/$exe" "${runs_limit[@]}" -max_total_time="$seconds" \
      -timeout=20 -rss_limit_mb=3072 -max_len="${max_len:-8192}" -close_fd_mask=1 \
      -print_final_stats=1 -artifact_prefix="$root/$artifacts/" \
      "$root/$corpus" "$root/fuzz/corpus/$t") >"$log" 2>&1 || status=$?
  rm -rf "$work"
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1 || true)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2 || true)
  ft=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2 || true)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1 || true)
  summary+=("$(printf '%-20s %10s inputs  %6s exec/s  cov %6s  ft %6s  %s' "$t" "${runs:-?}" \
    "${rate:-?}" "${cov:-?}" "${ft:-?}" \
    "$([ $status -eq 0 ] && echo ok || echo "FAILED (see $log)")")")
  [ $status -eq 0 ] || failed+=("$t")
done

echo
printf '%s\n' "${summary[@]}"
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: findings in: ${failed[*]}" >&2
  exit 1
fi
