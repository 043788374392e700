// Determinant of a square host matrix: by LU, by Cholesky, or from the diagonal of a
// triangular matrix.
#pragma once

#include <cstdint>
#include <cstring>

#include "frame/array.h"
#include "frame/scalar.h"
#include "kernel/lapack.h"

namespace ql {

namespace det {

// Product of the n diagonal entries of a square n x n block (stride n + 1), formed in
// order from 1 without rescaling: it may overflow or underflow.
template <class T>
T DiagonalProduct(const T* a, int32_t n) {
  const int64_t step = int64_t{n} + 1;
  T p(1);
  for (int32_t i = 0; i < n; ++i) p *= a[i * step];
  return p;
}

// getrf on a square column-major block; 20003 for an exact zero pivot.
template <class T>
Status LUWrapper(T* a, int32_t n, int32_t* ipiv) {
  if (n < 1) return StatusEmptyInput;
  return FromInfo(kernel::getrf(n, n, a, n, ipiv), WarnSingular);
}

// Copies A as stored: the kernel then works on Aᵀ, which has the same determinant.
template <class T>
Status CopyToWork(const T* a, int32_t n, ArrayHandle work, T** copy) {
  if (!work) return StatusKernelError;
  // n * n may exceed the host's int32 element count: ResizeVector refuses it unasked.
  if (Status s = ResizeVector<T>(work, int64_t{n} * n, copy); s != StatusOk) return s;
  std::memcpy(static_cast<void*>(*copy), a, sizeof(T) * size_t(n) * size_t(n));
  return StatusOk;
}

template <class T>
Status General(const T* a, int32_t n, T* result, ArrayHandle work, ArrayHandle iwork) {
  T* f;
  if (Status s = CopyToWork(a, n, work, &f); s != StatusOk) return s;
  if (!iwork) return StatusKernelError;
  int32_t* ipiv;
  if (Status s = ResizeVector<int32_t>(iwork, n, &ipiv); s != StatusOk) return s;
  const Status s = LUWrapper(f, n, ipiv);
  if (s == WarnSingular) return Store(result, T(0));
  if (s != StatusOk) return s;
  bool odd = false;
  for (int32_t i = 0; i < n; ++i) odd ^= ipiv[i] != i + 1;
  const T d = DiagonalProduct(f, n);
  return Store(result, odd ? -d : d);
}

template <class T>
Status PositiveDefinite(const T* a, int32_t n, T* result, ArrayHandle work) {
  T* f;
  if (Status s = CopyToWork(a, n, work, &f); s != StatusOk) return s;
  if (Status s = FromInfo(kernel::potrf('U', n, f, n), StatusNotPositiveDefinite); s != StatusOk) return s;
  // The factor's diagonal is real and positive.
  const int64_t step = int64_t{n} + 1;
  RealOf<T> p = 1;
  for (int32_t i = 0; i < n; ++i) p *= std::real(f[i * step]);
  return Store(result, T(p * p));
}

}  // namespace det

// Orders 1 and 2 of the general and positive definite types use the closed forms and
// leave the work handles alone; the triangular types never use them.
template <class T>
Status DeterminantH(ArrayHandle ah, int32_t matrixType, T* result, ArrayHandle work, ArrayHandle iwork) {
  const auto a = ReadMatrix<T>(ah);
  if (a.rows < 1 || a.cols < 1) return StatusEmptyInput;
  if (a.rows != a.cols) return StatusNotSquare;
  const int32_t n = a.rows;
  const T* m = a.data;
  switch (matrixType) {
    case QuarzDeterminantMatrixUpper:
    case QuarzDeterminantMatrixLower:
      return Store(result, det::DiagonalProduct(m, n));
    case QuarzDeterminantMatrixGeneral:
    case QuarzDeterminantMatrixPositiveDefinite:
      if (n == 1) return Store(result, m[0]);
      if (n == 2) return Store(result, T(m[0] * m[3] - m[1] * m[2]));
      return matrixType == QuarzDeterminantMatrixGeneral ? det::General(m, n, result, work, iwork)
                                      : det::PositiveDefinite(m, n, result, work);
    default:
      return StatusBadOption;
  }
}

}  // namespace ql
