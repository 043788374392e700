// The matrix-matrix koblas_ entry points: gemm, symm, hemm and trmm over host
// sub-matrices. Each runs the checking mode when its flag is 1 (every operand validated
// against its host array, an empty result sized), then the dispatch, which always
// applies, and calls the kernel once.
//
// gemm checks its leading dimensions against the row-major row lengths whatever the
// layout, as its hosts rely on. The checking mode then also checks a column-major call's
// column-major walk, so that no call it accepts leaves the host blocks. symm, hemm and
// trmm check each operand by the walk of its own layout, as the kernel does. Every entry
// sizes an empty C the same way, by the row-major shape of the m x n result: m + cRow
// host rows of ldc elements (n + cCol when ldc < 1). An empty product (m or n 0, or an
// empty operand's walk) needs no element of any operand: it is a no-op in checking mode.
// The dispatch then passes every leading dimension through the kernel's own bound
// (KernelLeading), so no call reaches the kernel's argument report.
#pragma once

#include "blas/operands.h"
#include "kernel/blas.h"

namespace ql {

namespace blas {

// gemm's stored shape: rows x cols as the row-major bounds read it, and for column-major
// calls the transposed walk as well.
template <class T>
Status GemmOperandFits(const MatrixView<T>& M, int32_t row, int32_t col, int32_t rows, int32_t cols, int32_t ld,
                       int32_t layout) {
  if (const Status s = MatrixFits(M, row, col, Walk{rows, cols}, ld); s != StatusOk) return s;
  const Walk column{cols, rows};
  return layout == CblasColMajor && !Empty(column) ? MatrixFits(M, row, col, column, ld) : StatusOk;
}

}  // namespace blas

// C := alpha op(A) op(B) + beta C. Inlined into its exports, so that its 21 arguments
// are not passed a second time through the stack: small products are called often.
template <class T>
[[gnu::always_inline]] inline Status koblas_gemm(ArrayHandle Ah, ArrayHandle Bh, ArrayHandle Ch, const T* alpha,
                                                 const T* beta, int32_t m, int32_t n, int32_t k, int32_t transA,
                                                 int32_t transB, int32_t aRow, int32_t aCol, int32_t bRow, int32_t bCol,
                                                 int32_t cRow, int32_t cCol, int32_t lda, int32_t ldb, int32_t ldc,
                                                 int32_t layout, int32_t check) {
  using namespace blas;
  const auto A = ReadMatrix<T>(Ah), B = ReadMatrix<T>(Bh);
  auto C = ReadMatrix<T>(Ch);
  const bool plainA = transA == CblasNoTrans, plainB = transB == CblasNoTrans;
  if (check == kCheck) {
    if (A.rows < 0 || A.cols < 0 || B.rows < 0 || B.cols < 0 || C.rows < 0 || C.cols < 0) return StatusEmptyInput;
    if (m < 0 || n < 0) return StatusBlasShape;
    if (k < 0) return StatusInnerDimMismatch;
    if (const Status s = MatrixOffset(C, cRow, cCol); s != StatusOk) return s;
    if (C.rows == 0 || C.cols == 0) {
      if (const Status s = SizeEmptyMatrix(Ch, C, cRow, cCol, Walk{m, n}, ldc, beta); s != StatusOk) return s;
    }
    if (const Status s = GemmOperandFits(C, cRow, cCol, m, n, ldc, layout); s != StatusOk) return s;
    if (m == 0 || n == 0 || k == 0) return StatusOk;
    if (A.rows == 0 || A.cols == 0 || B.rows == 0 || B.cols == 0) return StatusEmptyInput;
    if (aRow < 0 || aCol < 0 || bRow < 0 || bCol < 0 || aCol >= A.cols || aRow >= A.rows || bCol >= B.cols ||
        bRow >= B.rows) {
      return StatusBlasArgument;
    }
    if (const Status s = GemmOperandFits(A, aRow, aCol, plainA ? m : k, plainA ? k : m, lda, layout); s != StatusOk) {
      return s;
    }
    if (const Status s = GemmOperandFits(B, bRow, bCol, plainB ? k : n, plainB ? n : k, ldb, layout); s != StatusOk) {
      return s;
    }
  }
  if (!IsTranspose(transA) || !IsTranspose(transB) || !IsLayout(layout)) return StatusBadOption;
  if (m < 0 || n < 0) return StatusBlasShape;
  if (k < 0) return StatusInnerDimMismatch;
  if (n > ldc || (plainA ? k : m) > lda || (plainB ? n : k) > ldb) return StatusArrayTooSmall;
  if (Status s = KernelLeading(lda, WalkOf(layout, plainA ? m : k, plainA ? k : m)); s != StatusOk ||
      (s = KernelLeading(ldb, WalkOf(layout, plainB ? k : n, plainB ? n : k))) != StatusOk ||
      (s = KernelLeading(ldc, WalkOf(layout, m, n))) != StatusOk) {
    return s;
  }
  T *a, *b, *c;
  if (Status s = At(A, aRow, aCol, a); s != StatusOk || (s = At(B, bRow, bCol, b)) != StatusOk ||
                                       (s = At(C, cRow, cCol, c)) != StatusOk) {
    return s;
  }
  if (!alpha || !beta) return StatusKernelError;
  kernel::gemm(CBLAS_ORDER(layout), CBLAS_TRANSPOSE(transA), CBLAS_TRANSPOSE(transB), m, n, k, *alpha, a, lda, b, ldb,
               *beta, c, ldc);
  return StatusOk;
}

namespace blas {

// The operand checks of a product with one square operand A of order ka = m (left) or n
// (right) and an m x n operand B: emptiness, offsets and fits of A and B, for a non-empty product.
template <class T>
Status SideOperands(const MatrixView<T>& A, const MatrixView<T>& B, int32_t m, int32_t n, int32_t ka, int32_t aRow,
                    int32_t aCol, int32_t bRow, int32_t bCol, int32_t lda, int32_t ldb, int32_t layout) {
  if (A.rows == 0 || A.cols == 0 || B.rows == 0 || B.cols == 0) return StatusEmptyInput;
  if (const Status s = MatrixOffset(A, aRow, aCol); s != StatusOk) return s;
  if (const Status s = MatrixOffset(B, bRow, bCol); s != StatusOk) return s;
  if (const Status s = MatrixFits(A, aRow, aCol, Walk{ka, ka}, lda); s != StatusOk) return s;
  return MatrixFits(B, bRow, bCol, WalkOf(layout, m, n), ldb);
}

// symm and hemm: C := alpha A B + beta C (left) or alpha B A + beta C (right), A
// symmetric or Hermitian with only its `uplo` triangle read.
template <class T, class Kernel>
Status SymmetricProduct(Kernel call, ArrayHandle Ah, ArrayHandle Bh, ArrayHandle Ch, const T* alpha, const T* beta,
                        int32_t m, int32_t n, int32_t side, int32_t uplo, int32_t aRow, int32_t aCol, int32_t bRow,
                        int32_t bCol, int32_t cRow, int32_t cCol, int32_t lda, int32_t ldb, int32_t ldc, int32_t layout,
                        int32_t check) {
  const auto A = ReadMatrix<T>(Ah), B = ReadMatrix<T>(Bh);
  auto C = ReadMatrix<T>(Ch);
  const int32_t ka = side == CblasLeft ? m : n;
  const Walk bc = WalkOf(layout, m, n);
  if (check == kCheck) {
    if (A.rows < 0 || A.cols < 0 || B.rows < 0 || B.cols < 0 || C.rows < 0 || C.cols < 0) return StatusEmptyInput;
    if (m < 0 || n < 0) return StatusBlasShape;
    if (const Status s = MatrixOffset(C, cRow, cCol); s != StatusOk) return s;
    if (C.rows == 0 || C.cols == 0) {
      if (const Status s = SizeEmptyMatrix(Ch, C, cRow, cCol, Walk{m, n}, ldc, beta); s != StatusOk) return s;
    }
    if (m == 0 || n == 0) return StatusOk;
    if (const Status s = MatrixFits(C, cRow, cCol, bc, ldc); s != StatusOk) return s;
    if (const Status s = SideOperands(A, B, m, n, ka, aRow, aCol, bRow, bCol, lda, ldb, layout); s != StatusOk) {
      return s;
    }
  }
  if (!IsSide(side) || !IsUplo(uplo) || !IsLayout(layout)) return StatusBadOption;
  if (m < 0 || n < 0) return StatusBlasShape;
  if (Status s = KernelLeading(lda, Walk{ka, ka}); s != StatusOk || (s = KernelLeading(ldb, bc)) != StatusOk ||
                                                   (s = KernelLeading(ldc, bc)) != StatusOk) {
    return s;
  }
  T *a, *b, *c;
  if (Status s = At(A, aRow, aCol, a); s != StatusOk || (s = At(B, bRow, bCol, b)) != StatusOk ||
                                       (s = At(C, cRow, cCol, c)) != StatusOk) {
    return s;
  }
  if (!alpha || !beta) return StatusKernelError;
  call(CBLAS_ORDER(layout), CBLAS_SIDE(side), CBLAS_UPLO(uplo), m, n, *alpha, a, lda, b, ldb, *beta, c, ldc);
  return StatusOk;
}

}  // namespace blas

template <class T>
Status koblas_symm(ArrayHandle Ah, ArrayHandle Bh, ArrayHandle Ch, const T* alpha, const T* beta, int32_t m, int32_t n,
                   int32_t side, int32_t uplo, int32_t aRow, int32_t aCol, int32_t bRow, int32_t bCol, int32_t cRow,
                   int32_t cCol, int32_t lda, int32_t ldb, int32_t ldc, int32_t layout, int32_t check) {
  return blas::SymmetricProduct<T>([](auto... args) { kernel::symm(args...); }, Ah, Bh, Ch, alpha, beta, m, n, side,
                                   uplo, aRow, aCol, bRow, bCol, cRow, cCol, lda, ldb, ldc, layout, check);
}

template <class T>
Status koblas_hemm(ArrayHandle Ah, ArrayHandle Bh, ArrayHandle Ch, const T* alpha, const T* beta, int32_t m, int32_t n,
                   int32_t side, int32_t uplo, int32_t aRow, int32_t aCol, int32_t bRow, int32_t bCol, int32_t cRow,
                   int32_t cCol, int32_t lda, int32_t ldb, int32_t ldc, int32_t layout, int32_t check) {
  return blas::SymmetricProduct<T>([](auto... args) { kernel::hemm(args...); }, Ah, Bh, Ch, alpha, beta, m, n, side,
                                   uplo, aRow, aCol, bRow, bCol, cRow, cCol, lda, ldb, ldc, layout, check);
}

// B := alpha op(A) B (left) or alpha B op(A) (right), A triangular with only its `uplo`
// triangle read (its diagonal taken as ones when diag is unit). B is read and written in
// place, so an empty B is not sized: it is an empty operand.
template <class T>
Status koblas_trmm(ArrayHandle Ah, ArrayHandle Bh, const T* alpha, int32_t m, int32_t n, int32_t side, int32_t uplo,
                   int32_t transA, int32_t diag, int32_t aRow, int32_t aCol, int32_t bRow, int32_t bCol, int32_t lda,
                   int32_t ldb, int32_t layout, int32_t check) {
  using namespace blas;
  const auto A = ReadMatrix<T>(Ah), B = ReadMatrix<T>(Bh);
  const int32_t ka = side == CblasLeft ? m : n;
  if (check == kCheck) {
    if (A.rows < 0 || A.cols < 0 || B.rows < 0 || B.cols < 0) return StatusEmptyInput;
    if (m < 0 || n < 0) return StatusBlasShape;
    if (m == 0 || n == 0) return StatusOk;
    if (const Status s = SideOperands(A, B, m, n, ka, aRow, aCol, bRow, bCol, lda, ldb, layout); s != StatusOk) {
      return s;
    }
  }
  if (!IsSide(side) || !IsUplo(uplo) || !IsTranspose(transA) || !IsDiag(diag) || !IsLayout(layout)) {
    return StatusBadOption;
  }
  if (m < 0 || n < 0) return StatusBlasShape;
  if (Status s = KernelLeading(lda, Walk{ka, ka}); s != StatusOk ||
                                                   (s = KernelLeading(ldb, WalkOf(layout, m, n))) != StatusOk) {
    return s;
  }
  T *a, *b;
  if (Status s = At(A, aRow, aCol, a); s != StatusOk || (s = At(B, bRow, bCol, b)) != StatusOk) return s;
  if (!alpha) return StatusKernelError;
  kernel::trmm(CBLAS_ORDER(layout), CBLAS_SIDE(side), CBLAS_UPLO(uplo), CBLAS_TRANSPOSE(transA), CBLAS_DIAG(diag), m, n,
               *alpha, a, lda, b, ldb);
  return StatusOk;
}

}  // namespace ql
