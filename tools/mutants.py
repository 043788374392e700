#!/usr/bin/env python3
"""Mutation runner: puts one realistic single-point fault at a time into a scratch copy
of the committed tree, rebuilds it incrementally (release, no benchmarks), runs ctest
and the Python suite through the compiled bridge, and reports each mutant killed,
survived or stale, with the tests that failed. The developer's tree is never written.

Mutants live in tools/mutants/*.json, each a list of objects:
  name     unique, <family>-<what>
  family   vector, products, factor, measures, solve, eigen, matfun, fit, koblas, binding
  layer    operation (the family templates), frame (src/frame), kernel (src/kernel),
           bridge (python/bridge, python/quarz_linalg)
  kind     the fault's kind (conjugation, leading-dimension, check-order, work-handle,
           loop-bound, triangle, tolerance, empty-size, option-map, finiteness, ...)
  fault    what the change models, in words
  file     path in the repository
  find     a snippet that occurs exactly once in the file (else the mutant is stale)
  replace  what it becomes
  env      optional: environment for the Python run (e.g. {"QUARZ_LINALG_BRIDGE": "0"}
           for a fault on the ctypes path)
  pytest   optional: the Python test files that exercise it (default: its family's)

  tools/mutants.py [--only NAME|FAMILY|LAYER|KIND ...] [--budget SECONDS] [--full]
                   [--quick] [--scratch DIR] [--out RESULTS.json] [--ctest-exclude REGEX]
                   [--list]

The stand-in for the test command: the release build (no sanitizers, no benchmarks),
ctest without the many-threads stress test (--ctest-exclude, default "Reliability"),
and the Python suite through the compiled bridge: the mutant's own files, else its
family's oracle files, else all of them (all of them for every mutant with --full).
Every failing test is recorded (the kill matrix); --quick stops at the first one. The
build goes through ccache when it is installed, so restoring a header and building the
same mutant again later cost little. A mutant is killed when the build fails, a test
fails or the run times out. The results (per mutant: result, seconds, the Python files
run, failed ctest names and pytest node ids) go to --out.
"""
import argparse
import glob
import io
import json
import os
import shutil
import subprocess
import sys
import tarfile
import time
import xml.etree.ElementTree as ET

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TIMEOUT = 1200  # seconds for one build or one suite run

# The oracle files that exercise each family (the stacks run through several families).
PYTEST_FILES = {
    "vector": ["test_vector.py", "test_stacks.py"],
    "products": ["test_products.py", "test_host.py"],
    "factor": ["test_factor.py", "test_qr_schur_qz.py", "test_svd.py", "test_subspaces.py", "test_stacks.py",
               "test_reductions.py"],
    "measures": ["test_det.py", "test_svd.py", "test_condest.py", "test_stacks.py"],
    "solve": ["test_solve.py", "test_lstsq.py", "test_svd.py", "test_sylvester.py", "test_stacks.py"],
    "eigen": ["test_eigen.py", "test_stacks.py"],
    "matfun": ["test_matfun.py", "test_matrix_power.py"],
    "fit": ["test_fit.py"],
    "koblas": ["test_koblas.py"],
}


def load_mutants():
    out, names = [], set()
    for path in sorted(glob.glob(os.path.join(ROOT, "tools", "mutants", "*.json"))):
        with open(path) as fh:
            for m in json.load(fh):
                if m["name"] in names:
                    sys.exit(f"mutants: {m['name']} defined twice")
                names.add(m["name"])
                out.append(m)
    return out


