#!/usr/bin/env bash
# The benchmark suite: vqmath side by side with the peers a user would pick instead, in one run.
#
#   bench/run.sh            solids of about 20k, 100k and 300k equations, 20 modes at 100k
#   bench/run.sh --quick    solids of about 5k, 20k and 50k, modes at 20k (a few minutes)
#
# Options: --threads N (2)       threads for MKL and OpenMP in every measured program
#          --sizes A,B,C         solid sizes in equations (overrides the preset)
#          --modes-size N        solid size of the modal comparison (one of the sizes)
#          --budget SECONDS      time budget of the whole run (840); optional runs are skipped,
#                                and reported as skipped, once it is spent
#          --no-install          do not install missing packages
#          --keep                keep the model files (printed folder)
#          --out FILE            results file (default bench/results/<date>-<hostname>[-quick].md)
#
# It installs what is missing (scripts/install-deps.sh, with the peers' Debian packages
# libsuitesparse-dev, libspectra-dev and libeigen3-dev: the library itself does not depend on
# them), builds in release mode in build-bench/, generates the models once, runs every case in its
# own process through bench_suite_runner (time limit, peak memory) and writes the markdown report
# to standard output and to the results file. The peers are:
#   pardiso          PARDISO called directly with the settings the library's solver used
#   cholmod-mkl      CHOLMOD at its best: BLAS/LAPACK bound to MKL, OpenMP threads <= cores
#   cholmod-ref      CHOLMOD as Debian installs it (reference BLAS, 4 OpenMP threads asked)
#   arpack-loop      a plain ARPACK shift-invert loop over PARDISO
#   spectra-cholmod  Spectra's generalized shift-invert solver over CHOLMOD (Eigen)
#   spectra-ldlt     the same over Eigen's SimplicialLDLT
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
start=$(date +%s)
load_before=$(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null || echo "?")

mode=full threads=2 budget=840 install=1 keep=0 out="" sizes="" modes_size=""
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) mode=quick ;;
    --threads) threads=$2; shift ;;
    --sizes) sizes=$2; shift ;;
    --modes-size) modes_size=$2; shift ;;
    --budget) budget=$2; shift ;;
    --no-install) install=0 ;;
    --keep) keep=1 ;;
    --out) out=$2; shift ;;
    -h|--help) sed -n '2,30p' "$0"; exit 0 ;;
    *) echo "bench/run.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done

if [ "$mode" = quick ]; then
  : "${sizes:=5000,20000,50000}"; : "${modes_size:=20000}"; frame=10,30; repeats=(2 1 1)
else
  : "${sizes:=20000,100000,300000}"; : "${modes_size:=100000}"; frame=20,60; repeats=(3 2 1)
fi
IFS=, read -r -a size_list <<< "$sizes"

log() { printf '%s\n' "bench: $*" >&2; }
elapsed() { echo $(( $(date +%s) - start )); }

# ---- install and build ------------------------------------------------------------------------
peer_packages=(libsuitesparse-dev libspectra-dev libeigen3-dev)
if [ "$install" = 1 ]; then
  bash scripts/install-deps.sh "${peer_packages[@]}" ||
    log "could not install ${peer_packages[*]}: the CHOLMOD and Spectra rows will be missing"
fi

build=build-bench
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DVQMATH_BUILD_BENCH=ON -DVQMATH_BUILD_TESTS=OFF \
  -DVQMATH_BUILD_EXAMPLES=OFF -DVQMATH_BUILD_TOOLS=OFF >/dev/null
core_targets=(bench_suite_runner bench_write_models bench_dgemm_rate bench_peer_pardiso bench_peer_arpack)
log "building the runner and the peers"
cmake --build "$build" -j "$jobs" --target "${core_targets[@]}" >/dev/null
for t in bench_peer_cholmod bench_peer_cholmod_refblas bench_peer_spectra; do
  cmake --build "$build" -j "$jobs" --target "$t" >/dev/null 2>&1 || log "peer $t not built"
done
log "building the library and its benchmark drivers"
library_ok=1
if ! cmake --build "$build" -j "$jobs" --target bench_suite_static bench_suite_modes > "$build/library-build.log" 2>&1; then
  library_ok=0
  log "the library or its drivers did not build (see $build/library-build.log): only the peers are measured"
