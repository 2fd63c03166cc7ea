#!/usr/bin/python3
"""Natural modes of a structural model given as two MatrixMarket files.

    PYTHONPATH=build/python /usr/bin/python3 examples/modes.py K.mtx M.mtx [modes] [--plot out.png]

Prints the frequency table and the Sturm check; with matplotlib installed (python3-matplotlib)
and --plot, draws the effective mass of every mode in the three translations, taking equations in
groups of --dofs (default 3) per node with x, y, z first.
"""
import argparse
import sys
import time

import numpy as np
import scipy.io

import vqmath


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("stiffness")
    parser.add_argument("mass")
    parser.add_argument("modes", nargs="?", type=int, default=10)
    parser.add_argument("--method", default="lanczos", choices=[m for m in vqmath.METHODS if m != "block"])
    parser.add_argument("--dofs", type=int, default=3, help="equations per node (x, y, z first)")
    parser.add_argument("--plot", metavar="PNG", help="effective-mass bars (needs matplotlib)")
    args = parser.parse_args()

    K = scipy.io.mmread(args.stiffness).tocsr()
    M = scipy.io.mmread(args.mass).tocsr()
    n = K.shape[0]
    # Translation directions: with 3 equations per node, 1, 4, 7, ... along x; 2, 5, 8, ... along
    # y; and so on.
    if args.dofs < 3:
        parser.error("--dofs must be at least 3")
    directions = [np.tile(np.eye(args.dofs)[d], n // args.dofs + 1)[:n] for d in range(3)]

    start = time.perf_counter()
    result = vqmath.modes(K, M, min(args.modes, n - 1), method=args.method, residual=True)
    seconds = time.perf_counter() - start
    fractions = [vqmath.effective_mass(result.vectors, M, d)[1] for d in directions]

    print(f"{args.stiffness}: {n} equations, {K.nnz} stored entries; {args.method}, {seconds:.3f} s")
    print(f"{'mode':>4}  {'eigenvalue':>14}  {'frequency [Hz]':>14}  {'residual':>9}  "
          f"{'mx %':>6}  {'my %':>6}  {'mz %':>6}")
    for i, (value, f) in enumerate(zip(result.eigenvalues, result.frequencies)):
        print(f"{i + 1:>4}  {value:>14.6e}  {f:>14.6f}  {result.residuals[i]:>9.1e}  "
              + "  ".join(f"{100 * fr[i]:>6.2f}" for fr in fractions))
    if result.sturm_passed is None:
        print("Sturm check: not done for this method")
    else:
        shifts = ", ".join(f"{s:.6e}" for s in result.sturm_shifts)
        verdict = "passed" if result.sturm_passed else "FAILED"
        print(f"Sturm check: {result.sturm_count} eigenvalues counted, {len(result.eigenvalues)} "
              f"found (shifts {shifts}): {verdict}")
    for note in result.notes:
        print(f"note: {note}")

    if args.plot:
        try:
            import matplotlib
            matplotlib.use("Agg")
            import matplotlib.pyplot as plt
        except ImportError:
            print("matplotlib is not installed (apt-get install python3-matplotlib): no plot")
            return 0 if result.sturm_passed is not False else 1
        modes = np.arange(1, len(result.eigenvalues) + 1)
        fig, ax = plt.subplots(figsize=(8, 4))
        for d, (label, fr) in enumerate(zip("xyz", fractions)):
            ax.bar(modes + (d - 1) * 0.27, 100 * fr, width=0.27, label=label)
        ax.set_xlabel("mode")
        ax.set_ylabel("effective mass [%]")
        ax.legend()
        fig.tight_layout()
        fig.savefig(args.plot)
        print(f"plot: {args.plot}")
    return 0 if result.sturm_passed is not False else 1


if __name__ == "__main__":
    sys.exit(main())
