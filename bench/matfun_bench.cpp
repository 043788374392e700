// dMtrxExpH, dMtrxSqrtH and dMtrxLnH against the kernel call that dominates them, on the
// same data in the same run: one n x n dgemm for the exponential (the ratio is its cost
// in matrix products), zgees with Schur vectors of the same matrix for the square root
// and the logarithm (the ratio is what the function costs beyond the Schur form).
//
// The matrix is A/√n + 2I for A uniform in [-1, 1] from splitmix64 of the element index,
// which bench/matfun_scipy.py builds identically: its eigenvalues lie near 2, inside the
// right half-plane, so the principal root and logarithm exist. The exports get outputs
// that already have their sizes and empty work handles, sized and emptied by every call
// as a host sees it; the exponential works in place, so A is copied back in each time on
// both sides.
#include <benchmark/benchmark.h>

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kernel/blas.h"
#include "kernel/lapack_qr.h"
#include "support/host_array.h"

namespace {

std::vector<double> TestMatrix(int n) {
  std::vector<double> a(size_t(n) * n);
  for (size_t k = 0; k < a.size(); ++k) {
    uint64_t z = k + 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    z ^= z >> 31;
    a[k] = (double(z >> 11) * 0x1.0p-53 * 2 - 1) / std::sqrt(double(n));
  }
  for (int i = 0; i < n; ++i) a[size_t(i) * n + i] += 2;
  return a;
}

void BM_dMtrxExpH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a0 = TestMatrix(n);
  auto a = qt::Mat(n, n, a0);
  auto w = qt::Vec<double>({}), s = qt::Vec<double>({}), t = qt::Vec<double>({}), l = qt::Vec<double>({});
  auto p = qt::Vec<int32_t>({});
  for (auto _ : state) {
    std::memcpy(a.data(), a0.data(), sizeof(double) * a0.size());
    if (dMtrxExpH(a, w, s, t, l, p) != StatusOk) state.SkipWithError("dMtrxExpH failed");
    benchmark::DoNotOptimize(a.data()[0]);
  }
}

void BM_direct_dgemm(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a = TestMatrix(n);
  std::vector<double> c(a.size()), b(a.size());
  for (auto _ : state) {
    std::memcpy(b.data(), a.data(), sizeof(double) * a.size());
    ql::kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, n, n, 1.0, b.data(), n, b.data(), n, 0.0, c.data(), n);
    benchmark::DoNotOptimize(c[0]);
  }
}

template <bool Log>
void RootOrLog(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, TestMatrix(n));
  auto x = qt::Mat<std::complex<double>>(n, n);
  auto rw = qt::Vec<double>({});
  auto cw = qt::Vec<std::complex<double>>({}), bw = qt::Vec<std::complex<double>>({});
  auto sw = qt::Vec<std::complex<double>>({});
  auto iw = qt::Vec<int32_t>({});
  auto rsw = qt::Vec<double>({});
  for (auto _ : state) {
    const int32_t status = Log ? dMtrxLnH(a, x, 0, rw, cw, bw, sw, iw, rsw) : dMtrxSqrtH(a, x, rw, cw, bw, sw, iw);
    if (status != StatusOk) state.SkipWithError("the export failed");
    benchmark::DoNotOptimize(x.data()[0]);
  }
}

void BM_dMtrxSqrtH(benchmark::State& state) { RootOrLog<false>(state); }
void BM_dMtrxLnH(benchmark::State& state) { RootOrLog<true>(state); }

void BM_direct_zgees(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a0 = TestMatrix(n);
  std::vector<std::complex<double>> t(a0.size()), vs(a0.size()), w(n);
  std::vector<double> rwork(n);
  std::complex<double> query;
  ql::kernel::gees('V', n, t.data(), n, w.data(), nullptr, vs.data(), n, &query, -1, rwork.data());
  std::vector<std::complex<double>> work(size_t(query.real()) + 1);
  const int lw = static_cast<int>(work.size());
  for (auto _ : state) {
    std::copy(a0.begin(), a0.end(), t.begin());
    if (ql::kernel::gees('V', n, t.data(), n, w.data(), nullptr, vs.data(), n, work.data(), lw, rwork.data()) != 0) {
      state.SkipWithError("zgees failed");
    }
    benchmark::DoNotOptimize(vs[0]);
  }
}

BENCHMARK(BM_dMtrxExpH)->Arg(64)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_direct_dgemm)->Arg(64)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_dMtrxSqrtH)->Arg(64)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_dMtrxLnH)->Arg(64)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
BENCHMARK(BM_direct_zgees)->Arg(64)->Arg(256)->Arg(1024)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

}  // namespace
