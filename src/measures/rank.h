// Numerical rank: the number of singular values above a tolerance.
#pragma once

#include <cstdint>

#include "factor/svd.h"
#include "frame/array.h"
#include "frame/scalar.h"

namespace ql {

// A tolerance below 0 is replaced by the default max(m, n)·s1·ε; 0 (or -0) counts every
// positive singular value; NaN counts none (no comparison with NaN holds).
template <class T>
Status RankH(ArrayHandle ah, RealOf<T> tolerance, int32_t* rank, ArrayHandle values, ArrayHandle work,
             ArrayHandle iwork) {
  using R = RealOf<T>;
  const auto a = ReadMatrix<T>(ah);
  const int32_t m = a.rows, n = a.cols;
  if (m < 1 || n < 1) return StatusEmptyInput;
  const int32_t k = std::min(m, n);
  R* s;
  if (Status st = SingularValues(a.data, m, n, values, work, iwork, &s); st != StatusOk) return st;
  const R tol = tolerance < 0 ? DefaultTolerance<T>(m, n, s[0]) : tolerance;
  int32_t count = 0;
  for (int32_t i = 0; i < k; ++i) count += s[i] > tol;
  return Store(rank, count);
}

}  // namespace ql
