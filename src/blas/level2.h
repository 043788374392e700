// The matrix-vector koblas_ entry points: gemv, symv, hemv and trmv over a host
// sub-matrix and host vectors addressed by an offset and an increment (negative
// increments walk backwards from the far end, as the kernel does). Each runs the checking
// mode when its flag is 1, then the dispatch, which always applies, and calls the kernel
// once.
//
// gemv checks lda against the row length n whatever the layout, as its hosts rely on;
// for a column-major call its checking mode also checks the column-major walk, so that
// an accepted call stays inside the host block. symv, hemv and trmv have a square A, for
// which both layouts walk alike. All four take their arguments in one order: handles,
// alpha and beta, options, increments, sizes, offsets, lda, layout, check. The dispatch
// passes lda through the kernel's own bound (KernelLeading), so no call, checked or
// trusted, reaches the kernel's argument report.
#pragma once

#include "blas/operands.h"
#include "kernel/blas.h"

namespace ql {

namespace blas {

// A and x of a product that is not empty: both non-empty, increments non-zero, offsets
// inside, x holding lx elements, then A by `aFits`.
template <class T, class AFits>
Status MatVecOperands(const MatrixView<T>& A, const VectorView<T>& x, int32_t aRow, int32_t aCol, int32_t xOff,
                      int32_t incx, bool zeroIncy, int32_t lx, AFits aFits) {
  if (A.rows == 0 || A.cols == 0 || x.n == 0) return StatusEmptyInput;
  if (incx == 0 || zeroIncy) return StatusZeroParameter;
  if (xOff < 0 || xOff >= x.n) return StatusBlasArgument;
  if (const Status s = MatrixOffset(A, aRow, aCol); s != StatusOk) return s;
  if (const Status s = VectorFits(x, xOff, incx, lx); s != StatusOk) return s;
  return aFits();
}

// The result vector y of ly elements: its offset, its sizing when empty, its fit.
template <class T>
Status ResultVector(ArrayHandle yh, VectorView<T>& y, int32_t yOff, int32_t incy, int32_t ly, const T*& beta) {
  if (yOff < 0) return StatusBlasArgument;
  if (y.n == 0) {
    if (const Status s = SizeEmptyVector(yh, y, yOff, incy, ly, beta); s != StatusOk) return s;
  }
  if (yOff >= y.n) return StatusBlasArgument;
  return VectorFits(y, yOff, incy, ly);
}

}  // namespace blas

// y := alpha op(A) x + beta y for an m x n A.
template <class T>
Status koblas_gemv(ArrayHandle Ah, ArrayHandle xh, ArrayHandle yh, const T* alpha, const T* beta, int32_t trans,
                   int32_t incx, int32_t incy, int32_t m, int32_t n, int32_t aRow, int32_t aCol, int32_t xOff,
                   int32_t yOff, int32_t lda, int32_t layout, int32_t check) {
  using namespace blas;
  const auto A = ReadMatrix<T>(Ah);
  const auto x = ReadVector<T>(xh);
  auto y = ReadVector<T>(yh);
  if (check == kCheck) {
    const bool plain = trans == CblasNoTrans;
    if (x.n < 0 || A.rows < 0 || A.cols < 0 || y.n < 0) return StatusEmptyInput;
    if (m < 0 || n < 0) return StatusBlasShape;
    if (m == 0 || n == 0) return StatusOk;
    const auto aFits = [&] {
      // The bound the row-major walk sets on the block, without lda >= n (the dispatch's).
      if (const Status s = BlockHolds(A, aRow, aCol, Walk{m, n}, lda); s != StatusOk) return s;
      return layout == CblasColMajor ? MatrixFits(A, aRow, aCol, Walk{n, m}, lda) : StatusOk;
    };
    if (const Status s = MatVecOperands(A, x, aRow, aCol, xOff, incx, incy == 0, plain ? n : m, aFits); s != StatusOk) {
      return s;
    }
    if (const Status s = ResultVector(yh, y, yOff, incy, plain ? m : n, beta); s != StatusOk) return s;
  }
  if (!IsTranspose(trans) || !IsLayout(layout)) return StatusBadOption;
  if (lda < n) return StatusArrayTooSmall;
  if (incx == 0 || incy == 0) return StatusZeroParameter;
  if (m < 0 || n < 0) return StatusBlasShape;
  if (const Status s = KernelLeading(lda, WalkOf(layout, m, n)); s != StatusOk) return s;
  T *a, *px, *py;
  if (Status s = At(A, aRow, aCol, a); s != StatusOk || (s = At(x, xOff, px)) != StatusOk ||
                                       (s = At(y, yOff, py)) != StatusOk) {
    return s;
  }
  if (!alpha || !beta) return StatusKernelError;
  kernel::gemv(CBLAS_ORDER(layout), CBLAS_TRANSPOSE(trans), m, n, *alpha, a, lda, px, incx, *beta, py, incy);
  return StatusOk;
}

namespace blas {

// symv and hemv: y := alpha A x + beta y, A of order n, symmetric or Hermitian with only
// its `uplo` triangle read.
template <class T, class Kernel>
Status SymmetricMatVec(Kernel call, ArrayHandle Ah, ArrayHandle xh, ArrayHandle yh, const T* alpha, const T* beta,
                       int32_t uplo, int32_t incx, int32_t incy, int32_t n, int32_t aRow, int32_t aCol, int32_t xOff,
                       int32_t yOff, int32_t lda, int32_t layout, int32_t check) {
  const auto A = ReadMatrix<T>(Ah);
  const auto x = ReadVector<T>(xh);
  auto y = ReadVector<T>(yh);
  if (check == kCheck) {
    if (x.n < 0 || A.rows < 0 || A.cols < 0 || y.n < 0) return StatusEmptyInput;
    if (n < 0) return StatusBlasShape;
    if (n == 0) return StatusOk;
    const auto aFits = [&] { return MatrixFits(A, aRow, aCol, Walk{n, n}, lda); };
    if (const Status s = MatVecOperands(A, x, aRow, aCol, xOff, incx, incy == 0, n, aFits); s != StatusOk) return s;
    if (const Status s = ResultVector(yh, y, yOff, incy, n, beta); s != StatusOk) return s;
  }
  if (!IsUplo(uplo) || !IsLayout(layout)) return StatusBadOption;
  if (n < 0) return StatusBlasShape;
  if (const Status s = KernelLeading(lda, Walk{n, n}); s != StatusOk) return s;
  if (incx == 0 || incy == 0) return StatusZeroParameter;
  T *a, *px, *py;
  if (Status s = At(A, aRow, aCol, a); s != StatusOk || (s = At(x, xOff, px)) != StatusOk ||
                                       (s = At(y, yOff, py)) != StatusOk) {
    return s;
  }
  if (!alpha || !beta) return StatusKernelError;
  call(CBLAS_ORDER(layout), CBLAS_UPLO(uplo), n, *alpha, a, lda, px, incx, *beta, py, incy);
  return StatusOk;
}

}  // namespace blas

template <class T>
Status koblas_symv(ArrayHandle Ah, ArrayHandle xh, ArrayHandle yh, const T* alpha, const T* beta, int32_t uplo,
                   int32_t incx, int32_t incy, int32_t n, int32_t aRow, int32_t aCol, int32_t xOff, int32_t yOff,
                   int32_t lda, int32_t layout, int32_t check) {
  return blas::SymmetricMatVec<T>([](auto... args) { kernel::symv(args...); }, Ah, xh, yh, alpha, beta, uplo, incx,
                                  incy, n, aRow, aCol, xOff, yOff, lda, layout, check);
}

template <class T>
Status koblas_hemv(ArrayHandle Ah, ArrayHandle xh, ArrayHandle yh, const T* alpha, const T* beta, int32_t uplo,
                   int32_t incx, int32_t incy, int32_t n, int32_t aRow, int32_t aCol, int32_t xOff, int32_t yOff,
                   int32_t lda, int32_t layout, int32_t check) {
  return blas::SymmetricMatVec<T>([](auto... args) { kernel::hemv(args...); }, Ah, xh, yh, alpha, beta, uplo, incx,
                                  incy, n, aRow, aCol, xOff, yOff, lda, layout, check);
}

// x := op(A) x, A triangular of order n with only its `uplo` triangle read (its diagonal
// taken as ones when diag is unit). x is read and written in place, so an empty x is not
// sized: it is an empty operand.
template <class T>
Status koblas_trmv(ArrayHandle Ah, ArrayHandle xh, int32_t uplo, int32_t trans, int32_t diag, int32_t incx, int32_t n,
                   int32_t aRow, int32_t aCol, int32_t xOff, int32_t lda, int32_t layout, int32_t check) {
  using namespace blas;
  const auto A = ReadMatrix<T>(Ah);
  const auto x = ReadVector<T>(xh);
  if (check == kCheck) {
    if (x.n < 0 || A.rows < 0 || A.cols < 0) return StatusEmptyInput;
    if (n < 0) return StatusBlasShape;
    if (n == 0) return StatusOk;
    const auto aFits = [&] { return MatrixFits(A, aRow, aCol, Walk{n, n}, lda); };
    if (const Status s = MatVecOperands(A, x, aRow, aCol, xOff, incx, false, n, aFits); s != StatusOk) return s;
  }
  if (!IsUplo(uplo) || !IsTranspose(trans) || !IsDiag(diag) || !IsLayout(layout)) return StatusBadOption;
  if (n < 0) return StatusBlasShape;
  if (const Status s = KernelLeading(lda, Walk{n, n}); s != StatusOk) return s;
  if (incx == 0) return StatusZeroParameter;
  T *a, *px;
  if (Status s = At(A, aRow, aCol, a); s != StatusOk || (s = At(x, xOff, px)) != StatusOk) return s;
  kernel::trmv(CBLAS_ORDER(layout), CBLAS_UPLO(uplo), CBLAS_TRANSPOSE(trans), CBLAS_DIAG(diag), n, a, lda, px, incx);
  return StatusOk;
}

}  // namespace ql
