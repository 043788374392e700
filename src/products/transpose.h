// Transpose (conjugate transpose for complex elements) and trace, and the blocked
// transpose copies that other families use to move row-major data around.
#pragma once

#include <algorithm>
#include <complex>
#include <cstdint>

#include "frame/array.h"
#include "frame/scalar.h"
#include "products/transpose_x86.h"

namespace ql {

namespace tr {

// The conjugate writes -0.0 - im, so a zero imaginary part becomes -0.0.
template <class T>
inline T Conj(const T& v) {
  return v;
}
template <class R>
inline std::complex<R> Conj(const std::complex<R>& v) {
  return {v.real(), R(-0.0) - v.imag()};
}

// Tile edge of the portable blocked copy. A 32 x 32 tile of the largest element type is
// 16 KB, so the tile buffer stays in the first-level cache.
constexpr int64_t kTile = 32;

template <bool Conjugate, class T>
inline T Op(const T& v) {
  if constexpr (Conjugate) {
    return Conj(v);
  } else {
    return v;
  }
}

// One tile of at most kTile x kTile: read row by row into a local buffer (transposing
// inside the cache), then written out row by row. Both sides of the copy then run over
// contiguous memory; walking the source with a large stride straight into the
// destination would touch one cache line per element on the strided side.
template <bool Conjugate, class T>
__attribute__((always_inline)) inline void CopyTileSized(int64_t ni, int64_t nj, const T* __restrict src,
                                                         int64_t lds, T* __restrict dst, int64_t ldd) {
  alignas(64) T buf[kTile * kTile];
  for (int64_t i = 0; i < ni; ++i) {
    const T* s = src + i * lds;
    for (int64_t j = 0; j < nj; ++j) buf[j * kTile + i] = s[j];
  }
  for (int64_t j = 0; j < nj; ++j) {
    T* d = dst + j * ldd;
    for (int64_t i = 0; i < ni; ++i) d[i] = Op<Conjugate>(buf[j * kTile + i]);
  }
}

template <bool Conjugate, class T>
inline void CopyTile(int64_t ni, int64_t nj, const T* __restrict src, int64_t lds, T* __restrict dst,
                     int64_t ldd) {
  // Full tiles get constant trip counts, so the compiler can unroll them.
  if (ni == kTile && nj == kTile) {
    CopyTileSized<Conjugate>(kTile, kTile, src, lds, dst, ldd);
  } else {
    CopyTileSized<Conjugate>(ni, nj, src, lds, dst, ldd);
  }
}

template <bool Conjugate, class T>
void PortableTranspose(int64_t rows, int64_t cols, const T* src, int64_t lds, T* dst, int64_t ldd) {
  for (int64_t i0 = 0; i0 < rows; i0 += kTile) {
    const int64_t ni = std::min(kTile, rows - i0);
    for (int64_t j0 = 0; j0 < cols; j0 += kTile) {
      CopyTile<Conjugate>(ni, std::min(kTile, cols - j0), src + i0 * lds + j0, lds, dst + j0 * ldd + i0, ldd);
    }
  }
}

// Up to this many elements both sides lie in the first-level cache whichever way they
// are walked; a plain loop then beats the tiles' set-up (a 3 x 3 copy took longer than
// the kernel's solve of the system).
constexpr int64_t kDirectUpTo = 256;

template <bool Conjugate, class T>
void BlockedTranspose(int64_t rows, int64_t cols, const T* src, int64_t lds, T* dst, int64_t ldd) {
  if (rows * cols <= kDirectUpTo) {
    for (int64_t i = 0; i < rows; ++i) {
      for (int64_t j = 0; j < cols; ++j) dst[j * ldd + i] = Op<Conjugate>(src[i * lds + j]);
    }
    return;
  }
#ifdef QL_HAVE_X86_TRANSPOSE
  if constexpr (sizeof(T) == 8) {
    if (x86::HasAvx2()) {
      const x86::Mode mode = x86::ModeFor(rows, cols);
      int64_t step = 8;
      if (mode != x86::Mode::kDirect) {
        // Tiles write whole destination lines when every destination row starts at the
        // same place within a line and the first few source rows go first.
        const auto addr = reinterpret_cast<uintptr_t>(dst);
        if (ldd % 8 == 0 && addr % 8 == 0) {
          const int64_t lead = std::min<int64_t>(rows, (64 - addr % 64) % 64 / 8);
          PortableTranspose<Conjugate>(lead, cols, src, lds, dst, ldd);
          rows -= lead;
          src += lead * lds;
          dst += lead;
        }
        step = x86::kTile8;
      }
      // The blocks with AVX2, the strips to the right and below portably.
      const int64_t rb = rows - rows % step, cb = cols - cols % step;
      x86::TransposeBlocks8<Conjugate && Elem<T>::kComplex>(mode, rb, cb, src, lds, dst, ldd);
      PortableTranspose<Conjugate>(rb, cols - cb, src + cb, lds, dst + cb * ldd, ldd);
      PortableTranspose<Conjugate>(rows - rb, cols, src + rb * lds, lds, dst + rb, ldd);
      return;
    }
  }
#endif
  PortableTranspose<Conjugate>(rows, cols, src, lds, dst, ldd);
}

}  // namespace tr

// dst (cols x rows, leading dimension ldd) = transpose of src (rows x cols, leading
// dimension lds). The two must not overlap.
template <class T>
void TransposeCopy(int64_t rows, int64_t cols, const T* src, int64_t lds, T* dst, int64_t ldd) {
  tr::BlockedTranspose<false>(rows, cols, src, lds, dst, ldd);
}

// As TransposeCopy, conjugating complex elements on the way.
template <class T>
void ConjTransposeCopy(int64_t rows, int64_t cols, const T* src, int64_t lds, T* dst, int64_t ldd) {
  tr::BlockedTranspose<Elem<T>::kComplex>(rows, cols, src, lds, dst, ldd);
}

// At = A^T for real A, A^H for complex A. The output is sized before the emptiness
// check, so an empty A still costs a resize (then the output is emptied).
template <class T>
Status TransposeH(ArrayHandle Ah, ArrayHandle Ath) {
  const auto A = ReadMatrix<T>(Ah);
  const int32_t m = A.rows, n = A.cols;
  T* out;
  if (const Status s = ResizeMatrix<T>(Ath, n, m, &out); s != StatusOk) return s;
  if (m < 1 || n < 1) return StatusEmptyInput;
  ConjTransposeCopy<T>(m, n, A.data, n, out, m);
  return StatusOk;
}

// Sum of the main diagonal of a possibly rectangular matrix, in index order, in the
// element type.
template <class T>
Status TraceH(ArrayHandle Ah, T* trace) {
  const auto A = ReadMatrix<T>(Ah);
  if (A.rows < 1 || A.cols < 1) return StatusEmptyInput;
  const int64_t k = std::min(A.rows, A.cols), step = int64_t{A.cols} + 1;
  T s = T(0);
  for (int64_t i = 0; i < k; ++i) s += A.data[i * step];
  return Store(trace, s);
}

}  // namespace ql
