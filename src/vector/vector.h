// Vector operations and statistics: dot product, p-norm, mean and RMS.
#pragma once

#include <cmath>
#include <complex>
#include <limits>

#include "frame/array.h"
#include "frame/scalar.h"
#include "kernel/blas.h"

namespace ql {

namespace vec {

// sum of x[i] * conj(y[i]): the second vector is conjugated. The kernel's dotc
// conjugates its first argument, so y goes first.
inline float DotConjSecond(int n, const float* x, const float* y) { return kernel::dot(n, y, 1, x, 1); }
inline double DotConjSecond(int n, const double* x, const double* y) { return kernel::dot(n, y, 1, x, 1); }
inline std::complex<double> DotConjSecond(int n, const std::complex<double>* x, const std::complex<double>* y) {
  return kernel::dotc(n, y, 1, x, 1);
}
// Single-precision complex is summed here, two elements per step with separate sums
// for even and odd indices (the loop vectorizes), in single precision.
inline std::complex<float> DotConjSecond(int n, const std::complex<float>* x, const std::complex<float>* y) {
  float rr[2] = {0, 0}, ii[2] = {0, 0}, ir[2] = {0, 0}, ri[2] = {0, 0};
  int i = 0;
  for (; i + 1 < n; i += 2) {
    for (int k = 0; k < 2; ++k) {
      const float xr = x[i + k].real(), xi = x[i + k].imag(), yr = y[i + k].real(), yi = y[i + k].imag();
      rr[k] += xr * yr;
      ii[k] += xi * yi;
      ir[k] += xi * yr;
      ri[k] += xr * yi;
    }
  }
  if (i < n) {
    const float xr = x[i].real(), xi = x[i].imag(), yr = y[i].real(), yi = y[i].imag();
    rr[0] += xr * yr;
    ii[0] += xi * yi;
    ir[0] += xi * yr;
    ri[0] += xr * yi;
  }
  return {(rr[0] + rr[1]) + (ii[0] + ii[1]), (ir[0] + ir[1]) - (ri[0] + ri[1])};
}

// Sum of moduli: the kernel's asum for real data; for complex data the moduli
// themselves (the kernel's complex asum adds |re| + |im|).
inline float SumAbs(int n, const float* x) { return kernel::asum(n, x, 1); }
inline double SumAbs(int n, const double* x) { return kernel::asum(n, x, 1); }
template <class R>
R SumAbs(int n, const std::complex<R>* x) {
  R s = 0;
  for (int i = 0; i < n; ++i) s += std::abs(x[i]);
  return s;
}

// Sum of squared moduli in the element's precision, in order, without rescaling.
template <class T>
RealOf<T> SumSquares(int n, const T* x) {
  RealOf<T> s = 0;
  for (int i = 0; i < n; ++i) s += std::norm(x[i]);
  return s;
}

// Sum in order (double and both complex types).
template <class T>
T Sum(int n, const T* x) {
  T s = 0;
  for (int i = 0; i < n; ++i) s += x[i];
  return s;
}
// float: four interleaved partial sums, combined as (0 + 2) + (1 + 3), then the rest.
inline float Sum(int n, const float* x) {
  float p[4] = {0, 0, 0, 0};
  const int n4 = n & ~3;
  for (int i = 0; i < n4; i += 4) {
    for (int k = 0; k < 4; ++k) p[k] += x[i + k];
  }
  float s = (p[0] + p[2]) + (p[1] + p[3]);
  for (int i = n4; i < n; ++i) s += x[i];
  return s;
}

}  // namespace vec

template <class T>
Status DotProdH(ArrayHandle xh, ArrayHandle yh, T* result) {
  const auto x = ReadVector<T>(xh), y = ReadVector<T>(yh);
  if (x.n != y.n) return StatusSizeMismatch;
  if (x.n < 1) return StatusEmptyInput;
  return Store(result, vec::DotConjSecond(x.n, x.data, y.data));
}

template <class T>
Status VectorNormH(ArrayHandle xh, RealOf<T> p, RealOf<T>* result) {
  using R = RealOf<T>;
  const auto x = ReadVector<T>(xh);
  if (x.n < 1) return StatusEmptyInput;
  const double pd = p;
  if (std::isnan(pd)) return StatusNormParamNaN;
  if (pd == 0) return StatusZeroParameter;
  const int n = x.n;
  R r;
  if (std::isinf(pd)) {
    r = std::abs(x.data[0]);
    for (int i = 1; i < n; ++i) {
      const R a = std::abs(x.data[i]);
      if (pd > 0 ? a > r : a < r) r = a;
    }
  } else if (pd == 1) {
    r = vec::SumAbs(n, x.data);
  } else if (pd == 2) {
    r = std::sqrt(vec::SumSquares(n, x.data));
  } else {
    // Any other p, accumulated in double for every type.
    double s = 0;
    for (int i = 0; i < n; ++i) s += std::pow(static_cast<double>(std::abs(x.data[i])), pd);
    r = static_cast<R>(std::pow(s, 1.0 / pd));
  }
  return Store(result, r);
}

template <class T>
Status MeanH(ArrayHandle xh, T* result) {
  const auto x = ReadVector<T>(xh);
  if (x.n < 1) return StatusEmptyInput;
  return Store(result, T(vec::Sum(x.n, x.data) / static_cast<RealOf<T>>(x.n)));
}

template <class T>
Status RMSH(ArrayHandle xh, RealOf<T>* result) {
  using R = RealOf<T>;
  const auto x = ReadVector<T>(xh);
  if (x.n < 1) return StatusEmptyInput;
  const double ss = vec::SumSquares(x.n, x.data);
  return Store(result, static_cast<R>(std::sqrt(ss) / std::sqrt(static_cast<double>(x.n))));
}

}  // namespace ql
