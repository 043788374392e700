#!/usr/bin/env python3
"""The Python host against numpy (and scipy) on the same data in the same run.

    QUARZ_LINALG_LIBDIR=build /usr/bin/python3 bench/python_speed.py [--sizes 4,16,...]

For each size (--sizes): ql.solve / np.linalg.solve, ql.det / np.linalg.det, ql.matmul / np.matmul
(n x n), ql.dot / np.vdot (n-vectors; ql.dot conjugates its second argument as np.vdot does
its first) and, up to n = 16, scipy.linalg.solve / ql.solve. Every figure is the best of
many repetitions of a short timed loop (about a millisecond, shorter than a scheduler time
slice, so that on a loaded machine some repetitions run undisturbed), with both sides
interleaved, over several sweeps of all the cases; ratios below 1 mean the Python host is
faster.
--all adds every other public function against its numpy / scipy counterpart;
--stack-sizes 3,4,8 times solve, det, inv and eigh on stacks of --stack matrices.
QUARZ_LINALG_BRIDGE=0 measures the ctypes path; QUARZ_LINALG_HOST_LAYOUT=1 the bridge
reading numpy's arrays in place (by default every input is copied). --clock cpu times the
calling thread's CPU time instead of the wall clock: a stack of 20000 matrices takes longer
than a time slice, so on a loaded machine no wall-clock repetition runs undisturbed (run
with OPENBLAS_NUM_THREADS=1, so that all the work is on that thread).
"""
import argparse
import os
import sys
import time
from pathlib import Path

import numpy as np

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "python"))
import quarz_linalg as ql  # noqa: E402


clock = time.perf_counter


def best_time(fn, budget):
    """Seconds per call: the best of loops sized to take about `budget` seconds each."""
    number = 1
    while True:
        t0 = clock()
        for _ in range(number):
            fn()
        t = clock() - t0
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
            t0 = clock()
            for _ in range(number):
                fn()
            best[i] = min(best[i], (clock() - t0) / number)
    return best


def _more(A, S, y, sla):
    """(name, ours, theirs, counterpart) of the rest of the public functions on A (general)
    and S (symmetric positive definite)."""
    B = A.T.copy()
    return [
        ("inv", lambda: ql.inv(A), lambda: np.linalg.inv(A), "np.linalg.inv"),
        ("pinv", lambda: ql.pinv(A), lambda: np.linalg.pinv(A), "np.linalg.pinv"),
        ("cholesky", lambda: ql.cholesky(S), lambda: np.linalg.cholesky(S), "np.linalg.cholesky"),
        ("eig", lambda: ql.eig(A), lambda: np.linalg.eig(A), "np.linalg.eig"),
        ("eigvals", lambda: ql.eigvals(A), lambda: np.linalg.eigvals(A), "np.linalg.eigvals"),
        ("eigh", lambda: ql.eigh(S), lambda: np.linalg.eigh(S), "np.linalg.eigh"),
        ("eigvalsh", lambda: ql.eigvalsh(S), lambda: np.linalg.eigvalsh(S), "np.linalg.eigvalsh"),
        ("eig(A,B)", lambda: ql.eig(A, B), lambda: sla.eig(A, B), "scipy.linalg.eig"),
        ("svd", lambda: ql.svd(A), lambda: np.linalg.svd(A), "np.linalg.svd"),
        ("qr", lambda: ql.qr(A), lambda: sla.qr(A), "scipy.linalg.qr"),
        ("schur", lambda: ql.schur(A), lambda: sla.schur(A), "scipy.linalg.schur"),
        ("qz", lambda: ql.qz(A, B), lambda: sla.qz(A, B), "scipy.linalg.qz"),
        ("lu", lambda: ql.lu(A), lambda: sla.lu(A), "scipy.linalg.lu"),
        ("matrix_rank", lambda: ql.matrix_rank(A), lambda: np.linalg.matrix_rank(A),
         "np.linalg.matrix_rank"),
        ("cond", lambda: ql.cond(A), lambda: np.linalg.cond(A), "np.linalg.cond"),
        ("matrix_norm", lambda: ql.matrix_norm(A), lambda: np.linalg.norm(A), "np.linalg.norm"),
        ("norm", lambda: ql.norm(y), lambda: np.linalg.norm(y), "np.linalg.norm"),
        ("lstsq", lambda: ql.lstsq(A, y), lambda: np.linalg.lstsq(A, y, rcond=None),
         "np.linalg.lstsq"),
        ("matrix_power", lambda: ql.matrix_power(A, 5), lambda: np.linalg.matrix_power(A, 5),
         "np.linalg.matrix_power"),
        ("expm", lambda: ql.expm(A), lambda: sla.expm(A), "scipy.linalg.expm"),
        ("sqrtm", lambda: ql.sqrtm(S), lambda: sla.sqrtm(S), "scipy.linalg.sqrtm"),
        ("logm", lambda: ql.logm(S), lambda: sla.logm(S), "scipy.linalg.logm"),
        ("transpose", lambda: ql.transpose(A), lambda: A.T.copy(), "ndarray.T.copy"),
        ("trace", lambda: ql.trace(A), lambda: np.trace(A), "np.trace"),
        ("outer", lambda: ql.outer(y, y), lambda: np.outer(y, y), "np.outer"),
        ("kron", lambda: ql.kron(A[:8, :8], A[:8, :8]), lambda: np.kron(A[:8, :8], A[:8, :8]), "np.kron"),
        ("matvec", lambda: ql.matvec(A, y), lambda: A @ y, "ndarray @"),
        ("mean", lambda: ql.mean(y), lambda: np.mean(y), "np.mean"),
    ]


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--sizes", default="4,8,16,32,64,128,256,512,1024")
    ap.add_argument("--repeats", type=int, default=31)
    ap.add_argument("--rounds", type=int, default=3,
                    help="sweeps over all cases, the best of each kept (a burst of other load "
                         "then spoils one sweep, not the figure)")
    ap.add_argument("--all", action="store_true",
                    help="every public function with a numpy / scipy counterpart, not only the "
                         "four above")
    ap.add_argument("--stack-sizes", default="",
                    help="n of (stack, n, n) stacks for solve, det, inv and eigh (times per stack)")
    ap.add_argument("--stack", type=int, default=20000, help="matrices per stack")
    ap.add_argument("--budget", type=float, default=0.005, help="seconds per timed loop")
    ap.add_argument("--clock", choices=("wall", "cpu"), default="wall",
                    help="wall clock, or the calling thread's CPU time")
    a = ap.parse_args()
    global clock
    clock = time.thread_time if a.clock == "cpu" else time.perf_counter
    import scipy.linalg

    path = "bridge" if ql._library.bridge is not None else "ctypes"
    path += ", inputs in place" if ql.set_host_layout() else ", inputs copied"
    print(f"# calls through: {path}; numpy {np.__version__}; load average "
          f"{os.getloadavg()[0]:.2f}; OPENBLAS_NUM_THREADS={os.environ.get('OPENBLAS_NUM_THREADS', 'unset')}; "
          f"best of {a.repeats} x {a.rounds} rounds; {a.clock} clock")
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
        if a.all:
            S = A + A.T + 2 * n * np.eye(n)
            for name, ours, theirs, other in _more(A, S, y, scipy.linalg):
                cases.append((n, name, ours, theirs, other))
    for n in map(int, a.stack_sizes.split(",") if a.stack_sizes else []):
        A = np.eye(n) + rng.standard_normal((a.stack, n, n)) / (4 * np.sqrt(n))
        S = A + np.swapaxes(A, 1, 2) + 2 * n * np.eye(n)
        y = rng.standard_normal((a.stack, n))
        # Each stack bound as a default: a closure would see the last size's stacks.
        for name, ours, theirs in (("solve", lambda A=A, y=y: ql.solve(A, y), lambda A=A, y=y: np.linalg.solve(A, y)),
                                   ("det", lambda A=A: ql.det(A), lambda A=A: np.linalg.det(A)),
                                   ("inv", lambda A=A: ql.inv(A), lambda A=A: np.linalg.inv(A)),
                                   ("eigh", lambda S=S: ql.eigh(S), lambda S=S: np.linalg.eigh(S))):
            cases.append((n, f"{name}[{a.stack}]", ours, theirs, f"np.linalg.{name}"))
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