fi
bin=$build/bench
peers=$bin/peers
build_done=$(elapsed)

# ---- run environment --------------------------------------------------------------------------
export MKL_NUM_THREADS=$threads OMP_NUM_THREADS=$threads
cores=$(nproc 2>/dev/null || echo "$threads")
data=$(mktemp -d "${TMPDIR:-/tmp}/vqmath-bench.XXXXXX")
mkdir -p "$data/work"
if [ "$keep" = 0 ]; then trap 'rm -rf "$data"' EXIT; else log "model files kept in $data"; fi
results_log=$data/results.log
raw=$build/bench-output.txt
: > "$raw"
shared=${VQMATH_SHARED_DATA_DIR:-$root/../shared/data}

have() { [ -x "$1" ]; }

# measure GROUP CASE VARIANT TIMEOUT [--env K=V ...] -- PROGRAM ARGS...
measure() {
  local group=$1 case=$2 variant=$3 timeout=$4; shift 4
  local extra=()
  while [ "$1" != "--" ]; do extra+=("$1"); shift; done
  shift
  have "$1" || return 0
  "$peers/bench_suite_runner" run --log "$results_log" --raw "$raw" --timeout "$timeout" \
    --tag "group=$group" --tag "case=$case" --tag "variant=$variant" "${extra[@]}" -- "$@" || true
}

# skip GROUP CASE VARIANT PROG: logs a run left out for lack of time.
skip() {
  printf '@result\tgroup=%s\tcase=%s\tvariant=%s\tprog=%s\tstatus=fail\treason=skipped: time budget of %s s spent\n' \
    "$1" "$2" "$3" "$4" "$budget" >> "$results_log"
  log "skipped $2 $4 ($3): time budget"
}
# fits SECONDS: true while the run so far plus SECONDS stays within the budget.
fits() { [ $(( $(elapsed) + $1 )) -le "$budget" ]; }

# A settings label ("iparm1=3 mtype=2") as arguments of the library driver or the PARDISO peer.
variant_args() {
  local v
  for v in $1; do
    case "$v" in
      default) ;;
      mtype=*) printf -- '--mtype\n%s\n' "${v#mtype=}" ;;
      iparm*=*) v=${v#iparm}; printf -- '--set\n%s\n' "$v" ;;
    esac
  done
}

name_of() { echo "solid$(( ($1 + 500) / 1000 ))k"; }

# ---- machine rate and models ------------------------------------------------------------------
log "dgemm rate"
measure probe dgemm default 120 -- "$peers/bench_dgemm_rate"
log "models"
for s in "${size_list[@]}"; do
  measure models "$(name_of "$s")" default 300 -- "$peers/bench_write_models" --out "$data" --name "$(name_of "$s")" --solid "$s"
done
measure models frame default 120 -- "$peers/bench_write_models" --out "$data" --name frame --frame "$frame"

# ---- static solution --------------------------------------------------------------------------
# ours and the direct PARDISO call alternate, so that drifts of the machine hit both alike; the
# PARDISO peer reads the parameters the library's solver was built with.
static_pair() { # CASE K F VARIANT TIMEOUT
  local c=$1 k=$2 f=$3 v=$4 t=$5 iparm=$data/$1.$RANDOM.iparm
  local args=() peer_args=() mt
  mapfile -t args < <(variant_args "$v")
  if [ "$library_ok" = 1 ]; then
    measure static "$c" "$v" "$t" -- "$bin/bench_suite_static" --K "$k" ${f:+--F "$f"} --msglvl 1 \
      --iparm-out "$iparm" --workdir "$data/work/" "${args[@]}"
  fi
  # The parameters the library's solver used; the matrix type is not among them.
  if [ -s "$iparm" ]; then peer_args=(--iparm "$iparm"); else peer_args=("${args[@]}"); fi
  mt=$(printf '%s\n' "${args[@]}" | awk 'p { print; exit } /^--mtype$/ { p = 1 }')
  measure static "$c" "$v" "$t" -- "$peers/bench_peer_pardiso" --K "$k" ${f:+--F "$f"} --msglvl 1 \
    "${peer_args[@]}" ${mt:+--mtype "$mt"}
}

