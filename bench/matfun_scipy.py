#!/usr/bin/env python3
"""scipy.linalg.expm / sqrtm / logm against ql.expm / sqrtm / logm (the library through
the Python host) on the matrices of bench/matfun_bench.cpp: A/sqrt(n) + 2I for A uniform
in [-1, 1] from splitmix64 of the element index. Times are the best of a few calls, wall
and process CPU (all threads); accuracy is measured by round trips that do not favour
either side:
  expm   ||E(A) E(-A) - I||_F / sqrt(n)   (exp(A) exp(-A) = I)
  sqrtm  ||X X - A||_F / ||A||_F
  logm   ||expm(L) - A||_F / ||A||_F      (scipy's expm, accurate to the unit roundoff)

    python3 bench/matfun_scipy.py [build-dir] [n ...]     (default: build, 64 256 1024)
"""
import os
import sys
import time
import warnings

import numpy as np
import scipy.linalg as sl

HERE = os.path.dirname(os.path.abspath(__file__))
args = sys.argv[1:]
if args and not args[0].isdigit():
    os.environ.setdefault("QUARZ_LINALG_LIBDIR", os.path.abspath(args.pop(0)))
sys.path.insert(0, os.path.join(HERE, "..", "python"))
import quarz_linalg as ql  # noqa: E402

def test_matrix(n):
    k = np.arange(n * n, dtype=np.uint64)
    with np.errstate(over="ignore"):
        z = k + np.uint64(0x9E3779B97F4A7C15)
        z = (z ^ (z >> np.uint64(30))) * np.uint64(0xBF58476D1CE4E5B9)
        z = (z ^ (z >> np.uint64(27))) * np.uint64(0x94D049BB133111EB)
        z ^= z >> np.uint64(31)
    a = ((z >> np.uint64(11)).astype(np.float64) * 2.0 ** -53 * 2 - 1) / np.sqrt(n)
    return a.reshape(n, n) + 2 * np.eye(n)


def best(f, a, repeat):
    wall, cpu, out = [], [], None
    for _ in range(repeat):
        w0, c0 = time.perf_counter(), time.process_time()
        out = f(a)
        wall.append(time.perf_counter() - w0)
        cpu.append(time.process_time() - c0)
    return min(wall), min(cpu), out


def accuracy(name, a, x):
    if name == "sqrtm":
        return np.linalg.norm(x @ x - a) / np.linalg.norm(a)
    return np.linalg.norm(sl.expm(x) - a) / np.linalg.norm(a)


def main():
    sizes = [int(s) for s in args] or [64, 256, 1024]
    warnings.simplefilter("ignore")
    print(f"{'function':8} {'n':>5} {'scipy wall/cpu s':>18} {'ql wall/cpu s':>18} {'cpu ratio':>9} "
          f"{'scipy error':>12} {'ql error':>12}")
    for n in sizes:
        a = test_matrix(n)
        repeat = 5 if n <= 256 else 2
        for name in ("expm", "sqrtm", "logm"):
            ws, cs, xs = best(getattr(sl, name), a, repeat)
            wq, cq, xq = best(getattr(ql, name), a, repeat)
            if name == "expm":
                ys, yq = sl.expm(-a), ql.expm(-a)
                es = np.linalg.norm(xs @ ys - np.eye(n)) / np.sqrt(n)
                eq = np.linalg.norm(xq @ yq - np.eye(n)) / np.sqrt(n)
            else:
                es, eq = accuracy(name, a, xs), accuracy(name, a, xq)
            print(f"{name:8} {n:5d} {ws:9.4f}/{cs:8.4f} {wq:9.4f}/{cq:8.4f} {cq / cs:9.2f} {es:12.2e} {eq:12.2e}",
                  flush=True)
    print(f"load average {os.getloadavg()}")


if __name__ == "__main__":
    main()
