#!/usr/bin/env python3
"""Test lines against code lines, and their ratio.

Tests: tests/ and python/tests. Code: src (the export list included), include, host,
tools, cmake, python/quarz_linalg and python/bridge. Every line of every regular file
counts, blank and comment lines included.
"""
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
TESTS = ["tests", "python/tests"]
CODE = ["src", "include", "host", "tools", "cmake", "python/quarz_linalg", "python/bridge"]


def count(dirs):
    total = 0
    for d in dirs:
        for base, subdirs, files in os.walk(os.path.join(ROOT, d)):
            subdirs[:] = [s for s in subdirs if s != "__pycache__"]
            for f in files:
                with open(os.path.join(base, f), "rb") as fh:
                    total += fh.read().count(b"\n")
    return total


def main():
    tests, code = count(TESTS), count(CODE)
    print(f"test lines {tests}")
    print(f"code lines {code}")
    print(f"ratio {tests / code:.2f}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
