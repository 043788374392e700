// Square linear systems A·x = y and A·X = Y for general, positive definite and
// triangular A.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>

#include "factor/column_major.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "kernel/lapack.h"

namespace ql {

namespace lineq {

// A row-major rows x cols array to column-major: the right-hand sides into the scratch
// and, with the sizes swapped, the solution back. A single row or column is copied as it is.
template <class T>
void Reorder(const T* src, int32_t rows, int32_t cols, T* dst) {
  if (rows == 1 || cols == 1) {
    std::copy(src, src + int64_t{rows} * cols, dst);
  } else {
    ToColumnMajor(src, rows, cols, dst);
  }
}

// Up to this order the general solver hands the kernel A itself (a transposing copy) and
// calls gesv once; above it, the copy as stored (no transposition) with getrf and
// getrs. For small matrices the kernel's fixed cost per call outweighs the transposition,
// and gesv is one call where getrf and getrs are two.
constexpr int32_t kTransposeUpTo = 32;

// Loads A into lu as the kernel is to read it: as stored (the kernel sees Aᵀ) or
// transposed (the kernel sees A).
template <class T>
void LoadMatrix(bool asStored, const T* a, int32_t n, T* lu) {
  if (asStored) {
    std::copy(a, a + int64_t{n} * n, lu);
  } else {
    ToColumnMajor(a, n, n, lu);
  }
}

// Factors the n x n copy in lu and solves for the right-hand sides in rhs. With the copy
// as the host stores it, the kernel sees Aᵀ: it factors that (pivoting on A's columns)
// and solves with the transpose of the factors. With a transposed copy it factors A
// itself (pivoting on A's rows), in one gesv. Both solve A·X = B.
template <class T>
lapack_int FactorAndSolve(bool asStored, int32_t n, int32_t k, T* lu, int32_t* ipiv, T* rhs) {
  if (!asStored) return kernel::gesv(n, k, lu, n, ipiv, rhs, n);
  const lapack_int info = kernel::getrf(n, n, lu, n, ipiv);
  if (info != 0) return info;
  return kernel::getrs('T', n, k, lu, n, ipiv, rhs, n);
}

// Whether an attempt overflowed. An infinite pivot divides what follows it down to zero,
// a finite but wrong solution, so the pivots are looked at as well as the solution, in
// which every other overflow ends as an infinity or a NaN. An exact zero pivot (info > 0)
// leaves no solution to look at.
template <class T>
bool Overflowed(lapack_int info, const T* lu, int32_t n, const T* rhs, int64_t nk) {
  bool pivotsFinite = true;
  for (int64_t i = 0; i < n; ++i) {
    const T pivot = lu[i * (n + 1)];
    pivotsFinite &= std::isfinite(std::real(pivot)) && std::isfinite(std::imag(pivot));
  }
  return !pivotsFinite || (info == 0 && !AllFinite(rhs, nk));
}

// The general path, with A already loaded into lu in the orientation `asStored` and the
// right-hand sides into rhs. Near overflow the two pivoting orders fail on different
// matrices, so when the first attempt overflows, A is factored again in the other
// orientation, from the untouched input. The first attempt that did not overflow decides:
// its solution, or its exact zero pivot as singularity (a zero pivot reached without
// overflow means A is singular to working precision, and the other orientation could
// only offer an answer without correct digits). When both overflow, the outcome is that
// of the first attempt, which is solved once more since the second overwrote it; the
// answer then is what a single attempt gives and the status is deterministic either way.
template <class T>
lapack_int GeneralSolve(bool asStored, const T* a, int32_t n, const T* b, int32_t k, T* lu, int32_t* ipiv,
                        T* rhs) {
  const int64_t nk = int64_t{n} * k;
  const lapack_int info = FactorAndSolve(asStored, n, k, lu, ipiv, rhs);
  if (info < 0 || !Overflowed(info, lu, n, rhs, nk)) return info;
  LoadMatrix(!asStored, a, n, lu);
  Reorder(b, n, k, rhs);
  const lapack_int other = FactorAndSolve(!asStored, n, k, lu, ipiv, rhs);
  if (other < 0 || !Overflowed(other, lu, n, rhs, nk)) return other;
  if (info > 0) return info;
  LoadMatrix(asStored, a, n, lu);
  Reorder(b, n, k, rhs);
  return FactorAndSolve(asStored, n, k, lu, ipiv, rhs);
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
  // The matrix copy starts on a cache line where the element alignment allows it, which
  // the kernel's factorization runs a little faster on; its piece holds the few elements
  // that may take.
  constexpr int64_t kLineElements = 64 / sizeof(T);
  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(triangular ? 0 : nn + kLineElements - 1);
  const auto rhsPiece = layout.template Add<T>(nk);
  Status sized = layout.Bind(valueScratch);
  int32_t* ipiv = nullptr;
  if (sized == StatusOk && matrixType == QuarzLinEqMatrixGeneral) {
    sized = pivotScratch ? ResizeVector<int32_t>(pivotScratch, n, &ipiv) : StatusKernelError;
  }
  if (sized != StatusOk) return triangular || AllAccepted(a, nn) ? sized : StatusNotFinite;
  T* scratch = layout.Get(copyPiece);
  if (const auto address = reinterpret_cast<uintptr_t>(scratch); address % sizeof(T) == 0) {
    scratch += (64 - address % 64) % 64 / sizeof(T);
  }
  T* rhs = layout.Get(rhsPiece);
  lineq::Reorder(b, n, k, rhs);

  lapack_int info;
  Status positive;
  switch (matrixType) {
    case QuarzLinEqMatrixGeneral: {
      // Large matrices are copied as stored, which saves a transposing copy (see
      // GeneralSolve). The other paths do not pivot, so they have no second order to try.
      const bool asStored = n > lineq::kTransposeUpTo;
      if (asStored ? !CopyAccepted(a, nn, scratch) : !AllAccepted(a, nn)) return StatusNotFinite;
      if (!asStored) ToColumnMajor(a, n, n, scratch);
      info = lineq::GeneralSolve(asStored, a, n, b, k, scratch, ipiv, rhs);
      positive = StatusSingular;
      break;
    }
    case QuarzLinEqMatrixPositiveDefinite:
      // Copied as stored: the kernel sees Aᵀ and its upper triangle is A's lower one.
      if (!CopyAccepted(a, nn, scratch)) return StatusNotFinite;
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
  lineq::Reorder(rhs, k, n, x);
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
