// The added operations (beyond the core set) against the direct kernel calls on the same
// data: dCondEstimateH (general, 1-norm) against memcpy + getrf + gecon, and against
// dCondNumberH, the exact condition number it replaces; dNullSpaceH (against gesdd with
// full vectors: BM_direct_dgesdd_full of the SVD benchmarks); dHessenbergH (with Q) against gehrd + orghr; dBalanceH against gebal.
//
// The direct sides copy the matrix into their own column-major buffer with memcpy every
// iteration (the kernels overwrite it) and query their workspaces once, outside the
// loop. The exports get host outputs of the right sizes; their work handles start empty
// and are sized and emptied by every call, as a host would see them.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "best.h"
#include "kernel/lapack.h"
#include "kernel/lapack_condest.h"
#include "kernel/lapack_hessenberg.h"
#include "kernel/lapack_matfun.h"
#include "support/host_array.h"

namespace {

// Diagonally dominant: far from singular at every size.
std::vector<double> Square(int n) {
  std::vector<double> a = qt::RandomValues<double>(size_t(n) * n, 41);
  for (int i = 0; i < n; ++i) a[size_t(i) * n + i] += n;
  return a;
}

void BM_dCondEstimateH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Square(n));
  auto work = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  double r;
  for (auto _ : state) {
    if (dCondEstimateH(a, QuarzMatrixNormOne, QuarzLinEqMatrixGeneral, &r, work, iwork) != StatusOk) {
      state.SkipWithError("dCondEstimateH failed");
    }
    benchmark::DoNotOptimize(r);
  }
}

void BM_direct_dgecon(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a = Square(n);
  std::vector<double> f(a.size()), work(4 * size_t(n));
  std::vector<int> ipiv(n), iwork(n);
  double r;
  for (auto _ : state) {
    std::memcpy(f.data(), a.data(), sizeof(double) * a.size());
    // The 1-norm of the row-major matrix is the infinity norm of the kernel's view.
    double anorm = 0;
    for (int i = 0; i < n; ++i) {
      double s = 0;
      for (int j = 0; j < n; ++j) s += std::abs(a[size_t(i) * n + j]);
      anorm = std::max(anorm, s);
    }
    if (ql::kernel::getrf(n, n, f.data(), n, ipiv.data()) != 0 ||
        ql::kernel::gecon('I', n, f.data(), n, anorm, &r, work.data(), nullptr, iwork.data()) != 0) {
      state.SkipWithError("getrf / gecon failed");
    }
    benchmark::DoNotOptimize(r);
  }
}

void BM_dCondNumberH_one(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Square(n));
  auto copy = qt::Vec<double>({}), invWork = qt::Vec<double>({});
  auto pivots = qt::Vec<int32_t>({});
  double r;
  for (auto _ : state) {
    if (dCondNumberH(a, QuarzMatrixNormOne, &r, nullptr, copy, nullptr, nullptr, nullptr, invWork, pivots) !=
        StatusOk) {
      state.SkipWithError("dCondNumberH failed");
    }
    benchmark::DoNotOptimize(r);
  }
}

void BM_dNullSpaceH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Square(n)), ns = qt::Mat<double>(n, 0);
  auto values = qt::Vec<double>({}), vectors = qt::Vec<double>({}), work = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  for (auto _ : state) {
    if (dNullSpaceH(a, -1, ns, values, vectors, work, iwork) != StatusOk) state.SkipWithError("dNullSpaceH failed");
    benchmark::DoNotOptimize(ns.data());
  }
}

void BM_dHessenbergH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Square(n)), h = qt::Mat<double>(n, n), q = qt::Mat<double>(n, n);
  auto work = qt::Vec<double>({});
  for (auto _ : state) {
    if (dHessenbergH(a, 1, h, q, work) != StatusOk) state.SkipWithError("dHessenbergH failed");
    benchmark::DoNotOptimize(q.data()[0]);
  }
}

void BM_direct_dgehrd_orghr(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a = Square(n);
  std::vector<double> f(a.size()), q(a.size()), tau(std::max(1, n - 1));
  double q1, q2;
  if (ql::kernel::gehrd(n, 1, n, f.data(), n, tau.data(), &q1, -1) != 0 ||
      ql::kernel::unghr(n, 1, n, q.data(), n, tau.data(), &q2, -1) != 0) {
    state.SkipWithError("query failed");
  }
  std::vector<double> work(static_cast<size_t>(std::max(q1, q2)) + 1);
  const int lwork = static_cast<int>(work.size());
  for (auto _ : state) {
    std::memcpy(f.data(), a.data(), sizeof(double) * a.size());
    if (ql::kernel::gehrd(n, 1, n, f.data(), n, tau.data(), work.data(), lwork) != 0) state.SkipWithError("gehrd");
    std::memcpy(q.data(), f.data(), sizeof(double) * a.size());
    if (ql::kernel::unghr(n, 1, n, q.data(), n, tau.data(), work.data(), lwork) != 0) state.SkipWithError("orghr");
    benchmark::DoNotOptimize(q[0]);
  }
}

void BM_dBalanceH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Square(n)), b = qt::Mat<double>(n, n);
  auto scale = qt::Vec(std::vector<double>(n));
  auto perm = qt::Vec(std::vector<int32_t>(n));
  for (auto _ : state) {
    if (dBalanceH(a, QuarzBalanceBoth, b, scale, perm) != StatusOk) state.SkipWithError("dBalanceH failed");
    benchmark::DoNotOptimize(b.data()[0]);
  }
}

void BM_direct_dgebal(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  // A itself, column-major, as the export balances it (balancing Aᵀ scales otherwise).
  const std::vector<double> r = Square(n);
  std::vector<double> a(r.size());
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < n; ++j) a[size_t(j) * n + i] = r[size_t(i) * n + j];
  }
  std::vector<double> f(a.size()), scale(n);
  int ilo, ihi;
  for (auto _ : state) {
    std::memcpy(f.data(), a.data(), sizeof(double) * a.size());
    if (ql::kernel::gebal('B', n, f.data(), n, &ilo, &ihi, scale.data()) != 0) state.SkipWithError("gebal failed");
    benchmark::DoNotOptimize(f[0]);
  }
}

#define QB_SIZES(b) BENCHMARK(b)->Arg(4)->Arg(16)->Arg(64)->Arg(256)->Unit(benchmark::kMicrosecond) \
                        ->ComputeStatistics("best", qb::Best)
QB_SIZES(BM_dCondEstimateH);
QB_SIZES(BM_direct_dgecon);
QB_SIZES(BM_dCondNumberH_one);
QB_SIZES(BM_dNullSpaceH);
QB_SIZES(BM_dHessenbergH);
QB_SIZES(BM_direct_dgehrd_orghr);
QB_SIZES(BM_dBalanceH);
QB_SIZES(BM_direct_dgebal);

}  // namespace
