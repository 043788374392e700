#!/usr/bin/env bash
# The whole test suite: the GoogleTest suites in a release build and again under
# AddressSanitizer + UndefinedBehaviorSanitizer, then the Python host's numpy/scipy
# oracle suite against the release build.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs="$(nproc)"

cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUARZ_SANITIZE=ON -DQUARZ_BENCH=OFF
cmake --build build-asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"

python/run_tests.sh build
