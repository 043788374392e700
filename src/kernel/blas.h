// Typed overloads of the CBLAS routines the library uses. Nothing above this layer
// names a type prefix. Row-major layout and the CBLAS enum values are passed through.
// Sizes, increments and leading dimensions are the package's own blasint.
#pragma once

#include <cblas.h>

#include <complex>
#include <cstdint>

#include "kernel/entries.h"

namespace ql::kernel {

// Our sizes are int32 throughout; a 64-bit-integer build of the BLAS would need
// every size widened on the way in.
static_assert(sizeof(blasint) == sizeof(int32_t) && static_cast<blasint>(-1) < 0,
              "the BLAS must use 32-bit signed integers");

using cf = std::complex<float>;
using cd = std::complex<double>;

// x . y for real vectors.
inline float dot(blasint n, const float* x, blasint incx, const float* y, blasint incy) { return cblas_sdot(n, x, incx, y, incy); }
inline double dot(blasint n, const double* x, blasint incx, const double* y, blasint incy) { return cblas_ddot(n, x, incx, y, incy); }

// sum of conj(x[i]) * y[i].
inline cf dotc(blasint n, const cf* x, blasint incx, const cf* y, blasint incy) {
  cf r;
  cblas_cdotc_sub(n, x, incx, y, incy, &r);
  return r;
}
inline cd dotc(blasint n, const cd* x, blasint incx, const cd* y, blasint incy) {
  cd r;
  cblas_zdotc_sub(n, x, incx, y, incy, &r);
  return r;
}

// sum of |x[i]| (real types).
inline float asum(blasint n, const float* x, blasint incx) { return cblas_sasum(n, x, incx); }
inline double asum(blasint n, const double* x, blasint incx) { return cblas_dasum(n, x, incx); }

inline void scal(blasint n, float a, float* x, blasint incx) { cblas_sscal(n, a, x, incx); }
inline void scal(blasint n, double a, double* x, blasint incx) { cblas_dscal(n, a, x, incx); }
inline void scal(blasint n, cf a, cf* x, blasint incx) { cblas_cscal(n, &a, x, incx); }
inline void scal(blasint n, cd a, cd* x, blasint incx) { cblas_zscal(n, &a, x, incx); }

inline void copy(blasint n, const float* x, blasint incx, float* y, blasint incy) { cblas_scopy(n, x, incx, y, incy); }
inline void copy(blasint n, const double* x, blasint incx, double* y, blasint incy) { cblas_dcopy(n, x, incx, y, incy); }
inline void copy(blasint n, const cf* x, blasint incx, cf* y, blasint incy) { cblas_ccopy(n, x, incx, y, incy); }
inline void copy(blasint n, const cd* x, blasint incx, cd* y, blasint incy) { cblas_zcopy(n, x, incx, y, incy); }

inline void gemm(CBLAS_ORDER o, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, blasint m, blasint n, blasint k, float alpha,
                 const float* a, blasint lda, const float* b, blasint ldb, float beta, float* c, blasint ldc) {
  cblas_sgemm(o, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void gemm(CBLAS_ORDER o, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, blasint m, blasint n, blasint k, double alpha,
                 const double* a, blasint lda, const double* b, blasint ldb, double beta, double* c, blasint ldc) {
  cblas_dgemm(o, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void gemm(CBLAS_ORDER o, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, blasint m, blasint n, blasint k, cf alpha,
                 const cf* a, blasint lda, const cf* b, blasint ldb, cf beta, cf* c, blasint ldc) {
  cblas_cgemm(o, ta, tb, m, n, k, &alpha, a, lda, b, ldb, &beta, c, ldc);
}
inline void gemm(CBLAS_ORDER o, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, blasint m, blasint n, blasint k, cd alpha,
                 const cd* a, blasint lda, const cd* b, blasint ldb, cd beta, cd* c, blasint ldc) {
  cblas_zgemm(o, ta, tb, m, n, k, &alpha, a, lda, b, ldb, &beta, c, ldc);
}

inline void gemv(CBLAS_ORDER o, CBLAS_TRANSPOSE t, blasint m, blasint n, float alpha, const float* a, blasint lda,
                 const float* x, blasint incx, float beta, float* y, blasint incy) {
  cblas_sgemv(o, t, m, n, alpha, a, lda, x, incx, beta, y, incy);
}
inline void gemv(CBLAS_ORDER o, CBLAS_TRANSPOSE t, blasint m, blasint n, double alpha, const double* a, blasint lda,
                 const double* x, blasint incx, double beta, double* y, blasint incy) {
  cblas_dgemv(o, t, m, n, alpha, a, lda, x, incx, beta, y, incy);
}
inline void gemv(CBLAS_ORDER o, CBLAS_TRANSPOSE t, blasint m, blasint n, cf alpha, const cf* a, blasint lda,
                 const cf* x, blasint incx, cf beta, cf* y, blasint incy) {
  cblas_cgemv(o, t, m, n, &alpha, a, lda, x, incx, &beta, y, incy);
}
inline void gemv(CBLAS_ORDER o, CBLAS_TRANSPOSE t, blasint m, blasint n, cd alpha, const cd* a, blasint lda,
                 const cd* x, blasint incx, cd beta, cd* y, blasint incy) {
  cblas_zgemv(o, t, m, n, &alpha, a, lda, x, incx, &beta, y, incy);
}

// ---- The BLAS entry points over host arrays: symmetric, Hermitian and triangular
// products. Scalars by value as in gemm; the complex ones go on by pointer.

inline void symm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, blasint m, blasint n, float alpha, const float* a,
                 blasint lda, const float* b, blasint ldb, float beta, float* c, blasint ldc) {
  cblas_ssymm(o, sd, ul, m, n, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void symm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, blasint m, blasint n, double alpha, const double* a,
                 blasint lda, const double* b, blasint ldb, double beta, double* c, blasint ldc) {
  cblas_dsymm(o, sd, ul, m, n, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void symm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, blasint m, blasint n, cf alpha, const cf* a, blasint lda,
                 const cf* b, blasint ldb, cf beta, cf* c, blasint ldc) {
  cblas_csymm(o, sd, ul, m, n, &alpha, a, lda, b, ldb, &beta, c, ldc);
}
inline void symm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, blasint m, blasint n, cd alpha, const cd* a, blasint lda,
                 const cd* b, blasint ldb, cd beta, cd* c, blasint ldc) {
  cblas_zsymm(o, sd, ul, m, n, &alpha, a, lda, b, ldb, &beta, c, ldc);
}

inline void hemm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, blasint m, blasint n, cf alpha, const cf* a, blasint lda,
                 const cf* b, blasint ldb, cf beta, cf* c, blasint ldc) {
  cblas_chemm(o, sd, ul, m, n, &alpha, a, lda, b, ldb, &beta, c, ldc);
}
inline void hemm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, blasint m, blasint n, cd alpha, const cd* a, blasint lda,
                 const cd* b, blasint ldb, cd beta, cd* c, blasint ldc) {
  cblas_zhemm(o, sd, ul, m, n, &alpha, a, lda, b, ldb, &beta, c, ldc);
}

inline void trmm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint m, blasint n,
                 float alpha, const float* a, blasint lda, float* b, blasint ldb) {
  cblas_strmm(o, sd, ul, t, dg, m, n, alpha, a, lda, b, ldb);
}
inline void trmm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint m, blasint n,
                 double alpha, const double* a, blasint lda, double* b, blasint ldb) {
  cblas_dtrmm(o, sd, ul, t, dg, m, n, alpha, a, lda, b, ldb);
}
inline void trmm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint m, blasint n,
                 cf alpha, const cf* a, blasint lda, cf* b, blasint ldb) {
  cblas_ctrmm(o, sd, ul, t, dg, m, n, &alpha, a, lda, b, ldb);
}
inline void trmm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint m, blasint n,
                 cd alpha, const cd* a, blasint lda, cd* b, blasint ldb) {
  cblas_ztrmm(o, sd, ul, t, dg, m, n, &alpha, a, lda, b, ldb);
}

