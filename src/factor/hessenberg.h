// The Hessenberg form A = Q·H·Qᴴ and balancing B = T⁻¹·A·T of a square host matrix: the
// reductions most eigenvalue algorithms start from.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "factor/column_major.h"
#include "frame/array.h"
#include "frame/finite_scan.h"
#include "frame/workspace.h"
#include "kernel/lapack_hessenberg.h"
#include "kernel/lapack_matfun.h"
#include "kernel/workspace_query.h"

namespace ql {

// H (n x n) upper Hessenberg and, with vectors non-zero, the unitary Q (n x n; else
// 0 x 0) with A = Q·H·Qᴴ. The kernel reduces the transpose of what it is given, so A is
// copied column-major into the work handle and reduced there; H is copied back row-major
// and zeroed below its subdiagonal, then Q is generated in place of the reflectors and
// copied back too. The work handle holds the reflectors' scalars (n - 1, at least one),
// that n x n column-major block, and the larger of the two routines' workspaces.
template <class T>
Status HessenbergH(ArrayHandle ah, int32_t vectors, ArrayHandle hh, ArrayHandle qh, ArrayHandle work) {
  const auto a0 = ReadMatrix<T>(ah);
  const int32_t n = a0.rows;
  if (n < 1) return StatusEmptyInput;
  if (a0.cols != n) return StatusNotSquare;
  const int64_t nn = int64_t{n} * n;
  if (!AllAccepted(a0.data, nn)) return StatusNotFinite;
  T *h, *q = nullptr;
  if (Status s = ResizeMatrix<T>(hh, n, n, &h); s != StatusOk) return s;
  if (Status s = ResizeMatrix<T>(qh, vectors ? n : 0, vectors ? n : 0, &q); s != StatusOk) return s;

  kernel::WorkspaceSizes reduce, generate;
  const int64_t minimum = std::max(1, n);
  if (Status s = kernel::QueryWorkspace<T>(
          [&](T* w, lapack_int lw, auto...) { return kernel::gehrd(n, 1, n, nullptr, n, nullptr, w, lw); },
          {minimum}, &reduce);
      s != StatusOk) {
    return s;
  }
  if (vectors) {
    if (Status s = kernel::QueryWorkspace<T>(
            [&](T* w, lapack_int lw, auto...) { return kernel::unghr(n, 1, n, nullptr, n, nullptr, w, lw); },
            {minimum}, &generate);
        s != StatusOk) {
      return s;
    }
  }
  if (!work) return StatusKernelError;
  const int64_t lwork = std::max(reduce.work, generate.work);
  WorkLayout<T> layout;
  const auto tauPiece = layout.template Add<T>(std::max(1, n - 1));
  const auto fPiece = layout.template Add<T>(nn);
  const auto workPiece = layout.template Add<T>(lwork);
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  T* tau = layout.Get(tauPiece);
  T* w = layout.Get(workPiece);

  T* f = layout.Get(fPiece);
  ToColumnMajor(ReadMatrix<T>(ah).data, n, n, f);
  if (kernel::gehrd(n, 1, n, f, n, tau, w, static_cast<lapack_int>(lwork)) != 0) return StatusKernelError;
  ToColumnMajor(f, n, n, h);
  for (int64_t i = 2; i < n; ++i) std::fill(h + i * n, h + i * n + i - 1, T(0));
  if (vectors) {
    if (kernel::unghr(n, 1, n, f, n, tau, w, static_cast<lapack_int>(lwork)) != 0) return StatusKernelError;
    ToColumnMajor(f, n, n, q);
  }
  return StatusOk;
}

// B = T⁻¹·A·T with T = P·D: job none, permute (P isolates eigenvalues at the ends), scale
// (D, powers of 2, equalises row and column norms) or both. scale receives D's n
// diagonal entries (1 where nothing was scaled), perm the 0-based permutation with
// P[perm[j]][j] = 1, so that B[i][j] = A[perm[i]][perm[j]]·scale[j] / scale[i]. The
// kernel balances what it is given in its layout, so A is copied column-major into B's
// block and balanced there; B is then formed row-major from A by that formula, exact
// since the scale factors are powers of 2 (one gathering pass, cheaper than a transpose
// in place). No scratch is needed.
template <class T>
Status BalanceH(ArrayHandle ah, int32_t job, ArrayHandle bh, ArrayHandle scaleh, ArrayHandle permh) {
  using R = RealOf<T>;
  const auto a0 = ReadMatrix<T>(ah);
  const int32_t n = a0.rows;
  if (n < 1) return StatusEmptyInput;
  if (a0.cols != n) return StatusNotSquare;
  if (job < QuarzBalanceNone || job > QuarzBalanceBoth) return StatusBadOption;
  if (!AllAccepted(a0.data, int64_t{n} * n)) return StatusNotFinite;
  T* b;
  R* scale;
  int32_t* perm;
  if (Status s = ResizeMatrix<T>(bh, n, n, &b); s != StatusOk) return s;
  if (Status s = ResizeVector<R>(scaleh, n, &scale); s != StatusOk) return s;
  if (Status s = ResizeVector<int32_t>(permh, n, &perm); s != StatusOk) return s;
  ToColumnMajor(ReadMatrix<T>(ah).data, n, n, b);
  static constexpr char kJob[] = {'N', 'P', 'S', 'B'};
  lapack_int ilo, ihi;
  if (kernel::gebal(kJob[job], n, b, n, &ilo, &ihi, scale) != 0) return StatusKernelError;
  // The kernel's scale holds, outside ilo..ihi, the 1-based index each row and column
  // was exchanged with: from the last down to ihi + 1, then from the first up to ilo - 1.
  for (int32_t j = 0; j < n; ++j) perm[j] = j;
  const auto exchange = [&](int32_t j) {
    const int32_t k = static_cast<int32_t>(scale[j]) - 1;
    std::swap(perm[j], perm[k]);
    scale[j] = R(1);
  };
  for (int32_t j = n - 1; j >= ihi; --j) exchange(j);
  for (int32_t j = 0; j < ilo - 1; ++j) exchange(j);
  const T* a = ReadMatrix<T>(ah).data;
  for (int64_t i = 0; i < n; ++i) {
    const T* row = a + int64_t{perm[i]} * n;
    const R down = R(1) / scale[i];
    T* out = b + i * n;
    for (int64_t j = 0; j < n; ++j) out[j] = row[perm[j]] * (scale[j] * down);
  }
  return StatusOk;
}

}  // namespace ql
