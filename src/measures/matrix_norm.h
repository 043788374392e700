// Matrix norms: spectral (largest singular value), 1 (largest column sum), Frobenius and
// infinity (largest row sum).
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>

#include "factor/svd.h"
#include "frame/array.h"
#include "frame/scalar.h"
#include "kernel/blas.h"

namespace ql {

namespace norm {

// Sum of |a[i * stride]| over count elements: the kernel's asum for real types (strided
// columns included); for complex types the sum of the moduli, which asum does not give
// (it sums |re| + |im|). The modulus is std::abs's, which does not overflow where
// re² + im² would.
template <class T>
RealOf<T> AbsSum(const T* a, int32_t count, int32_t stride) {
  if constexpr (Elem<T>::kComplex) {
    RealOf<T> sum = 0;
    for (int64_t i = 0; i < count; ++i) sum += std::abs(a[i * stride]);
    return sum;
  } else {
    return kernel::asum(count, a, stride);
  }
}

// Largest of count sums, starting from 0; a sum replaces it only when strictly greater,
// so a NaN sum never wins.
template <class T>
RealOf<T> LargestSum(const T* a, int32_t count, int32_t length, int64_t start, int32_t stride) {
  RealOf<T> best = 0;
  for (int32_t j = 0; j < count; ++j) {
    const RealOf<T> s = AbsSum(a + j * start, length, stride);
    if (s > best) best = s;
  }
  return best;
}

}  // namespace norm

// The norm of a row-major m x n block, by type (two, one, frobenius, infinity). Only the
// spectral norm takes the handles: the singular values go to `values` (required there),
// and work / iwork are SVDCompute's. The other types accept null handles.
template <class T>
Status MatrixNormCompute(const T* a, int32_t m, int32_t n, int32_t type, RealOf<T>* result, ArrayHandle values,
                         ArrayHandle work, ArrayHandle iwork) {
  using R = RealOf<T>;
  if (m < 1 || n < 1) return StatusEmptyInput;
  switch (type) {
    case QuarzMatrixNormTwo: {
      R* s;
      if (Status st = SingularValues(a, m, n, values, work, iwork, &s); st != StatusOk) return st;
      return Store(result, s[0]);
    }
    case QuarzMatrixNormOne:
      return Store(result, norm::LargestSum(a, n, m, 1, n));
    case QuarzMatrixNormFrobenius: {
      // Every real number of the block (both parts of a complex element), squared and
      // summed as they come, without scaling: elements beyond the square root of the
      // largest finite value overflow to Inf.
      const R* p = reinterpret_cast<const R*>(a);
      const int64_t count = int64_t{m} * n * (Elem<T>::kComplex ? 2 : 1);
      R sum = 0;
      for (int64_t i = 0; i < count; ++i) sum += p[i] * p[i];
      return Store(result, std::sqrt(sum));
    }
    case QuarzMatrixNormInfinity:
      return Store(result, norm::LargestSum(a, m, n, n, 1));
    default:
      return StatusBadOption;
  }
}

template <class T>
Status MtrxNormH(ArrayHandle ah, int32_t normType, RealOf<T>* result, ArrayHandle values, ArrayHandle work,
                 ArrayHandle iwork) {
  const auto a = ReadMatrix<T>(ah);
  if (a.rows < 1 || a.cols < 1) return StatusEmptyInput;
  return MatrixNormCompute(a.data, a.rows, a.cols, normType, result, values, work, iwork);
}

}  // namespace ql
