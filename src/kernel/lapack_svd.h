// Typed overloads of the LAPACK routines behind the SVD, the inverse and the measures
// built on them: gesdd, getri, potri, trtri. Same conventions as kernel/lapack.h: the
// package's prototypes, lapack_int sizes, info returned, and one call shape per routine
// across the four element types (the real gesdd takes the rwork it does not use).
#pragma once

#include <algorithm>
#include <cstdint>

#include "kernel/lapack.h"

namespace ql::kernel {

// Divide-and-conquer SVD of a column-major m x n matrix (destroyed). jobz 'N' values
// only, 'S' the first min(m, n) columns of U and rows of Vᴴ, 'A' all of them. lwork = -1
// is a size query; iwork holds 8 min(m, n) entries; rwork is read by the complex routines
// only.
inline lapack_int gesdd(char jobz, lapack_int m, lapack_int n, float* a, lapack_int lda, float* s, float* u,
                        lapack_int ldu, float* vt, lapack_int ldvt, float* work, lapack_int lwork, float*,
                        lapack_int* iwork) {
  lapack_int info;
  LAPACK_sgesdd(&jobz, &m, &n, a, &lda, s, u, &ldu, vt, &ldvt, work, &lwork, iwork, &info);
  return info;
}
inline lapack_int gesdd(char jobz, lapack_int m, lapack_int n, double* a, lapack_int lda, double* s, double* u,
                        lapack_int ldu, double* vt, lapack_int ldvt, double* work, lapack_int lwork, double*,
                        lapack_int* iwork) {
  lapack_int info;
  LAPACK_dgesdd(&jobz, &m, &n, a, &lda, s, u, &ldu, vt, &ldvt, work, &lwork, iwork, &info);
  return info;
}
inline lapack_int gesdd(char jobz, lapack_int m, lapack_int n, cf* a, lapack_int lda, float* s, cf* u,
                        lapack_int ldu, cf* vt, lapack_int ldvt, cf* work, lapack_int lwork, float* rwork,
                        lapack_int* iwork) {
  lapack_int info;
  LAPACK_cgesdd(&jobz, &m, &n, a, &lda, s, u, &ldu, vt, &ldvt, work, &lwork, rwork, iwork, &info);
  return info;
}
inline lapack_int gesdd(char jobz, lapack_int m, lapack_int n, cd* a, lapack_int lda, double* s, cd* u,
                        lapack_int ldu, cd* vt, lapack_int ldvt, cd* work, lapack_int lwork, double* rwork,
                        lapack_int* iwork) {
  lapack_int info;
  LAPACK_zgesdd(&jobz, &m, &n, a, &lda, s, u, &ldu, vt, &ldvt, work, &lwork, rwork, iwork, &info);
  return info;
}

// The documented minimum workspaces of gesdd (work, rwork, iwork) for an m x n problem;
// a query's report is never taken below them. rwork is 0 for the real routines; for
// jobz 'N' it is the 7 min(m, n) that LAPACK before 3.7 required.
struct GesddMinimum {
  int64_t work, rwork, iwork;
};
template <bool Complex>
inline GesddMinimum GesddWorkspaceMinimum(char jobz, int64_t m, int64_t n) {
  const int64_t mn = std::min(m, n), mx = std::max(m, n);
  GesddMinimum w{};
  w.iwork = 8 * mn;
  if constexpr (Complex) {
    w.work = jobz == 'N' ? 2 * mn + mx : jobz == 'S' ? mn * mn + 3 * mn : mn * mn + 2 * mn + mx;
    w.rwork = jobz == 'N' ? 7 * mn : std::max(5 * mn * mn + 5 * mn, 2 * mx * mn + 2 * mn * mn + mn);
  } else {
    w.work = jobz == 'N' ? 3 * mn + std::max(mx, 7 * mn) : jobz == 'S' ? 4 * mn * mn + 7 * mn : 4 * mn * mn + 6 * mn + mx;
  }
  w.work = std::max<int64_t>(w.work, 1);
  return w;
}

// Inverse from the LU factors of getrf (column-major, 1-based pivots). lwork = -1 is a
// size query; at least max(1, n).
inline lapack_int getri(lapack_int n, float* a, lapack_int lda, const lapack_int* ipiv, float* work, lapack_int lwork) { lapack_int info; LAPACK_sgetri(&n, a, &lda, ipiv, work, &lwork, &info); return info; }
inline lapack_int getri(lapack_int n, double* a, lapack_int lda, const lapack_int* ipiv, double* work, lapack_int lwork) { lapack_int info; LAPACK_dgetri(&n, a, &lda, ipiv, work, &lwork, &info); return info; }
inline lapack_int getri(lapack_int n, cf* a, lapack_int lda, const lapack_int* ipiv, cf* work, lapack_int lwork) { lapack_int info; LAPACK_cgetri(&n, a, &lda, ipiv, work, &lwork, &info); return info; }
inline lapack_int getri(lapack_int n, cd* a, lapack_int lda, const lapack_int* ipiv, cd* work, lapack_int lwork) { lapack_int info; LAPACK_zgetri(&n, a, &lda, ipiv, work, &lwork, &info); return info; }

// Inverse of a positive definite matrix from its potrf factor, in the same triangle.
inline lapack_int potri(char uplo, lapack_int n, float* a, lapack_int lda) { lapack_int info; LAPACK_spotri(&uplo, &n, a, &lda, &info); return info; }
inline lapack_int potri(char uplo, lapack_int n, double* a, lapack_int lda) { lapack_int info; LAPACK_dpotri(&uplo, &n, a, &lda, &info); return info; }
inline lapack_int potri(char uplo, lapack_int n, cf* a, lapack_int lda) { lapack_int info; LAPACK_cpotri(&uplo, &n, a, &lda, &info); return info; }
inline lapack_int potri(char uplo, lapack_int n, cd* a, lapack_int lda) { lapack_int info; LAPACK_zpotri(&uplo, &n, a, &lda, &info); return info; }

// Inverse of a triangular matrix in place; the other triangle is not touched.
inline lapack_int trtri(char uplo, char diag, lapack_int n, float* a, lapack_int lda) { lapack_int info; LAPACK_strtri(&uplo, &diag, &n, a, &lda, &info); return info; }
inline lapack_int trtri(char uplo, char diag, lapack_int n, double* a, lapack_int lda) { lapack_int info; LAPACK_dtrtri(&uplo, &diag, &n, a, &lda, &info); return info; }
inline lapack_int trtri(char uplo, char diag, lapack_int n, cf* a, lapack_int lda) { lapack_int info; LAPACK_ctrtri(&uplo, &diag, &n, a, &lda, &info); return info; }
inline lapack_int trtri(char uplo, char diag, lapack_int n, cd* a, lapack_int lda) { lapack_int info; LAPACK_ztrtri(&uplo, &diag, &n, a, &lda, &info); return info; }

}  // namespace ql::kernel