def sync_tree(dest):
    """Makes `dest` hold exactly HEAD's tracked files, rewriting only those that differ
    so that the incremental build recompiles only what changed."""
    blob = subprocess.run(["git", "-C", ROOT, "archive", "--format=tar", "HEAD"],
                          check=True, capture_output=True).stdout
    wanted = set()
    with tarfile.open(fileobj=io.BytesIO(blob)) as tar:
        for info in tar:
            path = os.path.join(dest, info.name)
            if info.isdir():
                os.makedirs(path, exist_ok=True)
                continue
            wanted.add(os.path.normpath(path))
            data = tar.extractfile(info).read() if info.isfile() else None
            if info.issym():
                if os.path.islink(path) and os.readlink(path) == info.linkname:
                    continue
                if os.path.lexists(path):
                    os.remove(path)
                os.symlink(info.linkname, path)
                continue
            if os.path.isfile(path) and not os.path.islink(path):
                with open(path, "rb") as fh:
                    if fh.read() == data:
                        continue
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "wb") as fh:
                fh.write(data)
            os.chmod(path, info.mode)
    for base, _, files in os.walk(dest):
        for f in files:
            path = os.path.normpath(os.path.join(base, f))
            if path not in wanted and "__pycache__" not in path:
                os.remove(path)


def run(cmd, log, env=None, timeout=TIMEOUT):
    """Runs `cmd` with its output appended to `log`; returns the exit code, or None on
    a timeout (the process group is ended)."""
    with open(log, "a") as fh:
        fh.write("$ " + " ".join(cmd) + "\n")
        fh.flush()
        p = subprocess.Popen(cmd, stdout=fh, stderr=subprocess.STDOUT, env=env, start_new_session=True)
        try:
            return p.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            os.killpg(p.pid, 9)
            p.wait()
            return None


def failed_junit(path):
    """Names of the failed test cases in a JUnit XML file (ctest or pytest)."""
    if not os.path.exists(path):
        return []
    try:
        root = ET.parse(path).getroot()
    except ET.ParseError:
        return ["<unreadable report>"]
    names = []
    for case in root.iter("testcase"):
        if case.find("failure") is not None or case.find("error") is not None:
            cls = case.get("classname", "")
            names.append((cls + "::" if cls and cls != case.get("name") else "") + case.get("name", ""))
    return names


