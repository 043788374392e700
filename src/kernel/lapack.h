// Typed overloads of the LAPACK routines the library uses, on the prototypes of the
// package's own lapack.h (which also passes the hidden Fortran string lengths).
// Every routine returns its info value. Sizes are the package's lapack_int.
//
// Overloads of one routine share one call shape across the four element types: where
// the complex routine needs a real rwork array, the real overload takes one too and
// ignores it, so a template calls every type the same way.
#pragma once

#include <complex>
#include <cstdint>
#include <type_traits>

#define lapack_complex_float std::complex<float>
#define lapack_complex_double std::complex<double>
#include <lapack.h>

namespace ql::kernel {

// Pivot vectors are the host's int32 arrays, handed to getrf and gesv as they are.
static_assert(std::is_same_v<lapack_int, int32_t>, "LAPACK must use 32-bit integers");

using cf = std::complex<float>;
using cd = std::complex<double>;

// LU with partial pivoting of a column-major m x n matrix; ipiv is 1-based.
inline lapack_int getrf(lapack_int m, lapack_int n, float* a, lapack_int lda, lapack_int* ipiv) { lapack_int info; LAPACK_sgetrf(&m, &n, a, &lda, ipiv, &info); return info; }
inline lapack_int getrf(lapack_int m, lapack_int n, double* a, lapack_int lda, lapack_int* ipiv) { lapack_int info; LAPACK_dgetrf(&m, &n, a, &lda, ipiv, &info); return info; }
inline lapack_int getrf(lapack_int m, lapack_int n, cf* a, lapack_int lda, lapack_int* ipiv) { lapack_int info; LAPACK_cgetrf(&m, &n, a, &lda, ipiv, &info); return info; }
inline lapack_int getrf(lapack_int m, lapack_int n, cd* a, lapack_int lda, lapack_int* ipiv) { lapack_int info; LAPACK_zgetrf(&m, &n, a, &lda, ipiv, &info); return info; }

// Cholesky factor of a column-major matrix, triangle 'U' or 'L'.
inline lapack_int potrf(char uplo, lapack_int n, float* a, lapack_int lda) { lapack_int info; LAPACK_spotrf(&uplo, &n, a, &lda, &info); return info; }
inline lapack_int potrf(char uplo, lapack_int n, double* a, lapack_int lda) { lapack_int info; LAPACK_dpotrf(&uplo, &n, a, &lda, &info); return info; }
inline lapack_int potrf(char uplo, lapack_int n, cf* a, lapack_int lda) { lapack_int info; LAPACK_cpotrf(&uplo, &n, a, &lda, &info); return info; }
inline lapack_int potrf(char uplo, lapack_int n, cd* a, lapack_int lda) { lapack_int info; LAPACK_zpotrf(&uplo, &n, a, &lda, &info); return info; }

// General solve A X = B (column-major).
inline lapack_int gesv(lapack_int n, lapack_int nrhs, float* a, lapack_int lda, lapack_int* ipiv, float* b, lapack_int ldb) { lapack_int info; LAPACK_sgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline lapack_int gesv(lapack_int n, lapack_int nrhs, double* a, lapack_int lda, lapack_int* ipiv, double* b, lapack_int ldb) { lapack_int info; LAPACK_dgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline lapack_int gesv(lapack_int n, lapack_int nrhs, cf* a, lapack_int lda, lapack_int* ipiv, cf* b, lapack_int ldb) { lapack_int info; LAPACK_cgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline lapack_int gesv(lapack_int n, lapack_int nrhs, cd* a, lapack_int lda, lapack_int* ipiv, cd* b, lapack_int ldb) { lapack_int info; LAPACK_zgesv(&n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }

// Solve with getrf's factors: op(A) X = B, trans 'N', 'T' (plain transpose) or 'C'.
inline lapack_int getrs(char trans, lapack_int n, lapack_int nrhs, const float* a, lapack_int lda, const lapack_int* ipiv, float* b, lapack_int ldb) { lapack_int info; LAPACK_sgetrs(&trans, &n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline lapack_int getrs(char trans, lapack_int n, lapack_int nrhs, const double* a, lapack_int lda, const lapack_int* ipiv, double* b, lapack_int ldb) { lapack_int info; LAPACK_dgetrs(&trans, &n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline lapack_int getrs(char trans, lapack_int n, lapack_int nrhs, const cf* a, lapack_int lda, const lapack_int* ipiv, cf* b, lapack_int ldb) { lapack_int info; LAPACK_cgetrs(&trans, &n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }
inline lapack_int getrs(char trans, lapack_int n, lapack_int nrhs, const cd* a, lapack_int lda, const lapack_int* ipiv, cd* b, lapack_int ldb) { lapack_int info; LAPACK_zgetrs(&trans, &n, &nrhs, a, &lda, ipiv, b, &ldb, &info); return info; }

// Positive definite solve.
inline lapack_int posv(char uplo, lapack_int n, lapack_int nrhs, float* a, lapack_int lda, float* b, lapack_int ldb) { lapack_int info; LAPACK_sposv(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline lapack_int posv(char uplo, lapack_int n, lapack_int nrhs, double* a, lapack_int lda, double* b, lapack_int ldb) { lapack_int info; LAPACK_dposv(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline lapack_int posv(char uplo, lapack_int n, lapack_int nrhs, cf* a, lapack_int lda, cf* b, lapack_int ldb) { lapack_int info; LAPACK_cposv(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline lapack_int posv(char uplo, lapack_int n, lapack_int nrhs, cd* a, lapack_int lda, cd* b, lapack_int ldb) { lapack_int info; LAPACK_zposv(&uplo, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }

// Triangular solve.
inline lapack_int trtrs(char uplo, char trans, char diag, lapack_int n, lapack_int nrhs, const float* a, lapack_int lda, float* b, lapack_int ldb) { lapack_int info; LAPACK_strtrs(&uplo, &trans, &diag, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline lapack_int trtrs(char uplo, char trans, char diag, lapack_int n, lapack_int nrhs, const double* a, lapack_int lda, double* b, lapack_int ldb) { lapack_int info; LAPACK_dtrtrs(&uplo, &trans, &diag, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline lapack_int trtrs(char uplo, char trans, char diag, lapack_int n, lapack_int nrhs, const cf* a, lapack_int lda, cf* b, lapack_int ldb) { lapack_int info; LAPACK_ctrtrs(&uplo, &trans, &diag, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }
inline lapack_int trtrs(char uplo, char trans, char diag, lapack_int n, lapack_int nrhs, const cd* a, lapack_int lda, cd* b, lapack_int ldb) { lapack_int info; LAPACK_ztrtrs(&uplo, &trans, &diag, &n, &nrhs, a, &lda, b, &ldb, &info); return info; }

// QR factorization of a column-major m x n matrix: R in the upper triangle, the
// Householder vectors below it with their scalars in tau (min(m, n) entries). Takes a
// workspace of lwork elements (at least max(1, n)); lwork = -1 is a size query.
inline lapack_int geqrf(lapack_int m, lapack_int n, float* a, lapack_int lda, float* tau, float* work, lapack_int lwork) { lapack_int info; LAPACK_sgeqrf(&m, &n, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int geqrf(lapack_int m, lapack_int n, double* a, lapack_int lda, double* tau, double* work, lapack_int lwork) { lapack_int info; LAPACK_dgeqrf(&m, &n, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int geqrf(lapack_int m, lapack_int n, cf* a, lapack_int lda, cf* tau, cf* work, lapack_int lwork) { lapack_int info; LAPACK_cgeqrf(&m, &n, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int geqrf(lapack_int m, lapack_int n, cd* a, lapack_int lda, cd* tau, cd* work, lapack_int lwork) { lapack_int info; LAPACK_zgeqrf(&m, &n, a, &lda, tau, work, &lwork, &info); return info; }

}  // namespace ql::kernel
