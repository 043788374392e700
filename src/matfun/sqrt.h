// Principal matrix square root by the complex Schur method: balance, reduce to upper
// triangular Schur form, take the square root of the triangle, transform back, undo the
// balancing. The triangular square root is shared with the logarithm.
#pragma once

#include <algorithm>
#include <cstdint>

#include "factor/column_major.h"
#include "factor/schur.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "matfun/common.h"

namespace ql {

namespace matfun {

// Columns j0..j1-1 of row i of the upper triangular square root U of the row-major
// n x n block t, in place, once every contribution Σ u_ik·u_kj with k outside that
// span has been taken off t_ij and u_ii, u_jj are known: u_ij = (t_ij − Σ u_ik·u_kj over
// i < k < j, j0 <= k) / (u_ii + u_jj), set to 0 when the numerator and the denominator
// both have a squared modulus below the double epsilon, otherwise divided by Smith's
// method. Left to right: when u_ik is known, its contributions to the rest of the span
// are taken off at once, along row k of U (contiguous in the row-major block).
template <class T>
void SqrtRowSpan(T* t, int32_t n, int64_t i, int64_t j0, int64_t j1) {
  T* row = t + i * n;
  for (int64_t k = j0; k < j1; ++k) {
    const T num = row[k], den = row[i] + t[k * n + k];
    const bool both = SquaredModulus(num) < kCloseness && SquaredModulus(den) < kCloseness;
    row[k] = both ? T(0) : SmithDivide(num, den);
    if (k + 1 < j1 && row[k] != T(0)) {
      kernel::axpy(static_cast<blasint>(j1 - k - 1), -row[k], t + k * n + k + 1, 1, row + k + 1, 1);
    }
  }
}

// The upper triangular square root U of the row-major upper triangular n x n block t, in
// place (the strict lower part is not touched): u_jj = √t_jj and the recurrence of
// SqrtRowSpan above the diagonal. Real data must have a positive diagonal.
//
// In blocks of kSqrtBlock: block column by block column, the diagonal block by the
// element recurrence (rows from the bottom up), then the blocks above it from the
// bottom up. An off-diagonal block X = U_IJ solves U_II·X + X·U_JJ = T_IJ − U_IK·U_KJ
// (K the rows between I and J): the product by gemm, then row by row from the bottom,
// the rows of X already found times U_II's row by gemm, and the row's own span by the
// element recurrence, so every numerator holds the same terms as unblocked.
template <class T>
void TriangularSqrt(T* t, int32_t n) {
  constexpr int64_t kSqrtBlock = 48;
  for (int64_t j0 = 0; j0 < n; j0 += kSqrtBlock) {
    const int64_t j1 = std::min<int64_t>(j0 + kSqrtBlock, n), nj = j1 - j0;
    for (int64_t i = j1 - 1; i >= j0; --i) {
      t[i * n + i] = ScalarSqrt(t[i * n + i]);
      SqrtRowSpan(t, n, i, i + 1, j1);
    }
    for (int64_t i1 = j0; i1 > 0; i1 -= kSqrtBlock) {
      const int64_t i0 = std::max<int64_t>(i1 - kSqrtBlock, 0);
      if (j0 > i1) {
        kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, static_cast<blasint>(i1 - i0),
                     static_cast<blasint>(nj), static_cast<blasint>(j0 - i1), T(-1), t + i0 * n + i1, n,
                     t + i1 * n + j0, n, T(1), t + i0 * n + j0, n);
      }
      for (int64_t i = i1 - 1; i >= i0; --i) {
        if (i + 1 < i1) {
          kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, 1, static_cast<blasint>(nj),
                       static_cast<blasint>(i1 - i - 1), T(-1), t + i * n + i + 1, n, t + (i + 1) * n + j0, n, T(1),
                       t + i * n + j0, n);
        }
        SqrtRowSpan(t, n, i, j0, j1);
      }
    }
  }
}

// The start the square root and the logarithm share: the complex row-major n x n block x
// is scanned (the balancing routine takes a NaN for an illegal argument, and its scaling
// could hide the largest finite value), balanced with its factors going to scale, and
// reduced to its Schur form in place, with the Schur vectors in z and the eigenvalues in
// values.
template <class C>
Status BalancedSchur(C* x, int32_t n, RealOf<C>* scale, C* z, C* values, ArrayHandle schurWork,
                     ArrayHandle schurIwork) {
  if (!AllAccepted(x, int64_t{n} * n)) return StatusNotFinite;
  if (Status s = Balance(x, n, scale); s != StatusOk) return s;
  return SchurCompute<C>(x, n, QuarzSchurOrderingNone, z, values, schurWork, schurIwork);
}