class Stand:
    """The scratch tree, its build and the test commands run against it."""

    def __init__(self, scratch, ctest_exclude, quick):
        self.quick = quick
        self.env = dict(os.environ, CCACHE_DIR=os.path.join(scratch, "ccache"))
        self.scratch = scratch
        self.src = os.path.join(scratch, "src")
        self.build = os.path.join(scratch, "build")
        self.log = os.path.join(scratch, "log.txt")
        self.ctest_exclude = ctest_exclude

    def prepare(self):
        os.makedirs(self.src, exist_ok=True)
        sync_tree(self.src)
        if not os.path.exists(os.path.join(self.build, "CMakeCache.txt")):
            launcher = ["-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
            subprocess.check_call(["cmake", "-S", self.src, "-B", self.build, "-DCMAKE_BUILD_TYPE=Release",
                                   "-DQUARZ_BENCH=OFF", "-DQUARZ_SANITIZE=OFF"]
                                  + (launcher if shutil.which("ccache") else []), env=self.env)

    def test(self, pytest_files=None, env_extra=None):
        """Builds and runs both suites (pytest_files: the Python files, None for all);
        returns the failed test names ([] when all pass)."""
        rc = run(["cmake", "--build", self.build, "-j2"], self.log, env=self.env)
        if rc != 0:
            return ["<build>" if rc is not None else "<build timeout>"]
        cj, pj = os.path.join(self.scratch, "ctest.xml"), os.path.join(self.scratch, "pytest.xml")
        for f in (cj, pj):
            if os.path.exists(f):
                os.remove(f)
        cmd = ["ctest", "--test-dir", self.build, "-j2", "--timeout", "600", "--output-junit", cj]
        if self.ctest_exclude:
            cmd += ["-E", self.ctest_exclude]
        if self.quick:
            cmd += ["--stop-on-failure"]
        rc1 = run(cmd, self.log)
        if self.quick and rc1 != 0:
            return failed_junit(cj) or ["<ctest exited %s>" % rc1]
        env = dict(os.environ, QUARZ_LINALG_BRIDGE="1", OPENBLAS_NUM_THREADS="1")
        env.update(env_extra or {})
        files = [os.path.join("tests", f) for f in pytest_files or []]
        rc2 = run([os.path.join(self.src, "python", "run_tests.sh"), self.build, "-q", "--junitxml=" + pj]
                  + (["-x"] if self.quick else []) + files, self.log, env=env)
        failed = failed_junit(cj) + ["py::" + n for n in failed_junit(pj)]
        if rc1 is None or rc2 is None:
            failed.append("<timeout>")
        elif (rc1 or rc2) and not failed:
            failed.append("<tests exited %s/%s>" % (rc1, rc2))
        return failed


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--only", nargs="*", default=[], help="names, families, layers or kinds to run")
    ap.add_argument("--budget", type=float, default=0, help="stop starting mutants after this many seconds")
    ap.add_argument("--scratch", default="/tmp/quarz-mutants")
    ap.add_argument("--out", default=None, help="results JSON (default <scratch>/results.json)")
    ap.add_argument("--ctest-exclude", default="Reliability", help="ctest -E regex for tests left out of the stand-in")
    ap.add_argument("--full", action="store_true", help="the whole Python suite for every mutant")
    ap.add_argument("--quick", action="store_true", help="stop at the first failing test (no kill matrix)")
    ap.add_argument("--list", action="store_true", help="list the mutants and whether their snippets apply")
    args = ap.parse_args()

    mutants = [m for m in load_mutants()
               if not args.only or {m["name"], m["family"], m["layer"], m["kind"]} & set(args.only)]
    if args.list:
        for m in mutants:
            with open(os.path.join(ROOT, m["file"])) as fh:
                found = fh.read().count(m["find"])
            print(f"{m['name']:45} {m['family']:9} {m['layer']:7} {m['kind']:18} {'ok' if found == 1 else 'STALE'}")
        print(f"{len(mutants)} mutants")
        return 0

    stand = Stand(args.scratch, args.ctest_exclude, args.quick)
    out = args.out or os.path.join(args.scratch, "results.json")
    stand.prepare()
    t0 = time.time()
    baseline = stand.test()
    print(f"baseline ({time.time() - t0:.0f} s): {'clean' if not baseline else baseline}", flush=True)
    if baseline:
        print("the unmutated tree fails; fix that first", file=sys.stderr)
        return 2

    start, results = time.time(), []
    for m in mutants:
        entry = dict(name=m["name"], family=m["family"], layer=m["layer"], kind=m["kind"])
        if args.budget and time.time() - start > args.budget:
            results.append(dict(entry, result="skipped"))
            continue
        path = os.path.join(stand.src, m["file"])
        with open(path) as fh:
            original = fh.read()
        if original.count(m["find"]) != 1:
            results.append(dict(entry, result="stale"))
            print(f"{m['name']}: stale", flush=True)
            continue
        t = time.time()
        try:
            with open(path, "w") as fh:
                fh.write(original.replace(m["find"], m["replace"]))
            files = None if args.full else m.get("pytest") or PYTEST_FILES.get(m["family"])
            entry["pytest"] = files or "all"
            failed = stand.test(files, m.get("env"))
        finally:
            with open(path, "w") as fh:
                fh.write(original)
        results.append(dict(entry, result="killed" if failed else "survived", seconds=round(time.time() - t),
                            failed=failed))
        print(f"{m['name']}: {results[-1]['result']} ({results[-1]['seconds']} s, {len(failed)} failed)", flush=True)
        with open(out, "w") as fh:
            json.dump(dict(ctest_exclude=args.ctest_exclude, quick=args.quick, results=results), fh, indent=1)
    print(f"({time.time() - start:.0f} s)")
    # The last mutant's objects are still in the build: rebuild the tree as committed, so
    # that the scratch build can be used as it is.
    run(["cmake", "--build", stand.build, "-j2"], stand.log, env=stand.env)

    judged = [r for r in results if r["result"] in ("killed", "survived")]
    killed = sum(r["result"] == "killed" for r in judged)
    for r in results:
        if r["result"] != "killed":
            print(f"{r['result']}: {r['name']}")
    print(f"score {killed}/{len(judged)} killed"
          f" ({sum(r['result'] == 'stale' for r in results)} stale,"
          f" {sum(r['result'] == 'skipped' for r in results)} skipped); results in {out}")
    with open(out, "w") as fh:
        json.dump(dict(ctest_exclude=args.ctest_exclude, quick=args.quick, results=results), fh, indent=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
