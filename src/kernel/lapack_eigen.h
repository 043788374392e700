// Typed overloads of the LAPACK eigenvalue drivers, on the prototypes of the package's
// lapack.h. Every routine returns its info value.
//
// One call shape per routine across the four element types, so the eigen templates call
// every type the same way:
// - geev and ggev take the eigenvalues (or alpha) as T* plus a real "imaginary parts"
//   array: the real drivers fill both (wr/wi, alphar/alphai), the complex ones write
//   complex values into the first and ignore the second. The complex drivers' real work
//   array rwork is taken, and ignored, by the real overloads.
// - heevr serves the real symmetric driver ?syevr too (a real symmetric matrix is
//   Hermitian); the real overloads take and ignore rwork / lrwork.
// Every array may be null in a workspace query (lwork = -1): the drivers then only
// report sizes.
#pragma once

#include "kernel/lapack.h"

namespace ql::kernel {

// Eigenvalues and left and/or right eigenvectors of a general column-major matrix.
inline lapack_int geev(char jobvl, char jobvr, lapack_int n, float* a, lapack_int lda, float* w, float* wi, float* vl, lapack_int ldvl, float* vr, lapack_int ldvr, float* work, lapack_int lwork, float*) { lapack_int info; LAPACK_sgeev(&jobvl, &jobvr, &n, a, &lda, w, wi, vl, &ldvl, vr, &ldvr, work, &lwork, &info); return info; }
inline lapack_int geev(char jobvl, char jobvr, lapack_int n, double* a, lapack_int lda, double* w, double* wi, double* vl, lapack_int ldvl, double* vr, lapack_int ldvr, double* work, lapack_int lwork, double*) { lapack_int info; LAPACK_dgeev(&jobvl, &jobvr, &n, a, &lda, w, wi, vl, &ldvl, vr, &ldvr, work, &lwork, &info); return info; }
inline lapack_int geev(char jobvl, char jobvr, lapack_int n, cf* a, lapack_int lda, cf* w, float*, cf* vl, lapack_int ldvl, cf* vr, lapack_int ldvr, cf* work, lapack_int lwork, float* rwork) { lapack_int info; LAPACK_cgeev(&jobvl, &jobvr, &n, a, &lda, w, vl, &ldvl, vr, &ldvr, work, &lwork, rwork, &info); return info; }
inline lapack_int geev(char jobvl, char jobvr, lapack_int n, cd* a, lapack_int lda, cd* w, double*, cd* vl, lapack_int ldvl, cd* vr, lapack_int ldvr, cd* work, lapack_int lwork, double* rwork) { lapack_int info; LAPACK_zgeev(&jobvl, &jobvr, &n, a, &lda, w, vl, &ldvl, vr, &ldvr, work, &lwork, rwork, &info); return info; }

// Generalized eigenvalues alpha/beta and eigenvectors of a column-major pencil (A, B).
inline lapack_int ggev(char jobvl, char jobvr, lapack_int n, float* a, lapack_int lda, float* b, lapack_int ldb, float* alpha, float* alphai, float* beta, float* vl, lapack_int ldvl, float* vr, lapack_int ldvr, float* work, lapack_int lwork, float*) { lapack_int info; LAPACK_sggev(&jobvl, &jobvr, &n, a, &lda, b, &ldb, alpha, alphai, beta, vl, &ldvl, vr, &ldvr, work, &lwork, &info); return info; }
inline lapack_int ggev(char jobvl, char jobvr, lapack_int n, double* a, lapack_int lda, double* b, lapack_int ldb, double* alpha, double* alphai, double* beta, double* vl, lapack_int ldvl, double* vr, lapack_int ldvr, double* work, lapack_int lwork, double*) { lapack_int info; LAPACK_dggev(&jobvl, &jobvr, &n, a, &lda, b, &ldb, alpha, alphai, beta, vl, &ldvl, vr, &ldvr, work, &lwork, &info); return info; }
inline lapack_int ggev(char jobvl, char jobvr, lapack_int n, cf* a, lapack_int lda, cf* b, lapack_int ldb, cf* alpha, float*, cf* beta, cf* vl, lapack_int ldvl, cf* vr, lapack_int ldvr, cf* work, lapack_int lwork, float* rwork) { lapack_int info; LAPACK_cggev(&jobvl, &jobvr, &n, a, &lda, b, &ldb, alpha, beta, vl, &ldvl, vr, &ldvr, work, &lwork, rwork, &info); return info; }
inline lapack_int ggev(char jobvl, char jobvr, lapack_int n, cd* a, lapack_int lda, cd* b, lapack_int ldb, cd* alpha, double*, cd* beta, cd* vl, lapack_int ldvl, cd* vr, lapack_int ldvr, cd* work, lapack_int lwork, double* rwork) { lapack_int info; LAPACK_zggev(&jobvl, &jobvr, &n, a, &lda, b, &ldb, alpha, beta, vl, &ldvl, vr, &ldvr, work, &lwork, rwork, &info); return info; }

// Eigenvalues (ascending, into w) and optionally eigenvectors (columns of z) of a real
// symmetric / complex Hermitian column-major matrix whose `uplo` triangle is read. The
// bounds vl, vu, il, iu go by value and reach the driver as the addresses of these
// copies: with range 'A' it does not read them, and no driver version can then read
// through a null pointer. m receives the number of eigenvalues found.
inline lapack_int heevr(char jobz, char range, char uplo, lapack_int n, float* a, lapack_int lda, float vl, float vu, lapack_int il, lapack_int iu, float abstol, lapack_int* m, float* w, float* z, lapack_int ldz, lapack_int* isuppz, float* work, lapack_int lwork, float*, lapack_int, lapack_int* iwork, lapack_int liwork) { lapack_int info; LAPACK_ssyevr(&jobz, &range, &uplo, &n, a, &lda, &vl, &vu, &il, &iu, &abstol, m, w, z, &ldz, isuppz, work, &lwork, iwork, &liwork, &info); return info; }
inline lapack_int heevr(char jobz, char range, char uplo, lapack_int n, double* a, lapack_int lda, double vl, double vu, lapack_int il, lapack_int iu, double abstol, lapack_int* m, double* w, double* z, lapack_int ldz, lapack_int* isuppz, double* work, lapack_int lwork, double*, lapack_int, lapack_int* iwork, lapack_int liwork) { lapack_int info; LAPACK_dsyevr(&jobz, &range, &uplo, &n, a, &lda, &vl, &vu, &il, &iu, &abstol, m, w, z, &ldz, isuppz, work, &lwork, iwork, &liwork, &info); return info; }
inline lapack_int heevr(char jobz, char range, char uplo, lapack_int n, cf* a, lapack_int lda, float vl, float vu, lapack_int il, lapack_int iu, float abstol, lapack_int* m, float* w, cf* z, lapack_int ldz, lapack_int* isuppz, cf* work, lapack_int lwork, float* rwork, lapack_int lrwork, lapack_int* iwork, lapack_int liwork) { lapack_int info; LAPACK_cheevr(&jobz, &range, &uplo, &n, a, &lda, &vl, &vu, &il, &iu, &abstol, m, w, z, &ldz, isuppz, work, &lwork, rwork, &lrwork, iwork, &liwork, &info); return info; }
inline lapack_int heevr(char jobz, char range, char uplo, lapack_int n, cd* a, lapack_int lda, double vl, double vu, lapack_int il, lapack_int iu, double abstol, lapack_int* m, double* w, cd* z, lapack_int ldz, lapack_int* isuppz, cd* work, lapack_int lwork, double* rwork, lapack_int lrwork, lapack_int* iwork, lapack_int liwork) { lapack_int info; LAPACK_zheevr(&jobz, &range, &uplo, &n, a, &lda, &vl, &vu, &il, &iu, &abstol, m, w, z, &ldz, isuppz, work, &lwork, rwork, &lrwork, iwork, &liwork, &info); return info; }

}  // namespace ql::kernel
