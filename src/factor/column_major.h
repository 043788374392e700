// Row-major host data to the column-major layout of the LAPACK kernel, and the finiteness
// scan that guards the solvers' inputs.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>

#include "frame/status.h"
#include "frame/traits.h"

namespace ql {

namespace layout {

// Elements are moved as raw bytes of a fixed width, so there is one copy routine per
// width (float and int32 share one; double and complex float another).
template <size_t W>
struct Word {
  unsigned char b[W];
};

// Tile edge of the blocked copy: the tile's source rows and destination columns stay in
// L1 together. Kept small for the wide elements because power-of-two row lengths map the
// strided reads onto few cache sets (measured: 16 beats 32 and 64 for doubles).
template <size_t W>
constexpr int32_t kTile = W >= 8 ? 16 : 32;

// dst[j*m + i] = src[i*n + j] for i < m, j < n, tile by tile.
template <size_t W>
void TransposeWords(const Word<W>* __restrict src, int32_t m, int32_t n, Word<W>* __restrict dst) {
  constexpr int32_t B = kTile<W>;
  const int64_t ld = m;
  for (int32_t i0 = 0; i0 < m; i0 += B) {
    const int32_t i1 = i0 + B < m ? i0 + B : m;
    for (int32_t j0 = 0; j0 < n; j0 += B) {
      const int32_t j1 = j0 + B < n ? j0 + B : n;
      for (int32_t j = j0; j < j1; ++j) {
        Word<W>* d = dst + j * ld;
        const Word<W>* s = src + j;
        for (int32_t i = i0; i < i1; ++i) std::memcpy(&d[i], &s[int64_t{i} * n], W);
      }
    }
  }
}

}  // namespace layout

// Writes dst[j*m + i] = src[i*n + j]: a row-major m x n array becomes a column-major one
// with leading dimension m. Called with the sizes swapped it turns a column-major result
// back into row-major. -20003 when either size is below 1.
template <class T>
Status ToColumnMajor(const T* src, int32_t m, int32_t n, T* dst) {
  if (m < 1 || n < 1) return StatusEmptyInput;
  using W = layout::Word<sizeof(T)>;
  static_assert(sizeof(W) == sizeof(T));
  layout::TransposeWords<sizeof(T)>(reinterpret_cast<const W*>(src), m, n, reinterpret_cast<W*>(dst));
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
