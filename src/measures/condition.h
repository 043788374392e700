// Condition number in the spectral, 1, Frobenius or infinity norm, and the in-place
// inversion it shares with the inverse.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>

#include "factor/svd.h"
#include "frame/array.h"
#include "frame/finite_scan.h"
#include "frame/scalar.h"
#include "kernel/lapack.h"
#include "kernel/lapack_svd.h"
#include "kernel/workspace_query.h"
#include "measures/matrix_norm.h"

namespace ql {

// Replaces the row-major n x n block a by its inverse, without a copy: read column-major
// the block is Aᵀ, the kernel inverts that, and (Aᵀ)⁻¹ = (A⁻¹)ᵀ read row-major is A⁻¹.
// pivots receives getrf's n pivots, work getri's workspace; the caller's frame empties
// both. An exact zero pivot in either step is StatusSingular.
template <class T>
Status InvertInPlace(T* a, int32_t n, ArrayHandle work, ArrayHandle pivots) {
  if (n < 1) return StatusEmptyInput;
  if (!pivots) return StatusKernelError;
  int32_t* ipiv;
  if (Status s = ResizeVector<int32_t>(pivots, n, &ipiv); s != StatusOk) return s;
  if (Status s = FromInfo(kernel::getrf(n, n, a, n, ipiv), StatusSingular); s != StatusOk) return s;
  kernel::WorkspaceSizes sizes;
  const Status q = kernel::QueryWorkspace<T>(
      [&](T* w, lapack_int lw, auto...) { return kernel::getri(n, a, n, ipiv, w, lw); }, {std::max(1, n)}, &sizes);
  if (q != StatusOk) return q;
  T* w;
  if (Status s = ResizeVector<T>(work, sizes.work, &w); s != StatusOk) return s;
  return FromInfo(kernel::getri(n, a, n, ipiv, w, static_cast<lapack_int>(sizes.work)), StatusSingular);
}

// Spectral: s1 / sk from the singular values (any shape). 1, Frobenius, infinity:
// ‖A‖·‖A⁻¹‖ of a square A, the inverse formed in `copy`. A singular matrix has condition
// number +Inf with status 0: a zero smallest singular value, or an exact zero pivot.
// Each path needs only its own handles: values, work and iwork for the spectral norm;
// copy, invWork and invPivots for the others.
//
// NaN: the spectral path refuses it (the SVD's scan). The norm paths take the largest
// column or row sum, where a NaN sum never wins, so a NaN in A or in its inverse would
// vanish from the product (a matrix of NaNs would have condition number 0): a NaN in A
// gives NaN with status 0 before anything is inverted, and so does a NaN in the inverse.
template <class T>
Status CondNumberH(ArrayHandle ah, int32_t normType, RealOf<T>* result, ArrayHandle values, ArrayHandle copy,
                   ArrayHandle work, ArrayHandle iwork, ArrayHandle invWork, ArrayHandle invPivots) {
  using R = RealOf<T>;
  const auto a = ReadMatrix<T>(ah);
  const int32_t m = a.rows, n = a.cols;
  if (m < 1 || n < 1) return StatusEmptyInput;
  if (normType < QuarzMatrixNormTwo || normType > QuarzMatrixNormInfinity) return StatusBadOption;
  if (normType == QuarzMatrixNormTwo) {
    const int32_t k = std::min(m, n);
    R* s;
    if (Status st = SingularValues(a.data, m, n, values, work, iwork, &s); st != StatusOk) return st;
    return Store(result, s[k - 1] == 0 ? std::numeric_limits<R>::infinity() : s[0] / s[k - 1]);
  }
  if (m != n) return StatusNotSquare;
  if (!copy) return StatusKernelError;
  T* inv;
  if (Status st = ResizeVector<T>(copy, int64_t{n} * n, &inv); st != StatusOk) return st;
  std::memcpy(static_cast<void*>(inv), a.data, sizeof(T) * size_t(n) * size_t(n));
  constexpr R nan = std::numeric_limits<R>::quiet_NaN();
  if (AnyNaN(inv, int64_t{n} * n)) return Store(result, nan);
  R normA, normInv;
  if (Status st = MatrixNormCompute<T>(inv, n, n, normType, &normA, nullptr, nullptr, nullptr); st != StatusOk) return st;
  const Status st = InvertInPlace(inv, n, invWork, invPivots);
  if (st == StatusSingular) return Store(result, std::numeric_limits<R>::infinity());
  if (st != StatusOk) return st;
  if (AnyNaN(inv, int64_t{n} * n)) return Store(result, nan);
  MatrixNormCompute<T>(inv, n, n, normType, &normInv, nullptr, nullptr, nullptr);
  return Store(result, normA * normInv);
}

}  // namespace ql
