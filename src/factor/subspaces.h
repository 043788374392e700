// Orthonormal bases of the null space and the range of a matrix, from its SVD, with the
// rank cutoff of the rank measure so that rank + null-space dimension = columns.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "factor/svd.h"
#include "frame/array.h"

namespace ql {

// An m x n A: `null` selects the null space, whose basis is the n x (n - r) block of
// right singular vectors of the singular values at or below the cutoff (the full SVD,
// so a wide A has its n - m trailing vectors too); otherwise the range, the m x r block
// of left singular vectors above it. Cutoff: rcond s1, a negative rcond meaning
// max(m, n) eps, the rank's default; a NaN rcond is refused as a non-finite input.
//
// Scratch as the pseudo-inverse's: values receives the k = min(m, n) singular values,
// vectors U then V (m x m and n x n for the null space, m x k and n x k for the range),
// work and iwork are SVDCompute's.
template <class T>
Status SubspaceH(ArrayHandle ah, RealOf<T> rcond, bool null, ArrayHandle outh, ArrayHandle values,
                 ArrayHandle vectors, ArrayHandle work, ArrayHandle iwork) {
  using R = RealOf<T>;
  const auto a = ReadMatrix<T>(ah);
  const int32_t m = a.rows, n = a.cols;
  if (m < 1 || n < 1) return StatusEmptyInput;
  if (std::isnan(rcond)) return StatusNotFinite;
  const int32_t k = std::min(m, n);
  const int32_t uc = null ? m : k, vc = null ? n : k;  // columns of U and V
  R* s;
  T* uv;
  if (Status st = ResizeVector<R>(values, k, &s); st != StatusOk) return st;
  if (Status st = ResizeVector<T>(vectors, int64_t{m} * uc + int64_t{n} * vc, &uv); st != StatusOk) return st;
  T* u = uv;
  T* v = uv + int64_t{m} * uc;
  if (Status st = SVDCompute<T>(a.data, m, n, u, s, v, null ? 'A' : 'S', work, iwork); st != StatusOk) return st;
  const R tol = rcond < 0 ? DefaultTolerance<T>(m, n, s[0]) : rcond * s[0];
  int32_t r = 0;
  while (r < k && s[r] > tol) ++r;
  // The wanted columns of the row-major U or V, row by row.
  const int32_t rows = null ? n : m, cols = null ? n - r : r, first = null ? r : 0, stride = null ? vc : uc;
  const T* from = null ? v : u;
  T* out;
  if (Status st = ResizeMatrix<T>(outh, rows, cols, &out); st != StatusOk) return st;
  for (int64_t i = 0; i < rows && cols > 0; ++i) {
    std::memcpy(static_cast<void*>(out + i * cols), from + i * stride + first, sizeof(T) * size_t(cols));
  }
  return StatusOk;
}

template <class T>
Status NullSpaceH(ArrayHandle ah, RealOf<T> rcond, ArrayHandle nh, ArrayHandle values, ArrayHandle vectors,
                  ArrayHandle work, ArrayHandle iwork) {
  return SubspaceH<T>(ah, rcond, true, nh, values, vectors, work, iwork);
}

template <class T>
Status RangeH(ArrayHandle ah, RealOf<T> rcond, ArrayHandle rh, ArrayHandle values, ArrayHandle vectors,
              ArrayHandle work, ArrayHandle iwork) {
  return SubspaceH<T>(ah, rcond, false, rh, values, vectors, work, iwork);
}

}  // namespace ql
