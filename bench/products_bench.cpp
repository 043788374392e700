// Matrix product and transpose exports against the direct kernel call (or memcpy) on the
// same host arrays, in the same run. Outputs are sized before timing, as a host that
// calls repeatedly would have them.
#include <benchmark/benchmark.h>

#include <complex>
#include <cstring>
#include <map>
#include <memory>

#include "best.h"
#include "kernel/blas.h"
#include "support/host_array.h"

namespace {

template <class T>
struct GemmData {
  explicit GemmData(int n)
      : A(qt::Mat<T>(n, n, qt::RandomValues<T>(size_t(n) * n, 1))),
        B(qt::Mat<T>(n, n, qt::RandomValues<T>(size_t(n) * n, 2))),
        R(qt::Mat<T>(n, n)) {}
  qt::HostArray<T> A, B, R;

  // One set of arrays per size, shared by the export and the direct call, so that both
  // run on the same addresses (cache-line placement alone moves small products by a few
  // percent).
  static GemmData& For(int n) {
    static std::map<int, std::unique_ptr<GemmData>> cache;
    auto& d = cache[n];
    if (!d) d = std::make_unique<GemmData>(n);
    return *d;
  }
};

template <class T>
void BM_MtrxMulH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  GemmData<T>& d = GemmData<T>::For(n);
  for (auto _ : state) benchmark::DoNotOptimize(qt::Api<T>::MtrxMulH(d.A, d.B, d.R));
  state.counters["flops"] = benchmark::Counter(2.0 * n * n * n * (qt::kIsComplex<T> ? 4 : 1),
                                               benchmark::Counter::kIsIterationInvariantRate);
}

template <class T>
void BM_gemm(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  GemmData<T>& d = GemmData<T>::For(n);
  const T *a = d.A.data(), *b = d.B.data();
  T* r = d.R.data();
  for (auto _ : state) {
    ql::kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, n, n, T(1), a, n, b, n, T(0), r, n);
    benchmark::DoNotOptimize(r);
    benchmark::ClobberMemory();
  }
  state.counters["flops"] = benchmark::Counter(2.0 * n * n * n * (qt::kIsComplex<T> ? 4 : 1),
                                               benchmark::Counter::kIsIterationInvariantRate);
}

// The kernel may run on several threads: wall-clock time is what the caller waits.
void GemmSizes(benchmark::internal::Benchmark* b) {
  b->Arg(64)->Arg(256)->Arg(512)->Arg(1024)->Unit(benchmark::kMicrosecond)->UseRealTime()->ComputeStatistics("best", qb::Best);
}
void LargeGemm(benchmark::internal::Benchmark* b) {
  b->Arg(2048)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime()->ComputeStatistics("best", qb::Best);
}

BENCHMARK_TEMPLATE(BM_MtrxMulH, double)->Apply(GemmSizes);
BENCHMARK_TEMPLATE(BM_gemm, double)->Apply(GemmSizes);
BENCHMARK_TEMPLATE(BM_MtrxMulH, double)->Apply(LargeGemm);
BENCHMARK_TEMPLATE(BM_gemm, double)->Apply(LargeGemm);
BENCHMARK_TEMPLATE(BM_MtrxMulH, std::complex<double>)->Apply(GemmSizes);
BENCHMARK_TEMPLATE(BM_gemm, std::complex<double>)->Apply(GemmSizes);
BENCHMARK_TEMPLATE(BM_MtrxMulH, std::complex<double>)->Apply(LargeGemm);
BENCHMARK_TEMPLATE(BM_gemm, std::complex<double>)->Apply(LargeGemm);

// The fixed cost of the export around a tiny product.
BENCHMARK_TEMPLATE(BM_MtrxMulH, double)->Arg(4)->ComputeStatistics("best", qb::Best);
BENCHMARK_TEMPLATE(BM_gemm, double)->Arg(4)->ComputeStatistics("best", qb::Best);

struct TransposeData {
  explicit TransposeData(int n)
      : A(qt::Mat<double>(n, n, qt::RandomValues<double>(size_t(n) * n, 3))), At(qt::Mat<double>(n, n)) {}
  qt::HostArray<double> A, At;
};

void BM_dTransposeH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  TransposeData d(n);
  for (auto _ : state) benchmark::DoNotOptimize(dTransposeH(d.A, d.At));
  state.SetBytesProcessed(state.iterations() * int64_t{n} * n * 8);
}

void BM_memcpy(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  TransposeData d(n);
  const double* a = d.A.data();
  double* t = d.At.data();
  for (auto _ : state) {
    std::memcpy(t, a, size_t(n) * n * 8);
    benchmark::DoNotOptimize(t);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * int64_t{n} * n * 8);
}

BENCHMARK(BM_dTransposeH)->Arg(256)->Arg(2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_memcpy)->Arg(256)->Arg(2048)->Unit(benchmark::kMillisecond);

}  // namespace
