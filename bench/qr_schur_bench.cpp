// dQRH (economy, no pivoting) and dSchurH (with Schur vectors) against direct calls of
// the kernel routines they use, on the same data in the same run.
//
// The direct side is what a careful caller of the kernel would write: the row-major
// block copied with memcpy into a buffer the kernel may overwrite (read column-major it
// is the transpose, which costs the same to factor), the workspace queried and
// allocated once outside the loop. The exports get outputs that already have their
// sizes; their work handles start empty and are sized, queried and emptied by every
// call, as a host sees it.
//
// dSchurH replaces A by T, so both sides copy the original matrix back in before each
// call; the export also pays for its transposes in and out.
#include <benchmark/benchmark.h>

#include <complex>
#include <cstring>
#include <vector>

#include "kernel/lapack_qr.h"
#include "support/host_array.h"

namespace {

std::vector<double> Matrix(int m, int n) { return qt::RandomValues<double>(size_t(m) * n, 31); }

void BM_dQRH_economy(benchmark::State& state) {
  const int m = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1)), k = std::min(m, n);
  auto a = qt::Mat(m, n, Matrix(m, n));
  auto q = qt::Mat<double>(m, k), r = qt::Mat<double>(k, n);
  auto p = qt::Mat<int32_t>(0, 0);
  auto piv = qt::Vec<int32_t>({});
  auto work = qt::Vec<double>({});
  for (auto _ : state) {
    if (dQRH(a, q, r, p, piv, 0, QuarzQRSizeEconomy, work, nullptr) != StatusOk) state.SkipWithError("dQRH failed");
    benchmark::DoNotOptimize(q.data()[0]);
  }
}

// gelqf and orglq on the row-major block read as Aᵀ, as the export does; R is left in
// the factor, Q generated in place.
void BM_direct_dgelqf_orglq(benchmark::State& state) {
  const int m = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1)), k = std::min(m, n);
  const std::vector<double> a = Matrix(m, n);
  std::vector<double> f(size_t(m) * n), tau(k);
  double query[2];
  ql::kernel::gelqf(n, m, f.data(), n, tau.data(), &query[0], -1);
  ql::kernel::unglq(k, m, k, f.data(), n, tau.data(), &query[1], -1);
  std::vector<double> work(size_t(std::max(query[0], query[1])) + 1);
  const int lw = static_cast<int>(work.size());
  for (auto _ : state) {
    std::memcpy(f.data(), a.data(), sizeof(double) * f.size());
    if (ql::kernel::gelqf(n, m, f.data(), n, tau.data(), work.data(), lw) != 0) state.SkipWithError("gelqf failed");
    if (ql::kernel::unglq(k, m, k, f.data(), n, tau.data(), work.data(), lw) != 0) state.SkipWithError("orglq failed");
    benchmark::DoNotOptimize(f[0]);
  }
}

void BM_dSchurH_vectors(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a0 = Matrix(n, n);
  auto a = qt::Mat(n, n, a0), u = qt::Mat<double>(n, n);
  auto values = qt::Vec(std::vector<std::complex<double>>(n));
  auto work = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  for (auto _ : state) {
    std::memcpy(a.data(), a0.data(), sizeof(double) * a0.size());
    if (dSchurH(a, 1, QuarzSchurOrderingNone, u, values, work, iwork, nullptr) != StatusOk) {
      state.SkipWithError("dSchurH failed");
    }
    benchmark::DoNotOptimize(u.data()[0]);
  }
}

void BM_direct_dgees(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a0 = Matrix(n, n);
  std::vector<double> t(a0.size()), vs(a0.size()), wr(n), wi(n);
  double query;
  ql::kernel::gees('V', n, t.data(), n, wr.data(), wi.data(), vs.data(), n, &query, -1, nullptr);
  std::vector<double> work(size_t(query) + 1);
  const int lw = static_cast<int>(work.size());
  for (auto _ : state) {
    std::memcpy(t.data(), a0.data(), sizeof(double) * t.size());
    if (ql::kernel::gees('V', n, t.data(), n, wr.data(), wi.data(), vs.data(), n, work.data(), lw, nullptr) != 0) {
      state.SkipWithError("gees failed");
    }
    benchmark::DoNotOptimize(vs[0]);
  }
}

BENCHMARK(BM_dQRH_economy)->Args({2000, 500})->Args({4, 4})->Args({16, 16})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dgelqf_orglq)->Args({2000, 500})->Args({4, 4})->Args({16, 16})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_dSchurH_vectors)->Arg(512)->Arg(4)->Arg(16)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dgees)->Arg(512)->Arg(4)->Arg(16)->Unit(benchmark::kMicrosecond);

}  // namespace
