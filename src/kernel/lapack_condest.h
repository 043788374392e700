// Typed overloads of LAPACK's condition estimators: gecon (from an LU factor), pocon
// (from a Cholesky factor) and trcon (of a triangular matrix). One call shape for the
// four types: the real routines use work and iwork and ignore rwork, the complex ones
// use work and rwork and ignore iwork. Sizes: gecon and pocon work 4n (real) or 2n
// (complex), rwork 2n; trcon work 3n or 2n, rwork n; iwork n. The estimate is the
// reciprocal condition number in the 1-norm ('1') or the infinity norm ('I').
#pragma once

#include "kernel/lapack.h"

namespace ql::kernel {

inline lapack_int gecon(char norm, lapack_int n, const float* a, lapack_int lda, float anorm, float* rcond, float* work, float*, lapack_int* iwork) { lapack_int info; LAPACK_sgecon(&norm, &n, a, &lda, &anorm, rcond, work, iwork, &info); return info; }
inline lapack_int gecon(char norm, lapack_int n, const double* a, lapack_int lda, double anorm, double* rcond, double* work, double*, lapack_int* iwork) { lapack_int info; LAPACK_dgecon(&norm, &n, a, &lda, &anorm, rcond, work, iwork, &info); return info; }
inline lapack_int gecon(char norm, lapack_int n, const cf* a, lapack_int lda, float anorm, float* rcond, cf* work, float* rwork, lapack_int*) { lapack_int info; LAPACK_cgecon(&norm, &n, a, &lda, &anorm, rcond, work, rwork, &info); return info; }
inline lapack_int gecon(char norm, lapack_int n, const cd* a, lapack_int lda, double anorm, double* rcond, cd* work, double* rwork, lapack_int*) { lapack_int info; LAPACK_zgecon(&norm, &n, a, &lda, &anorm, rcond, work, rwork, &info); return info; }

inline lapack_int pocon(char uplo, lapack_int n, const float* a, lapack_int lda, float anorm, float* rcond, float* work, float*, lapack_int* iwork) { lapack_int info; LAPACK_spocon(&uplo, &n, a, &lda, &anorm, rcond, work, iwork, &info); return info; }
inline lapack_int pocon(char uplo, lapack_int n, const double* a, lapack_int lda, double anorm, double* rcond, double* work, double*, lapack_int* iwork) { lapack_int info; LAPACK_dpocon(&uplo, &n, a, &lda, &anorm, rcond, work, iwork, &info); return info; }
inline lapack_int pocon(char uplo, lapack_int n, const cf* a, lapack_int lda, float anorm, float* rcond, cf* work, float* rwork, lapack_int*) { lapack_int info; LAPACK_cpocon(&uplo, &n, a, &lda, &anorm, rcond, work, rwork, &info); return info; }
inline lapack_int pocon(char uplo, lapack_int n, const cd* a, lapack_int lda, double anorm, double* rcond, cd* work, double* rwork, lapack_int*) { lapack_int info; LAPACK_zpocon(&uplo, &n, a, &lda, &anorm, rcond, work, rwork, &info); return info; }

inline lapack_int trcon(char norm, char uplo, lapack_int n, const float* a, lapack_int lda, float* rcond, float* work, float*, lapack_int* iwork) { lapack_int info; const char diag = 'N'; LAPACK_strcon(&norm, &uplo, &diag, &n, a, &lda, rcond, work, iwork, &info); return info; }
inline lapack_int trcon(char norm, char uplo, lapack_int n, const double* a, lapack_int lda, double* rcond, double* work, double*, lapack_int* iwork) { lapack_int info; const char diag = 'N'; LAPACK_dtrcon(&norm, &uplo, &diag, &n, a, &lda, rcond, work, iwork, &info); return info; }
inline lapack_int trcon(char norm, char uplo, lapack_int n, const cf* a, lapack_int lda, float* rcond, cf* work, float* rwork, lapack_int*) { lapack_int info; const char diag = 'N'; LAPACK_ctrcon(&norm, &uplo, &diag, &n, a, &lda, rcond, work, rwork, &info); return info; }
inline lapack_int trcon(char norm, char uplo, lapack_int n, const cd* a, lapack_int lda, double* rcond, cd* work, double* rwork, lapack_int*) { lapack_int info; const char diag = 'N'; LAPACK_ztrcon(&norm, &uplo, &diag, &n, a, &lda, rcond, work, rwork, &info); return info; }

}  // namespace ql::kernel