inline void symv(CBLAS_ORDER o, CBLAS_UPLO ul, blasint n, float alpha, const float* a, blasint lda, const float* x,
                 blasint incx, float beta, float* y, blasint incy) {
  cblas_ssymv(o, ul, n, alpha, a, lda, x, incx, beta, y, incy);
}
inline void symv(CBLAS_ORDER o, CBLAS_UPLO ul, blasint n, double alpha, const double* a, blasint lda, const double* x,
                 blasint incx, double beta, double* y, blasint incy) {
  cblas_dsymv(o, ul, n, alpha, a, lda, x, incx, beta, y, incy);
}

inline void hemv(CBLAS_ORDER o, CBLAS_UPLO ul, blasint n, cf alpha, const cf* a, blasint lda, const cf* x, blasint incx,
                 cf beta, cf* y, blasint incy) {
  cblas_chemv(o, ul, n, &alpha, a, lda, x, incx, &beta, y, incy);
}
inline void hemv(CBLAS_ORDER o, CBLAS_UPLO ul, blasint n, cd alpha, const cd* a, blasint lda, const cd* x, blasint incx,
                 cd beta, cd* y, blasint incy) {
  cblas_zhemv(o, ul, n, &alpha, a, lda, x, incx, &beta, y, incy);
}

inline void trmv(CBLAS_ORDER o, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint n, const float* a, blasint lda,
                 float* x, blasint incx) {
  cblas_strmv(o, ul, t, dg, n, a, lda, x, incx);
}
inline void trmv(CBLAS_ORDER o, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint n, const double* a, blasint lda,
                 double* x, blasint incx) {
  cblas_dtrmv(o, ul, t, dg, n, a, lda, x, incx);
}
inline void trmv(CBLAS_ORDER o, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint n, const cf* a, blasint lda,
                 cf* x, blasint incx) {
  cblas_ctrmv(o, ul, t, dg, n, a, lda, x, incx);
}
inline void trmv(CBLAS_ORDER o, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint n, const cd* a, blasint lda,
                 cd* x, blasint incx) {
  cblas_ztrmv(o, ul, t, dg, n, a, lda, x, incx);
}

// Triangular solves, for the complex types only (the Schur-form solvers work in complex
// arithmetic for every element type).
inline void trsv(CBLAS_ORDER o, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint n, const cf* a, blasint lda,
                 cf* x, blasint incx) {
  cblas_ctrsv(o, ul, t, dg, n, a, lda, x, incx);
}
inline void trsv(CBLAS_ORDER o, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint n, const cd* a, blasint lda,
                 cd* x, blasint incx) {
  cblas_ztrsv(o, ul, t, dg, n, a, lda, x, incx);
}
inline void trsm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint m, blasint n,
                 cf alpha, const cf* a, blasint lda, cf* b, blasint ldb) {
  cblas_ctrsm(o, sd, ul, t, dg, m, n, &alpha, a, lda, b, ldb);
}
inline void trsm(CBLAS_ORDER o, CBLAS_SIDE sd, CBLAS_UPLO ul, CBLAS_TRANSPOSE t, CBLAS_DIAG dg, blasint m, blasint n,
                 cd alpha, const cd* a, blasint lda, cd* b, blasint ldb) {
  cblas_ztrsm(o, sd, ul, t, dg, m, n, &alpha, a, lda, b, ldb);
}

}  // namespace ql::kernel
