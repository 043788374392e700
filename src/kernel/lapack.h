// Typed overloads of the LAPACK routines the library uses, on the prototypes of the
// package's own lapack.h (which also passes the hidden Fortran string lengths).
// Every routine returns its info value.
#pragma once

#include <complex>

#define lapack_complex_float std::complex<float>
#define lapack_complex_double std::complex<double>
#include <lapack.h>

namespace ql::kernel {

using cf = std::complex<float>;
using cd = std::complex<double>;

// LU with partial pivoting of a column-major m x n matrix; ipiv is 1-based.
inline int getrf(int m, int n, float* a, int lda, int* ipiv) { int info; LAPACK_sgetrf(&m, &n, a, &lda, ipiv, &info); return info; }
inline int getrf(int m, int n, double* a, int lda, int* ipiv) { int info; LAPACK_dgetrf(&m, &n, a, &lda, ipiv, &info); return info; }
inline int getrf(int m, int n, cf* a, int lda, int* ipiv) { int info; LAPACK_cgetrf(&m, &n, a, &lda, ipiv, &info); return info; }
inline int getrf(int m, int n, cd* a, int lda, int* ipiv) { int info; LAPACK_zgetrf(&m, &n, a, &lda, ipiv, &info); return info; }

// Cholesky factor of a column-major matrix, triangle 'U' or 'L'.
inline int potrf(char uplo, int n, float* a, int lda) { int info; LAPACK_spotrf(&uplo, &n, a, &lda, &info); return info; }
inline int potrf(char uplo, int n, double* a, int lda) { int info; LAPACK_dpotrf(&uplo, &n, a, &lda, &info); return info; }
inline int potrf(char uplo, int n, cf* a, int lda) { int info; LAPACK_cpotrf(&uplo, &n, a, &lda, &info); return info; }
inline int potrf(char uplo, int n, cd* a, int lda) { int info; LAPACK_zpotrf(&uplo, &n, a, &lda, &info); return info; }

// General solve A X = B (column-major).
inline int gesv(int n, int nrhs, float* a, int lda, int* ipiv, float* b, int ldb) { int info; LAPACK_sgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline int gesv(int n, int nrhs, double* a, int lda, int* ipiv, double* b, int ldb) { int info; LAPACK_dgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline int gesv(int n, int nrhs, cf* a, int lda, int* ipiv, cf* b, int ldb) { int info; LAPACK_cgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline int gesv(int n, int nrhs, cd* a, int lda, int* ipiv, cd* b, int ldb) { int info; LAPACK_zgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }

// Positive definite solve.
inline int posv(char uplo, int n, int nrhs, float* a, int lda, float* b, int ldb) { int info; LAPACK_sposv(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline int posv(char uplo, int n, int nrhs, double* a, int lda, double* b, int ldb) { int info; LAPACK_dposv(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline int posv(char uplo, int n, int nrhs, cf* a, int lda, cf* b, int ldb) { int info; LAPACK_cposv(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline int posv(char uplo, int n, int nrhs, cd* a, int lda, cd* b, int ldb) { int info; LAPACK_zposv(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }

// Triangular solve.
inline int trtrs(char uplo, char trans, char diag, int n, int nrhs, const float* a, int lda, float* b, int ldb) { int info; LAPACK_strtrs(&uplo, &trans, &diag, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline int trtrs(char uplo, char trans, char diag, int n, int nrhs, const double* a, int lda, double* b, int ldb) { int info; LAPACK_dtrtrs(&uplo, &trans, &diag, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline int trtrs(char uplo, char trans, char diag, int n, int nrhs, const cf* a, int lda, cf* b, int ldb) { int info; LAPACK_ctrtrs(&uplo, &trans, &diag, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline int trtrs(char uplo, char trans, char diag, int n, int nrhs, const cd* a, int lda, cd* b, int ldb) { int info; LAPACK_ztrtrs(&uplo, &trans, &diag, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }

}  // namespace ql::kernel
