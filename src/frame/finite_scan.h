// The scans that guard the operations' inputs (and look at a kernel's results) for values
// that are not finite, or not below the largest finite value in magnitude.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "frame/traits.h"

namespace ql {

namespace scan {

template <class R>
struct BitsOfT;
template <>
struct BitsOfT<float> {
  using type = uint32_t;
};
template <>
struct BitsOfT<double> {
  using type = uint64_t;
};
template <class R>
using BitsOf = typename BitsOfT<R>::type;

template <class R>
inline BitsOf<R> Bits(R v) {
  BitsOf<R> u;
  std::memcpy(&u, &v, sizeof u);
  return u;
}

// Whether each of the m reals at src has a magnitude whose bit pattern lies below a
// limit, the pattern of a positive real: `above` for reals with the sign bit clear,
// `below` (the pattern of the magnitude of the lower bound) for those with it set. Without
// its sign an IEEE real orders as its bit pattern does, infinities above every finite
// value and NaN above those. The largest finite value as limit refuses it, infinities
// and NaN; infinity as limit refuses infinities and NaN. With Copy the reals are also
// copied to dst, so one pass serves the copy a kernel needs and its scan.
//
// (limit - 1) - |v| wraps around to a pattern with the top bit set exactly when |v| is
// not below limit, so the OR of all of them tells. The loop has no branch and only
// integer AND, shift, subtraction and OR, which the compiler vectorizes with the
// baseline instruction set of x86-64 (a floating comparison of doubles it does not). A
// block of one cache line keeps as many independent ORs going, where a single running OR
// would wait on itself; src and dst never overlap. With one limit for both signs
// (Signed false) the per-element choice of limit is left out: with it, the compiler's
// vectorized copy of floats ran at half speed.
template <bool Copy, bool Signed, class R>
bool MagnitudesBelow(const R* __restrict src, int64_t m, R* __restrict dst, BitsOf<R> above, BitsOf<R> below) {
  using U = BitsOf<R>;
  constexpr U magnitude = std::numeric_limits<U>::max() >> 1;
  constexpr int kLanes = 64 / sizeof(U);
  const U flip = above ^ below;
  U seen[kLanes] = {};
  const auto step = [&](int64_t i) {
    U u;
    std::memcpy(&u, src + i, sizeof u);
    if constexpr (Copy) std::memcpy(dst + i, &u, sizeof u);
    U limit = above;
    if constexpr (Signed) {
      // All ones for a negative real, zero otherwise: picks its limit without a branch.
      limit ^= flip & static_cast<U>(static_cast<std::make_signed_t<U>>(u) >> (sizeof(U) * 8 - 1));
    }
    return (limit - 1) - (u & magnitude);
  };
  int64_t i = 0;
  for (; i + kLanes <= m; i += kLanes) {
    for (int lane = 0; lane < kLanes; ++lane) seen[lane] |= step(i + lane);
  }
  // The tail in a register of its own: ORed into a lane, its store would stall the
  // vector loads of the lanes below (no store forwarding), which for a small matrix
  // costs more than the whole scan.
  U all = 0;
  for (; i < m; ++i) all |= step(i);
  for (const U s : seen) all |= s;
  return (all & ~magnitude) == 0;
}

// Every real and imaginary part of the count elements at src (copied to dst on the way
// with Copy) lies strictly between -below and above, both positive.
template <bool Copy, class T>
bool PartsWithin(const T* src, int64_t count, T* dst, RealOf<T> below, RealOf<T> above) {
  using R = RealOf<T>;
  const auto run = [&](auto kernel) {
    return kernel(reinterpret_cast<const R*>(src), count * RealsPer<T>(), reinterpret_cast<R*>(dst), Bits(above),
                  Bits(below));
  };
  return below == above ? run(MagnitudesBelow<Copy, false, R>) : run(MagnitudesBelow<Copy, true, R>);
}

}  // namespace scan

// The inputs of the solvers and factorizations must hold neither NaN nor infinities nor
// the largest finite value or its negative: every real and imaginary part v must satisfy
// -max < v < max.
template <class T>
bool AllAccepted(const T* p, int64_t count) {
  constexpr RealOf<T> max = Elem<RealOf<T>>::Largest();
  return scan::PartsWithin<false>(p, count, static_cast<T*>(nullptr), max, max);
}

// Copies count elements to dst and tells whether all of them are accepted, in one pass.
template <class T>
bool CopyAccepted(const T* src, int64_t count, T* dst) {
  constexpr RealOf<T> max = Elem<RealOf<T>>::Largest();
  return scan::PartsWithin<true>(src, count, dst, max, max);
}

// True when no part of the count elements is NaN or infinite.
template <class T>
bool AllFinite(const T* p, int64_t count) {
  constexpr RealOf<T> inf = std::numeric_limits<RealOf<T>>::infinity();
  return scan::PartsWithin<false>(p, count, static_cast<T*>(nullptr), inf, inf);
}

// True when some part of the count elements is NaN.
template <class T>
bool AnyNaN(const T* p, int64_t count) {
  const RealOf<T>* r = reinterpret_cast<const RealOf<T>*>(p);
  bool nan = false;
  for (int64_t i = 0; i < count * RealsPer<T>(); ++i) nan |= r[i] != r[i];
  return nan;
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
