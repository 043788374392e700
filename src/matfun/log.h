// Principal matrix logarithm: balancing, Schur form, the Parlett recurrence on the
// triangular factor or, when two eigenvalues lie too close for it, inverse scaling and
// squaring with a truncated series; then the Schur and balancing transforms are undone.
// Real input may first try the same in real arithmetic; the result is always complex.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "factor/column_major.h"
#include "factor/schur.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "matfun/common.h"
#include "matfun/sqrt.h"

namespace ql {

namespace matfun {

// Square roots allowed before inverse scaling and squaring gives up.
constexpr int kMaxRoots = 100;

// True when two diagonal elements of the row-major n x n block t are within the
// closeness bound (squared distance below the double epsilon): the Parlett recurrence
// would divide by their difference.
template <class T>
bool CloseEigenvalues(const T* t, int32_t n) {
  for (int64_t i = 0; i < n; ++i) {
    for (int64_t j = i + 1; j < n; ++j) {
      if (SquaredModulus(t[j * n + j] - t[i * n + i]) < kCloseness) return true;
    }
  }
  return false;
}

// Columns j0..j1-1 of row i of F = log(T), in place in the row-major f, once every term
// of those entries' numerators with k outside that span has been added: with f_ik known,
// its terms for the later entries of the span are added along rows k of T and F.
template <class T>
void ParlettRowSpan(const T* t, int32_t n, T* f, int64_t i, int64_t j0, int64_t j1) {
  T* r = f + i * n;
  const T tii = t[i * n + i];
  for (int64_t k = j0; k < j1; ++k) {
    r[k] = SmithDivide(r[k], t[k * n + k] - tii);
    if (k + 1 == j1) break;
    const auto len = static_cast<blasint>(j1 - k - 1);
    kernel::axpy(len, -r[k], t + k * n + k + 1, 1, r + k + 1, 1);
    kernel::axpy(len, t[i * n + k], f + k * n + k + 1, 1, r + k + 1, 1);
  }
}

// F[i0..i1, j0..j1] += T[i0..i1, k0..k1]·F[k0..k1, j0..j1] − F[i0..i1, k0..k1]·T[k0..k1, j0..j1]:
// the numerator terms of the rows i0..i1 for k in k0..k1.
template <class T>
void ParlettTerms(const T* t, int32_t n, T* f, int64_t i0, int64_t i1, int64_t k0, int64_t k1, int64_t j0,
                  int64_t j1) {
  if (k1 <= k0 || i1 <= i0) return;
  const auto m = static_cast<blasint>(i1 - i0), cols = static_cast<blasint>(j1 - j0);
  const auto inner = static_cast<blasint>(k1 - k0);
  kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, cols, inner, T(1), t + i0 * n + k0, n,
               f + k0 * n + j0, n, T(1), f + i0 * n + j0, n);
  kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, cols, inner, T(-1), f + i0 * n + k0, n,
               t + k0 * n + j0, n, T(1), f + i0 * n + j0, n);
}

