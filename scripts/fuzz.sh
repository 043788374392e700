#!/usr/bin/env bash
# Builds the libFuzzer target over the exports with clang under AddressSanitizer +
# UndefinedBehaviorSanitizer and fuzzes for a bounded time, starting from the seed corpus
# (tests/fuzz/corpus, read only; new inputs go to a scratch corpus in the build dir).
# Usage: scripts/fuzz.sh [seconds=120] [build dir=build-fuzz]. A finding stops the run:
# libFuzzer writes the input to <build dir>/crash-* and the target prints the export and
# its arguments; rerun one input with <build dir>/tests/quarz_fuzz <file>.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-120}"
build="${2:-build-fuzz}"
# clang's sanitizer runtime goes in as a shared library, since the library and the
# reference host are shared objects; coverage instrumentation everywhere guides the fuzzer.
asan_dir="$(dirname "$(clang -print-file-name=libclang_rt.asan-x86_64.so)")"
flags="-fsanitize=fuzzer-no-link -shared-libasan"
CC=clang CXX=clang++ cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUARZ_SANITIZE=ON \
  -DQUARZ_FUZZ=ON -DQUARZ_BENCH=OFF -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_SHARED_LINKER_FLAGS="-shared-libasan -Wl,-rpath,$asan_dir" \
  -DCMAKE_EXE_LINKER_FLAGS="-shared-libasan -Wl,-rpath,$asan_dir"
cmake --build "$build" -j"$(nproc)" --target quarz_fuzz
mkdir -p "$build/fuzz-corpus"
# One kernel thread per call: the fuzzer measures our code, not OpenBLAS's thread pool.
# libFuzzer puts libstdc++ ahead of the sanitizer runtime, which has to come first. The
# host moves every block it resizes, so an element pointer kept across a resize is caught.
OPENBLAS_NUM_THREADS=1 LD_PRELOAD="$asan_dir/libclang_rt.asan-x86_64.so" KORT_MOVE_ON_RESIZE=1 \
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:allocator_may_return_null=1 \
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  "$build/tests/quarz_fuzz" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=30 -print_final_stats=1 \
  -artifact_prefix="$build/" "$build/fuzz-corpus" tests/fuzz/corpus
