#!/usr/bin/env python3
"""The Python host against numpy (and scipy) on the same data in the same run.

    QUARZ_LINALG_LIBDIR=build /usr/bin/python3 bench/python_speed.py [--sizes 4,16,...]

For each size: ql.solve / np.linalg.solve, ql.det / np.linalg.det, ql.matmul / np.matmul
(n x n), ql.dot / np.vdot (n-vectors; ql.dot conjugates its second argument as np.vdot does
its first) and, up to n = 16, scipy.linalg.solve / ql.solve. Every figure is the best of
many repetitions of a short timed loop (about a millisecond, shorter than a scheduler time
slice, so that on a loaded machine some repetitions run undisturbed), with both sides
interleaved, over several sweeps of all the cases; ratios below 1 mean the Python host is
faster.
QUARZ_LINALG_BRIDGE=0 measures the ctypes path; QUARZ_LINALG_HOST_LAYOUT=0 the bridge
copying every input (numpy's arrays then lack the host layout).
"""
import argparse
import os
import sys
import time
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "python"))
import quarz_linalg as ql  # noqa: E402


def best_time(fn, budget):
    """Seconds per call: the best of loops sized to take about `budget` seconds each."""
    number = 1
    while True:
        t0 = time.perf_counter()
        for _ in range(number):
            fn()
        t = time.perf_counter() - t0
        if t >= budget / 5 or number >= 1 << 20 or t * 4 > budget:
            return t / number, number
        number *= 4


def compare(ours, theirs, repeats, budget):
    """Best per-call times of both, measured alternately."""
    _, n_ours = best_time(ours, budget)
    _, n_theirs = best_time(theirs, budget)
    best = [float("inf"), float("inf")]
    for _ in range(repeats):
        for i, (fn, number) in enumerate(((ours, n_ours), (theirs, n_theirs))):
            t0 = time.perf_counter()
            for _ in range(number):
                fn()
            best[i] = min(best[i], (time.perf_counter() - t0) / number)
    return best


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--sizes", default="4,8,16,32,64,128,256,512,1024")
    ap.add_argument("--repeats", type=int, default=31)
    ap.add_argument("--rounds", type=int, default=3,
                    help="sweeps over all cases, the best of each kept (a burst of other load "
                         "then spoils one sweep, not the figure)")
    ap.add_argument("--budget", type=float, default=0.005, help="seconds per timed loop")
    a = ap.parse_args()
    import scipy.linalg

    path = "bridge" if ql._library.bridge is not None else "ctypes"
    path += ", inputs in place" if ql.host_layout() else ", inputs copied"
    print(f"# calls through: {path}; numpy {np.__version__}; load average "
          f"{os.getloadavg()[0]:.2f}; OPENBLAS_NUM_THREADS={os.environ.get('OPENBLAS_NUM_THREADS', 'unset')}; "
          f"best of {a.repeats} x {a.rounds} rounds")
    rng = np.random.default_rng(1)
    cases = []
    for n in map(int, a.sizes.split(",")):
        # Well conditioned, and a determinant near 1 at every size (no overflow).
        A = np.eye(n) + rng.standard_normal((n, n)) / (4 * np.sqrt(n))
        y = rng.standard_normal(n)
        x = rng.standard_normal(n)
        cases += [(n, "solve", lambda A=A, y=y: ql.solve(A, y), lambda A=A, y=y: np.linalg.solve(A, y),
                   "np.linalg.solve"),
                  (n, "det", lambda A=A: ql.det(A), lambda A=A: np.linalg.det(A), "np.linalg.det"),
                  (n, "matmul", lambda A=A: ql.matmul(A, A), lambda A=A: np.matmul(A, A), "np.matmul"),
                  (n, "dot", lambda x=x, y=y: ql.dot(x, y), lambda x=x, y=y: np.vdot(y, x), "np.vdot")]
        if n <= 16:
            cases.append((n, "solve", lambda A=A, y=y: ql.solve(A, y),
                          lambda A=A, y=y: scipy.linalg.solve(A, y), "scipy.linalg.solve"))
    best = [[float("inf"), float("inf")] for _ in cases]
    for _ in range(a.rounds):
        for i, (n, name, ours, theirs, other) in enumerate(cases):
            t_ours, t_theirs = compare(ours, theirs, a.repeats, a.budget)
            best[i] = [min(best[i][0], t_ours), min(best[i][1], t_theirs)]
    print(f"{'n':>5} {'function':<8} {'quarz us':>10} {'other us':>10} {'ratio':>7}  other")
    worst = {}
    for (n, name, _, _, other), (t_ours, t_theirs) in zip(cases, best):
        ratio = t_ours / t_theirs
        key = (name, other)
        worst[key] = max(worst.get(key, 0), ratio)
        print(f"{n:>5} {name:<8} {t_ours * 1e6:>10.2f} {t_theirs * 1e6:>10.2f} {ratio:>7.3f}  {other}")
    print("# worst ratio over the sizes:")
    for (name, other), r in worst.items():
        print(f"#   ql.{name} / {other}: {r:.3f}")


if __name__ == "__main__":
    main()