// F = log(T) for the row-major upper triangular n x n block t, into the row-major f
// (strict lower part 0), by the Parlett recurrence from F·T = T·F:
//   f_ij·(t_jj − t_ii) = t_ij·(f_jj − f_ii) + Σ (t_ik·f_kj − f_ik·t_kj) over i < k < j,
// divided by Smith's method.
//
// In blocks of kParlettBlock, as the triangular square root: block column by block column,
// the diagonal block by the element recurrence (rows from the bottom up, each from left to
// right), then the blocks above it from the bottom up. An off-diagonal block F_IJ takes
// the terms of the blocks K between I and J by gemm, then row by row from the bottom the
// terms of I's own rows below it by gemm, and the row's span by the element recurrence;
// every numerator holds the same terms as unblocked, summed in another order.
template <class T>
void ParlettLog(const T* t, int32_t n, T* f) {
  constexpr int64_t kParlettBlock = 48;
  const int64_t nn = int64_t{n} * n;
  std::fill(f, f + nn, T(0));
  for (int64_t i = 0; i < n; ++i) f[i * n + i] = ScalarLog(t[i * n + i]);
  for (int64_t i = 0; i < n; ++i) {
    for (int64_t j = i + 1; j < n; ++j) f[i * n + j] = t[i * n + j] * (f[j * n + j] - f[i * n + i]);
  }
  for (int64_t j0 = 0; j0 < n; j0 += kParlettBlock) {
    const int64_t j1 = std::min<int64_t>(j0 + kParlettBlock, n);
    for (int64_t i = j1 - 2; i >= j0; --i) ParlettRowSpan(t, n, f, i, i + 1, j1);
    for (int64_t i1 = j0; i1 > 0; i1 -= kParlettBlock) {
      const int64_t i0 = std::max<int64_t>(i1 - kParlettBlock, 0);
      ParlettTerms(t, n, f, i0, i1, i1, j0, j0, j1);
      for (int64_t i = i1 - 1; i >= i0; --i) {
        ParlettTerms(t, n, f, i, i + 1, i + 1, i1, j0, j1);
        ParlettRowSpan(t, n, f, i, j0, j1);
      }
    }
  }
}

// L = log(T) for the row-major upper triangular n x n block t (overwritten) by inverse
// scaling and squaring: T/ρ (ρ the mean modulus of the diagonal) is replaced by its
// square root until ‖T − I‖_F ≤ 0.1, k roots; with M = I − T,
// log T ≈ −2^k·(M + M²/2 + … + M¹⁰/10); the diagonal is then set to the logarithms of
// T's original diagonal, which also undoes the normalisation (log(T/ρ) = log T − ln ρ·I).
// p and out are n x n buffers, diag n elements; the result goes to out.
template <class T>
Status InverseScalingSquaring(T* t, int32_t n, T* p, T* out, T* diag) {
  using R = RealOf<T>;
  const int64_t nn = int64_t{n} * n;
  R rho = 0;
  for (int64_t i = 0; i < n; ++i) {
    diag[i] = ScalarLog(t[i * n + i]);
    rho += std::abs(t[i * n + i]);
  }
  rho /= R(n);
  for (int64_t i = 0; i < n; ++i) {
    for (int64_t j = 0; j < n; ++j) t[i * n + j] = j < i ? T(0) : t[i * n + j] / rho;
  }
  int roots = 0;
  for (;;) {
    R norm2 = 0;
    for (int64_t i = 0; i < n; ++i) {
      for (int64_t j = i; j < n; ++j) norm2 += SquaredModulus(t[i * n + j] - T(i == j ? 1 : 0));
    }
    if (!(norm2 > R(0.01))) break;
    if (roots == kMaxRoots) return StatusNoConvergence;
    TriangularSqrt(t, n);
    ++roots;
  }
  // M = I − T in place, then out = M + M²/2 + … with p = M^i by triangular products.
  for (int64_t i = 0; i < n; ++i) {
    for (int64_t j = i; j < n; ++j) t[i * n + j] = T(i == j ? 1 : 0) - t[i * n + j];
  }
  std::copy(t, t + nn, out);
  std::copy(t, t + nn, p);
  const auto reals = static_cast<blasint>(RealsPer<T>() * nn);
  for (int i = 1; i <= 9; ++i) {
    kernel::trmm(CblasRowMajor, CblasLeft, CblasUpper, CblasNoTrans, CblasNonUnit, n, n, T(1), t, n, p, n);
    kernel::axpy(reals, R(1) / R(i + 1), Reals(p), 1, Reals(out), 1);
  }
  kernel::scal(reals, -std::ldexp(R(1), roots), Reals(out), 1);
  for (int64_t i = 0; i < n; ++i) out[i * n + i] = diag[i];
  return StatusOk;
}

