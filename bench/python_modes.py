#!/usr/bin/python3
"""vqmath.modes against scipy.sparse.linalg.eigsh(K, k, M, sigma=0) on generated solids.

    PYTHONPATH=build/python /usr/bin/python3 bench/python_modes.py [--sizes 20000,100000]
        [--modes 20] [--threads 2] [--limit 1800] [--out bench/results/<date>-python.md]

Every case runs in its own child process: the model is generated there (the clamped steel bar
of 8-node hexahedra of models/, lumped mass), then the peak resident memory is reset
(/proc/self/clear_refs) and the solution timed, so that the memory column is what the solver
added on top of the model. vqmath's time is split into the library's calls (the eigen solution
and the Sturm check) and what the Python layer adds around them (input conversion, checks,
result assembly). The report gives the ratios eigsh / vqmath of time and memory.
"""
import argparse
import datetime
import json
import os
import platform
import subprocess
import sys
import time

import numpy as np


def status_kb(field):
    with open("/proc/self/status") as f:
        for line in f:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    return 0


def reset_peak():
    try:
        with open("/proc/self/clear_refs", "w") as f:
            f.write("5")
        return True
    except OSError:
        return False


def child(case, size, modes):
    import scipy.sparse as sp
    import scipy.sparse.linalg as sla

    import vqmath
    from vqmath import _core

    K, lumped, _ = vqmath.solid_model(size)
    Ks = vqmath.to_scipy(K)   # what a user holds: the full symmetric matrix
    n = Ks.shape[0]
    del K
    base = status_kb("VmRSS")
    exact = reset_peak()
    out = {"case": case, "n": n, "nnz_full": int(Ks.nnz), "peak_exact": exact}
    if case == "vqmath":
        spent = {"eigen": 0.0, "sturm": 0.0}

        def timed(name, function):
            def wrapper(*args):
                t = time.perf_counter()
                try:
                    return function(*args)
                finally:
                    spent[name] += time.perf_counter() - t
            return wrapper

        _core.eigen = timed("eigen", _core.eigen)
        _core.sturm_count = timed("sturm", _core.sturm_count)
        t = time.perf_counter()
        r = vqmath.modes(Ks, lumped, modes)
        out["seconds"] = time.perf_counter() - t
        out["library_eigen"] = spent["eigen"]
        out["library_sturm"] = spent["sturm"]
        out["sturm_passed"] = bool(r.sturm_passed)
        values = r.eigenvalues
    else:
        M = sp.diags(lumped, format="csc")
        t = time.perf_counter()
        values, _ = sla.eigsh(Ks.tocsc(), k=modes, M=M, sigma=0)
        out["seconds"] = time.perf_counter() - t
        values = np.sort(values)
    out["peak_mb"] = (status_kb("VmHWM") - base) / 1024.0
    out["eigenvalues"] = [float(v) for v in values]
    print(json.dumps(out))


