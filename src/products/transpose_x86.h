// Transpose copy of 8-byte elements (double, and complex float as a (re, im) pair) with
// AVX2, chosen at run time. The library is built for the x86-64 baseline, so these
// functions carry their own target attribute and run only when the processor has AVX2.
#pragma once

#include <cstdint>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#define QL_HAVE_X86_TRANSPOSE 1
#include <immintrin.h>

namespace ql::tr::x86 {

inline bool HasAvx2() {
  static const bool has = __builtin_cpu_supports("avx2");
  return has;
}

// Tile edge: a 64 x 64 tile of 8-byte elements is a 32 KB buffer.
constexpr int64_t kTile8 = 64;

// Outputs at least this large are written with streaming stores: they would not stay
// in the cache anyway, and streaming saves reading every destination line first.
constexpr int64_t kStreamBytes = int64_t{16} << 20;

#define QL_AVX2 __attribute__((target("avx2")))

// -0.0 - im in the odd single-precision lanes (a complex float per 8-byte lane).
QL_AVX2 inline __m256d NegateImag(__m256d v) {
  const __m256 f = _mm256_castpd_ps(v);
  const __m256 neg = _mm256_sub_ps(_mm256_set1_ps(-0.0f), f);
  return _mm256_castps_pd(_mm256_blend_ps(f, neg, 0xAA));
}

// A 4 x 4 block of 8-byte lanes: four rows of s (stride lds) become four rows of d
// (stride ldd).
QL_AVX2 inline void Block4(const double* s, int64_t lds, double* d, int64_t ldd) {
  const __m256d r0 = _mm256_loadu_pd(s), r1 = _mm256_loadu_pd(s + lds);
  const __m256d r2 = _mm256_loadu_pd(s + 2 * lds), r3 = _mm256_loadu_pd(s + 3 * lds);
  const __m256d t0 = _mm256_unpacklo_pd(r0, r1), t1 = _mm256_unpackhi_pd(r0, r1);
  const __m256d t2 = _mm256_unpacklo_pd(r2, r3), t3 = _mm256_unpackhi_pd(r2, r3);
  _mm256_store_pd(d, _mm256_permute2f128_pd(t0, t2, 0x20));
  _mm256_store_pd(d + ldd, _mm256_permute2f128_pd(t1, t3, 0x20));
  _mm256_store_pd(d + 2 * ldd, _mm256_permute2f128_pd(t0, t2, 0x31));
  _mm256_store_pd(d + 3 * ldd, _mm256_permute2f128_pd(t1, t3, 0x31));
}

// One buffered row of a tile out to the destination, negating imaginary parts if asked.
template <bool Negate, bool Stream>
QL_AVX2 inline void WriteRow(const double* b, double* d) {
  int64_t i = 0;
  if constexpr (Stream) {
    // Only whole cache lines are streamed; the partial lines at both ends, which the
    // neighbouring tiles complete, take ordinary stores. Mixing the two kinds on one
    // line would cost a flush of the line each time.
    for (; i < kTile8 && (reinterpret_cast<uintptr_t>(d + i) & 63) != 0; ++i) {
      __m256d v = _mm256_castpd128_pd256(_mm_load_sd(b + i));
      if constexpr (Negate) v = NegateImag(v);
      std::memcpy(d + i, &v, 8);
    }
    for (; i + 8 <= kTile8; i += 8) {
      __m256d v0 = _mm256_loadu_pd(b + i), v1 = _mm256_loadu_pd(b + i + 4);
      if constexpr (Negate) v0 = NegateImag(v0), v1 = NegateImag(v1);
      _mm256_stream_pd(d + i, v0);
      _mm256_stream_pd(d + i + 4, v1);
    }
  } else {
    for (; i + 4 <= kTile8; i += 4) {
      __m256d v = _mm256_loadu_pd(b + i);
      if constexpr (Negate) v = NegateImag(v);
      _mm256_storeu_pd(d + i, v);
    }
  }
  for (; i < kTile8; ++i) {
    __m256d v = _mm256_castpd128_pd256(_mm_load_sd(b + i));
    if constexpr (Negate) v = NegateImag(v);
    std::memcpy(d + i, &v, 8);
  }
}

// Full 64 x 64 tiles only: rows and cols are multiples of kTile8. Each tile is read
// row by row and transposed in registers into a buffer, while the rest of the source
// rows for the next tile is prefetched; the buffer then goes out row by row.
template <bool Negate, bool Stream>
QL_AVX2 void FullTiles(int64_t rows, int64_t cols, const double* src, int64_t lds, double* dst, int64_t ldd) {
  alignas(64) double buf[kTile8 * kTile8];
  for (int64_t i0 = 0; i0 < rows; i0 += kTile8) {
    for (int64_t j0 = 0; j0 < cols; j0 += kTile8) {
      const bool prefetch = j0 + kTile8 < cols;
      for (int64_t i = 0; i < kTile8; i += 4) {
        const double* s = src + (i0 + i) * lds + j0;
        for (int64_t j = 0; j < kTile8; j += 4) {
          if (prefetch && (j & 7) == 0) {
            for (int64_t r = 0; r < 4; ++r) _mm_prefetch(reinterpret_cast<const char*>(s + r * lds + j + kTile8), _MM_HINT_T0);
          }
          Block4(s + j, lds, buf + j * kTile8 + i, kTile8);
        }
      }
      for (int64_t j = 0; j < kTile8; ++j) WriteRow<Negate, Stream>(buf + j * kTile8, dst + (j0 + j) * ldd + i0);
    }
  }
  if constexpr (Stream) _mm_sfence();
}

// The full tiles of a transpose of 8-byte elements given as raw memory.
template <bool Negate>
inline void TransposeFullTiles8(int64_t rows, int64_t cols, const void* src, int64_t lds, void* dst, int64_t ldd) {
  const auto* s = static_cast<const double*>(src);
  auto* d = static_cast<double*>(dst);
  if (rows * cols * 8 >= kStreamBytes) {
    FullTiles<Negate, true>(rows, cols, s, lds, d, ldd);
  } else {
    FullTiles<Negate, false>(rows, cols, s, lds, d, ldd);
  }
}

#undef QL_AVX2

}  // namespace ql::tr::x86

#endif
