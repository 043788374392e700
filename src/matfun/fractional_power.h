// Real powers A^p of a square matrix by the Schur–Padé method of Higham and Lin: complex
// Schur form T of the balanced matrix; square roots of T until it is close to I; the
// diagonal Padé approximant of (I − X)^b, X = I − T^(1/2^k), as a continued fraction;
// squaring back, with the diagonal and the first superdiagonal set from their exact
// formulas at every stage; the whole-number part of p by repeated squaring of T (or of its
// inverse). Whole p takes the whole-power code, p = 1/2 the square root's.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <utility>

#include "frame/array.h"
#include "frame/workspace.h"
#include "kernel/lapack_svd.h"
#include "matfun/common.h"
#include "matfun/log.h"
#include "matfun/power.h"
#include "matfun/sqrt.h"

namespace ql {

namespace matfun {

// θ_m: for ‖X‖₁ ≤ θ_m the [m/m] Padé approximant of (1 − x)^b has a relative error below
// the unit roundoff of the precision for every b in (−1, 1) (Higham and Lin, Table 3.1,
// for double; single from the same bound at 2^-24, rounded down).
template <class R>
struct PadeBounds;
template <>
struct PadeBounds<float> {
  static constexpr int kCount = 5;
  static constexpr double kTheta[kCount] = {1.2e-2, 1.1e-1, 2.8e-1, 4.4e-1, 5.6e-1};
};
template <>
struct PadeBounds<double> {
  static constexpr int kCount = 7;
  static constexpr double kTheta[kCount] = {1.51e-5, 2.24e-3, 1.88e-2, 6.04e-2, 1.24e-1, 2.00e-1, 2.79e-1};
};

constexpr double kPi = 3.14159265358979323846;

// Principal logarithm with arg in (−π, π]: a negative real with a negative zero imaginary
// part has arg π, as in the square root's rule (a negative zero does not flip the branch).
template <class C>
C PrincipalLog(const C& z) {
  using R = RealOf<C>;
  const R arg = z.imag() == R(0) ? (z.real() < R(0) ? R(kPi) : R(0)) : std::atan2(z.imag(), z.real());
  return {std::log(std::abs(z)), arg};
}

template <class C>
C ScalarPower(const C& z, RealOf<C> q) {
  return std::exp(q * PrincipalLog(z));
}

// (l2^q − l1^q) / (l2 − l1), the superdiagonal factor of the q-th power of a 2 x 2
// triangle: q·l1^(q−1) for equal values, the quotient as it stands for distant ones, and
// for close ones exp(q·(log l1 + log l2)/2)·2·sinh(q·w) / (l2 − l1) with
// w = atanh((l2 − l1)/(l2 + l1)) + iπ·U, U the unwinding number of log l2 − log l1, which
// loses nothing to cancellation.
template <class C>
C PowerDividedDifference(const C& l1, const C& l2, RealOf<C> q) {
  using R = RealOf<C>;
  if (l1 == l2) return q * ScalarPower(l1, q - 1);
  const C d = l2 - l1;
  if (std::abs(d) > std::abs(l1 + l2) / 2) return (ScalarPower(l2, q) - ScalarPower(l1, q)) / d;
  const C g1 = PrincipalLog(l1), g2 = PrincipalLog(l2);
  const R unwinding = std::ceil(((g2 - g1).imag() - R(kPi)) / R(2 * kPi));
  const C w = std::atanh(d / (l1 + l2)) + C(0, R(kPi) * unwinding);
  return std::exp(q * (g1 + g2) / R(2)) * R(2) * std::sinh(q * w) / d;
}

// l^(1/2^k) − 1 without the cancellation of the subtraction: (l − 1) / Π (1 + l^(1/2^i))
// over i = 1..k.
template <class C>
C RootMinusOne(const C& l, int k) {
  C z = l - C(1), r = l;
  for (int i = 0; i < k; ++i) {
    r = ScalarSqrt(r);
    z /= C(1) + r;
  }
  return z;
}

// The diagonal and the first superdiagonal of T0^q, from those of the row-major upper
// triangular t0, into the row-major f.
template <class C>
void ExactBands(const C* t0, int32_t n, RealOf<C> q, C* f) {
  for (int64_t i = 0; i < n; ++i) {
    f[i * n + i] = ScalarPower(t0[i * n + i], q);
    if (i + 1 < n) {
      f[i * n + i + 1] = t0[i * n + i + 1] * PowerDividedDifference(t0[i * n + i], t0[(i + 1) * n + i + 1], q);
    }
  }
}

// b := a·b for row-major n x n blocks, a upper triangular (a and b distinct).
template <class C>
void TriangleTimes(const C* a, C* b, int32_t n) {
  kernel::trmm(CblasRowMajor, CblasLeft, CblasUpper, CblasNoTrans, CblasNonUnit, n, n, C(1), a, n, b, n);
}

// The coefficients of the continued fraction (1 − x)^b = 1 + c1 x/(1 + c2 x/(1 + ...)):
// c1 = −b, c_2j = (b − j) / (2 (2j − 1)), c_2j+1 = (−j − b) / (2 (2j + 1)).
template <class R>
R FractionCoefficient(R b, int i) {
  if (i == 1) return -b;
  const R j = R(i / 2);
  return i % 2 == 0 ? (b - j) / (2 * (2 * j - 1)) : (-j - b) / (2 * (2 * j + 1));
}

// T^p for the row-major upper triangular n x n block t with a non-zero diagonal, p = a + b
// with a = floor(p) and b in (0, 1). The block is overwritten (square roots, then X); the
// result goes to `out`. t0, spare and acc are n x n buffers. A root count beyond kMaxRoots
// is StatusNoConvergence.
template <class C>
Status TriangularFracPower(C* t, int32_t n, double p, C* t0, C* out, C* spare, C* acc) {
  using R = RealOf<C>;
  using Bounds = PadeBounds<R>;
  const int64_t nn = int64_t{n} * n;
  const double whole = std::floor(p);
  const R b = static_cast<R>(p - whole);
  std::copy(t, t + nn, t0);
  // Roots until ‖T^(1/2^k) − I‖₁ ≤ θ of the largest degree, the diagonal of the difference
  // from RootMinusOne; then X = I − T^(1/2^k) in t.
  int k = 0;
  R norm;
  for (;;) {
    norm = 0;
    for (int64_t j = 0; j < n; ++j) {
      R sum = std::abs(RootMinusOne(t0[j * n + j], k));
      for (int64_t i = 0; i < j; ++i) sum += std::abs(t[i * n + j]);
      norm = std::max(norm, sum);
    }
    if (norm <= R(Bounds::kTheta[Bounds::kCount - 1])) break;
    if (k == kMaxRoots) return StatusNoConvergence;
    TriangularSqrt(t, n);
    ++k;
  }
  for (int64_t i = 0; i < n; ++i) {
    std::fill(t + i * n, t + i * n + i, C(0));  // the products below read whole blocks
    t[i * n + i] = -RootMinusOne(t0[i * n + i], k);
    for (int64_t j = i + 1; j < n; ++j) t[i * n + j] = -t[i * n + j];
  }
  int m = 1;
  while (norm > R(Bounds::kTheta[m - 1])) ++m;
  // Bottom up: Y = c_2m X, then Y = c_i X (I + Y)^-1 for i = 2m − 1 .. 1; R = I + Y.
  C* y = out;
  C* free = spare;
  for (int64_t i = 0; i < nn; ++i) y[i] = FractionCoefficient(b, 2 * m) * t[i];
  for (int i = 2 * m - 1; i >= 1; --i) {
    for (int64_t d = 0; d < n; ++d) y[d * n + d] += C(1);
    std::copy(t, t + nn, free);
    kernel::trsm(CblasRowMajor, CblasRight, CblasUpper, CblasNoTrans, CblasNonUnit, n, n,
                 C(FractionCoefficient(b, i)), y, n, free, n);
    std::swap(y, free);
  }
  for (int64_t d = 0; d < n; ++d) y[d * n + d] += C(1);
  // Squaring back: stage i holds (T^(1/2^i))^b, whose two bands are exact.
  for (int i = k; i >= 0; --i) {
    if (i < k) {
      std::copy(y, y + nn, free);
      TriangleTimes(y, free, n);
      std::swap(y, free);
    }
    ExactBands(t0, n, std::ldexp(b, -i), y);
  }
  if (whole != 0) {
    // T^a by repeated squaring of T or of its inverse (the base, in t and the free
    // buffer by turns), accumulated in acc; the row-major upper triangle is the kernel's
    // lower one.
    C* base = t;
    std::copy(t0, t0 + nn, base);
    if (whole < 0 && kernel::trtri('L', 'N', n, base, n) != 0) return StatusSingular;
    bool first = true;
    for (auto e = static_cast<uint32_t>(std::fabs(whole));; e /= 2) {
      if (e % 2 && first) std::copy(base, base + nn, acc);
      if (e % 2 && !first) TriangleTimes(base, acc, n);
      first = first && e % 2 == 0;
      if (e == 1) break;
      std::copy(base, base + nn, free);
      TriangleTimes(base, free, n);
      std::swap(base, free);
    }
    TriangleTimes(acc, y, n);
    ExactBands(t0, n, static_cast<R>(p), y);
  }
  if (y != out) std::copy(y, y + nn, out);
  return StatusOk;
}

// The general path on the complex row-major n x n block x, in place: balancing, Schur
// form (a zero eigenvalue is StatusSingular), the triangular power, back-transformation.
// complexWork holds the Schur vectors, the eigenvalues and four n x n buffers; realWork
// the balancing factors.
//
// For real input an eigenvalue that is negative apart from an imaginary part at rounding
// level (at most 10 n ε ‖T‖_F, which the complex Schur routine leaves on the real
// eigenvalues of a real matrix with either sign) is taken as real, so that it gets the
// principal branch, arg π, rather than whichever side of the cut rounding put it on.
template <class C>
Status FracPowerCompute(C* x, int32_t n, double p, bool realInput, ArrayHandle realWork, ArrayHandle complexWork,
                        ArrayHandle schurWork, ArrayHandle schurIwork) {
  using R = RealOf<C>;
  const int64_t nn = int64_t{n} * n;
  C* scratch;
  R* scale;
  if (Status s = ScratchAndSchur(x, n, 5 * nn + n, realWork, complexWork, schurWork, schurIwork, &scratch, &scale);
      s != StatusOk) {
    return s;
  }
  C* z = scratch;
  C* t0 = z + nn + n;  // behind the eigenvalues
  C* out = t0 + nn;
  C* spare = out + nn;
  C* acc = spare + nn;
  if (ZeroOnDiagonal(x, n)) return StatusSingular;
  if (realInput) {
    R norm2 = 0;
    for (int64_t i = 0; i < n; ++i) {
      for (int64_t j = i; j < n; ++j) norm2 += SquaredModulus(x[i * n + j]);
    }
    const R bound = 10 * R(n) * Elem<R>::Epsilon() * std::sqrt(norm2);
    for (int64_t i = 0; i < n; ++i) {
      C& d = x[i * n + i];
      if (d.real() < 0 && std::abs(d.imag()) <= bound) d = C(d.real(), 0);
    }
  }
  if (Status s = TriangularFracPower(x, n, p, t0, out, spare, acc); s != StatusOk) return s;
  SchurBack(n, z, out, spare, x);
  UndoBalancing(x, n, scale);
  return StatusOk;
}

}  // namespace matfun

// X = A^p for a real p, always complex (real A is copied into X with zero imaginary
// parts; its negative eigenvalues take arg π, see FracPowerCompute). Whole p in
// [−2^31, 2^31) is MtrxPowH's repeated squaring on that copy (the pseudo-inverse for
// p < 0, as there), p = 1/2 the square root of MtrxSqrtH; any other p the Schur–Padé
// method, p = floor(p) + b. Which handles each path uses: whole p: complexWork as the
// power scratch and, for p < 0, realWork, vectorsWork, schurWork and schurIwork as the
// pseudo-inverse's values, vectors, work and iwork; p = 1/2 and the Schur–Padé method:
// realWork (balancing), complexWork, schurWork and schurIwork.
template <class T>
Status MtrxFracPowH(ArrayHandle ah, RealOf<T> p, ArrayHandle xh, ArrayHandle realWork, ArrayHandle complexWork,
                    ArrayHandle schurWork, ArrayHandle schurIwork, ArrayHandle vectorsWork) {
  using C = ComplexOf<T>;
  int32_t n;
  const T* a;
  C* x;
  if (Status s = matfun::SquareToComplex(ah, xh, &n, &a, &x); s != StatusOk) return s;
  if (!std::isfinite(p)) return StatusNotFinite;
  const double q = p;
  if (!(q >= -2147483648.0 && q < 2147483648.0)) return StatusBadOption;
  std::copy(a, a + int64_t{n} * n, x);
  if (q == std::floor(q)) {
    return power::PowerCompute(x, n, static_cast<int32_t>(q), complexWork, vectorsWork, realWork, schurWork,
                               schurIwork);
  }
  if (q == 0.5) return matfun::SqrtCompute(x, n, realWork, complexWork, schurWork, schurIwork);
  return matfun::FracPowerCompute(x, n, q, !IsComplex<T>::value, realWork, complexWork, schurWork, schurIwork);
}

}  // namespace ql
