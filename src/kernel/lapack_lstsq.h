// Typed overloads of the LAPACK least-squares driver gelsd. Same conventions as
// kernel/lapack.h: the package's prototypes, lapack_int sizes, info returned, and one
// call shape across the four element types (the real gelsd takes the rwork it does not
// use).
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "kernel/lapack.h"

namespace ql::kernel {

// Minimum-norm least squares by a divide-and-conquer SVD: the column-major m x n a is
// destroyed, b (ldb >= max(m, n)) holds the m x nrhs right-hand sides on entry and the
// n x nrhs solutions on return; s receives the min(m, n) singular values, rank the count
// above rcond·s1. lwork = -1 is a size query that also reports liwork (and lrwork).
inline lapack_int gelsd(lapack_int m, lapack_int n, lapack_int nrhs, float* a, lapack_int lda, float* b,
                        lapack_int ldb, float* s, float rcond, lapack_int* rank, float* work, lapack_int lwork,
                        float*, lapack_int* iwork) {
  lapack_int info;
  LAPACK_sgelsd(&m, &n, &nrhs, a, &lda, b, &ldb, s, &rcond, rank, work, &lwork, iwork, &info);
  return info;
}
inline lapack_int gelsd(lapack_int m, lapack_int n, lapack_int nrhs, double* a, lapack_int lda, double* b,
                        lapack_int ldb, double* s, double rcond, lapack_int* rank, double* work, lapack_int lwork,
                        double*, lapack_int* iwork) {
  lapack_int info;
  LAPACK_dgelsd(&m, &n, &nrhs, a, &lda, b, &ldb, s, &rcond, rank, work, &lwork, iwork, &info);
  return info;
}
inline lapack_int gelsd(lapack_int m, lapack_int n, lapack_int nrhs, cf* a, lapack_int lda, cf* b, lapack_int ldb,
                        float* s, float rcond, lapack_int* rank, cf* work, lapack_int lwork, float* rwork,
                        lapack_int* iwork) {
  lapack_int info;
  LAPACK_cgelsd(&m, &n, &nrhs, a, &lda, b, &ldb, s, &rcond, rank, work, &lwork, rwork, iwork, &info);
  return info;
}
inline lapack_int gelsd(lapack_int m, lapack_int n, lapack_int nrhs, cd* a, lapack_int lda, cd* b, lapack_int ldb,
                        double* s, double rcond, lapack_int* rank, cd* work, lapack_int lwork, double* rwork,
                        lapack_int* iwork) {
  lapack_int info;
  LAPACK_zgelsd(&m, &n, &nrhs, a, &lda, b, &ldb, s, &rcond, rank, work, &lwork, rwork, iwork, &info);
  return info;
}

// The documented minimum workspaces of gelsd (work, rwork, iwork) for an m x n problem
// with nrhs right-hand sides, with the reference subproblem size 25; a query's report
// is never taken below them. rwork is 0 for the real routines.
struct GelsdMinimum {
  int64_t work, rwork, iwork;
};
template <bool Complex>
inline GelsdMinimum GelsdWorkspaceMinimum(int64_t m, int64_t n, int64_t nrhs) {
  constexpr int64_t smlsiz = 25;
  const int64_t mn = std::min(m, n);
  // Levels of the divide-and-conquer tree: max(0, int(log2(mn / (smlsiz + 1))) + 1).
  const double ratio = static_cast<double>(mn) / (smlsiz + 1);
  const int64_t nlvl = std::max<int64_t>(0, (ratio > 0 ? static_cast<int64_t>(std::log2(ratio)) : 0) + 1);
  GelsdMinimum w{};
  w.iwork = std::max<int64_t>(1, 3 * mn * nlvl + 11 * mn);
  if constexpr (Complex) {
    w.work = 2 * mn + mn * nrhs;
    w.rwork = 10 * mn + 2 * mn * smlsiz + 8 * mn * nlvl + 3 * smlsiz * nrhs +
              std::max((smlsiz + 1) * (smlsiz + 1), n * (1 + nrhs) + 2 * nrhs);
  } else {
    w.work = 12 * mn + 2 * mn * smlsiz + 8 * mn * nlvl + mn * nrhs + (smlsiz + 1) * (smlsiz + 1);
  }
  w.work = std::max<int64_t>(w.work, 1);
  return w;
}

}  // namespace ql::kernel
