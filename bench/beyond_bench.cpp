// The added operations (beyond the core set) against the direct kernel calls on the same
// data: dCondEstimateH (general, 1-norm) against memcpy + getrf + gecon, and against
// dCondNumberH, the exact condition number it replaces (1-norm through the inverse, and the
// default 2-norm through the singular values); dNullSpaceH (against gesdd with
// full vectors: BM_direct_dgesdd_full of the SVD benchmarks); dHessenbergH (with Q) against gehrd + orghr; dBalanceH against gebal;
// dSylvesterH against gees twice + trsyl + the four products of the transformations;
// dDiscLyapunovH and dMtrxFracPowH (p = 0.3) against the complex Schur form (zgees with
// vectors) of the complexified matrix that both are built on.
//
// The direct sides copy the matrix into their own column-major buffer with memcpy every
// iteration (the kernels overwrite it) and query their workspaces once, outside the
// loop. The exports get host outputs of the right sizes; their work handles start empty
// and are sized and emptied by every call, as a host would see them.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <complex>
#include <cstring>
#include <vector>

#include "best.h"
#include "kernel/lapack.h"
#include "kernel/lapack_condest.h"
#include "kernel/lapack_hessenberg.h"
#include "kernel/lapack_matfun.h"
#include "kernel/lapack_qr.h"
#include "kernel/lapack_sylvester.h"
#include "kernel/blas.h"
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

// The default, 2-norm condition number: the singular values of A.
void BM_dCondNumberH_two(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Square(n));
  auto values = qt::Vec<double>({}), copy = qt::Vec<double>({}), work = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  double r;
  for (auto _ : state) {
    if (dCondNumberH(a, QuarzMatrixNormTwo, &r, values, copy, work, nullptr, iwork, nullptr, nullptr) != StatusOk) {
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

// Stable (eigenvalues with negative real parts): A X + X B = C is far from singular.
std::vector<double> Stable(int n, unsigned seed) {
  std::vector<double> a = qt::RandomValues<double>(size_t(n) * n, seed);
  for (int i = 0; i < n; ++i) a[size_t(i) * n + i] -= n;
  return a;
}

// Spectral radius below 1 (row sums of moduli below 1/2 plus 1/4), for the discrete
// Lyapunov equation; positive eigenvalues' real parts for the fractional power.
std::vector<double> Contractive(int n) {
  std::vector<double> a = qt::RandomValues<double>(size_t(n) * n, 43);
  for (double& v : a) v /= 2 * n;
  for (int i = 0; i < n; ++i) a[size_t(i) * n + i] += 0.25;
  return a;
}

void BM_dSylvesterH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Stable(n, 44)), b = qt::Mat(n, n, Stable(n, 45)), c = qt::Mat(n, n, Square(n));
  auto x = qt::Mat<double>(n, n);
  auto work = qt::Vec<double>({});
  for (auto _ : state) {
    if (dSylvesterH(a, b, c, x, work) != StatusOk) state.SkipWithError("dSylvesterH failed");
    benchmark::DoNotOptimize(x.data()[0]);
  }
}

void BM_direct_dgees_trsyl(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a = Stable(n, 44), b = Stable(n, 45), c = Square(n);
  std::vector<double> s(a.size()), t(a.size()), u(a.size()), v(a.size()), f(a.size()), p(a.size());
  std::vector<double> wr(n), wi(n);
  double query;
  if (ql::kernel::gees('V', n, s.data(), n, wr.data(), wi.data(), u.data(), n, &query, -1, nullptr) != 0) {
    state.SkipWithError("query failed");
  }
  std::vector<double> work(static_cast<size_t>(query) + 1);
  const int lwork = static_cast<int>(work.size());
  const auto gemm = [n](CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, const double* x1, const double* x2, double* out) {
    ql::kernel::gemm(CblasColMajor, ta, tb, n, n, n, 1.0, x1, n, x2, n, 0.0, out, n);
  };
  for (auto _ : state) {
    std::memcpy(s.data(), a.data(), sizeof(double) * a.size());
    std::memcpy(t.data(), b.data(), sizeof(double) * b.size());
    if (ql::kernel::gees('V', n, s.data(), n, wr.data(), wi.data(), u.data(), n, work.data(), lwork, nullptr) != 0 ||
        ql::kernel::gees('V', n, t.data(), n, wr.data(), wi.data(), v.data(), n, work.data(), lwork, nullptr) != 0) {
      state.SkipWithError("gees failed");
    }
    gemm(CblasTrans, CblasNoTrans, u.data(), c.data(), p.data());
    gemm(CblasNoTrans, CblasNoTrans, p.data(), v.data(), f.data());
    double scale;
    if (ql::kernel::trsyl('N', 'N', 1, n, n, s.data(), n, t.data(), n, f.data(), n, &scale) < 0) {
      state.SkipWithError("trsyl failed");
    }
    gemm(CblasNoTrans, CblasNoTrans, u.data(), f.data(), p.data());
    gemm(CblasNoTrans, CblasTrans, p.data(), v.data(), f.data());
    benchmark::DoNotOptimize(f[0]);
  }
}

