// Square linear systems A·x = y and A·X = Y for general, positive definite and
// triangular A.
#pragma once

#include <cstdint>
#include <cstring>

#include "factor/column_major.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "kernel/lapack.h"

namespace ql {

namespace lineq {

// Copies count elements and tells whether every one passed the finiteness test: the copy
// the kernel needs anyway doubles as the scan, so A is read once instead of twice.
template <class T>
bool CopyAccepted(const T* src, int64_t count, T* dst) {
  bool ok = true;
  // No early exit, as in AllAccepted: the loop vectorizes and rejection is rare.
  for (int64_t i = 0; i < count; ++i) {
    const T v = src[i];
    ok &= AcceptedElement(v);
    dst[i] = v;
  }
  return ok;
}

}  // namespace lineq

// The solver shared by LinEqH, LinEqSetH and other families: A is a row-major n x n
// array, the k right-hand sides are the columns of the row-major n x k array b, and the
// n x k solution goes to x (row-major; it may be b itself or A's block). valueScratch
// receives the column-major copies the kernel works on, pivotScratch the pivots of the
// general path; the caller's frame empties both.
//
// The general and positive definite paths scan A while copying it into the scratch.
// Non-finite input still takes precedence over a scratch the host refuses to size: A
// is scanned on its own when sizing fails.
template <class T>
Status LinEqSolve(const T* a, int32_t n, const T* b, int32_t k, int32_t matrixType, T* x,
                  ArrayHandle valueScratch, ArrayHandle pivotScratch) {
  if (n < 1 || k < 1) return StatusEmptyInput;
  if (matrixType < QuarzLinEqMatrixGeneral || matrixType > QuarzLinEqMatrixUpper) return StatusBadOption;
  const bool triangular = matrixType >= QuarzLinEqMatrixLower;
  const int64_t nn = int64_t{n} * n, nk = int64_t{n} * k;
  // No host array holds more than INT32_MAX elements: sizes that claim more cannot
  // describe the block behind them, which is then not read at all.
  if (!HostCountFits(nn) || !HostCountFits(nk)) return StatusOutOfMemory;
  if (triangular && !TriangleAccepted(a, n, matrixType == QuarzLinEqMatrixLower)) return StatusNotFinite;
  if (!AllAccepted(b, nk)) return StatusNotFinite;

  // The scratch holds the matrix copy (not for the triangular paths) and then the
  // right-hand sides; together they must fit the host's int32 element count.
  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(triangular ? 0 : nn);
  const auto rhsPiece = layout.template Add<T>(nk);
  Status sized = layout.Bind(valueScratch);
  int32_t* ipiv = nullptr;
  if (sized == StatusOk && matrixType == QuarzLinEqMatrixGeneral) {
    sized = pivotScratch ? ResizeVector<int32_t>(pivotScratch, n, &ipiv) : StatusKernelError;
  }
  if (sized != StatusOk) return triangular || AllAccepted(a, nn) ? sized : StatusNotFinite;
  T* scratch = layout.Get(copyPiece);
  T* rhs = layout.Get(rhsPiece);
  // The right-hand sides go column-major whatever the path (for k = 1 a plain copy).
  ToColumnMajor(b, n, k, rhs);

  lapack_int info;
  Status positive;
  switch (matrixType) {
    case QuarzLinEqMatrixGeneral:
      // Copied as stored, the kernel sees Aᵀ: it factors that (pivoting on A's columns)
      // and solves with the transpose of the factors, which is A·X = B.
      if (!lineq::CopyAccepted(a, nn, scratch)) return StatusNotFinite;
      info = kernel::getrf(n, n, scratch, n, ipiv);
      if (info == 0) info = kernel::getrs('T', n, k, scratch, n, ipiv, rhs, n);
      positive = StatusSingular;
      break;
    case QuarzLinEqMatrixPositiveDefinite:
      // Copied as stored: the kernel sees Aᵀ and its upper triangle is A's lower one.
      if (!lineq::CopyAccepted(a, nn, scratch)) return StatusNotFinite;
      info = kernel::posv('U', n, k, scratch, n, rhs, n);
      positive = StatusNotPositiveDefinite;
      break;
    default:
      // A's own block read as Aᵀ: 'U' is the host's lower triangle, and solving with the
      // transpose of that gives A·X = B.
      info = kernel::trtrs(matrixType == QuarzLinEqMatrixLower ? 'U' : 'L', 'T', 'N', n, k, a, n, rhs, n);
      positive = StatusSingular;
      break;
  }
  if (Status s = FromInfo(info, positive); s != StatusOk) return s;
  ToColumnMajor(rhs, k, n, x);
  return StatusOk;
}

template <class T>
Status LinEqH(ArrayHandle ah, ArrayHandle yh, int32_t matrixType, ArrayHandle xh,
              ArrayHandle valueScratch, ArrayHandle pivotScratch) {
  const auto a = ReadMatrix<T>(ah);
  const int32_t n = a.rows;
  if (n < 1) return StatusEmptyInput;
  if (a.cols != n) return StatusNotSquare;
  if (ReadVector<T>(yh).n != n) return StatusSizeMismatch;
  T* x;
  if (Status s = ResizeVector<T>(xh, n, &x); s != StatusOk) return s;
  return LinEqSolve(ReadMatrix<T>(ah).data, n, ReadVector<T>(yh).data, 1, matrixType, x,
                    valueScratch, pivotScratch);
}

template <class T>
Status LinEqSetH(ArrayHandle ah, ArrayHandle yh, int32_t matrixType, ArrayHandle xh,
                 ArrayHandle valueScratch, ArrayHandle pivotScratch) {
  const auto a = ReadMatrix<T>(ah);
  const auto y = ReadMatrix<T>(yh);
  const int32_t n = a.rows, k = y.cols;
  if (n < 1 || k < 1) return StatusEmptyInput;
  if (a.cols != n) return StatusNotSquare;
  if (y.rows != n) return StatusSizeMismatch;
  T* x;
  if (Status s = ResizeMatrix<T>(xh, n, k, &x); s != StatusOk) return s;
  return LinEqSolve(ReadMatrix<T>(ah).data, n, ReadMatrix<T>(yh).data, k, matrixType, x,
                    valueScratch, pivotScratch);
}

}  // namespace ql
