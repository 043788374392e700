// Typed overloads of the CBLAS routines the library uses. Nothing above this layer
// names a type prefix. Row-major layout and the CBLAS enum values are passed through.
#pragma once

#include <cblas.h>

#include <complex>

namespace ql::kernel {

using cf = std::complex<float>;
using cd = std::complex<double>;

// x . y for real vectors.
inline float dot(int n, const float* x, int incx, const float* y, int incy) { return cblas_sdot(n, x, incx, y, incy); }
inline double dot(int n, const double* x, int incx, const double* y, int incy) { return cblas_ddot(n, x, incx, y, incy); }

// sum of conj(x[i]) * y[i].
inline cf dotc(int n, const cf* x, int incx, const cf* y, int incy) {
  cf r;
  cblas_cdotc_sub(n, x, incx, y, incy, &r);
  return r;
}
inline cd dotc(int n, const cd* x, int incx, const cd* y, int incy) {
  cd r;
  cblas_zdotc_sub(n, x, incx, y, incy, &r);
  return r;
}

// sum of |x[i]| (real types).
inline float asum(int n, const float* x, int incx) { return cblas_sasum(n, x, incx); }
inline double asum(int n, const double* x, int incx) { return cblas_dasum(n, x, incx); }

inline void scal(int n, float a, float* x, int incx) { cblas_sscal(n, a, x, incx); }
inline void scal(int n, double a, double* x, int incx) { cblas_dscal(n, a, x, incx); }
inline void scal(int n, cf a, cf* x, int incx) { cblas_cscal(n, &a, x, incx); }
inline void scal(int n, cd a, cd* x, int incx) { cblas_zscal(n, &a, x, incx); }

inline void copy(int n, const float* x, int incx, float* y, int incy) { cblas_scopy(n, x, incx, y, incy); }
inline void copy(int n, const double* x, int incx, double* y, int incy) { cblas_dcopy(n, x, incx, y, incy); }
inline void copy(int n, const cf* x, int incx, cf* y, int incy) { cblas_ccopy(n, x, incx, y, incy); }
inline void copy(int n, const cd* x, int incx, cd* y, int incy) { cblas_zcopy(n, x, incx, y, incy); }

inline void gemm(CBLAS_ORDER o, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, int m, int n, int k, float alpha,
                 const float* a, int lda, const float* b, int ldb, float beta, float* c, int ldc) {
  cblas_sgemm(o, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void gemm(CBLAS_ORDER o, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, int m, int n, int k, double alpha,
                 const double* a, int lda, const double* b, int ldb, double beta, double* c, int ldc) {
  cblas_dgemm(o, ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}
inline void gemm(CBLAS_ORDER o, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, int m, int n, int k, cf alpha,
                 const cf* a, int lda, const cf* b, int ldb, cf beta, cf* c, int ldc) {
  cblas_cgemm(o, ta, tb, m, n, k, &alpha, a, lda, b, ldb, &beta, c, ldc);
}
inline void gemm(CBLAS_ORDER o, CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, int m, int n, int k, cd alpha,
                 const cd* a, int lda, const cd* b, int ldb, cd beta, cd* c, int ldc) {
  cblas_zgemm(o, ta, tb, m, n, k, &alpha, a, lda, b, ldb, &beta, c, ldc);
}

inline void gemv(CBLAS_ORDER o, CBLAS_TRANSPOSE t, int m, int n, float alpha, const float* a, int lda,
                 const float* x, int incx, float beta, float* y, int incy) {
  cblas_sgemv(o, t, m, n, alpha, a, lda, x, incx, beta, y, incy);
}
inline void gemv(CBLAS_ORDER o, CBLAS_TRANSPOSE t, int m, int n, double alpha, const double* a, int lda,
                 const double* x, int incx, double beta, double* y, int incy) {
  cblas_dgemv(o, t, m, n, alpha, a, lda, x, incx, beta, y, incy);
}
inline void gemv(CBLAS_ORDER o, CBLAS_TRANSPOSE t, int m, int n, cf alpha, const cf* a, int lda,
                 const cf* x, int incx, cf beta, cf* y, int incy) {
  cblas_cgemv(o, t, m, n, &alpha, a, lda, x, incx, &beta, y, incy);
}
inline void gemv(CBLAS_ORDER o, CBLAS_TRANSPOSE t, int m, int n, cd alpha, const cd* a, int lda,
                 const cd* x, int incx, cd beta, cd* y, int incy) {
  cblas_zgemv(o, t, m, n, &alpha, a, lda, x, incx, &beta, y, incy);
}

}  // namespace ql::kernel
