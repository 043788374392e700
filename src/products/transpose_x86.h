// Transpose copy of 8-byte elements (double, and complex float as a (re, im) pair) with
// AVX2, chosen at run time. The library is built for the x86-64 baseline, so these
// functions carry their own target attribute and run only when the processor has AVX2.
#pragma once

#include <algorithm>
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
// (stride ldd), imaginary parts negated if asked.
template <bool Negate>
QL_AVX2 inline void Block4(const double* s, int64_t lds, double* d, int64_t ldd) {
  const __m256d r0 = _mm256_loadu_pd(s), r1 = _mm256_loadu_pd(s + lds);
  const __m256d r2 = _mm256_loadu_pd(s + 2 * lds), r3 = _mm256_loadu_pd(s + 3 * lds);
  const __m256d t0 = _mm256_unpacklo_pd(r0, r1), t1 = _mm256_unpackhi_pd(r0, r1);
  const __m256d t2 = _mm256_unpacklo_pd(r2, r3), t3 = _mm256_unpackhi_pd(r2, r3);
  __m256d o[4] = {_mm256_permute2f128_pd(t0, t2, 0x20), _mm256_permute2f128_pd(t1, t3, 0x20),
                  _mm256_permute2f128_pd(t0, t2, 0x31), _mm256_permute2f128_pd(t1, t3, 0x31)};
  for (int r = 0; r < 4; ++r) {
    if constexpr (Negate) o[r] = NegateImag(o[r]);
    _mm256_storeu_pd(d + r * ldd, o[r]);
  }
}

// An 8 x 8 block straight from the source to the destination, as four 4 x 4 blocks: each
// destination row gets one whole 64-byte run. (Whole-row loads with the cross-lane
// permute measured 1.5 times as fast in the first-level cache as half-row loads put
// together with inserts, and no slower beyond it.)
template <bool Negate>
QL_AVX2 inline void Block8(const double* s, int64_t lds, double* d, int64_t ldd) {
  for (int64_t bi = 0; bi < 8; bi += 4) {
    for (int64_t bj = 0; bj < 8; bj += 4) Block4<Negate>(s + bi * lds + bj, lds, d + bj * ldd + bi, ldd);
  }
}

// rows and cols multiples of 8: tiles of at most 64 x 64, each written straight from the
// source in 8 x 8 blocks, so that source and destination tiles stay in the cache
// together with no buffer in between.
template <bool Negate>
QL_AVX2 void DirectTiles(int64_t rows, int64_t cols, const double* src, int64_t lds, double* dst, int64_t ldd) {
  for (int64_t i0 = 0; i0 < rows; i0 += kTile8) {
    const int64_t i1 = std::min(rows, i0 + kTile8);
    for (int64_t j0 = 0; j0 < cols; j0 += kTile8) {
      const int64_t j1 = std::min(cols, j0 + kTile8);
      for (int64_t j = j0; j < j1; j += 8) {
        for (int64_t i = i0; i < i1; i += 8) Block8<Negate>(src + i * lds + j, lds, dst + j * ldd + i, ldd);
      }
    }
  }
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
    for (; i < kTile8; ++i) {
      __m256d v = _mm256_castpd128_pd256(_mm_load_sd(b + i));
      if constexpr (Negate) v = NegateImag(v);
      std::memcpy(d + i, &v, 8);
    }
  } else {
    for (; i < kTile8; i += 4) {
      __m256d v = _mm256_loadu_pd(b + i);
      if constexpr (Negate) v = NegateImag(v);
      _mm256_storeu_pd(d + i, v);
    }
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
          Block4<false>(s + j, lds, buf + j * kTile8 + i, kTile8);
        }
      }
      for (int64_t j = 0; j < kTile8; ++j) WriteRow<Negate, Stream>(buf + j * kTile8, dst + (j0 + j) * ldd + i0);
    }
  }
  if constexpr (Stream) _mm_sfence();
}

// How a transpose of 8-byte elements runs: up to 4 MB in 8 x 8 blocks straight to the
// destination; larger ones in 64 x 64 tiles through a buffer, writing whole destination
// lines; the largest as those, with streaming stores. Measured with the source in the
// last-level cache, the direct blocks are 1.3 to 2 times as fast as the buffer from
// 256 x 256 to 1000 x 1000 doubles; at 1024 x 1024, where every source row falls into
// the same first-level cache sets, the buffer is 10% faster.
enum class Mode { kDirect, kBuffered, kStreamed };
constexpr int64_t kDirectBytes = int64_t{4} << 20;

inline Mode ModeFor(int64_t rows, int64_t cols) {
  const int64_t bytes = rows * cols * 8;
  return bytes <= kDirectBytes ? Mode::kDirect : bytes >= kStreamBytes ? Mode::kStreamed : Mode::kBuffered;
}

// The blocks of a transpose given as raw memory: rows and cols multiples of 8 (kDirect)
// or of kTile8.
template <bool Negate>
inline void TransposeBlocks8(Mode mode, int64_t rows, int64_t cols, const void* src, int64_t lds, void* dst,
                             int64_t ldd) {
  const auto* s = static_cast<const double*>(src);
  auto* d = static_cast<double*>(dst);
  switch (mode) {
    case Mode::kDirect: DirectTiles<Negate>(rows, cols, s, lds, d, ldd); break;
    case Mode::kBuffered: FullTiles<Negate, false>(rows, cols, s, lds, d, ldd); break;
    case Mode::kStreamed: FullTiles<Negate, true>(rows, cols, s, lds, d, ldd); break;
  }
}

#undef QL_AVX2

}  // namespace ql::tr::x86

#endif
