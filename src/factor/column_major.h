// Row-major host data to the column-major layout of the LAPACK kernel; the finiteness
// scans that guard the solvers' inputs come with it.
#pragma once

#include <cstdint>

#include "frame/finite_scan.h"
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

}  // namespace ql