void BM_dDiscLyapunovH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Contractive(n)), q = qt::Mat(n, n, Square(n)), x = qt::Mat<double>(n, n);
  auto work = qt::Vec<double>({});
  for (auto _ : state) {
    if (dDiscLyapunovH(a, q, x, work) != StatusOk) state.SkipWithError("dDiscLyapunovH failed");
    benchmark::DoNotOptimize(x.data()[0]);
  }
}

void BM_dMtrxFracPowH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Contractive(n));
  auto x = qt::Mat<std::complex<double>>(n, n);
  auto realWork = qt::Vec<double>({});
  auto complexWork = qt::Vec<std::complex<double>>({}), schurWork = qt::Vec<std::complex<double>>({});
  auto vectorsWork = qt::Vec<std::complex<double>>({});
  auto schurIwork = qt::Vec<int32_t>({});
  for (auto _ : state) {
    if (dMtrxFracPowH(a, 0.3, x, realWork, complexWork, schurWork, schurIwork, vectorsWork) != StatusOk) {
      state.SkipWithError("dMtrxFracPowH failed");
    }
    benchmark::DoNotOptimize(x.data()[0]);
  }
}

// zgees with Schur vectors on the complexified matrix (column-major here; the Schur form
// costs the same either way round).
void BM_direct_zgees_contractive(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> r = Contractive(n);
  const std::vector<std::complex<double>> a(r.begin(), r.end());
  std::vector<std::complex<double>> s(a.size()), u(a.size()), w(n), query(1);
  std::vector<double> rwork(n);
  if (ql::kernel::gees('V', n, s.data(), n, w.data(), nullptr, u.data(), n, query.data(), -1, rwork.data()) != 0) {
    state.SkipWithError("query failed");
  }
  std::vector<std::complex<double>> work(static_cast<size_t>(query[0].real()) + 1);
  const int lwork = static_cast<int>(work.size());
  for (auto _ : state) {
    std::memcpy(static_cast<void*>(s.data()), a.data(), sizeof(a[0]) * a.size());
    if (ql::kernel::gees('V', n, s.data(), n, w.data(), nullptr, u.data(), n, work.data(), lwork, rwork.data()) != 0) {
      state.SkipWithError("zgees failed");
    }
    benchmark::DoNotOptimize(s[0]);
  }
}

#define QB_SIZES(b) BENCHMARK(b)->Arg(4)->Arg(16)->Arg(64)->Arg(256)->Unit(benchmark::kMicrosecond) \
                        ->ComputeStatistics("best", qb::Best)
QB_SIZES(BM_dCondEstimateH);
QB_SIZES(BM_direct_dgecon);
QB_SIZES(BM_dCondNumberH_one);
QB_SIZES(BM_dCondNumberH_two);
QB_SIZES(BM_dNullSpaceH);
QB_SIZES(BM_dHessenbergH);
QB_SIZES(BM_direct_dgehrd_orghr);
QB_SIZES(BM_dBalanceH);
QB_SIZES(BM_direct_dgebal);
QB_SIZES(BM_dSylvesterH);
QB_SIZES(BM_direct_dgees_trsyl);
QB_SIZES(BM_dDiscLyapunovH);
QB_SIZES(BM_dMtrxFracPowH);
QB_SIZES(BM_direct_zgees_contractive);

}  // namespace
