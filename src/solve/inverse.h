// Inverse of a square matrix in place (general, positive definite, triangular), and the
// Moore–Penrose pseudo-inverse of any matrix from its thin SVD.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "factor/svd.h"
#include "frame/array.h"
#include "kernel/blas.h"
#include "kernel/lapack.h"
#include "kernel/lapack_svd.h"
#include "measures/condition.h"
#include "products/transpose.h"

namespace ql {

// W·Wᴴ in place for the upper triangular column-major n x n W (the upper triangle of the
// Hermitian result replaces W's; the strict lower part is not touched). Entry (i, j),
// i <= j, is the sum over k >= j of W(i, k)·conj(W(j, k)); computed row by row and left
// to right, every W entry is read before it is overwritten.
template <class T>
void UpperTimesConjTranspose(T* w, int32_t n) {
  for (int64_t i = 0; i < n; ++i) {
    for (int64_t j = i; j < n; ++j) {
      T sum(0);
      for (int64_t k = j; k < n; ++k) sum += w[i + k * n] * tr::Conj(w[j + k * n]);
      w[i + j * n] = sum;
    }
  }
}

// Every path hands the row-major block to the kernel as it stands: read column-major it
// is Aᵀ, and the inverse of the transpose is the transpose of the inverse, so the
// kernel's triangle letters are the host's opposite ones. Only the general path uses
// the two scratch handles.
template <class T>
Status InvMtrxH(ArrayHandle ah, int32_t matrixType, ArrayHandle valueScratch, ArrayHandle pivotScratch) {
  const auto m = ReadMatrix<T>(ah);
  const int32_t n = m.rows;
  if (n < 1) return StatusEmptyInput;
  if (m.cols != n) return StatusNotSquare;
  T* a = m.data;
  switch (matrixType) {
    case QuarzLinEqMatrixGeneral:
      return InvertInPlace(a, n, valueScratch, pivotScratch);
    case QuarzLinEqMatrixPositiveDefinite: {
      // The host's lower triangle is read; its inverse comes back there and is mirrored
      // (conjugated) into the upper one.
      if (Status s = FromInfo(kernel::potrf('U', n, a, n), StatusNotPositiveDefinite); s != StatusOk) return s;
      if constexpr (Elem<T>::kComplex) {
        // potri = trtri, then U⁻¹·U⁻ᴴ (lauum). OpenBLAS's complex lauum goes through a
        // dotc kernel that reads past the last element of a strided vector, which here
        // is the end of the host's block; the product is formed here instead.
        if (Status s = FromInfo(kernel::trtri('U', 'N', n, a, n), StatusSingular); s != StatusOk) return s;
        UpperTimesConjTranspose(a, n);
      } else {
        if (Status s = FromInfo(kernel::potri('U', n, a, n), StatusSingular); s != StatusOk) return s;
      }
      for (int64_t i = 0; i < n; ++i) {
        for (int64_t j = i + 1; j < n; ++j) a[i * n + j] = tr::Conj(a[j * n + i]);
      }
      return StatusOk;
    }
    case QuarzLinEqMatrixLower:
    case QuarzLinEqMatrixUpper:
      // Only the named triangle is inverted; the other keeps what it held.
      return FromInfo(kernel::trtri(matrixType == QuarzLinEqMatrixLower ? 'U' : 'L', 'N', n, a, n), StatusSingular);
    default:
      return StatusBadOption;
  }
}

// The pseudo-inverse of the row-major m x n block a, written as the row-major n x m
// block out (which may be a itself: a is read only before out is written). From the
// thin SVD A = U·diag(s)·Vᴴ: A⁺ = V·diag(1/s)·Uᴴ over the singular values above the
// tolerance; a negative tolerance means the default max(m, n)·s1·ε, ε the element
// type's epsilon unless `epsilon` names another.
//
// Scratch, in this order (the matrix power passes its own handles the same way):
// values receives the k = min(m, n) singular values, vectors U (m x k) then V (n x k);
// work and iwork are SVDCompute's.
template <class T>
Status PseudoInverseCompute(const T* a, int32_t m, int32_t n, RealOf<T> tolerance, T* out, ArrayHandle values,
                            ArrayHandle vectors, ArrayHandle work, ArrayHandle iwork,
                            RealOf<T> epsilon = Elem<T>::Epsilon()) {
  using R = RealOf<T>;
  if (m < 1 || n < 1) return StatusEmptyInput;
  const int32_t k = std::min(m, n);
  R* s;
  T* uv;
  if (Status st = ResizeVector<R>(values, k, &s); st != StatusOk) return st;
  if (Status st = ResizeVector<T>(vectors, (int64_t{m} + n) * k, &uv); st != StatusOk) return st;
  T* u = uv;
  T* v = uv + int64_t{m} * k;
  if (Status st = SVDCompute<T>(a, m, n, u, s, v, 'S', work, iwork); st != StatusOk) return st;
  const R tol = tolerance < 0 ? DefaultTolerance<T>(m, n, s[0], epsilon) : tolerance;
  // A NaN tolerance cuts nowhere: the result is NaN, not the zero matrix of a cut above
  // every value.
  if (std::isnan(tol)) {
    std::fill(out, out + int64_t{n} * m, Elem<T>::NaN());
    return StatusOk;
  }
  // The values decrease: the first r count.
  int32_t r = 0;
  while (r < k && s[r] > tol) ++r;
  if (r == 0) {
    std::fill(out, out + int64_t{n} * m, T(0));
    return StatusOk;
  }
  for (int64_t j = 0; j < n; ++j) {
    for (int32_t p = 0; p < r; ++p) v[j * k + p] /= s[p];
  }
  kernel::gemm(CblasRowMajor, CblasNoTrans, CblasConjTrans, n, m, r, T(1), v, k, u, k, T(0), out, m);
  return StatusOk;
}

// In place: A (m x n) becomes its n x m pseudo-inverse; the sizes are swapped first.
template <class T>
Status PseudoInvMtrxH(ArrayHandle ah, RealOf<T> tolerance, ArrayHandle values, ArrayHandle vectors,
                      ArrayHandle work, ArrayHandle iwork) {
  const auto a = ReadMatrix<T>(ah);
  const int32_t m = a.rows, n = a.cols;
  if (m < 1 || n < 1) return StatusEmptyInput;
  int32_t* sizes = SizesOf(ah);
  sizes[0] = n;
  sizes[1] = m;
  return PseudoInverseCompute(a.data, m, n, tolerance, a.data, values, vectors, work, iwork);
}

}  // namespace ql
