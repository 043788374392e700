#!/usr/bin/env python3
"""Export / direct kernel time ratios of the square and product benchmarks, as the
median and the best of the repetitions of one quarz_bench run (random interleaving).

    OPENBLAS_NUM_THREADS=1 python3 bench/ratios.py [--bench build/bench/quarz_bench] [--repetitions 7]
"""
import argparse
import json
import subprocess

# export benchmark -> the direct kernel call it is measured against
PAIRS = {
    "BM_dLinEqH": "BM_direct_dgesv",
    "BM_dLUH": "BM_direct_dgetrf",
    "BM_dDeterminantH": "BM_direct_dgetrf",
    "BM_MtrxMulH<double>": "BM_gemm<double>",
    "BM_dSymEigenVH": "BM_direct_dsyevr",
    "BM_dGenEigenVH": "BM_direct_dggev",
    "BM_dLSEqH": "BM_direct_dgelsd",
    "BM_dLSEqSVH": "BM_direct_dgelsd",
}


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--bench", default="build/bench/quarz_bench")
    ap.add_argument("--repetitions", type=int, default=7)
    args = ap.parse_args()
    names = sorted(set(PAIRS) | set(PAIRS.values()))
    pattern = "^(" + "|".join(names) + ")/"
    out = subprocess.run([args.bench, "--benchmark_filter=" + pattern, "--benchmark_format=json",
                          f"--benchmark_repetitions={args.repetitions}", "--benchmark_enable_random_interleaving=true",
                          "--benchmark_report_aggregates_only=true"], check=True, capture_output=True, text=True).stdout
    stats = {}
    for b in json.loads(out)["benchmarks"]:
        if b.get("run_type") != "aggregate":
            continue
        stats.setdefault(b["run_name"], {})[b["aggregate_name"]] = b["real_time"]
    # best: the min of the repetitions where the benchmark reports it, else the median
    print(f"{'export':48} {'median ratio':>12} {'best ratio':>10}")
    for run, s in sorted(stats.items()):
        name, _, size = run.partition("/")
        if name not in PAIRS:
            continue
        d = stats.get(PAIRS[name] + "/" + size)
        if not d:
            continue
        best = s.get("best", s["median"]) / d.get("best", d["median"])
        print(f"{run:48} {s['median'] / d['median']:12.3f} {best:10.3f}")


if __name__ == "__main__":
    main()