// log of the row-major upper triangular n x n block t into out (row-major, upper
// triangular): Parlett when the diagonal is well separated, else inverse scaling and
// squaring (which overwrites t). p is a spare n x n buffer, diag n elements.
template <class T>
Status TriangularLog(T* t, int32_t n, T* p, T* out, T* diag) {
  if (!CloseEigenvalues(t, n)) {
    ParlettLog(t, n, out);
    return StatusOk;
  }
  return InverseScalingSquaring(t, n, p, out, diag);
}

// Q·L·Qᴴ into x, for the row-major Schur vectors q and the upper triangular l; tmp is an
// n x n buffer.
template <class T>
void SchurBack(int32_t n, const T* q, const T* l, T* tmp, T* x) {
  std::copy(q, q + int64_t{n} * n, tmp);
  kernel::trmm(CblasRowMajor, CblasRight, CblasUpper, CblasNoTrans, CblasNonUnit, n, n, T(1), l, n, tmp, n);
  Product(n, tmp, q, x, true);
}

// The logarithm of each diagonal element when nothing off the diagonal is non-zero.
template <class T>
bool DiagonalLog(T* x, int32_t n) {
  if (!OffDiagonalZero(x, n)) return false;
  for (int64_t i = 0; i < n; ++i) x[i * n + i] = ScalarLog(x[i * n + i]);
  return true;
}

// The complex method on the row-major n x n block x, in place. The complex scratch holds
// the Schur vectors, the eigenvalues, two n x n buffers and the diagonal's logarithms; the
// real scratch the balancing factors.
template <class C>
Status LogCompute(C* x, int32_t n, ArrayHandle realWork, ArrayHandle complexWork, ArrayHandle schurWork,
                  ArrayHandle schurIwork) {
  using R = RealOf<C>;
  if (DiagonalLog(x, n)) return StatusOk;  // 1 x 1 included
  const int64_t nn = int64_t{n} * n;
  C* scratch;
  R* scale;
  if (Status s = ScratchAndSchur(x, n, 3 * nn + 2 * int64_t{n}, realWork, complexWork, schurWork, schurIwork,
                                 &scratch, &scale);
      s != StatusOk) {
    return s;
  }
  C* q = scratch;
  C* p = q + nn + n;  // behind the eigenvalues
  C* l = p + nn;
  C* diag = l + nn;
  if (ZeroOnDiagonal(x, n)) return StatusSingular;
  if (Status s = TriangularLog(x, n, p, l, diag); s != StatusOk) return s;
  SchurBack(n, q, l, p, x);
  UndoBalancing(x, n, scale);
  return StatusOk;
}

// Returned by the real-arithmetic attempt when the matrix has no real logarithm it can
// form (a complex pair, or an eigenvalue that is not positive).
constexpr Status kNoRealLogarithm = 1;

