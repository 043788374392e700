// Minimum-norm least squares min ‖A·X − Y‖ for an m x n A of any shape and rank: the
// kernel's divide-and-conquer driver, or a thin SVD with iterative refinement.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "factor/column_major.h"
#include "factor/svd.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "kernel/blas.h"
#include "kernel/lapack_lstsq.h"
#include "kernel/workspace_query.h"
#include "products/transpose.h"

namespace ql {

// Singular values at or below LeastSquaresCutoff·s1 count as zero in both solvers:
// max(m, n)·tolerance, or max(m, n)·ε when the tolerance is not positive (NaN
// included). It is the relative bound the kernel driver takes as its rcond. The driver
// itself reads a bound of 1 or more as ε, so a tolerance of 1 / max(m, n) or more keeps
// every singular value above ε·s1 there, where the SVD solver drops them all. The bound
// is passed on unchanged: which values the driver keeps is the driver's decision.
template <class T>
RealOf<T> LeastSquaresCutoff(RealOf<T> tolerance, int32_t m, int32_t n) {
  return static_cast<RealOf<T>>(std::max(m, n)) * (tolerance > 0 ? tolerance : Elem<T>::Epsilon());
}

// The kernel driver on copies: a is the row-major m x n A, b the row-major m x k
// right-hand sides, x the row-major n x k result. work receives A column-major, the
// right-hand sides column-major with leading dimension max(m, n) (the driver returns
// the n x k solution there), the singular values and the driver's workspaces; iwork
// its integer workspace. The caller's frame empties both. When values is not null the
// driver leaves the min(m, n) singular values there instead of in work, and *rankOut
// (when not null) receives its effective rank.
template <class T>
Status GelsdSolve(const T* a, int32_t m, int32_t n, const T* b, int32_t k, RealOf<T> tolerance, T* x,
                  ArrayHandle work, ArrayHandle iwork, RealOf<T>* values = nullptr, int32_t* rankOut = nullptr) {
  using R = RealOf<T>;
  if (m < 1 || n < 1 || k < 1) return StatusEmptyInput;
  const int64_t mn = int64_t{m} * n, mk = int64_t{m} * k;
  if (!HostCountFits(mn) || !HostCountFits(mk)) return StatusOutOfMemory;
  if (!AllAccepted(a, mn) || !AllAccepted(b, mk)) return StatusNotFinite;
  const int32_t big = std::max(m, n), small = std::min(m, n);
  const R rcond = LeastSquaresCutoff<T>(tolerance, m, n);

  const auto minimum = kernel::GelsdWorkspaceMinimum<Elem<T>::kComplex>(m, n, k);
  kernel::WorkspaceSizes sizes;
  lapack_int rank = 0;
  const Status q = kernel::QueryWorkspace<T>(
      [&](T* w, lapack_int lw, R* rw, lapack_int, lapack_int* iw, lapack_int) {
        return kernel::gelsd(m, n, k, nullptr, m, nullptr, big, nullptr, rcond, &rank, w, lw, rw, iw);
      },
      {minimum.work, minimum.rwork, minimum.iwork}, &sizes);
  if (q != StatusOk) return q;

  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(mn);
  const auto rhsPiece = layout.template Add<T>(int64_t{big} * k);
  const auto valuesPiece = layout.template Add<R>(values ? 0 : small);
  const auto workPiece = layout.template Add<T>(sizes.work);
  const auto rworkPiece = layout.template Add<R>(sizes.rwork);
  if (Status st = layout.Bind(work); st != StatusOk) return st;
  int32_t* iw;
  if (Status st = ResizeVector<int32_t>(iwork, sizes.iwork, &iw); st != StatusOk) return st;

  T* copy = layout.Get(copyPiece);
  T* rhs = layout.Get(rhsPiece);
  ToColumnMajor(a, m, n, copy);
  TransposeCopy<T>(m, k, b, k, rhs, big);
  // Rows m..n-1 of a wide problem's right-hand sides are only written by the driver;
  // zeroed all the same, so that no stale host data is ever in the buffer it works on.
  for (int64_t j = 0; m < big && j < k; ++j) std::fill(rhs + j * big + m, rhs + (j + 1) * big, T(0));
  // Every piece fits the host's int32 element count once Bind succeeded.
  R* s = values ? values : layout.Get(valuesPiece);
  const lapack_int info = kernel::gelsd(m, n, k, copy, m, rhs, big, s, rcond, &rank,
                                        layout.Get(workPiece), static_cast<lapack_int>(sizes.work),
                                        layout.Get(rworkPiece), iw);
  if (Status st = FromInfo(info, StatusNoConvergence); st != StatusOk) return st;
  TransposeCopy<T>(k, n, rhs, big, x, k);
  if (rankOut) *rankOut = static_cast<int32_t>(rank);
  return rank < small ? WarnRankDeficient : StatusOk;
}

// The SVD solver: from the thin SVD A = U·diag(s)·Vᴴ, X = V·diag(1/s)·Uᴴ·Y over the
// singular values above LeastSquaresCutoff·s1, then passes - 1 refinement steps, each
// solving for the residual Y − A·X with the same factors and adding the correction.
// passes is clamped to 1..4.
//
// refineWork receives U (m x p), V (n x p), the residual (m x k) and the coefficients
// Uᴴ·R (p x k), p = min(m, n), all row-major; values the p singular values; work and
// iwork are SVDCompute's. The caller's frame empties all four, unless values is the
// caller's output. *rankOut (when not null) receives the count of values kept.
template <class T>
Status RefinedSolve(const T* a, int32_t m, int32_t n, const T* b, int32_t k, RealOf<T> tolerance, int32_t passes,
                    T* x, ArrayHandle work, ArrayHandle iwork, ArrayHandle refineWork, ArrayHandle values,
                    int32_t* rankOut = nullptr) {
  using R = RealOf<T>;
  if (m < 1 || n < 1 || k < 1) return StatusEmptyInput;
  const int64_t mk = int64_t{m} * k;
  if (!HostCountFits(mk)) return StatusOutOfMemory;
  if (!AllAccepted(b, mk)) return StatusNotFinite;  // A is scanned by the SVD
  passes = std::clamp(passes, 1, 4);
  const int32_t p = std::min(m, n);

  WorkLayout<T> layout;
  const auto uPiece = layout.template Add<T>(int64_t{m} * p);
  const auto vPiece = layout.template Add<T>(int64_t{n} * p);
  const auto rPiece = layout.template Add<T>(mk);
  const auto wPiece = layout.template Add<T>(int64_t{p} * k);
  if (Status st = layout.Bind(refineWork); st != StatusOk) return st;
  R* s;
  if (Status st = ResizeVector<R>(values, p, &s); st != StatusOk) return st;
  T* u = layout.Get(uPiece);
  T* v = layout.Get(vPiece);
  T* r = layout.Get(rPiece);
  T* w = layout.Get(wPiece);
  if (Status st = SVDCompute<T>(a, m, n, u, s, v, 'S', work, iwork); st != StatusOk) return st;

  // The values decrease, so those that count are the leading `rank`; the products
  // below run over those columns only (the others would contribute exact zeros).
  const R cutoff = LeastSquaresCutoff<T>(tolerance, m, n) * s[0];
  int32_t rank = 0;
  while (rank < p && s[rank] > cutoff) ++rank;
  if (rankOut) *rankOut = rank;
  std::fill(x, x + int64_t{n} * k, T(0));
  for (int32_t pass = 0; pass < passes && rank > 0; ++pass) {
    std::memcpy(static_cast<void*>(r), b, sizeof(T) * size_t(mk));
    if (pass > 0) kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, k, n, T(-1), a, n, x, k, T(1), r, k);
    kernel::gemm(CblasRowMajor, CblasConjTrans, CblasNoTrans, rank, k, m, T(1), u, p, r, k, T(0), w, k);
    for (int32_t i = 0; i < rank; ++i) {
      const R inv = R(1) / s[i];
      for (int64_t j = 0; j < k; ++j) w[int64_t{i} * k + j] *= inv;
    }
    kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, k, rank, T(1), v, p, w, k, T(1), x, k);
  }
  return rank < p ? WarnRankDeficient : StatusOk;
}

