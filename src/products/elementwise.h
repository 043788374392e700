// Element-wise helpers of the product family.
#pragma once

#include <complex>
#include <cstdint>

#include "frame/traits.h"

namespace ql {

// Product by the textbook formula. std::complex's operator* follows the C99 rules for
// infinite and NaN parts (a library call when the quick result is NaN); here a NaN or
// infinite factor simply propagates through the four products, like in the kernel.
inline float Mul(float a, float b) { return a * b; }
inline double Mul(double a, double b) { return a * b; }
template <class R>
inline std::complex<R> Mul(const std::complex<R>& a, const std::complex<R>& b) {
  const R ar = a.real(), ai = a.imag(), br = b.real(), bi = b.imag();
  return {ar * br - ai * bi, ai * br + ar * bi};
}

// dst[j] = a * src[j] for j < n.
template <class T>
inline void ScaleInto(int64_t n, const T& a, const T* __restrict src, T* __restrict dst) {
  for (int64_t j = 0; j < n; ++j) dst[j] = Mul(a, src[j]);
}

template <class T>
inline void FillValue(int64_t n, const T& v, T* dst) {
  for (int64_t j = 0; j < n; ++j) dst[j] = v;
}

}  // namespace ql
