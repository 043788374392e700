// Typed overloads of LAPACK's triangular Sylvester solver trsyl: op(A) X + isgn X op(B) =
// scale C for A (m x m) and B (n x n) upper quasi-triangular (real Schur forms) or upper
// triangular (complex), op 'N', 'T' (real) or 'C' (complex); X overwrites C, scale <= 1
// keeps it from overflowing. info 1: A and -isgn B have close or common eigenvalues, and
// perturbed values were used.
#pragma once

#include "kernel/lapack.h"

namespace ql::kernel {

inline lapack_int trsyl(char trana, char tranb, lapack_int isgn, lapack_int m, lapack_int n, const float* a, lapack_int lda, const float* b, lapack_int ldb, float* c, lapack_int ldc, float* scale) { lapack_int info; LAPACK_strsyl(&trana, &tranb, &isgn, &m, &n, a, &lda, b, &ldb, c, &ldc, scale, &info); return info; }
inline lapack_int trsyl(char trana, char tranb, lapack_int isgn, lapack_int m, lapack_int n, const double* a, lapack_int lda, const double* b, lapack_int ldb, double* c, lapack_int ldc, double* scale) { lapack_int info; LAPACK_dtrsyl(&trana, &tranb, &isgn, &m, &n, a, &lda, b, &ldb, c, &ldc, scale, &info); return info; }
inline lapack_int trsyl(char trana, char tranb, lapack_int isgn, lapack_int m, lapack_int n, const cf* a, lapack_int lda, const cf* b, lapack_int ldb, cf* c, lapack_int ldc, float* scale) { lapack_int info; LAPACK_ctrsyl(&trana, &tranb, &isgn, &m, &n, a, &lda, b, &ldb, c, &ldc, scale, &info); return info; }
inline lapack_int trsyl(char trana, char tranb, lapack_int isgn, lapack_int m, lapack_int n, const cd* a, lapack_int lda, const cd* b, lapack_int ldb, cd* c, lapack_int ldc, double* scale) { lapack_int info; LAPACK_ztrsyl(&trana, &tranb, &isgn, &m, &n, a, &lda, b, &ldb, c, &ldc, scale, &info); return info; }

}  // namespace ql::kernel
