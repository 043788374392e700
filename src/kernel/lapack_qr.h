// Typed overloads of the LAPACK routines behind the QR, Schur and QZ decompositions:
// gelqf, unglq / orglq, geqp3, ungqr / orgqr, gees, trexc, gges, tgexc, tgsen. Same conventions
// as kernel/lapack.h: the package's prototypes, lapack_int sizes, info returned, and one
// call shape per routine across the four element types. The real orthogonal generators
// go under the complex names (unglq, ungqr); where only the complex routine takes a real
// rwork, the real overload takes one too and ignores it; where only the real routine
// takes a separate imaginary-part array (gees, gges), the complex overload ignores it.
// Every routine with an lwork treats lwork = -1 as a size query.
#pragma once

#include "kernel/lapack.h"

namespace ql::kernel {

// LQ factorization of a column-major m x n matrix: L in the lower triangle, reflector i
// in row i to the right of the diagonal, scalars in tau (min(m, n)).
inline lapack_int gelqf(lapack_int m, lapack_int n, float* a, lapack_int lda, float* tau, float* work, lapack_int lwork) { lapack_int info; LAPACK_sgelqf(&m, &n, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int gelqf(lapack_int m, lapack_int n, double* a, lapack_int lda, double* tau, double* work, lapack_int lwork) { lapack_int info; LAPACK_dgelqf(&m, &n, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int gelqf(lapack_int m, lapack_int n, cf* a, lapack_int lda, cf* tau, cf* work, lapack_int lwork) { lapack_int info; LAPACK_cgelqf(&m, &n, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int gelqf(lapack_int m, lapack_int n, cd* a, lapack_int lda, cd* tau, cd* work, lapack_int lwork) { lapack_int info; LAPACK_zgelqf(&m, &n, a, &lda, tau, work, &lwork, &info); return info; }

// The m x n matrix with orthonormal rows (m <= n) defined by the first k reflectors of
// gelqf, generated in place.
inline lapack_int unglq(lapack_int m, lapack_int n, lapack_int k, float* a, lapack_int lda, const float* tau, float* work, lapack_int lwork) { lapack_int info; LAPACK_sorglq(&m, &n, &k, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int unglq(lapack_int m, lapack_int n, lapack_int k, double* a, lapack_int lda, const double* tau, double* work, lapack_int lwork) { lapack_int info; LAPACK_dorglq(&m, &n, &k, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int unglq(lapack_int m, lapack_int n, lapack_int k, cf* a, lapack_int lda, const cf* tau, cf* work, lapack_int lwork) { lapack_int info; LAPACK_cunglq(&m, &n, &k, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int unglq(lapack_int m, lapack_int n, lapack_int k, cd* a, lapack_int lda, const cd* tau, cd* work, lapack_int lwork) { lapack_int info; LAPACK_zunglq(&m, &n, &k, a, &lda, tau, work, &lwork, &info); return info; }

// QR factorization with column pivoting of a column-major m x n matrix. jpvt: 0 marks a
// free column on entry; on exit the 1-based original column of each factored column.
// rwork (2n reals) is read by the complex routines only.
inline lapack_int geqp3(lapack_int m, lapack_int n, float* a, lapack_int lda, lapack_int* jpvt, float* tau, float* work, lapack_int lwork, float*) { lapack_int info; LAPACK_sgeqp3(&m, &n, a, &lda, jpvt, tau, work, &lwork, &info); return info; }
inline lapack_int geqp3(lapack_int m, lapack_int n, double* a, lapack_int lda, lapack_int* jpvt, double* tau, double* work, lapack_int lwork, double*) { lapack_int info; LAPACK_dgeqp3(&m, &n, a, &lda, jpvt, tau, work, &lwork, &info); return info; }
inline lapack_int geqp3(lapack_int m, lapack_int n, cf* a, lapack_int lda, lapack_int* jpvt, cf* tau, cf* work, lapack_int lwork, float* rwork) { lapack_int info; LAPACK_cgeqp3(&m, &n, a, &lda, jpvt, tau, work, &lwork, rwork, &info); return info; }
inline lapack_int geqp3(lapack_int m, lapack_int n, cd* a, lapack_int lda, lapack_int* jpvt, cd* tau, cd* work, lapack_int lwork, double* rwork) { lapack_int info; LAPACK_zgeqp3(&m, &n, a, &lda, jpvt, tau, work, &lwork, rwork, &info); return info; }

// The m x n matrix with orthonormal columns (m >= n) defined by the first k reflectors
// of geqrf / geqp3, generated in place.
inline lapack_int ungqr(lapack_int m, lapack_int n, lapack_int k, float* a, lapack_int lda, const float* tau, float* work, lapack_int lwork) { lapack_int info; LAPACK_sorgqr(&m, &n, &k, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int ungqr(lapack_int m, lapack_int n, lapack_int k, double* a, lapack_int lda, const double* tau, double* work, lapack_int lwork) { lapack_int info; LAPACK_dorgqr(&m, &n, &k, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int ungqr(lapack_int m, lapack_int n, lapack_int k, cf* a, lapack_int lda, const cf* tau, cf* work, lapack_int lwork) { lapack_int info; LAPACK_cungqr(&m, &n, &k, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int ungqr(lapack_int m, lapack_int n, lapack_int k, cd* a, lapack_int lda, const cd* tau, cd* work, lapack_int lwork) { lapack_int info; LAPACK_zungqr(&m, &n, &k, a, &lda, tau, work, &lwork, &info); return info; }

// Schur form of a column-major n x n matrix without eigenvalue selection (SORT 'N', so
// neither the selection function nor BWORK is referenced). Real routines: eigenvalue
// real parts into w, imaginary parts into wi. Complex routines: eigenvalues into w, wi
// ignored; rwork holds n reals. jobvs 'V' writes the Schur vectors into vs.
inline lapack_int gees(char jobvs, lapack_int n, float* a, lapack_int lda, float* w, float* wi, float* vs, lapack_int ldvs, float* work, lapack_int lwork, float*) { lapack_int info, sdim; const char sort = 'N'; LAPACK_sgees(&jobvs, &sort, nullptr, &n, a, &lda, &sdim, w, wi, vs, &ldvs, work, &lwork, nullptr, &info); return info; }
inline lapack_int gees(char jobvs, lapack_int n, double* a, lapack_int lda, double* w, double* wi, double* vs, lapack_int ldvs, double* work, lapack_int lwork, double*) { lapack_int info, sdim; const char sort = 'N'; LAPACK_dgees(&jobvs, &sort, nullptr, &n, a, &lda, &sdim, w, wi, vs, &ldvs, work, &lwork, nullptr, &info); return info; }
inline lapack_int gees(char jobvs, lapack_int n, cf* a, lapack_int lda, cf* w, float*, cf* vs, lapack_int ldvs, cf* work, lapack_int lwork, float* rwork) { lapack_int info, sdim; const char sort = 'N'; LAPACK_cgees(&jobvs, &sort, nullptr, &n, a, &lda, &sdim, w, vs, &ldvs, work, &lwork, rwork, nullptr, &info); return info; }
inline lapack_int gees(char jobvs, lapack_int n, cd* a, lapack_int lda, cd* w, double*, cd* vs, lapack_int ldvs, cd* work, lapack_int lwork, double* rwork) { lapack_int info, sdim; const char sort = 'N'; LAPACK_zgees(&jobvs, &sort, nullptr, &n, a, &lda, &sdim, w, vs, &ldvs, work, &lwork, rwork, nullptr, &info); return info; }

// Moves the diagonal block of a Schur form starting at row ifst (1-based) to row ilst by
// orthogonal similarity; compq 'V' updates the Schur vectors q. The real routines take a
// work array of n and may adjust ifst and ilst to block starts; the complex routines
// ignore work. info 1: the blocks were too close to swap.
inline lapack_int trexc(char compq, lapack_int n, float* t, lapack_int ldt, float* q, lapack_int ldq, lapack_int* ifst, lapack_int* ilst, float* work) { lapack_int info; LAPACK_strexc(&compq, &n, t, &ldt, q, &ldq, ifst, ilst, work, &info); return info; }
inline lapack_int trexc(char compq, lapack_int n, double* t, lapack_int ldt, double* q, lapack_int ldq, lapack_int* ifst, lapack_int* ilst, double* work) { lapack_int info; LAPACK_dtrexc(&compq, &n, t, &ldt, q, &ldq, ifst, ilst, work, &info); return info; }
inline lapack_int trexc(char compq, lapack_int n, cf* t, lapack_int ldt, cf* q, lapack_int ldq, lapack_int* ifst, lapack_int* ilst, cf*) { lapack_int info; LAPACK_ctrexc(&compq, &n, t, &ldt, q, &ldq, ifst, ilst, &info); return info; }
inline lapack_int trexc(char compq, lapack_int n, cd* t, lapack_int ldt, cd* q, lapack_int ldq, lapack_int* ifst, lapack_int* ilst, cd*) { lapack_int info; LAPACK_ztrexc(&compq, &n, t, &ldt, q, &ldq, ifst, ilst, &info); return info; }

// Generalized Schur form of a column-major pencil (A, B) without selection (SORT 'N').
// Real routines: alpha real parts into alpha, imaginary parts into alphai, beta real.
// Complex routines: alpha and beta complex, alphai ignored, rwork 8n reals.
inline lapack_int gges(char jobvsl, char jobvsr, lapack_int n, float* a, lapack_int lda, float* b, lapack_int ldb, float* alpha, float* alphai, float* beta, float* vsl, lapack_int ldvsl, float* vsr, lapack_int ldvsr, float* work, lapack_int lwork, float*) { lapack_int info, sdim; const char sort = 'N'; LAPACK_sgges(&jobvsl, &jobvsr, &sort, nullptr, &n, a, &lda, b, &ldb, &sdim, alpha, alphai, beta, vsl, &ldvsl, vsr, &ldvsr, work, &lwork, nullptr, &info); return info; }
inline lapack_int gges(char jobvsl, char jobvsr, lapack_int n, double* a, lapack_int lda, double* b, lapack_int ldb, double* alpha, double* alphai, double* beta, double* vsl, lapack_int ldvsl, double* vsr, lapack_int ldvsr, double* work, lapack_int lwork, double*) { lapack_int info, sdim; const char sort = 'N'; LAPACK_dgges(&jobvsl, &jobvsr, &sort, nullptr, &n, a, &lda, b, &ldb, &sdim, alpha, alphai, beta, vsl, &ldvsl, vsr, &ldvsr, work, &lwork, nullptr, &info); return info; }
inline lapack_int gges(char jobvsl, char jobvsr, lapack_int n, cf* a, lapack_int lda, cf* b, lapack_int ldb, cf* alpha, float*, cf* beta, cf* vsl, lapack_int ldvsl, cf* vsr, lapack_int ldvsr, cf* work, lapack_int lwork, float* rwork) { lapack_int info, sdim; const char sort = 'N'; LAPACK_cgges(&jobvsl, &jobvsr, &sort, nullptr, &n, a, &lda, b, &ldb, &sdim, alpha, beta, vsl, &ldvsl, vsr, &ldvsr, work, &lwork, rwork, nullptr, &info); return info; }
inline lapack_int gges(char jobvsl, char jobvsr, lapack_int n, cd* a, lapack_int lda, cd* b, lapack_int ldb, cd* alpha, double*, cd* beta, cd* vsl, lapack_int ldvsl, cd* vsr, lapack_int ldvsr, cd* work, lapack_int lwork, double* rwork) { lapack_int info, sdim; const char sort = 'N'; LAPACK_zgges(&jobvsl, &jobvsr, &sort, nullptr, &n, a, &lda, b, &ldb, &sdim, alpha, beta, vsl, &ldvsl, vsr, &ldvsr, work, &lwork, rwork, nullptr, &info); return info; }

// Moves the diagonal block pair of a generalized Schur form starting at row ifst
// (1-based) to row ilst; wantq / wantz update q and z. The real routines take a work
// array (lwork >= 4n + 16, -1 a size query) and may adjust ifst and ilst to block
// starts; the complex routines ignore work and lwork. info 1: the blocks were too close
// to swap.
inline lapack_int tgexc(bool wantq, bool wantz, lapack_int n, float* a, lapack_int lda, float* b, lapack_int ldb, float* q, lapack_int ldq, float* z, lapack_int ldz, lapack_int* ifst, lapack_int* ilst, float* work, lapack_int lwork) { lapack_int info; const lapack_logical wq = wantq, wz = wantz; LAPACK_stgexc(&wq, &wz, &n, a, &lda, b, &ldb, q, &ldq, z, &ldz, ifst, ilst, work, &lwork, &info); return info; }
inline lapack_int tgexc(bool wantq, bool wantz, lapack_int n, double* a, lapack_int lda, double* b, lapack_int ldb, double* q, lapack_int ldq, double* z, lapack_int ldz, lapack_int* ifst, lapack_int* ilst, double* work, lapack_int lwork) { lapack_int info; const lapack_logical wq = wantq, wz = wantz; LAPACK_dtgexc(&wq, &wz, &n, a, &lda, b, &ldb, q, &ldq, z, &ldz, ifst, ilst, work, &lwork, &info); return info; }
inline lapack_int tgexc(bool wantq, bool wantz, lapack_int n, cf* a, lapack_int lda, cf* b, lapack_int ldb, cf* q, lapack_int ldq, cf* z, lapack_int ldz, lapack_int* ifst, lapack_int* ilst, cf*, lapack_int) { lapack_int info; const lapack_logical wq = wantq, wz = wantz; LAPACK_ctgexc(&wq, &wz, &n, a, &lda, b, &ldb, q, &ldq, z, &ldz, ifst, ilst, &info); return info; }
inline lapack_int tgexc(bool wantq, bool wantz, lapack_int n, cd* a, lapack_int lda, cd* b, lapack_int ldb, cd* q, lapack_int ldq, cd* z, lapack_int ldz, lapack_int* ifst, lapack_int* ilst, cd*, lapack_int) { lapack_int info; const lapack_logical wq = wantq, wz = wantz; LAPACK_ztgexc(&wq, &wz, &n, a, &lda, b, &ldb, q, &ldq, z, &ldz, ifst, ilst, &info); return info; }

// Reorders a generalized Schur form so that the selected eigenvalues lead (ijob 0: no
// condition estimates, so pl, pr and dif are not referenced), then normalises it: for
// real data every 1 x 1 block gets a non-negative b(k, k) (the row of a and b and the
// column of q negated) and alpha, beta are read again from the diagonal blocks; for
// complex data (when at least one and not every eigenvalue is selected) b(k, k) is made
// real and non-negative by scaling the row of a and b and the column of q. Real
// routines: lwork >= 4n + 16; complex: lwork >= 1; liwork >= 1. The complex routines
// ignore alphai. m: the dimension of the selected subspace.
inline lapack_int tgsen(bool wantq, bool wantz, const lapack_logical* select, lapack_int n, float* a, lapack_int lda, float* b, lapack_int ldb, float* alpha, float* alphai, float* beta, float* q, lapack_int ldq, float* z, lapack_int ldz, lapack_int* m, float* work, lapack_int lwork, lapack_int* iwork, lapack_int liwork) { lapack_int info; const lapack_int ijob = 0; const lapack_logical wq = wantq, wz = wantz; float pl, pr, dif[2]; LAPACK_stgsen(&ijob, &wq, &wz, select, &n, a, &lda, b, &ldb, alpha, alphai, beta, q, &ldq, z, &ldz, m, &pl, &pr, dif, work, &lwork, iwork, &liwork, &info); return info; }
inline lapack_int tgsen(bool wantq, bool wantz, const lapack_logical* select, lapack_int n, double* a, lapack_int lda, double* b, lapack_int ldb, double* alpha, double* alphai, double* beta, double* q, lapack_int ldq, double* z, lapack_int ldz, lapack_int* m, double* work, lapack_int lwork, lapack_int* iwork, lapack_int liwork) { lapack_int info; const lapack_int ijob = 0; const lapack_logical wq = wantq, wz = wantz; double pl, pr, dif[2]; LAPACK_dtgsen(&ijob, &wq, &wz, select, &n, a, &lda, b, &ldb, alpha, alphai, beta, q, &ldq, z, &ldz, m, &pl, &pr, dif, work, &lwork, iwork, &liwork, &info); return info; }
inline lapack_int tgsen(bool wantq, bool wantz, const lapack_logical* select, lapack_int n, cf* a, lapack_int lda, cf* b, lapack_int ldb, cf* alpha, float*, cf* beta, cf* q, lapack_int ldq, cf* z, lapack_int ldz, lapack_int* m, cf* work, lapack_int lwork, lapack_int* iwork, lapack_int liwork) { lapack_int info; const lapack_int ijob = 0; const lapack_logical wq = wantq, wz = wantz; float pl, pr, dif[2]; LAPACK_ctgsen(&ijob, &wq, &wz, select, &n, a, &lda, b, &ldb, alpha, beta, q, &ldq, z, &ldz, m, &pl, &pr, dif, work, &lwork, iwork, &liwork, &info); return info; }
inline lapack_int tgsen(bool wantq, bool wantz, const lapack_logical* select, lapack_int n, cd* a, lapack_int lda, cd* b, lapack_int ldb, cd* alpha, double*, cd* beta, cd* q, lapack_int ldq, cd* z, lapack_int ldz, lapack_int* m, cd* work, lapack_int lwork, lapack_int* iwork, lapack_int liwork) { lapack_int info; const lapack_int ijob = 0; const lapack_logical wq = wantq, wz = wantz; double pl, pr, dif[2]; LAPACK_ztgsen(&ijob, &wq, &wz, select, &n, a, &lda, b, &ldb, alpha, beta, q, &ldq, z, &ldz, m, &pl, &pr, dif, work, &lwork, iwork, &liwork, &info); return info; }

}  // namespace ql::kernel