def run_case(case, size, modes, threads, limit):
    # Idle OpenMP threads sleep instead of spinning, so that other work on the machine cannot
    # stretch every barrier of the factorisations by whole time slices.
    env = dict(os.environ, MKL_NUM_THREADS=str(threads), OMP_NUM_THREADS=str(threads),
               OMP_WAIT_POLICY="passive")
    command = [sys.executable, os.path.abspath(__file__), "--child", case, "--size", str(size),
               "--modes", str(modes)]
    child_process = subprocess.Popen(command, env=env, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, text=True)
    try:
        stdout, stderr = child_process.communicate(timeout=limit)
    except subprocess.TimeoutExpired:
        # What the case held when it was stopped: a lower bound of its peak.
        peak = 0
        try:
            with open(f"/proc/{child_process.pid}/status") as f:
                peak = next(int(l.split()[1]) for l in f if l.startswith("VmHWM:"))
        except (OSError, StopIteration):
            pass
        child_process.kill()
        child_process.communicate()
        return {"case": case, "error": f"no result within {limit:.0f} s", "timeout": limit,
                "process_peak_mb": peak / 1024.0}
    if child_process.returncode != 0:
        return {"case": case, "error": (stderr.strip().splitlines() or ["failed"])[-1]}
    return json.loads(stdout.strip().splitlines()[-1])


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--sizes", default="20000,100000")
    p.add_argument("--modes", type=int, default=20)
    p.add_argument("--threads", type=int, default=2)
    p.add_argument("--limit", type=float, default=1800.0, help="seconds per case")
    p.add_argument("--out")
    p.add_argument("--child")
    p.add_argument("--size", type=int)
    a = p.parse_args()
    if a.child:
        child(a.child, a.size, a.modes)
        return 0

    load_before = os.getloadavg()[0]
    rows = []
    for size in (int(s) for s in a.sizes.split(",")):
        ours = run_case("vqmath", size, a.modes, a.threads, a.limit)
        peer = run_case("eigsh", size, a.modes, a.threads, a.limit)
        rows.append((size, ours, peer))
        print(json.dumps({"size": size, "vqmath": ours, "eigsh": peer}), file=sys.stderr)

    lines = [f"# vqmath.modes against scipy eigsh ({datetime.date.today()}, {platform.node()})", "",
             f"{a.modes} lowest modes of generated clamped solids (lumped mass); MKL/OpenMP threads "
             f"{a.threads} for vqmath with OMP_WAIT_POLICY=passive (SuperLU inside eigsh is "
             f"sequential); Python "
             f"{platform.python_version()}, numpy {np.__version__}, scipy "
             f"{__import__('scipy').__version__}; CPUs {os.cpu_count()}. Peak memory: what the "
             "solution added to the resident set after the model was built. Load average "
             f"{load_before:.1f} before the run, {os.getloadavg()[0]:.1f} after it.", "",
             "| n | vqmath s | eigsh s | time eigsh/vqmath | vqmath MB | eigsh MB | memory eigsh/vqmath "
             "| library calls s (eigen + Sturm) | Python layer % | max rel. eigenvalue diff | Sturm |",
             "|---|---|---|---|---|---|---|---|---|---|---|"]
    for size, ours, peer in rows:
        if "error" in ours:
            lines.append(f"| ~{size} | {ours['error']} | | | | | | | | | |")
            continue
        library = ours["library_eigen"] + ours["library_sturm"]
        layer = 100.0 * (ours["seconds"] - library) / library
        if "error" in peer:
            # Stopped at the time limit: the ratios are lower bounds.
            ratio = f"> {peer['timeout'] / ours['seconds']:.0f}" if "timeout" in peer else ""
            memory = f"> {peer['process_peak_mb']:.0f} (whole process)" if peer.get("process_peak_mb") else ""
            lines.append(f"| {ours['n']} | {ours['seconds']:.2f} | {peer['error']} | {ratio} | "
                         f"{ours['peak_mb']:.0f} | {memory} | | {ours['library_eigen']:.2f} + "
                         f"{ours['library_sturm']:.2f} | {layer:.1f} | | {ours['sturm_passed']} |")
            continue
        diff = max(abs(x - y) / abs(y) for x, y in zip(ours["eigenvalues"], peer["eigenvalues"]))
        lines.append(
            f"| {ours['n']} | {ours['seconds']:.2f} | {peer['seconds']:.2f} | "
            f"{peer['seconds'] / ours['seconds']:.1f} | {ours['peak_mb']:.0f} | {peer['peak_mb']:.0f} | "
            f"{peer['peak_mb'] / max(ours['peak_mb'], 1e-9):.1f} | {ours['library_eigen']:.2f} + "
            f"{ours['library_sturm']:.2f} | {layer:.1f} | {diff:.1e} | {ours['sturm_passed']} |")
    report = "\n".join(lines) + "\n"
    print(report)
    out = a.out or os.path.join(os.path.dirname(os.path.abspath(__file__)), "results",
                                f"{datetime.date.today()}-python-{platform.node()}.md")
    with open(out, "w") as f:
        f.write(report)
    print(f"written to {out}", file=sys.stderr)
    return 0


if __name__ == "__main__":
    sys.exit(main())
