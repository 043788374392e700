// Matrix exponential in place: balancing, scaling and squaring, and a diagonal Padé
// approximant whose degree comes from an a-priori bound on its error.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>

#include "frame/array.h"
#include "frame/finite_scan.h"
#include "matfun/common.h"
#include "solve/linear_equations.h"

namespace ql {

namespace matfun {

// The smallest q >= 1 with e_q·exp(e_q) <= tol / (x·exp(x)), where
// e_q = 2^(3−2q)·(q!)² / ((2q)!·(2q+1)!) bounds the relative error of the (q, q) Padé
// approximant of exp for a matrix of norm x. Evaluated in double for every element type.
inline int PadeDegree(double tol, double x) {
  const double r = tol / (std::exp(x) * x);
  double e = 1.0 / 6.0;
  int q = 1;
  // e_q falls faster than geometrically; 30 is far past any x below 1.
  while (e * std::exp(e) > r && q < 30) {
    ++q;
    const double a = 2.0 * q - 1, b = 2.0 * q;
    e = e * a * q * q / (a * a * b * b) * (0.25 / (2.0 * q + 1));
  }
  return q;
}

// Largest row sum of moduli of the row-major n x n block.
template <class T>
RealOf<T> InfinityNorm(const T* a, int32_t n) {
  using R = RealOf<T>;
  R best = 0;
  for (int64_t i = 0; i < n; ++i) {
    R sum;
    if constexpr (IsComplex<T>::value) {
      sum = 0;
      for (int64_t j = 0; j < n; ++j) sum += std::abs(a[i * n + j]);
    } else {
      sum = kernel::asum(n, a + i * n, 1);
    }
    best = std::max(best, sum);
  }
  return best;
}

}  // namespace matfun

// exp(A) replaces A. W holds the four n x n blocks of the approximant (numerator,
// denominator, powers of A, spare), S the balancing factors; L and P are the linear
// solver's scratch. Tr is not needed (the block is balanced as it stands, see
// matfun/common.h) and is only emptied. A diagonal A (1 x 1 included) is exponentiated
// element by element without touching any work handle.
template <class T>
Status MtrxExpH(ArrayHandle ah, ArrayHandle wh, ArrayHandle sh, ArrayHandle th, ArrayHandle lh, ArrayHandle ph) {
  using R = RealOf<T>;
  (void)th;
  const auto m = ReadMatrix<T>(ah);
  const int32_t n = m.rows;
  if (n < 1) return StatusEmptyInput;
  if (m.cols != n) return StatusNotSquare;
  T* a = m.data;
  const int64_t nn = int64_t{n} * n;
  if (matfun::OffDiagonalZero(a, n)) {
    for (int64_t i = 0; i < n; ++i) a[i * n + i] = matfun::ScalarExp(a[i * n + i]);
    return StatusOk;
  }

  T* w;
  if (Status s = ResizeVector<T>(wh, 4 * nn, &w); s != StatusOk) return s;
  R* scale;
  if (Status s = ResizeVector<R>(sh, n, &scale); s != StatusOk) return s;
  // The balancing routine refuses NaN as an illegal argument, and an infinite element
  // would leave no finite norm to scale by; either ends in the denominator anyway.
  if (!AllFinite(a, nn)) return StatusNotFinite;
  if (Status s = matfun::Balance(a, n, scale); s != StatusOk) return s;
  T* num = w;
  T* den = w + nn;
  T* x = w + 2 * nn;
  T* spare = w + 3 * nn;

  // Scaling: s halvings bring the norm below 1 (to [0.5, 1) when it was at least 0.5).
  // A row sum of finite elements may still overflow; the matrix is then first brought
  // down by the largest binary exponent of the type.
  R norm = matfun::InfinityNorm(a, n);
  int squarings = 0;
  R* ra = matfun::Reals(a);
  const int64_t reals = RealsPer<T>() * nn;
  if (std::isinf(norm)) {
    squarings = std::numeric_limits<R>::max_exponent;
    kernel::scal(static_cast<blasint>(reals), std::ldexp(R(1), -squarings), ra, 1);
    norm = matfun::InfinityNorm(a, n);
  }
  if (norm >= R(0.5)) {
    const int more = static_cast<int>(std::trunc(std::log(double(norm)) / std::log(2.0) + 1));
    const R f = std::ldexp(R(1), -more);
    kernel::scal(static_cast<blasint>(reals), f, ra, 1);
    norm *= f;
    squarings += more;
  }

  // Nm = I + A/2 and Dm = I − A/2, then the higher terms c_j·A^j with the sign of
  // (−1)^j in the denominator.
  std::copy(a, a + nn, num);
  std::copy(a, a + nn, den);
  kernel::scal(static_cast<blasint>(reals), R(0.5), matfun::Reals(num), 1);
  kernel::scal(static_cast<blasint>(reals), R(-0.5), matfun::Reals(den), 1);
  for (int64_t i = 0; i < n; ++i) {
    num[i * n + i] += R(1);
    den[i * n + i] += R(1);
  }
  const int q = matfun::PadeDegree(1e-8, double(norm));
  if (q >= 2) matfun::Product(n, a, a, x);
  double c = 0.5;
  R sign = 1;
  for (int j = 2; j <= q; ++j) {
    c = c * (q - j + 1) / (double(2 * q - j + 1) * j);
    kernel::axpy(static_cast<blasint>(reals), R(c), matfun::Reals(x), 1, matfun::Reals(num), 1);
    kernel::axpy(static_cast<blasint>(reals), sign * R(c), matfun::Reals(x), 1, matfun::Reals(den), 1);
    sign = -sign;
    if (j == q) break;
    matfun::Product(n, x, a, spare);
    std::swap(x, spare);
  }

  // Dm·F = Nm, then F squared s times, the last square written into A.
  T* f = squarings == 0 ? a : x;
  if (Status s = LinEqSolve<T>(den, n, num, n, QuarzLinEqMatrixGeneral, f, lh, ph); s != StatusOk) return s;
  for (int k = 1; k <= squarings; ++k) {
    T* out = k == squarings ? a : spare;
    matfun::Product(n, f, f, out);
    std::swap(f, spare);
    if (k == squarings) break;
  }
  matfun::UndoBalancing(a, n, scale);
  return StatusOk;
}

}  // namespace ql
