// The reciprocal condition number estimated from a factorization (LAPACK's estimators):
// O(n²) after the O(n³/3) factorization, against the condition number's SVD or inverse.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "frame/array.h"
#include "frame/finite_scan.h"
#include "frame/scalar.h"
#include "frame/workspace.h"
#include "kernel/lapack.h"
#include "kernel/lapack_condest.h"

namespace ql {

namespace condest {

// The 1-norm (= infinity norm) of the Hermitian matrix whose lower triangle the
// row-major n x n block holds: column j sums column j below the diagonal and row j to
// its left.
template <class T>
RealOf<T> HermitianNorm(const T* a, int32_t n) {
  RealOf<T> best = 0;
  for (int64_t j = 0; j < n; ++j) {
    RealOf<T> sum = 0;
    for (int64_t i = j; i < n; ++i) sum += std::abs(a[i * n + j]);
    for (int64_t k = 0; k < j; ++k) sum += std::abs(a[j * n + k]);
    best = std::max(best, sum);
  }
  return best;
}

// The 1-norm (largest column sum) or the infinity norm (largest row sum) of the
// row-major n x n block, every row read once from the start: the column sums gather in
// sums (n reals).
template <class T>
RealOf<T> GeneralNorm(const T* a, int32_t n, bool one, RealOf<T>* sums) {
  RealOf<T> best = 0;
  if (one) std::fill(sums, sums + n, RealOf<T>(0));
  for (int64_t i = 0; i < n; ++i) {
    const T* row = a + i * n;
    if (one) {
      for (int64_t j = 0; j < n; ++j) sums[j] += std::abs(row[j]);
    } else {
      RealOf<T> sum = 0;
      for (int64_t j = 0; j < n; ++j) sum += std::abs(row[j]);
      best = std::max(best, sum);
    }
  }
  return one ? *std::max_element(sums, sums + n) : best;
}

}  // namespace condest

// rcond ≈ 1 / (‖A‖·‖A⁻¹‖) in the 1-norm or the infinity norm (normType one or infinity),
// by matrixType: general (LU), positive definite (Cholesky of the lower triangle; both
// norms are the same), lower or upper triangular (only that triangle is read). An exactly
// singular general or triangular matrix gives 0 with status 0.
//
// The kernel reads the row-major block as Aᵀ: the LU and Cholesky factors are of Aᵀ
// (for a Hermitian A that is conj(A), with the same condition), ‖A‖₁ = ‖Aᵀ‖∞, and the
// host's lower triangle is the kernel's upper one. So the kernel is asked for the other
// norm and the other triangle letter. Work: the factor's copy (n², not for triangular
// matrices), the estimator's workspace (4n elements and 2n reals); iwork the pivots and
// the estimator's n integers.
template <class T>
Status CondEstimateH(ArrayHandle ah, int32_t normType, int32_t matrixType, RealOf<T>* rcond, ArrayHandle work,
                     ArrayHandle iwork) {
  using R = RealOf<T>;
  const auto a0 = ReadMatrix<T>(ah);
  const int32_t n = a0.rows;
  if (n < 1) return StatusEmptyInput;
  if (a0.cols != n) return StatusNotSquare;
  if (normType != QuarzMatrixNormOne && normType != QuarzMatrixNormInfinity) return StatusBadOption;
  if (matrixType < QuarzLinEqMatrixGeneral || matrixType > QuarzLinEqMatrixUpper) return StatusBadOption;
  const T* a = a0.data;
  const bool general = matrixType == QuarzLinEqMatrixGeneral;
  const bool triangular = matrixType == QuarzLinEqMatrixLower || matrixType == QuarzLinEqMatrixUpper;
  const bool lower = matrixType != QuarzLinEqMatrixUpper;
  const int64_t nn = int64_t{n} * n;
  if (general ? !AllAccepted(a, nn) : !TriangleAccepted(a, n, lower)) return StatusNotFinite;
  const char kernelNorm = normType == QuarzMatrixNormOne ? 'I' : '1';

  if (!work || !iwork) return StatusKernelError;
  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(triangular ? 0 : nn);
  const auto workPiece = layout.template Add<T>(4 * int64_t{n});
  const auto rworkPiece = layout.template Add<R>(2 * int64_t{n});
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  int32_t* ints;
  if (Status s = ResizeVector<int32_t>(iwork, 2 * int64_t{n}, &ints); s != StatusOk) return s;
  T* w = layout.Get(workPiece);
  R* rw = layout.Get(rworkPiece);
  R estimate = 0;
  lapack_int info;
  if (triangular) {
    info = kernel::trcon(kernelNorm, lower ? 'U' : 'L', n, a, n, &estimate, w, rw, ints);
  } else {
    T* f = layout.Get(copyPiece);
    std::memcpy(static_cast<void*>(f), a, sizeof(T) * size_t(nn));
    if (general) {
      const R anorm = condest::GeneralNorm(a, n, normType == QuarzMatrixNormOne, rw);
      info = kernel::getrf(n, n, f, n, ints);
      if (info > 0) return Store(rcond, R(0));
      if (info == 0) info = kernel::gecon(kernelNorm, n, f, n, anorm, &estimate, w, rw, ints + n);
    } else {
      info = kernel::potrf('U', n, f, n);
      if (info > 0) return StatusNotPositiveDefinite;
      if (info == 0) info = kernel::pocon('U', n, f, n, condest::HermitianNorm(a, n), &estimate, w, rw, ints + n);
    }
  }
  if (info != 0) return StatusKernelError;
  return Store(rcond, estimate);
}

}  // namespace ql
