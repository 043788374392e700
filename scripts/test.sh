#!/usr/bin/env bash
# The whole test suite: the GoogleTest suites in a release build and again under
# AddressSanitizer + UndefinedBehaviorSanitizer (with the host moving every block it
# resizes), then the Python host's numpy/scipy oracle suite against the release build
# (through the compiled bridge and through ctypes), the installed tree and the Debian
# packages, the ABI against its baseline, the Windows DLL cross-compiled and run under
# Wine (scripts/windows.sh); then the many-threads run under ThreadSanitizer and a
# bounded fuzzing run over every export.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs="$(nproc)"

cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$jobs"
ctest --test-dir build --output-on-failure -j"$jobs"

cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUARZ_SANITIZE=ON -DQUARZ_BENCH=OFF
cmake --build build-asan -j"$jobs"
KORT_MOVE_ON_RESIZE=1 ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build-asan --output-on-failure -j"$jobs"

# The Python suite twice: through the compiled bridge, and through the ctypes fallback;
# then through the bridge of the sanitizer build, in an interpreter with the sanitizer
# runtime preloaded (its own leaks are not ours to report).
QUARZ_LINALG_BRIDGE=1 python/run_tests.sh build
QUARZ_LINALG_BRIDGE=0 python/run_tests.sh build
LD_PRELOAD="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)" \
  ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  KORT_MOVE_ON_RESIZE=1 QUARZ_LINALG_BRIDGE=1 python/run_tests.sh build-asan -q

# Installed as a user gets it: a prefix, find_package and pkg-config consumers, the
# Debian packages under lintian; and the exported prototypes against the ABI baseline.
scripts/install-test.sh build
scripts/abi-check.sh build-asan

# The Windows DLL, cross-compiled: its export table, and attach and a call under Wine.
scripts/windows.sh build-mingw

# Host threads under ThreadSanitizer; the kernel runs one thread per call, since TSan
# cannot see the synchronisation of OpenBLAS's own (uninstrumented) thread pool.
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUARZ_BENCH=OFF \
  -DCMAKE_C_FLAGS=-fsanitize=thread -DCMAKE_CXX_FLAGS=-fsanitize=thread \
  -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread -DCMAKE_SHARED_LINKER_FLAGS=-fsanitize=thread
cmake --build build-tsan -j"$jobs" --target quarz_tests koffrt
OPENBLAS_NUM_THREADS=1 TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
  build-tsan/tests/quarz_tests --gtest_filter='Reliability.*:Threads.*'

scripts/fuzz.sh 120 build-fuzz
