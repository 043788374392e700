// koblas_dgemm against the direct kernel call on the same host arrays, in the same run:
// whole matrices with the checking mode on, at the size where the product dominates and
// at the size where the export's fixed cost shows. Beta is 1, so C stays bounded only
// because both sides add the same product; the values never matter to the timing.
#include <benchmark/benchmark.h>

#include <map>
#include <memory>

#include "kernel/blas.h"
#include "support/host_array.h"

namespace {

struct KoblasData {
  explicit KoblasData(int n)
      : A(qt::Mat<double>(n, n, qt::RandomValues<double>(size_t(n) * n, 1))),
        B(qt::Mat<double>(n, n, qt::RandomValues<double>(size_t(n) * n, 2))),
        C(qt::Mat<double>(n, n, qt::RandomValues<double>(size_t(n) * n, 3))) {}
  qt::HostArray<double> A, B, C;

  // One set of arrays per size, shared by both sides, so both run on the same addresses.
  static KoblasData& For(int n) {
    static std::map<int, std::unique_ptr<KoblasData>> cache;
    auto& d = cache[n];
    if (!d) d = std::make_unique<KoblasData>(n);
    return *d;
  }
};

constexpr double kAlpha = 1.0, kBeta = 0.5;

// range(1): the checking flag.
void BM_koblas_dgemm(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const int32_t check = static_cast<int32_t>(state.range(1));
  KoblasData& d = KoblasData::For(n);
  for (auto _ : state) {
    benchmark::DoNotOptimize(qt::Api<double>::koblas_gemm(d.A, d.B, d.C, &kAlpha, &kBeta, n, n, n, CblasNoTrans,
                                                          CblasNoTrans, 0, 0, 0, 0, 0, 0, n, n, n, CblasRowMajor, check));
    benchmark::ClobberMemory();
  }
}

void BM_cblas_dgemm(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  KoblasData& d = KoblasData::For(n);
  const double *a = d.A.data(), *b = d.B.data();
  double* c = d.C.data();
  for (auto _ : state) {
    ql::kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, n, n, kAlpha, a, n, b, n, kBeta, c, n);
    benchmark::DoNotOptimize(c);
    benchmark::ClobberMemory();
  }
}

BENCHMARK(BM_koblas_dgemm)->Args({1024, 1})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_cblas_dgemm)->Arg(1024)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_koblas_dgemm)->Args({4, 1})->Args({4, 0});
BENCHMARK(BM_cblas_dgemm)->Arg(4);

}  // namespace
