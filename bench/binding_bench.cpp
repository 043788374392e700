// The cost of reaching the host's NumericArrayResize through the binding, per resize.
//
// Each iteration of the resizing benchmarks is one dTransposeH call whose output
// alternates between 2 x 1 and 1 x 2, so it makes exactly one resize. Two baselines in
// the same run separate the binding from the rest: the same export when the output
// already has its size (no resize), and the reference host's NumericArrayResize called
// directly. Fallback minus Announced is what the search path adds to a resize.
//
// Which runtime step serves the resize:
// - Fallback: nothing announced. This program is linked against libkort.so, so its
//   "gKORTVersion" is visible through the program's own handle; the program does not
//   define it, so the main-program step does not count it and the search goes on by name
//   to the already loaded libkort.so. Every call runs the full search order (TLS index,
//   announced module, then the remembered answer of the search, checked against the
//   loader's load/unload counters).
// - Announced: SetKORTModule with libkort.so's handle.
// - TLS alternating: the thread's TLS slot names libkort.so and libkoffrt.so in turn,
//   a module switch on every call.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <pthread.h>

#include <string>

#include "support/host_array.h"

namespace {

void* KortHandle() {
  static void* kort = dlopen("libkort.so", RTLD_LAZY | RTLD_NOLOAD);
  return kort;
}

// libkoffrt.so from beside the linked libkort.so, loaded for the life of the process.
void* KoffrtHandle() {
  static void* koffrt = [] {
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&KortResizeCount), &info) || !info.dli_fname) return static_cast<void*>(nullptr);
    std::string path = info.dli_fname;
    path.erase(path.find_last_of('/') + 1);
    return dlopen((path + "libkoffrt.so").c_str(), RTLD_NOW | RTLD_LOCAL);
  }();
  return koffrt;
}

struct Transposes {
  qt::HostArray<double> wide = qt::Mat<double>(1, 2, {1, 2});
  qt::HostArray<double> tall = qt::Mat<double>(2, 1, {1, 2});
  qt::HostArray<double> out = qt::Mat<double>(0, 0);
};

// One resize per iteration.
void RunResizing(benchmark::State& state) {
  Transposes t;
  int i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(dTransposeH(++i % 2 ? t.wide : t.tall, t.out));
  }
  if (t.out.dim(0) * t.out.dim(1) != 2) state.SkipWithError("a transpose failed");
}

void BM_ResizeFallback(benchmark::State& state) {
  SetKORTModule(nullptr);
  RunResizing(state);
}

void BM_ResizeAnnounced(benchmark::State& state) {
  SetKORTModule(KortHandle());
  RunResizing(state);
  SetKORTModule(nullptr);
}

void BM_ResizeTlsAlternating(benchmark::State& state) {
  static pthread_key_t key = [] {
    pthread_key_t k;
    pthread_key_create(&k, nullptr);
    return k;
  }();
  void* runtimes[2] = {KortHandle(), KoffrtHandle()};
  if (!runtimes[0] || !runtimes[1]) {
    state.SkipWithError("libkort.so or libkoffrt.so not loaded");
    return;
  }
  SetKORTTLSIndex(static_cast<uint32_t>(key));
  Transposes t;
  int i = 0;
  for (auto _ : state) {
    pthread_setspecific(key, runtimes[i & 1]);
    benchmark::DoNotOptimize(dTransposeH(++i % 2 ? t.wide : t.tall, t.out));
  }
  pthread_setspecific(key, nullptr);
  SetKORTTLSIndex(0xFFFFFFFFu);
}

// Baseline: the export alone, its output already sized.
void BM_TransposeNoResize(benchmark::State& state) {
  Transposes t;
  for (auto _ : state) benchmark::DoNotOptimize(dTransposeH(t.wide, t.out));
}

// Baseline: the host's own resize, same block size, no library involved.
void BM_DirectHostResize(benchmark::State& state) {
  auto a = qt::Mat<double>(2, 1);
  ArrayHandle h = a.h();
  for (auto _ : state) benchmark::DoNotOptimize(NumericArrayResize(QuarzTypeDouble, 2, &h, 2));
}

BENCHMARK(BM_ResizeFallback)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_ResizeAnnounced)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_ResizeTlsAlternating)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_TransposeNoResize)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_DirectHostResize)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace
