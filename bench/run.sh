#!/usr/bin/env bash
# The benchmark suite: vqmath side by side with the peers a user would pick instead, in one run.
#
#   bench/run.sh            solids of about 20k, 100k and 300k equations, 20 modes at 100k
#   bench/run.sh --quick    solids of about 5k, 20k and 50k, modes at 20k (a few minutes)
#
# Options: --threads N (2)       threads for MKL and OpenMP in every measured program
#          --sizes A,B,C         solid sizes in equations (overrides the preset)
#          --modes-size N        solid size of the modal comparison (one of the sizes)
#          --wait-policy P       OMP_WAIT_POLICY of every measured program: passive (default:
#                                idle OpenMP threads sleep, so that other work on the machine
#                                cannot stretch barriers by whole time slices) or active, or
#                                default (the runtime's choice)
#          --budget SECONDS      time budget of the whole run (1200); optional runs are skipped,
#                                and reported as skipped, once it is spent
#          --with-programs       also build and run the other bench/bench_*.cpp programs (each
#                                prints its own table) within the budget, appended to the report
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

mode=full threads=2 wait_policy=passive budget=1200 install=1 keep=0 out="" sizes="" modes_size=""
with_programs=0
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) mode=quick ;;
    --threads) threads=$2; shift ;;
    --wait-policy) wait_policy=$2; shift ;;
    --sizes) sizes=$2; shift ;;
    --modes-size) modes_size=$2; shift ;;
    --budget) budget=$2; shift ;;
    --no-install) install=0 ;;
    --with-programs) with_programs=1 ;;
    --keep) keep=1 ;;
    --out) out=$2; shift ;;
    -h|--help) awk 'NR > 1 && /^#/ { sub(/^# ?/, ""); print; next } NR > 1 { exit }' "$0"; exit 0 ;;
    *) echo "bench/run.sh: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done

if [ "$mode" = quick ]; then
  : "${sizes:=5000,20000,50000}"; : "${modes_size:=20000}"; frame=10,30
else
  : "${sizes:=20000,100000,300000}"; : "${modes_size:=100000}"; frame=20,60
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
log "building the runner and the peers"
: > "$build/peers-build.log"
cmake --build "$build" -j "$jobs" --target bench_suite_runner >/dev/null
for t in bench_write_models bench_dgemm_rate bench_peer_pardiso bench_peer_arpack bench_peer_cholmod \
         bench_peer_cholmod_refblas bench_peer_symgeigs; do
  cmake --build "$build" -j "$jobs" --target "$t" >> "$build/peers-build.log" 2>&1 || log "$t not built (see $build/peers-build.log)"
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

