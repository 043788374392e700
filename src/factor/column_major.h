// Row-major host data to the column-major layout of the LAPACK kernel, and the finiteness
// scan that guards the solvers' inputs.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>

#include "frame/status.h"
#include "frame/traits.h"
#include "products/transpose.h"

namespace ql {

// Writes dst[j*m + i] = src[i*n + j]: a row-major m x n array becomes a column-major one
// with leading dimension m. Called with the sizes swapped it turns a column-major result
// back into row-major. -20003 when either size is below 1.
// It is the blocked transpose copy of the products family, whose fast path serves the
// 8-byte elements (double, complex float).
template <class T>
Status ToColumnMajor(const T* src, int32_t m, int32_t n, T* dst) {
  if (m < 1 || n < 1) return StatusEmptyInput;
  TransposeCopy<T>(m, n, src, n, dst, m);
  return StatusOk;
}

// The solvers refuse NaN, infinities and the largest finite value and its negative:
// an element (each part of a complex one) passes only when -max < v < max.
template <class R>
inline bool FiniteBelowLargest(R v) {
  constexpr R big = Elem<R>::Largest();
  return v < big && v > -big;
}

template <class T>
inline bool AcceptedElement(const T& v) {
  if constexpr (IsComplex<T>::value) {
    return FiniteBelowLargest(v.real()) && FiniteBelowLargest(v.imag());
  } else {
    return FiniteBelowLargest(v);
  }
}

// True when every one of the count elements passes.
template <class T>
bool AllAccepted(const T* p, int64_t count) {
  bool ok = true;
  // No early exit: the branch-free loop vectorizes and rejection is the rare case.
  for (int64_t i = 0; i < count; ++i) ok &= AcceptedElement(p[i]);
  return ok;
}

// Only one triangle of a row-major n x n array, diagonal included: row i, columns 0..i
// (lower) or i..n-1 (upper).
template <class T>
bool TriangleAccepted(const T* a, int32_t n, bool lower) {
  for (int32_t i = 0; i < n; ++i) {
    const T* row = a + int64_t{i} * n;
    if (lower ? !AllAccepted(row, i + 1) : !AllAccepted(row + i, n - i)) return false;
  }
  return true;
}

}  // namespace ql
