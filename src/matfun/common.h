// Pieces shared by the matrix functions: balancing, the scalar functions with their
// branch rules, Smith's complex division and the products on host blocks.
//
// Orientation. Every function here is a primary matrix function, so f(Aᵀ) = f(A)ᵀ: a
// row-major block handed to the column-major kernel as it stands (read as Aᵀ) gives
// f(A) back in the same block, read row-major. Balancing therefore needs no transposed
// copy either: the kernel balances the block it sees, Aᵀ, into D⁻¹·Aᵀ·D, which read
// row-major is D·A·D⁻¹, and f(A) = D⁻¹·f(D·A·D⁻¹)·D (UndoBalancing).
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>

#include "frame/status.h"
#include "frame/traits.h"
#include "kernel/blas.h"
#include "kernel/lapack_matfun.h"

namespace ql::matfun {

// The one epsilon of the closeness and zero tests of the triangular recurrences: the
// double one for every element type.
constexpr double kCloseness = kDoubleEpsilon;

template <class T>
inline RealOf<T> SquaredModulus(const T& v) {
  if constexpr (IsComplex<T>::value) {
    return v.real() * v.real() + v.imag() * v.imag();
  } else {
    return v * v;
  }
}

// True when no off-diagonal element has a modulus greater than 0 (a NaN counts as 0).
template <class T>
bool OffDiagonalZero(const T* a, int32_t n) {
  for (int64_t i = 0; i < n; ++i) {
    for (int64_t j = 0; j < n; ++j) {
      if (i != j && std::abs(a[i * n + j]) > RealOf<T>(0)) return false;
    }
  }
  return true;
}

// exp(x + iy) = e^x·(cos y + i sin y).
template <class T>
inline T ScalarExp(const T& v) {
  if constexpr (IsComplex<T>::value) {
    const RealOf<T> m = std::exp(v.real());
    return {m * std::cos(v.imag()), m * std::sin(v.imag())};
  } else {
    return std::exp(v);
  }
}

// Principal square root of x + iy: 0 for 0, otherwise √((x + r)/2) + i·√((r − x)/2)
// with r = |x + iy|, the imaginary part negated when y < 0 (a negative zero does not
// flip it). r is taken without forming x² + y², which would overflow from about 1e154
// (1e19 in single precision) and underflow below the square roots of those bounds. Real
// arguments reach here only when positive.
template <class T>
inline T ScalarSqrt(const T& v) {
  if constexpr (IsComplex<T>::value) {
    using R = RealOf<T>;
    const R x = v.real(), y = v.imag(), r = std::hypot(x, y);
    if (r == R(0)) return T(0);
    // Halved before the sum: x + r itself may overflow.
    const R im = std::sqrt(r / 2 - x / 2);
    return {std::sqrt(x / 2 + r / 2), y < 0 ? -im : im};
  } else {
    return std::sqrt(v);
  }
}

// Principal logarithm: ln|z| + i·atan2(im, re); ln 0 = −infinity. Real arguments reach
// here only when positive.
template <class T>
inline T ScalarLog(const T& v) {
  if constexpr (IsComplex<T>::value) {
    return {std::log(std::abs(v)), std::atan2(v.imag(), v.real())};
  } else {
    return std::log(v);
  }
}

// a / b by Smith's method: the denominator is scaled by the larger of its parts first,
// so that neither |b|² nor the intermediate products overflow or underflow needlessly.
template <class T>
inline T SmithDivide(const T& a, const T& b) {
  if constexpr (IsComplex<T>::value) {
    using R = RealOf<T>;
    const R br = b.real(), bi = b.imag();
    if (std::abs(br) >= std::abs(bi)) {
      const R r = bi / br, d = br + bi * r;
      return {(a.real() + a.imag() * r) / d, (a.imag() - a.real() * r) / d};
    }
    const R r = br / bi, d = bi + br * r;
    return {(a.real() * r + a.imag()) / d, (a.imag() * r - a.real()) / d};
  } else {
    return a / b;
  }
}

// Balances the row-major n x n block a in place by scaling (never permuting); scale
// receives D. The block then holds D·A·D⁻¹ row-major (see the top of this file).
template <class T>
Status Balance(T* a, int32_t n, RealOf<T>* scale) {
  lapack_int ilo, ihi;
  return kernel::gebal('S', n, a, n, &ilo, &ihi, scale) == 0 ? StatusOk : StatusKernelError;
}

// f(A) = D⁻¹·F·D from F = f(D·A·D⁻¹): element (i, j) times d[j] / d[i], applied as the
// two scalings (the factors are powers of two, so each is exact short of over- or
// underflow).
template <class T>
void UndoBalancing(T* f, int32_t n, const RealOf<T>* d) {
  for (int64_t i = 0; i < n; ++i) {
    T* row = f + i * n;
    for (int64_t j = 0; j < n; ++j) row[j] = row[j] * d[j] / d[i];
  }
}

// c := a·b for row-major n x n blocks, with conjugate transposition of b when asked.
template <class T>
void Product(int32_t n, const T* a, const T* b, T* c, bool conjTransB = false) {
  kernel::gemm(CblasRowMajor, CblasNoTrans, conjTransB ? CblasConjTrans : CblasNoTrans, n, n, n, T(1), a, n, b, n,
               T(0), c, n);
}

// Views the n elements of a complex array as 2n reals (the layout is (re, im) pairs), so
// that real coefficients apply with the real routines.
template <class T>
inline RealOf<T>* Reals(T* p) {
  return reinterpret_cast<RealOf<T>*>(p);
}
}  // namespace ql::matfun
