// QZ (generalized Schur) decomposition of a square pencil (A, B): A = Q·S·Zᴴ and
// B = Q·T·Zᴴ with Q and Z orthogonal (unitary), T upper triangular and S upper
// quasi-triangular for real data (a 2 x 2 block per complex conjugate pair) or upper
// triangular for complex data. The generalized eigenvalues are alpha/beta; they can be
// sorted with the orderings of the Schur decomposition.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <functional>
#include <limits>

#include "factor/column_major.h"
#include "factor/schur.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "kernel/lapack_qr.h"
#include "kernel/workspace_query.h"

namespace ql {

namespace qz {

// The sort key of the eigenvalue alpha/beta. An infinite eigenvalue (beta = 0, alpha not
// 0) has no sign or direction: it counts as +infinity for every ordering, so it sorts
// after the finite ones going up and before them going down. 0/0 has no key (NaN): it
// sorts last either way.
template <class R, class B>
R Key(const std::complex<R>& alpha, const B& beta, int32_t ordering) {
  if (beta == B(0)) {
    return alpha == std::complex<R>(0) ? std::numeric_limits<R>::quiet_NaN() : std::numeric_limits<R>::infinity();
  }
  return schur::Key(std::complex<R>(alpha / beta), ordering);
}

}  // namespace qz

// The QZ worker. a, b: row-major n x n pencil. s, t: the generalized Schur form;
// q, z: the Schur vectors, both null for none; alpha (complex) and beta (element type):
// the eigenvalue pairs in the order of the diagonal; all row-major, sized by the caller.
// ordering: a QuarzSchurOrdering value, keyed by alpha/beta.
//
// The kernel needs the pencil itself, not its transpose (the transpose of a generalized
// Schur form is lower triangular), so both matrices are copied column-major and the
// results copied back. The work handle holds the two copies, the eigenvalue parts, the
// vectors, the kernel's workspace (and, for complex data, its 8n reals), and for
// reordering the block keys and the exchange routine's workspace; the int32 handle the
// block sizes and the selection and workspace of the normalisation that follows the
// exchanges (2n + 1). Both are required; the int32 handle is sized only when reordering.
//
// A pair with alpha = beta = 0 (a singular pencil) gives the warning WarnZeroPencil with
// every output in place.
template <class T>
Status QZCompute(const T* a, const T* b, int32_t n, int32_t ordering, T* s, T* t, T* q, T* z,
                 ComplexOf<T>* alpha, T* beta, ArrayHandle work, ArrayHandle iwork) {
  using R = RealOf<T>;
  constexpr bool kComplex = Elem<T>::kComplex;
  if (n < 1) return StatusEmptyInput;
  if (!schur::ValidOrdering(ordering)) return StatusBadOption;
  const int64_t nn = int64_t{n} * n;
  if (!AllAccepted(a, nn) || !AllAccepted(b, nn)) return StatusNotFinite;
  const bool vectors = q != nullptr;
  const char job = vectors ? 'V' : 'N';

  kernel::WorkspaceSizes sizes;
  const Status query = kernel::QueryWorkspace<T>(
      [&](T* w, lapack_int lw, auto...) {
        return kernel::gges(job, job, n, nullptr, n, nullptr, n, nullptr, nullptr, nullptr, nullptr, n, nullptr, n, w,
                            lw, nullptr);
      },
      {kComplex ? std::max<int64_t>(1, 2 * int64_t{n}) : std::max<int64_t>(8 * int64_t{n}, 6 * int64_t{n} + 16)},
      &sizes);
  if (query != StatusOk) return query;
  if (!work) return StatusKernelError;

  const bool reorder = ordering != QuarzSchurOrderingNone;
  const int64_t exchangeWork = kComplex ? 1 : 4 * int64_t{n} + 16;
  WorkLayout<T> layout;
  const auto sPiece = layout.template Add<T>(nn);
  const auto tPiece = layout.template Add<T>(nn);
  const auto alphaPiece = layout.template Add<T>(n);
  const auto alphaiPiece = layout.template Add<R>(kComplex ? 0 : n);
  const auto qPiece = layout.template Add<T>(vectors ? nn : 0);
  const auto zPiece = layout.template Add<T>(vectors ? nn : 0);
  const auto workPiece = layout.template Add<T>(sizes.work);
  const auto rworkPiece = layout.template Add<R>(kComplex ? 8 * int64_t{n} : 0);
  const auto keyPiece = layout.template Add<R>(reorder ? n : 0);
  const auto exchangePiece = layout.template Add<T>(reorder ? exchangeWork : 0);
  if (Status st = layout.Bind(work); st != StatusOk) return st;
  T* sc = layout.Get(sPiece);
  T* tc = layout.Get(tPiece);
  T* al = layout.Get(alphaPiece);
  R* ai = layout.Get(alphaiPiece);
  T* qc = vectors ? layout.Get(qPiece) : nullptr;
  T* zc = vectors ? layout.Get(zPiece) : nullptr;

  ToColumnMajor(a, n, n, sc);
  ToColumnMajor(b, n, n, tc);
  const lapack_int info = kernel::gges(job, job, n, sc, n, tc, n, al, ai, beta, qc, n, zc, n, layout.Get(workPiece),
                                       static_cast<lapack_int>(sizes.work), layout.Get(rworkPiece));
  // 1..n: the QZ iteration failed; n + 1: another failure inside it. n + 2 and n + 3
  // belong to the kernel's own reordering, which is not asked for.
  if (info > 0 && info <= n + 1) return StatusNoConvergence;
  if (info == n + 2) return StatusReorderInexact;
  if (info == n + 3) return StatusReorderFailed;
  if (info != 0) return StatusKernelError;
  schur::JoinParts(al, ai, n, alpha);

  if (reorder) {
    // The int32 handle: the block sizes, the selection that asks the kernel only to
    // normalise, and its one-element int32 workspace.
    int32_t* blockSizes;
    if (Status st = ResizeVector<int32_t>(iwork, 2 * n + 1, &blockSizes); st != StatusOk) return st;
    lapack_int* select = blockSizes + n;
    std::fill(select, select + n, lapack_int{0});
    select[0] = 1;
    R* keys = layout.Get(keyPiece);
    T* ew = layout.Get(exchangePiece);
    // Block exchanges leave b(k, k) of any sign (or phase), and alpha, beta as the
    // exchanges scaled them. Selecting only the leading block, which stands where it is,
    // makes the kernel's reordering routine move nothing and only normalise: b(k, k) real
    // and non-negative (a row of both matrices and the column of Q scaled by a unit
    // factor) and alpha, beta read again from the diagonal blocks. The kernel leaves the
    // rows of 2 x 2 blocks alone, and an exchange can leave one of them with a negative
    // b(k, k) (a pair close to two real eigenvalues): for real data every row with a
    // negative (or -0) b(k, k) is negated first, with its column of Q.
    //
    // An exact zero alpha or beta of a 1 x 1 block (an infinite or a 0/0 eigenvalue, as
    // the decomposition found it; the lists move with the blocks) stays exact: an
    // exchange leaves a rounding-level value there, which would turn an infinite
    // eigenvalue into an arbitrary huge one of any sign. It is set to 0 again when it is
    // within n eps of the pencil's largest element.
    const auto normalize = [&] {
      R* zeros = keys;  // free until the blocks are marked again
      for (int32_t k = 0; k < n; ++k) zeros[k] = R((beta[k] == T(0) ? 1 : 0) + (alpha[k] == ComplexOf<T>(0) ? 2 : 0));
      if constexpr (!kComplex) {
        for (int32_t k = 0; k < n; ++k) {
          if (!std::signbit(tc[int64_t{k} * n + k])) continue;
          for (int32_t c = 0; c < n; ++c) {
            sc[int64_t{c} * n + k] = -sc[int64_t{c} * n + k];
            tc[int64_t{c} * n + k] = -tc[int64_t{c} * n + k];
          }
          if (vectors) std::transform(qc + int64_t{k} * n, qc + int64_t{k + 1} * n, qc + int64_t{k} * n, std::negate<T>());
        }
      }
      lapack_int m;
      const lapack_int r = kernel::tgsen(vectors, vectors, select, n, sc, n, tc, n, al, ai, beta, qc, n, zc, n, &m,
                                         ew, static_cast<lapack_int>(exchangeWork), select + n, 1);
      R largest = 0;
      for (int64_t i = 0; i < nn; ++i) largest = std::max({largest, std::abs(sc[i]), std::abs(tc[i])});
      const R negligible = R(n) * Elem<T>::Epsilon() * largest;
      for (int32_t k = 0; k < n; ++k) {
        const int64_t kk = int64_t{k} * n + k;
        const bool single = kComplex || ((k == 0 || sc[kk - n] == T(0)) && (k + 1 == n || sc[kk + 1] == T(0)));
        if (!single) continue;
        if ((int(zeros[k]) & 1) && std::abs(tc[kk]) <= negligible) tc[kk] = beta[k] = T(0);
        if ((int(zeros[k]) & 2) && std::abs(sc[kk]) <= negligible) {
          sc[kk] = al[k] = T(0);
          if constexpr (!kComplex) ai[k] = R(0);
        }
      }
      schur::JoinParts(al, ai, n, alpha);
      return r;
    };
    const auto keyOf = [&](int32_t i) { return qz::Key(alpha[i], beta[i], ordering); };
    // A 2 x 2 block that splits while it is moved has two real eigenvalues now: they are
    // read again before the blocks are marked.
    const auto remark = [&](int32_t* sz, R* ky) {
      if (schur::BlocksMatch(sc, n, sz)) return schur::CountBlocks(n, sz);
      return normalize() == 0 ? schur::MarkBlocks(sc, n, keyOf, sz, ky) : -1;
    };
    const Status st = schur::BubbleSort(
        schur::MarkBlocks(sc, n, keyOf, blockSizes, keys), ordering, blockSizes, keys,
        [&](int32_t row, int32_t upper, int32_t lower) {
          lapack_int from = row + upper + 1, to = row + 1;
          const lapack_int r = kernel::tgexc(vectors, vectors, n, sc, n, tc, n, qc, n, zc, n, &from, &to, ew,
                                             static_cast<lapack_int>(exchangeWork));
          if (r == 0) {
            std::rotate(alpha + row, alpha + row + upper, alpha + row + upper + lower);
            std::rotate(beta + row, beta + row + upper, beta + row + upper + lower);
          }
          return r;
        },
        remark);
    if (st != StatusOk) return st;
    if (normalize() != 0) return StatusKernelError;
  }

  ToColumnMajor(sc, n, n, s);
  ToColumnMajor(tc, n, n, t);
  if (vectors) {
    ToColumnMajor(qc, n, n, q);
    ToColumnMajor(zc, n, n, z);
  }
  for (int32_t i = 0; i < n; ++i) {
    if (alpha[i] == ComplexOf<T>(0) && beta[i] == T(0)) return WarnZeroPencil;
  }
  return StatusOk;
}

// Checks in the order of the generalized eigenproblem: a size below 1 in A or B, then
// either not square, then orders that differ, then the ordering.
template <class T>
Status QZH(ArrayHandle ah, ArrayHandle bh, int32_t vectors, int32_t ordering, ArrayHandle sh, ArrayHandle th,
           ArrayHandle qh, ArrayHandle zh, ArrayHandle alphah, ArrayHandle betah, ArrayHandle work,
           ArrayHandle iwork) {
  const auto a0 = ReadMatrix<T>(ah);
  const auto b0 = ReadMatrix<T>(bh);
  if (a0.rows < 1 || a0.cols < 1 || b0.rows < 1 || b0.cols < 1) return StatusEmptyInput;
  if (a0.rows != a0.cols || b0.rows != b0.cols) return StatusNotSquare;
  if (a0.rows != b0.rows) return StatusPairSizeMismatch;
  if (!schur::ValidOrdering(ordering)) return StatusBadOption;
  const int32_t n = a0.rows, nv = vectors ? n : 0;
  T *s, *t, *q, *z, *beta;
  ComplexOf<T>* alpha;
  if (Status st = ResizeMatrix<T>(sh, n, n, &s); st != StatusOk) return st;
  if (Status st = ResizeMatrix<T>(th, n, n, &t); st != StatusOk) return st;
  if (Status st = ResizeMatrix<T>(qh, nv, nv, &q); st != StatusOk) return st;
  if (Status st = ResizeMatrix<T>(zh, nv, nv, &z); st != StatusOk) return st;
  if (Status st = ResizeVector<ComplexOf<T>>(alphah, n, &alpha); st != StatusOk) return st;
  if (Status st = ResizeVector<T>(betah, n, &beta); st != StatusOk) return st;
  return QZCompute(ReadMatrix<T>(ah).data, ReadMatrix<T>(bh).data, n, ordering, s, t, vectors ? q : nullptr,
                   vectors ? z : nullptr, alpha, beta, work, iwork);
}

}  // namespace ql
