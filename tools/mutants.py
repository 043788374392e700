#!/usr/bin/env python3
"""Mutation runner: applies one single-point fault at a time to a scratch copy of the
repository, rebuilds incrementally (release), runs ctest and the Python suite through the
bridge, and reports each mutant killed / survived / stale, with the score.

Mutants live in tools/mutants/*.json, each a list of objects:
  {"name", "family", "layer", "fault", "file", "find", "replace"}
"find" must occur exactly once in "file"; otherwise the mutant is stale.

  tools/mutants.py [--only NAME|FAMILY|LAYER ...] [--budget SECONDS]
                   [--scratch DIR] [--matrix OUT.json]
"""
import argparse
import glob
import json
import os
import shutil
import subprocess
import sys
import time
import xml.etree.ElementTree as ET

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def load_mutants():
    out = []
    for path in sorted(glob.glob(os.path.join(ROOT, "tools", "mutants", "*.json"))):
        with open(path) as fh:
            out.extend(json.load(fh))
    return out


def run(cmd, cwd, log):
    with open(log, "a") as fh:
        fh.write("$ " + " ".join(cmd) + "\n")
        fh.flush()
        return subprocess.call(cmd, cwd=cwd, stdout=fh, stderr=subprocess.STDOUT)


def failed_junit(path):
    """Names of failed test cases in a JUnit XML file (ctest or pytest)."""
    if not os.path.exists(path):
        return []
    names = []
    for case in ET.parse(path).getroot().iter("testcase"):
        if case.find("failure") is not None or case.find("error") is not None:
            cls = case.get("classname", "")
            names.append((cls + "::" if cls else "") + case.get("name", ""))
    return names


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--only", nargs="*", default=[])
    ap.add_argument("--budget", type=float, default=0)
    ap.add_argument("--scratch", default="/tmp/quarz-mutants")
    ap.add_argument("--matrix", default=None)
    args = ap.parse_args()

    mutants = [m for m in load_mutants()
               if not args.only or {m["name"], m["family"], m["layer"]} & set(args.only)]
    src = os.path.join(args.scratch, "src")
    build = os.path.join(args.scratch, "build")
    log = os.path.join(args.scratch, "log.txt")
    os.makedirs(args.scratch, exist_ok=True)
    # A scratch copy of the committed tree; the developer's tree is never written.
    if not os.path.isdir(src):
        subprocess.check_call(["git", "-C", ROOT, "worktree", "add", "--detach", src, "HEAD"])
    if not os.path.isdir(build):
        subprocess.check_call(["cmake", "-S", src, "-B", build, "-DCMAKE_BUILD_TYPE=Release"])

    start, results = time.time(), []
    for m in mutants:
        if args.budget and time.time() - start > args.budget:
            results.append(dict(name=m["name"], result="skipped"))
            continue
        path = os.path.join(src, m["file"])
        with open(path) as fh:
            original = fh.read()
        if original.count(m["find"]) != 1:
            results.append(dict(name=m["name"], result="stale"))
            continue
        t0, failed = time.time(), []
        try:
            with open(path, "w") as fh:
                fh.write(original.replace(m["find"], m["replace"]))
            if run(["cmake", "--build", build, "-j2"], src, log) != 0:
                failed = ["<build>"]
            else:
                cj, pj = os.path.join(args.scratch, "ctest.xml"), os.path.join(args.scratch, "pytest.xml")
                for f in (cj, pj):
                    if os.path.exists(f):
                        os.remove(f)
                rc1 = run(["ctest", "--test-dir", build, "-j2", "--output-junit", cj], src, log)
                rc2 = run([os.path.join(src, "python", "run_tests.sh"), build, "-x", "-q",
                           "--junitxml=" + pj], src, log)
                failed = failed_junit(cj) + ["py::" + n for n in failed_junit(pj)]
                if (rc1 or rc2) and not failed:
                    failed = ["<tests>"]
        finally:
            with open(path, "w") as fh:
                fh.write(original)
        results.append(dict(name=m["name"], family=m["family"], layer=m["layer"],
                            result="killed" if failed else "survived",
                            seconds=round(time.time() - t0, 1), failed=failed))
        print(f"{m['name']}: {results[-1]['result']} ({results[-1]['seconds']} s)", flush=True)

    judged = [r for r in results if r["result"] in ("killed", "survived")]
    killed = sum(r["result"] == "killed" for r in judged)
    for r in results:
        if r["result"] != "killed":
            print(f"{r['result']}: {r['name']}")
    print(f"score {killed}/{len(judged)}")
    if args.matrix:
        with open(args.matrix, "w") as fh:
            json.dump(results, fh, indent=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
