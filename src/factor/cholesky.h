// Cholesky factorization in place in the host's array.
#pragma once

#include <algorithm>
#include <cstdint>

#include "frame/array.h"
#include "kernel/lapack.h"

namespace ql {

// Option 0 leaves L (A = L·Lᴴ) in the lower triangle, option 1 leaves U (A = Uᴴ·U) in the
// upper one; the other triangle is zeroed. The kernel reads the row-major block as its
// transpose, so it is handed the opposite triangle letter and factors in place.
template <class T>
Status CholeskyH(ArrayHandle ah, int32_t option) {
  const auto a = ReadMatrix<T>(ah);
  if (a.rows != a.cols) return StatusNotSquare;
  const int32_t n = a.rows;
  if (n < 1) return StatusEmptyInput;
  if (option != QuarzCholeskyTriangleLower && option != QuarzCholeskyTriangleUpper) return StatusBadOption;
  const bool lower = option == QuarzCholeskyTriangleLower;
  const lapack_int info = kernel::potrf(lower ? 'U' : 'L', n, a.data, n);
  if (Status s = FromInfo(info, StatusNotPositiveDefinite); s != StatusOk) return s;
  for (int32_t i = 0; i < n; ++i) {
    T* row = a.data + int64_t{i} * n;
    if (lower) {
      std::fill(row + i + 1, row + n, T(0));
    } else {
      std::fill(row, row + i, T(0));
    }
  }
  return StatusOk;
}

}  // namespace ql