variants=("iparm1=3" "iparm23=1" "mtype=2" "iparm1=3 iparm23=1" "iparm1=3 mtype=2" "iparm1=3 iparm23=1 mtype=2")
last=$(( ${#size_list[@]} - 1 ))
for i in "${!size_list[@]}"; do
  s=${size_list[$i]}; c=$(name_of "$s"); k=$data/$c.K.bin; f=$data/$c.F.bin
  [ -f "$k" ] || continue
  reps=${repeats[$i]:-1}
  log "static solution $c ($reps runs each)"
  for r in $(seq "$reps"); do
    static_pair "$c" "$k" "$f" default 900
    measure static "$c" default 900 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_cholmod" --K "$k" --F "$f"
  done
  if [ "$i" -lt "$last" ]; then
    if fits 150; then
      measure static "$c" default 120 -- "$peers/bench_peer_cholmod_refblas" --K "$k" --F "$f"
    else
      skip static "$c" default cholmod-ref
    fi
    for v in "${variants[@]}"; do
      [ "$library_ok" = 1 ] || break
      if fits 60; then
        measure static "$c" "$v" 600 -- "$bin/bench_suite_static" --K "$k" --F "$f" --msglvl 1 \
          --workdir "$data/work/" $(variant_args "$v")
      else
        skip static "$c" "$v" ours
      fi
    done
  elif [ "$i" -gt 0 ] && [ "$library_ok" = 1 ]; then
    # The largest size: the settings that were fastest at the size before, with the direct
    # PARDISO call on the same settings.
    prev=$(name_of "${size_list[$((i - 1))]}")
    best=$("$peers/bench_suite_runner" best --log "$results_log" --group static --case "$prev" --prog ours || true)
    if [ -n "$best" ] && [ "$best" != default ]; then
      if fits 300; then static_pair "$c" "$k" "$f" "$best" 900; else skip static "$c" "$best" ours; fi
    fi
  fi
done

# ---- natural modes ----------------------------------------------------------------------------
modes_case=$(name_of "$modes_size")
modal_cases=("$modes_case")
[ "$(name_of "${size_list[0]}")" != "$modes_case" ] && modal_cases=("$(name_of "${size_list[0]}")" "$modes_case")
for c in "${modal_cases[@]}"; do
  k=$data/$c.K.bin; m=$data/$c.M.bin
  [ -f "$k" ] || continue
  log "natural modes $c"
  iparm=$(ls "$data"/$c.*.iparm 2>/dev/null | head -1 || true)
  if [ "$library_ok" = 1 ]; then
    measure modes "$c" default 600 -- "$bin/bench_suite_modes" --method lanczos --K "$k" --M "$m" --workdir "$data/work/"
  fi
  measure modes "$c" default 600 -- "$peers/bench_peer_arpack" --K "$k" --M "$m" ${iparm:+--iparm "$iparm"}
  if [ "$library_ok" = 1 ]; then
    measure modes "$c" default 600 -- "$bin/bench_suite_modes" --method subspace --K "$k" --M "$m" --workdir "$data/work/"
  fi
  measure modes "$c" default 600 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_spectra" --K "$k" --M "$m" --factor cholmod
  if [ "$c" = "$(name_of "${size_list[0]}")" ] || fits 200; then
    measure modes "$c" default 180 -- "$peers/bench_peer_spectra" --K "$k" --M "$m" --factor ldlt
  else
    skip modes "$c" default spectra-ldlt
  fi
done

# ---- the frame: static solution and buckling ---------------------------------------------------
k=$data/frame.K.bin
if [ -f "$k" ]; then
  log "frame: static solution and buckling"
  for r in 1 2 3; do
    static_pair frame "$k" "$data/frame.F.bin" default 300
    measure static frame default 300 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_cholmod" --K "$k" --F "$data/frame.F.bin"
  done
  # The shift: a fifth of the Euler estimate of the lowest buckling factor, safely below it
  # (a sway frame buckles at a quarter to the whole of that estimate), so that K - shift*Kg stays
  # positive definite for the Cholesky-based peers.
  estimate=$(grep -P '\tcase=frame\t' "$results_log" | grep -P '\tprog=models\t' | tr '\t' '\n' | sed -n 's/^buckling_estimate=//p' | head -1)
  sigma=$(awk -v e="${estimate:-1}" 'BEGIN { printf "%.6g", e / 5 }')
  iparm=$(ls "$data"/frame.*.iparm 2>/dev/null | head -1 || true)
  b=(--mode buckling --K "$k" --Kg "$data/frame.Kg.bin" --sigma "$sigma")
  [ "$library_ok" = 1 ] && measure buckling frame default 300 -- "$bin/bench_suite_modes" --method lanczos "${b[@]}" --workdir "$data/work/"
  measure buckling frame default 300 -- "$peers/bench_peer_arpack" "${b[@]}" ${iparm:+--iparm "$iparm"}
  measure buckling frame default 300 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_spectra" "${b[@]}" --factor cholmod
  measure buckling frame default 300 -- "$peers/bench_peer_spectra" "${b[@]}" --factor ldlt
fi

# ---- the published structural matrices --------------------------------------------------------
if [ -d "$shared" ]; then
  log "published matrices in $shared"
  for k in "$shared"/bcsstk*.mtx; do
    [ -f "$k" ] || continue
    c=$(basename "$k" .mtx)
    for r in 1 2 3; do
      static_pair "$c" "$k" "" default 120
      measure static "$c" default 120 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_cholmod" --K "$k"
    done
  done
  for c in bcsstk06 bcsstk20; do
    k=$shared/$c.mtx; m=$shared/${c/stk/stm}.mtx
    [ -f "$k" ] && [ -f "$m" ] || continue
    [ "$library_ok" = 1 ] && measure modes "$c" default 120 -- "$bin/bench_suite_modes" --method lanczos --K "$k" --M "$m" --workdir "$data/work/"
    measure modes "$c" default 120 -- "$peers/bench_peer_arpack" --K "$k" --M "$m"
    [ "$library_ok" = 1 ] && measure modes "$c" default 120 -- "$bin/bench_suite_modes" --method subspace --K "$k" --M "$m" --workdir "$data/work/"
    measure modes "$c" default 120 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_spectra" --K "$k" --M "$m" --factor cholmod
    measure modes "$c" default 120 -- "$peers/bench_peer_spectra" --K "$k" --M "$m" --factor ldlt
  done
else
  log "no published matrices at $shared: skipped"
fi

# ---- report -----------------------------------------------------------------------------------
host=$(hostname 2>/dev/null || echo unknown)
day=$(date +%Y-%m-%d)
if [ -z "$out" ]; then
  suffix=""; [ "$mode" = quick ] && suffix="-quick"
  out=bench/results/$day-$host$suffix.md
fi
mkdir -p "$(dirname "$out")"
commit=$(git rev-parse --short HEAD 2>/dev/null || echo "?")
git diff --quiet HEAD -- api dense sparse eigen 2>/dev/null || commit="$commit (with uncommitted library changes)"
notes=()
[ "$library_ok" = 1 ] || notes+=(--note "**The library did not build in this run: only the peers were measured.**")
"$peers/bench_suite_runner" report --log "$results_log" --out "$out" --with-log \
  --title "vqmath benchmark suite — $day on $host" \
  --meta "date=$(date '+%Y-%m-%d %H:%M %Z')" --meta "host=$host" \
  --meta "threads=$threads (MKL_NUM_THREADS, OMP_NUM_THREADS; CHOLMOD's OMP_THREAD_LIMIT=$cores)" \
  --meta "commit=$commit" --meta "compiler=$(c++ --version | head -1)" \
  --meta "mode=$mode: solids of ${sizes} equations, modes at $modes_case, frame of ${frame/,/ bays × } storeys" \
  --meta "duration=$(elapsed) s in all, of which $build_done s install and build" \
  --meta "load=load average $load_before before the run, $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null) after it (other work on the machine distorts the times)" \
  "${notes[@]}"
log "report written to $out ($(elapsed) s)"
