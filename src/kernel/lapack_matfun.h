// Typed overloads of the kernel routines behind the matrix functions that the other
// kernel headers do not wrap: gebal (balancing) and axpy. Same conventions as
// kernel/lapack.h and kernel/blas.h: the packages' prototypes, info returned, one call
// shape across the four element types.
#pragma once

#include <cblas.h>

#include "kernel/blas.h"
#include "kernel/lapack.h"

namespace ql::kernel {

// Balances a column-major n x n matrix in place: job 'S' scales only (A := D⁻¹·A·D,
// D = diag(scale), powers of the radix), 'P' permutes only, 'B' both. ilo and ihi are
// 1-based; scale holds n reals.
inline lapack_int gebal(char job, lapack_int n, float* a, lapack_int lda, lapack_int* ilo, lapack_int* ihi, float* scale) { lapack_int info; LAPACK_sgebal(&job, &n, a, &lda, ilo, ihi, scale, &info); return info; }
inline lapack_int gebal(char job, lapack_int n, double* a, lapack_int lda, lapack_int* ilo, lapack_int* ihi, double* scale) { lapack_int info; LAPACK_dgebal(&job, &n, a, &lda, ilo, ihi, scale, &info); return info; }
inline lapack_int gebal(char job, lapack_int n, cf* a, lapack_int lda, lapack_int* ilo, lapack_int* ihi, float* scale) { lapack_int info; LAPACK_cgebal(&job, &n, a, &lda, ilo, ihi, scale, &info); return info; }
inline lapack_int gebal(char job, lapack_int n, cd* a, lapack_int lda, lapack_int* ilo, lapack_int* ihi, double* scale) { lapack_int info; LAPACK_zgebal(&job, &n, a, &lda, ilo, ihi, scale, &info); return info; }

// y := alpha·x + y.
inline void axpy(blasint n, float alpha, const float* x, blasint incx, float* y, blasint incy) { cblas_saxpy(n, alpha, x, incx, y, incy); }
inline void axpy(blasint n, double alpha, const double* x, blasint incx, double* y, blasint incy) { cblas_daxpy(n, alpha, x, incx, y, incy); }
inline void axpy(blasint n, cf alpha, const cf* x, blasint incx, cf* y, blasint incy) { cblas_caxpy(n, &alpha, x, incx, y, incy); }
inline void axpy(blasint n, cd alpha, const cd* x, blasint incx, cd* y, blasint incy) { cblas_zaxpy(n, &alpha, x, incx, y, incy); }

}  // namespace ql::kernel
