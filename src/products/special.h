// Structured matrices built from a size or from one or two vectors: identity, diagonal,
// Toeplitz, Vandermonde, companion and Hankel.
#pragma once

#include <cstdint>

#include "frame/array.h"
#include "kernel/blas.h"
#include "products/elementwise.h"

namespace ql {

namespace special {

// A row of a Toeplitz or Hankel matrix: its head, then cols - 1 elements of `rest`
// (y from its second element for the first row written, else the neighbouring row that
// is already written: the one above, or the one below).
template <class T>
inline void ShiftedRow(int64_t cols, const T& head, const T* rest, T* row) {
  row[0] = head;
  for (int64_t j = 1; j < cols; ++j) row[j] = rest[j - 1];
}

}  // namespace special

template <class T>
Status SpecialMtrxH(int32_t type, int32_t size, ArrayHandle xh, ArrayHandle yh, ArrayHandle Mh) {
  const auto x = ReadVector<T>(xh), y = ReadVector<T>(yh);
  const int32_t nx = x.n, ny = y.n;
  int32_t rows = size, cols = size;
  switch (type) {
    case QuarzSpecialMatrixDiagonal:
    case QuarzSpecialMatrixVandermonde:
      rows = cols = nx;
      break;
    case QuarzSpecialMatrixToeplitz:
    case QuarzSpecialMatrixHankel:
      rows = nx;
      cols = ny;
      break;
    case QuarzSpecialMatrixCompanion:
      rows = cols = nx - 1;  // nx >= 0, so no overflow
      break;
    default:
      break;
  }
  if (rows < 1 || cols < 1) return type == QuarzSpecialMatrixCompanion ? StatusParameterTooSmall : StatusEmptyInput;
  T* m;
  if (const Status s = ResizeMatrix<T>(Mh, rows, cols, &m); s != StatusOk) return s;
  // Checked after the resize: an unknown type still sizes M (the frame empties it).
  if (static_cast<uint32_t>(type) > QuarzSpecialMatrixHankel) return StatusBadOption;

  const int64_t nr = rows, nc = cols, count = nr * nc;
  switch (type) {
    case QuarzSpecialMatrixIdentity:
      FillValue(count, T(0), m);
      for (int64_t i = 0; i < nr; ++i) m[i * (nc + 1)] = T(1);
      break;
    case QuarzSpecialMatrixDiagonal:
      FillValue(count, T(0), m);
      kernel::copy(nx, x.data, 1, m, nx + 1);
      break;
    case QuarzSpecialMatrixToeplitz:
      // y[0] is never read: x[0] takes the shared corner.
      special::ShiftedRow(nc, x.data[0], y.data + 1, m);
      for (int64_t i = 1; i < nr; ++i) special::ShiftedRow(nc, x.data[i], m + (i - 1) * nc, m + i * nc);
      break;
    case QuarzSpecialMatrixHankel: {
      // y[0] is never read: x[nx - 1] takes the shared corner.
      T* last = m + (nr - 1) * nc;
      special::ShiftedRow(nc, x.data[nr - 1], y.data + 1, last);
      for (int64_t i = nr - 2; i >= 0; --i) special::ShiftedRow(nc, x.data[i], m + (i + 1) * nc, m + i * nc);
      break;
    }
    case QuarzSpecialMatrixVandermonde:
      // Decreasing powers, built from the right: the last column is all ones.
      for (int64_t i = 0; i < nr; ++i) {
        T* row = m + i * nc;
        row[nc - 1] = T(1);
        for (int64_t j = nc - 2; j >= 0; --j) row[j] = Mul(x.data[i], row[j + 1]);
      }
      break;
    case QuarzSpecialMatrixCompanion:
      // First row -x[j + 1] / x[0], ones below the diagonal. A zero leading coefficient
      // is not rejected: row 0 then holds infinities or NaN.
      FillValue(count, T(0), m);
      for (int64_t i = 1; i < nr; ++i) m[i * nc + i - 1] = T(1);
      kernel::copy(cols, x.data + 1, 1, m, 1);
      kernel::scal(cols, T(-1) / x.data[0], m, 1);
      break;
  }
  return StatusOk;
}

}  // namespace ql