// A tolerance of exactly 0 asks for the SVD solver with two passes (one refinement
// step) and the default cutoff; any other value, NaN included, for the kernel driver.
template <class T>
Status LSEqH(ArrayHandle ah, ArrayHandle yh, RealOf<T> tolerance, ArrayHandle xh, ArrayHandle work,
             ArrayHandle iwork, ArrayHandle refineWork, ArrayHandle values) {
  const auto a0 = ReadMatrix<T>(ah);
  const int32_t m = a0.rows, n = a0.cols;
  if (m < 1 || n < 1) return StatusEmptyInput;
  if (ReadVector<T>(yh).n != m) return StatusSizeMismatch;
  T* x;
  if (Status st = ResizeVector<T>(xh, n, &x); st != StatusOk) return st;
  const T* a = ReadMatrix<T>(ah).data;
  const T* y = ReadVector<T>(yh).data;
  if (tolerance == 0) return RefinedSolve(a, m, n, y, 1, tolerance, 2, x, work, iwork, refineWork, values);
  return GelsdSolve(a, m, n, y, 1, tolerance, x, work, iwork);
}

// The k columns of Y: a tolerance of exactly 0 takes the SVD solver with two passes;
// any other tolerance the kernel driver for at most max(m, n) / 4 right-hand sides, one
// pass of the SVD solver (with that tolerance) for more. With report set, the singular
// values of A from the same run go to sh (which the SVD solver then uses in place of
// the values work handle) and the effective rank to *rank; both are required.
template <class T>
Status LeastSquaresSet(ArrayHandle ah, ArrayHandle yh, RealOf<T> tolerance, ArrayHandle xh, ArrayHandle work,
                       ArrayHandle iwork, ArrayHandle refineWork, ArrayHandle values, bool report = false,
                       ArrayHandle sh = nullptr, int32_t* rank = nullptr) {
  const auto a0 = ReadMatrix<T>(ah);
  const auto y0 = ReadMatrix<T>(yh);
  const int32_t m = a0.rows, n = a0.cols, k = y0.cols;
  if (m < 1 || n < 1 || k < 1) return StatusEmptyInput;
  if (y0.rows != m) return StatusSizeMismatch;
  T* x;
  if (Status st = ResizeMatrix<T>(xh, n, k, &x); st != StatusOk) return st;
  RealOf<T>* s = nullptr;
  if (report) {
    if (!rank) return StatusKernelError;
    if (Status st = ResizeVector<RealOf<T>>(sh, std::min(m, n), &s); st != StatusOk) return st;
  }
  const T* a = ReadMatrix<T>(ah).data;
  const T* y = ReadMatrix<T>(yh).data;
  if (tolerance != 0 && int64_t{4} * k <= std::max(m, n))
    return GelsdSolve(a, m, n, y, k, tolerance, x, work, iwork, s, rank);
  return RefinedSolve(a, m, n, y, k, tolerance, tolerance == 0 ? 2 : 1, x, work, iwork, refineWork,
                      report ? sh : values, rank);
}

// As LSEqH for the k columns of Y, except that with a non-zero tolerance and more than
// max(m, n) / 4 right-hand sides one pass of the SVD solver (with that tolerance)
// replaces the kernel driver.
template <class T>
Status LSEqSetH(ArrayHandle ah, ArrayHandle yh, RealOf<T> tolerance, ArrayHandle xh, ArrayHandle work,
                ArrayHandle iwork, ArrayHandle refineWork, ArrayHandle values) {
  return LeastSquaresSet<T>(ah, yh, tolerance, xh, work, iwork, refineWork, values);
}

// LSEqSetH that also hands back, from the same run, the singular values of A (s, min(m,
// n) of them, decreasing) and the effective rank.
template <class T>
Status LSEqSVH(ArrayHandle ah, ArrayHandle yh, RealOf<T> tolerance, ArrayHandle xh, ArrayHandle sh, int32_t* rank,
               ArrayHandle work, ArrayHandle iwork, ArrayHandle refineWork) {
  return LeastSquaresSet<T>(ah, yh, tolerance, xh, work, iwork, refineWork, nullptr, true, sh, rank);
}

}  // namespace ql