# Which libraries the dynamic linker binds CHOLMOD's dgemm_ and dpotrf_ to, in each CHOLMOD
# program (all bindings resolved at start: LD_BIND_NOW).
binding_of() {
  [ -x "$1" ] || return 0
  LD_BIND_NOW=1 LD_DEBUG=bindings "$1" --K /nonexistent 2>&1 >/dev/null |
    awk '/binding file .*libcholmod/ && /symbol `(dgemm_|dpotrf_)'"'"'/ {
           sym = $NF; gsub(/[`'"'"']/, "", sym); n = split($7, p, "/")
           printf "%s`%s` → `%s`", (c++ ? ", " : ""), sym, p[n] } END { print "" }' || true
}
bindings="CHOLMOD's BLAS and LAPACK as the dynamic linker bound them (LD_DEBUG=bindings): at its best $(binding_of "$peers/bench_peer_cholmod"); as installed $(binding_of "$peers/bench_peer_cholmod_refblas")."

# ---- run environment --------------------------------------------------------------------------
export MKL_NUM_THREADS=$threads OMP_NUM_THREADS=$threads
if [ "$wait_policy" = default ]; then unset OMP_WAIT_POLICY; else export OMP_WAIT_POLICY=$wait_policy; fi
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
measure probe dgemm start 120 -- "$peers/bench_dgemm_rate"
# The same product on MKL's generic kernels (what MKL runs on AMD processors unless told the
# processor qualifies): the gain of the fast code path, which every MKL-based program here has.
measure probe dgemm generic 120 --env VQMATH_MKL_FAST_PATH=0 -- "$peers/bench_dgemm_rate"
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

# wall CASE PROG [GROUP]: whole seconds of the last run of PROG on CASE (60 when none).
wall() {
  local w
  w=$(grep -P "\tcase=$1\t" "$results_log" | grep -P "\tprog=$2\t" | grep -P "\tgroup=${3:-static}\t" |
      tail -1 | tr '\t' '\n' | sed -n 's/^wall_s=//p' || true)
  awk -v w="${w:-60}" 'BEGIN { printf "%d", w + 1 }'
}

smallest=$(name_of "${size_list[0]}")
modes_case=$(name_of "$modes_size")
last=$(( ${#size_list[@]} - 1 ))

# ---- required: static solution at every size ---------------------------------------------------
# One run of each program per size (three at the smallest, where they are cheap); more runs of the
# middle sizes come with the optional work below.
for i in "${!size_list[@]}"; do
  c=$(name_of "${size_list[$i]}"); k=$data/$c.K.bin; f=$data/$c.F.bin
  [ -f "$k" ] || continue
  reps=1; [ "$i" -eq 0 ] && reps=3
  log "static solution $c"
  for r in $(seq "$reps"); do
    static_pair "$c" "$k" "$f" default 900
    measure static "$c" default 900 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_cholmod" --K "$k" --F "$f"
  done
done

# ---- required: natural modes -------------------------------------------------------------------
modes_run() { # CASE K M TIMEOUT
  local c=$1 k=$2 m=$3 t=$4 iparm
  iparm=$(ls "$data"/$c.*.iparm 2>/dev/null | head -1 || true)
  [ "$library_ok" = 1 ] && measure modes "$c" default "$t" -- "$bin/bench_suite_modes" --method lanczos --K "$k" --M "$m" --workdir "$data/work/"
  measure modes "$c" default "$t" -- "$peers/bench_peer_arpack" --K "$k" --M "$m" ${iparm:+--iparm "$iparm"}
  [ "$library_ok" = 1 ] && measure modes "$c" default "$t" -- "$bin/bench_suite_modes" --method subspace --K "$k" --M "$m" --workdir "$data/work/"
  # Block Lanczos without and with its Sturm count (one more factorisation).
  [ "$library_ok" = 1 ] && measure modes "$c" default "$t" -- "$bin/bench_suite_modes" --method block --K "$k" --M "$m" --workdir "$data/work/"
  [ "$library_ok" = 1 ] && measure modes "$c" default "$t" --env VQMATH_EIGEN_VERIFICATION=1 -- "$bin/bench_suite_modes" --method block --K "$k" --M "$m" --workdir "$data/work/"
  measure modes "$c" default "$t" --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_symgeigs" --K "$k" --M "$m" --factor cholmod
}
for c in $(printf '%s\n' "$smallest" "$modes_case" | uniq); do
  [ -f "$data/$c.K.bin" ] || continue
  log "natural modes $c"
  modes_run "$c" "$data/$c.K.bin" "$data/$c.M.bin" 600
  [ "$c" = "$smallest" ] && measure modes "$c" default 180 -- "$peers/bench_peer_symgeigs" --K "$data/$c.K.bin" --M "$data/$c.M.bin" --factor ldlt
done

# ---- required: the frame, static solution and buckling ---------------------------------------------
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
  estimate=$(grep -P '\tcase=frame\t' "$results_log" | grep -P '\tprog=models\t' | tr '\t' '\n' | sed -n 's/^buckling_estimate=//p' | head -1 || true)
  sigma=$(awk -v e="${estimate:-1}" 'BEGIN { printf "%.6g", e / 5 }')
  iparm=$(ls "$data"/frame.*.iparm 2>/dev/null | head -1 || true)
  b=(--mode buckling --K "$k" --Kg "$data/frame.Kg.bin" --sigma "$sigma")
  [ "$library_ok" = 1 ] && measure buckling frame default 300 -- "$bin/bench_suite_modes" --method lanczos "${b[@]}" --workdir "$data/work/"
  [ "$library_ok" = 1 ] && measure buckling frame default 300 -- "$bin/bench_suite_modes" --method block "${b[@]}" --workdir "$data/work/"
  measure buckling frame default 300 -- "$peers/bench_peer_arpack" "${b[@]}" ${iparm:+--iparm "$iparm"}
  measure buckling frame default 300 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_symgeigs" "${b[@]}" --factor cholmod
  measure buckling frame default 300 -- "$peers/bench_peer_symgeigs" "${b[@]}" --factor ldlt
fi

# ---- required: the published structural matrices (small) ---------------------------------------
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
    modes_run "$c" "$k" "$m" 120
    measure modes "$c" default 120 -- "$peers/bench_peer_symgeigs" --K "$k" --M "$m" --factor ldlt
  done
else
  log "no published matrices at $shared: skipped"
fi

# ---- optional, while the time budget lasts ------------------------------------------------------
# In this order: the PARDISO settings a host can pass, from the largest size but one downwards;
# CHOLMOD as installed; a second run of the middle sizes; the fastest settings at the largest size
# with the direct PARDISO call on the same settings; Spectra over Eigen's LDLT at the modal size.
variants=("iparm1=3" "iparm23=1" "mtype=2" "iparm1=3 iparm23=1" "iparm1=3 mtype=2" "iparm1=3 iparm23=1 mtype=2")
middle=()  # sizes below the largest, largest first
for (( i = last - 1; i >= 0; i-- )); do middle+=("$(name_of "${size_list[$i]}")"); done
[ "$last" -eq 0 ] && middle=("$(name_of "${size_list[0]}")")
if [ "$library_ok" = 1 ]; then
  for c in "${middle[@]}"; do
    [ -f "$data/$c.K.bin" ] || continue
    log "host settings at $c"
    for v in "${variants[@]}"; do
      if fits $(( $(wall "$c" ours) * 3 / 2 + 5 )); then
        measure static "$c" "$v" 600 -- "$bin/bench_suite_static" --K "$data/$c.K.bin" --F "$data/$c.F.bin" \
          --msglvl 1 --workdir "$data/work/" $(variant_args "$v")
      else
        skip static "$c" "$v" ours
      fi
    done
  done
fi
for c in "${middle[@]}"; do
  [ -f "$data/$c.K.bin" ] || continue
  # The reference BLAS is several times slower than MKL's: at most two minutes per case.
  if fits 125; then
    measure static "$c" default 120 -- "$peers/bench_peer_cholmod_refblas" --K "$data/$c.K.bin" --F "$data/$c.F.bin"
  else
    skip static "$c" default cholmod-ref
  fi
done
for c in "${middle[@]}"; do
  [ "$c" = "$smallest" ] && continue
  if fits $(( $(wall "$c" ours) + $(wall "$c" pardiso) + $(wall "$c" cholmod-mkl) + 5 )); then
    log "second run at $c"
    static_pair "$c" "$data/$c.K.bin" "$data/$c.F.bin" default 900
    measure static "$c" default 900 --env "OMP_THREAD_LIMIT=$cores" -- "$peers/bench_peer_cholmod" --K "$data/$c.K.bin" --F "$data/$c.F.bin"
  fi
done
if [ "$last" -gt 0 ] && [ "$library_ok" = 1 ]; then
  c=$(name_of "${size_list[$last]}"); prev=$(name_of "${size_list[$((last - 1))]}")
  best=$("$peers/bench_suite_runner" best --log "$results_log" --group static --case "$prev" --prog ours || true)
  if [ -n "$best" ] && [ "$best" != default ] && [ -f "$data/$c.K.bin" ]; then
    if fits $(( $(wall "$c" ours) + $(wall "$c" pardiso) + 10 )); then
      log "fastest settings ($best) at $c"
      static_pair "$c" "$data/$c.K.bin" "$data/$c.F.bin" "$best" 900
    else
      skip static "$c" "$best" ours
    fi
  fi
fi
if [ "$modes_case" != "$smallest" ] && [ -f "$data/$modes_case.K.bin" ]; then
  if fits 185; then
    measure modes "$modes_case" default 180 -- "$peers/bench_peer_symgeigs" --K "$data/$modes_case.K.bin" --M "$data/$modes_case.M.bin" --factor ldlt
  else
    skip modes "$modes_case" default spectra-ldlt
  fi
fi

appendix=()
# ---- band search: every mode below a frequency holding about 100 modes at the modal size ---------
# The band search against ARPACK asked for the same modes at sigma = 0 and FEAST over the same
# interval, in one process (bench_band prints its own table, appended to the report).
if [ "$library_ok" = 1 ] && fits 300; then
  if cmake --build "$build" -j "$jobs" --target bench_band >/dev/null 2>&1; then
    mkdir -p "$data/programs"
    log "band search at $modes_case (at most 600 s; FEAST stopped after 240 s)"
    timeout 600 "$bin/bench_band" "$modes_size" 100 "$data/work/" 240 > "$data/programs/bench_band.txt" 2>&1 ||
      echo "(ended with status $?)" >> "$data/programs/bench_band.txt"
    appendix+=(--appendix "$data/programs/bench_band.txt")
  else
    log "bench_band did not build"
  fi
else
  log "skipped the band search: time budget"
fi

# ---- optional: the other benchmark programs, each with its own table ---------------------------
if [ "$with_programs" = 1 ] && [ "$library_ok" = 1 ]; then
  mkdir -p "$data/programs"
  for src in bench/bench_*.cpp; do
    name=$(basename "$src" .cpp)
    case "$name" in bench_suite_* | bench_band) continue ;; esac
    left=$(( budget - $(elapsed) ))
    if [ "$left" -lt 60 ]; then log "skipped $name: time budget"; continue; fi
    cmake --build "$build" -j "$jobs" --target "$name" >/dev/null 2>&1 || { log "$name did not build"; continue; }
    log "running $name (at most $left s)"
    timeout "$left" "$bin/$name" > "$data/programs/$name.txt" 2>&1 || echo "(ended with status $?)" >> "$data/programs/$name.txt"
    appendix+=(--appendix "$data/programs/$name.txt")
  done
fi

# The dense rate once more, at the end: the report takes the better of the two, the machine's
# rate when it was least disturbed.
measure probe dgemm end 120 -- "$peers/bench_dgemm_rate"

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
notes=(--note "$bindings")
[ "$library_ok" = 1 ] || notes+=(--note "**The library did not build in this run: only the peers were measured.**")
"$peers/bench_suite_runner" report --log "$results_log" --out "$out" --with-log \
  --title "vqmath benchmark suite — $day on $host" \
  --meta "date=$(date '+%Y-%m-%d %H:%M %Z')" --meta "host=$host" \
  --meta "threads=$threads (MKL_NUM_THREADS, OMP_NUM_THREADS; CHOLMOD's OMP_THREAD_LIMIT=$cores; OMP_WAIT_POLICY=${OMP_WAIT_POLICY:-unset})" \
  --meta "commit=$commit" --meta "compiler=$(c++ --version 2>/dev/null | head -1 || true)" \
  --meta "mode=$mode: solids of ${sizes} equations, modes at $modes_case, frame of ${frame/,/ bays × } storeys" \
  --meta "duration=$(elapsed) s in all, of which $build_done s install and build" \
  --meta "load=load average $load_before before the run, $(cut -d' ' -f1-3 /proc/loadavg 2>/dev/null) after it (other work on the machine distorts the times)" \
  "${notes[@]}" "${appendix[@]}"
log "report written to $out ($(elapsed) s)"