// The start of the Schur-based functions on the complex row-major n x n block x:
// complexWork sized to `count` elements, which begin with the Schur vectors (n x n) and the
// n eigenvalues (the rest is the caller's), realWork to the n balancing factors, then
// BalancedSchur.
template <class C>
Status ScratchAndSchur(C* x, int32_t n, int64_t count, ArrayHandle realWork, ArrayHandle complexWork,
                       ArrayHandle schurWork, ArrayHandle schurIwork, C** scratch, RealOf<C>** scale) {
  if (!complexWork) return StatusKernelError;
  if (Status s = ResizeVector<C>(complexWork, count, scratch); s != StatusOk) return s;
  if (Status s = ResizeVector<RealOf<C>>(realWork, n, scale); s != StatusOk) return s;
  return BalancedSchur(x, n, *scale, *scratch, *scratch + int64_t{n} * n, schurWork, schurIwork);
}

// True when the row-major triangle t has a zero on its diagonal (a zero eigenvalue).
template <class C>
bool ZeroOnDiagonal(const C* t, int32_t n) {
  for (int64_t i = 0; i < n; ++i) {
    if (t[i * n + i] == C(0)) return true;
  }
  return false;
}

// The square root worker on the complex row-major n x n block x, in place. The complex
// scratch holds the Schur vectors Z, the eigenvalues and a product buffer; the real
// scratch the balancing factors; the Schur worker has its own handles.
template <class C>
Status SqrtCompute(C* x, int32_t n, ArrayHandle realWork, ArrayHandle complexWork, ArrayHandle schurWork,
                   ArrayHandle schurIwork) {
  using R = RealOf<C>;
  if (n == 1) {
    x[0] = ScalarSqrt(x[0]);
    return StatusOk;
  }
  const int64_t nn = int64_t{n} * n;
  C* scratch;
  R* scale;
  if (Status s = ScratchAndSchur(x, n, 2 * nn + n, realWork, complexWork, schurWork, schurIwork, &scratch, &scale);
      s != StatusOk) {
    return s;
  }
  C* z = scratch;
  C* values = scratch + nn;
  C* product = values + n;
  const auto small = std::count_if(values, values + n, [](const C& v) { return SquaredModulus(v) < kCloseness; });
  TriangularSqrt(x, n);
  // Z·U·Zᴴ: the triangular product reads only U's upper triangle.
  std::copy(z, z + nn, product);
  kernel::trmm(CblasRowMajor, CblasRight, CblasUpper, CblasNoTrans, CblasNonUnit, n, n, C(1), x, n, product, n);
  Product(n, product, z, x, true);
  UndoBalancing(x, n, scale);
  // Two or more eigenvalues at (rounding distance from) zero: the square root may not
  // exist, and what is returned is only a candidate.
  return small >= 2 ? WarnSqrtInexact : StatusOk;
}

// The square A of a function whose result is complex, and that result: checks A's
// sizes, sizes the output (the input's own handle too, whose elements are then read from
// the frame's copy) and gives A's order and elements.
template <class T>
Status SquareToComplex(ArrayHandle ah, ArrayHandle outh, int32_t* n, const T** a, ComplexOf<T>** out) {
  const auto m = ReadMatrix<T>(ah);
  *n = m.rows;
  if (*n < 1) return StatusEmptyInput;
  if (m.cols != *n) return StatusNotSquare;
  if (Status s = ResizeWiderMatrix<ComplexOf<T>, T>(outh, *n, *n, out); s != StatusOk) return s;
  *a = ReadMatrix<T>(ah).data;
  return StatusOk;
}

}  // namespace matfun

// X = the principal square root of A, always complex (real A is copied into X with zero
// imaginary parts and takes the complex worker of its precision). balanceWork is not
// needed (the block is balanced as it stands) and schurWork2 is not either (the Schur
// form is not reordered); both are only emptied.
template <class T>
Status MtrxSqrtH(ArrayHandle ah, ArrayHandle xh, ArrayHandle realWork, ArrayHandle complexWork, ArrayHandle balanceWork,
                 ArrayHandle schurWork1, ArrayHandle schurWork2) {
  (void)balanceWork;
  int32_t n;
  const T* a;
  ComplexOf<T>* x;
  if (Status s = matfun::SquareToComplex(ah, xh, &n, &a, &x); s != StatusOk) return s;
  std::copy(a, a + int64_t{n} * n, x);
  return matfun::SqrtCompute(x, n, realWork, complexWork, schurWork1, schurWork2);
}

}  // namespace ql
