#!/usr/bin/env bash
# One process versus two on this machine: vqsolve-mpi static on generated solids, time and
# peak memory per process, one run each. Writes bench/results/<date>-<host>-mpi.md.
#   bench/mpi/run-mpi.sh [build-folder] [sizes...]     default: build 100000 300000
# Needs a build with VQMATH_MPI on (build/tools/vqsolve-mpi). One MKL thread per process, so
# that two processes use the two cores one process would leave idle half of.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build}
shift || true
sizes=("$@")
[ ${#sizes[@]} -eq 0 ] && sizes=(100000 300000)
tool=$build/tools/vqsolve-mpi
[ -x "$tool" ] || { echo "run-mpi: $tool not found (configure with -DVQMATH_MPI=ON)" >&2; exit 2; }
out=$root/bench/results/$(date -u +%Y-%m-%d)-$(hostname)-mpi.md
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
export OMP_NUM_THREADS=1 MKL_NUM_THREADS=1
for n in "${sizes[@]}"; do
  for np in 1 2; do
    echo "run-mpi: static solid:$n on $np process(es)" >&2
    mpirun --allow-run-as-root --oversubscribe -np "$np" "$tool" static --model "solid:$n" --json \
      > "$tmp/static-$n-$np.json"
  done
done
/usr/bin/python3 - "$tmp" "$out" "${sizes[@]}" <<'PY'
import json, sys, os, platform
tmp, out, sizes = sys.argv[1], sys.argv[2], sys.argv[3:]
lines = ["# vqsolve-mpi: one process versus two, one machine", "",
         f"Machine: {platform.node()}, {os.cpu_count()} cores (shared with other work while measuring), "
         "one MKL thread per process. One run per case: figures are indicative.", "",
         "| solid | equations | processes | factor [s] | solve [s] | total [s] | peak memory per process [MiB] "
         "| factor entries (process 0) | relative residual |",
         "|---|---|---|---|---|---|---|---|---|"]
for n in sizes:
    for np in (1, 2):
        d = json.load(open(f"{tmp}/static-{n}-{np}.json"))
        s = d["seconds"]
        mem = " / ".join(f"{m:.0f}" for m in d["peakMemoryMiB"])
        lines.append(f"| solid:{n} | {d['equations']} | {np} | {s['factor']:.2f} | {s['solve']:.3f} | {s['total']:.2f} "
                     f"| {mem} | {d['factor']['factorEntries']} | {d['relativeResidual']:.1e} |")
open(out, "w").write("\n".join(lines) + "\n")
print("\n".join(lines))
PY
echo "run-mpi: wrote $out" >&2
