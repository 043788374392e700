// Typed overloads of the LAPACK routines behind the Hessenberg form: gehrd and
// unghr / orghr (the real generator under the complex name). Same conventions as
// kernel/lapack.h; lwork = -1 is a size query.
#pragma once

#include "kernel/lapack.h"

namespace ql::kernel {

// Reduces a column-major n x n matrix to upper Hessenberg form by an orthogonal
// (unitary) similarity: H on and above the subdiagonal, the reflectors below it, their
// scalars in tau (n - 1). Rows and columns outside ilo..ihi are taken as already reduced.
inline lapack_int gehrd(lapack_int n, lapack_int ilo, lapack_int ihi, float* a, lapack_int lda, float* tau, float* work, lapack_int lwork) { lapack_int info; LAPACK_sgehrd(&n, &ilo, &ihi, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int gehrd(lapack_int n, lapack_int ilo, lapack_int ihi, double* a, lapack_int lda, double* tau, double* work, lapack_int lwork) { lapack_int info; LAPACK_dgehrd(&n, &ilo, &ihi, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int gehrd(lapack_int n, lapack_int ilo, lapack_int ihi, cf* a, lapack_int lda, cf* tau, cf* work, lapack_int lwork) { lapack_int info; LAPACK_cgehrd(&n, &ilo, &ihi, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int gehrd(lapack_int n, lapack_int ilo, lapack_int ihi, cd* a, lapack_int lda, cd* tau, cd* work, lapack_int lwork) { lapack_int info; LAPACK_zgehrd(&n, &ilo, &ihi, a, &lda, tau, work, &lwork, &info); return info; }

// The orthogonal (unitary) Q of gehrd, generated in place from its reflectors.
inline lapack_int unghr(lapack_int n, lapack_int ilo, lapack_int ihi, float* a, lapack_int lda, const float* tau, float* work, lapack_int lwork) { lapack_int info; LAPACK_sorghr(&n, &ilo, &ihi, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int unghr(lapack_int n, lapack_int ilo, lapack_int ihi, double* a, lapack_int lda, const double* tau, double* work, lapack_int lwork) { lapack_int info; LAPACK_dorghr(&n, &ilo, &ihi, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int unghr(lapack_int n, lapack_int ilo, lapack_int ihi, cf* a, lapack_int lda, const cf* tau, cf* work, lapack_int lwork) { lapack_int info; LAPACK_cunghr(&n, &ilo, &ihi, a, &lda, tau, work, &lwork, &info); return info; }
inline lapack_int unghr(lapack_int n, lapack_int ilo, lapack_int ihi, cd* a, lapack_int lda, const cd* tau, cd* work, lapack_int lwork) { lapack_int info; LAPACK_zunghr(&n, &ilo, &ihi, a, &lda, tau, work, &lwork, &info); return info; }

}  // namespace ql::kernel