// The real-arithmetic attempt for real A (row-major n x n, only read), into the complex
// x with zero imaginary parts. Real Schur form A = Q·T·Qᵀ; it declines when T has a
// 2 x 2 block (a subdiagonal element above ten times ε·‖T‖_F) or a diagonal element that
// is not positive. Otherwise the logarithm of T is formed in real arithmetic, by the
// same triangular methods as the complex one (an upper triangular T with a positive
// diagonal has real square roots), and Q·log(T)·Qᵀ is returned. Subdiagonal elements
// below the bound are rounding left of a pair the kernel did not split and count as 0.
// The real pieces live in the complex scratch handle; realSchurWork is the real Schur
// worker's.
template <class R>
Status RealLogCompute(const R* a, int32_t n, std::complex<R>* x, ArrayHandle realWork, ArrayHandle complexWork,
                      ArrayHandle realSchurWork, ArrayHandle schurIwork) {
  using C = std::complex<R>;
  const int64_t nn = int64_t{n} * n;
  if (OffDiagonalZero(a, n)) {
    for (int64_t i = 0; i < n; ++i) {
      if (!(a[i * n + i] > R(0))) return kNoRealLogarithm;
    }
    std::fill(x, x + nn, C(0));
    for (int64_t i = 0; i < n; ++i) x[i * n + i] = std::log(a[i * n + i]);
    return StatusOk;
  }
  if (!complexWork) return StatusKernelError;
  WorkLayout<C> layout;
  const auto tPiece = layout.template Add<R>(nn);
  const auto qPiece = layout.template Add<R>(nn);
  const auto pPiece = layout.template Add<R>(nn);
  const auto lPiece = layout.template Add<R>(nn);
  const auto diagPiece = layout.template Add<R>(n);
  const auto valuesPiece = layout.template Add<C>(n);
  if (Status s = layout.Bind(complexWork); s != StatusOk) return s;
  R* scale;
  if (Status s = ResizeVector<R>(realWork, n, &scale); s != StatusOk) return s;
  R* t = layout.Get(tPiece);
  R* q = layout.Get(qPiece);
  if (!AllAccepted(a, nn)) return StatusNotFinite;
  std::copy(a, a + nn, t);
  if (Status s = Balance(t, n, scale); s != StatusOk) return s;
  if (Status s = SchurCompute<R>(t, n, QuarzSchurOrderingNone, q, layout.Get(valuesPiece), realSchurWork, schurIwork);
      s != StatusOk) {
    return s;
  }
  R norm2 = 0;
  for (int64_t i = 0; i < nn; ++i) norm2 += t[i] * t[i];
  const R bound = 10 * Elem<R>::Epsilon() * std::sqrt(norm2);
  for (int64_t i = 0; i < n; ++i) {
    if (!(t[i * n + i] > R(0)) || (i + 1 < n && std::abs(t[(i + 1) * n + i]) > bound)) return kNoRealLogarithm;
  }
  R* p = layout.Get(pPiece);
  R* l = layout.Get(lPiece);
  if (Status s = TriangularLog(t, n, p, l, layout.Get(diagPiece)); s != StatusOk) return s;
  SchurBack(n, q, l, p, t);
  UndoBalancing(t, n, scale);
  std::copy(t, t + nn, x);
  return StatusOk;
}

}  // namespace matfun

// Real A: B = log(A), complex n x n. mode 1 tries the real-arithmetic method first; when
// A has no real logarithm there (a complex eigenvalue pair or an eigenvalue that is not
// positive) the complex logarithm is returned with WarnComplexLogarithm. Any other mode
// goes straight to the complex method.
template <class T, std::enable_if_t<!IsComplex<T>::value, int> = 0>
Status MtrxLnH(ArrayHandle ah, ArrayHandle bh, int32_t mode, ArrayHandle realWork, ArrayHandle complexWork,
               ArrayHandle balanceWork, ArrayHandle schurWork, ArrayHandle schurIwork, ArrayHandle realSchurWork) {
  (void)balanceWork;
  int32_t n;
  const T* a;
  ComplexOf<T>* b;
  if (Status s = matfun::SquareToComplex(ah, bh, &n, &a, &b); s != StatusOk) return s;
  if (mode == 1) {
    const Status s = matfun::RealLogCompute(a, n, b, realWork, complexWork, realSchurWork, schurIwork);
    if (s != matfun::kNoRealLogarithm) return s;
  }
  std::copy(a, a + int64_t{n} * n, b);
  const Status s = matfun::LogCompute(b, n, realWork, complexWork, schurWork, schurIwork);
  return s == StatusOk && mode == 1 ? WarnComplexLogarithm : s;
}

// Complex A: A = log(A) in place.
template <class T, std::enable_if_t<IsComplex<T>::value, int> = 0>
Status MtrxLnH(ArrayHandle ah, ArrayHandle realWork, ArrayHandle complexWork, ArrayHandle balanceWork,
               ArrayHandle schurWork, ArrayHandle schurIwork) {
  (void)balanceWork;
  const auto a = ReadMatrix<T>(ah);
  const int32_t n = a.rows;
  if (n < 1) return StatusEmptyInput;
  if (a.cols != n) return StatusNotSquare;
  return matfun::LogCompute(a.data, n, realWork, complexWork, schurWork, schurIwork);
}

}  // namespace ql
