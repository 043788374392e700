// QR factorization of a general m x n host matrix, A = Q·R, or with column pivoting
// A·P = Q·R, in full (Q m x m, R m x n), economy (Q m x k, R k x n) or R-only form,
// k = min(m, n).
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "factor/column_major.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "kernel/lapack_qr.h"
#include "kernel/workspace_query.h"
#include "products/transpose.h"

namespace ql {

namespace qr {

// Rows of R and columns of Q for a size option; -1 for a value outside the table.
inline int32_t FactorRank(int32_t m, int32_t n, int32_t size) {
  switch (size) {
    case QuarzQRSizeFull: return m;
    case QuarzQRSizeEconomy:
    case QuarzQRSizeROnly: return std::min(m, n);
    default: return -1;
  }
}

// The checks both workers start with, in their order: empty, finiteness, size option.
template <class T>
Status CheckInput(const T* a, int32_t m, int32_t n, int32_t size) {
  if (m < 1 || n < 1) return StatusEmptyInput;
  if (!AllAccepted(a, int64_t{m} * n)) return StatusNotFinite;
  if (FactorRank(m, n, size) < 0) return StatusBadOption;
  return StatusOk;
}

// The larger of two routines' workspace reports (each at least its documented minimum).
template <class T, class First, class Second>
Status QueryLarger(First&& first, int64_t firstMin, Second&& second, int64_t secondMin, bool both,
                   int64_t* lwork) {
  kernel::WorkspaceSizes a, b;
  if (Status s = kernel::QueryWorkspace<T>(first, {std::max<int64_t>(1, firstMin)}, &a); s != StatusOk) return s;
  if (both) {
    if (Status s = kernel::QueryWorkspace<T>(second, {std::max<int64_t>(1, secondMin)}, &b); s != StatusOk) return s;
  }
  *lwork = std::max(a.work, b.work);
  return StatusOk;
}

// Zeroes the strictly lower part of the first `rows` rows of a row-major matrix with
// `cols` columns, and every row from `rows` on up to `total`.
template <class T>
void ClearBelowDiagonal(T* r, int32_t rows, int32_t total, int32_t cols) {
  for (int32_t i = 0; i < rows; ++i) std::fill(r + int64_t{i} * cols, r + int64_t{i} * cols + std::min(i, cols), T(0));
  std::fill(r + int64_t{rows} * cols, r + int64_t{total} * cols, T(0));
}

}  // namespace qr

// The unpivoted worker: A = Q·R for the row-major m x n block a, into q (m x p, null for
// R only) and r (p' x n) that the caller sized: p = m (full) or k, and R has m rows in
// full mode, k otherwise.
//
// Read column-major with leading dimension n, the block is Aᵀ (n x m). Its LQ
// factorization Aᵀ = L·Y (Y k x m with orthonormal rows) gives A = Yᵀ·Lᵀ: R = Lᵀ and
// Q = Yᵀ, plain transposes, so complex data needs no conjugation. Both transposes come
// free: column i of L, from its diagonal down, is row i of the row-major view, and Y
// generated column-major with leading dimension p, read row-major, is Yᵀ.
//
// The rows of A are copied once, at stride ld, into the array the kernel works on. When
// Q is wanted and has at least n columns (tall or square A, full or economy), that array
// is Q's own block (ld = p) and Q is generated in place; otherwise it is a copy area in
// the work handle (ld = max(n, p)) whose first p entries per row become Q's rows. The
// work handle holds the copy area, the k reflector scalars and the kernel's workspace.
template <class T>
Status QRCompute(const T* a, int32_t m, int32_t n, T* q, T* r, int32_t size, ArrayHandle work) {
  if (Status s = qr::CheckInput(a, m, n, size); s != StatusOk) return s;
  const int32_t k = std::min(m, n), p = qr::FactorRank(m, n, size);
  const bool wantQ = size != QuarzQRSizeROnly;
  const bool inPlace = wantQ && p >= n;
  const int32_t ld = inPlace ? p : std::max(n, p);

  int64_t lwork = 0;
  const Status query = qr::QueryLarger<T>(
      [&](T* w, lapack_int lw, auto...) { return kernel::gelqf(n, m, nullptr, ld, nullptr, w, lw); }, n,
      [&](T* w, lapack_int lw, auto...) { return kernel::unglq(p, m, k, nullptr, ld, nullptr, w, lw); }, p,
      wantQ, &lwork);
  if (query != StatusOk) return query;

  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(inPlace ? 0 : int64_t{ld} * m);
  const auto tauPiece = layout.template Add<T>(k);
  const auto workPiece = layout.template Add<T>(lwork);
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  T* f = inPlace ? q : layout.Get(copyPiece);
  T* tau = layout.Get(tauPiece);
  T* w = layout.Get(workPiece);
  const auto lw = static_cast<lapack_int>(lwork);  // fits: Bind refused anything larger

  if (ld == n) {
    std::memcpy(static_cast<void*>(f), a, sizeof(T) * size_t(m) * size_t(n));
  } else {
    for (int32_t b = 0; b < m; ++b) std::memcpy(static_cast<void*>(f + int64_t{b} * ld), a + int64_t{b} * n, sizeof(T) * size_t(n));
  }
  if (kernel::gelqf(n, m, f, ld, tau, w, lw) != 0) return StatusKernelError;

  const int32_t rRows = size == QuarzQRSizeFull ? m : k;
  for (int32_t i = 0; i < k; ++i) {
    std::copy(f + int64_t{i} * ld + i, f + int64_t{i} * ld + n, r + int64_t{i} * n + i);
  }
  qr::ClearBelowDiagonal(r, k, rRows, n);

  if (!wantQ) return StatusOk;
  if (kernel::unglq(p, m, k, f, ld, tau, w, lw) != 0) return StatusKernelError;
  if (!inPlace) {
    for (int32_t b = 0; b < m; ++b) std::copy(f + int64_t{b} * ld, f + int64_t{b} * ld + p, q + int64_t{b} * p);
  }
  return StatusOk;
}

// The pivoted worker: A·P = Q·R with geqp3 (every column free) and ungqr. The column
// interchanges act on A's columns, so A is copied column-major (m x max(n, p), room for
// Q's columns when full Q has more columns than A). perm (n x n) and pivot (n) are
// written as well: pivot[j] is the 0-based column of A that became column j, and
// perm[pivot[j]][j] = 1. The work handle holds the copy, the reflector scalars, the
// kernel's workspace and, read by the complex kernel only, 2n reals.
template <class T>
Status QRPivotedCompute(const T* a, int32_t m, int32_t n, T* q, T* r, int32_t* perm, int32_t* pivot, int32_t size,
                        ArrayHandle work) {
  using R = RealOf<T>;
  if (Status s = qr::CheckInput(a, m, n, size); s != StatusOk) return s;
  const int32_t k = std::min(m, n), p = qr::FactorRank(m, n, size);
  const bool wantQ = size != QuarzQRSizeROnly;

  int64_t lwork = 0;
  const Status query = qr::QueryLarger<T>(
      [&](T* w, lapack_int lw, auto...) { return kernel::geqp3(m, n, nullptr, m, nullptr, nullptr, w, lw, nullptr); },
      int64_t{3} * n + 1,
      [&](T* w, lapack_int lw, auto...) { return kernel::ungqr(m, p, k, nullptr, m, nullptr, w, lw); }, p, wantQ,
      &lwork);
  if (query != StatusOk) return query;

  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(int64_t{m} * std::max(n, wantQ ? p : 0));
  const auto tauPiece = layout.template Add<T>(k);
  const auto workPiece = layout.template Add<T>(lwork);
  const auto rworkPiece = layout.template Add<R>(Elem<T>::kComplex ? int64_t{2} * n : 0);
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  T* f = layout.Get(copyPiece);
  T* tau = layout.Get(tauPiece);
  T* w = layout.Get(workPiece);
  const auto lw = static_cast<lapack_int>(lwork);

  ToColumnMajor(a, m, n, f);
  std::fill(pivot, pivot + n, 0);
  if (kernel::geqp3(m, n, f, m, pivot, tau, w, lw, layout.Get(rworkPiece)) != 0) return StatusKernelError;

  // R's first k rows are the transpose of the factor's first k rows (read as columns).
  TransposeCopy<T>(n, k, f, m, r, n);
  qr::ClearBelowDiagonal(r, k, size == QuarzQRSizeFull ? m : k, n);
  std::memset(perm, 0, sizeof(int32_t) * size_t(n) * size_t(n));
  for (int32_t j = 0; j < n; ++j) {
    pivot[j] -= 1;
    perm[int64_t{pivot[j]} * n + j] = 1;
  }

  if (!wantQ) return StatusOk;
  if (kernel::ungqr(m, p, k, f, m, tau, w, lw) != 0) return StatusKernelError;
  TransposeCopy<T>(p, m, f, m, q, p);
  return StatusOk;
}

// pivoting non-zero: A·P = Q·R with the permutation P (n x n int32) and the pivot vector
// (n entries); zero: A = Q·R with P and the pivot vector 0 x 0 / empty. size: full, economy
// or R only (Q 0 x 0).
template <class T>
Status QRH(ArrayHandle ah, ArrayHandle qh, ArrayHandle rh, ArrayHandle ph, ArrayHandle pivh, int32_t pivoting,
           int32_t size, ArrayHandle work) {
  const auto a0 = ReadMatrix<T>(ah);
  const int32_t m = a0.rows, n = a0.cols;
  if (m < 1 || n < 1) return StatusEmptyInput;
  const int32_t p = qr::FactorRank(m, n, size);
  if (p < 0) return StatusBadOption;
  const bool wantQ = size != QuarzQRSizeROnly;
  T *q = nullptr, *r;
  if (Status s = ResizeMatrix<T>(qh, wantQ ? m : 0, wantQ ? p : 0, &q); s != StatusOk) return s;
  if (Status s = ResizeMatrix<T>(rh, size == QuarzQRSizeFull ? m : p, n, &r); s != StatusOk) return s;
  const int32_t pn = pivoting ? n : 0;
  int32_t *perm, *pivot;
  if (Status s = ResizeIndexMatrix(ph, pn, pn, &perm); s != StatusOk) return s;
  if (Status s = ResizeVector<int32_t>(pivh, pn, &pivot); s != StatusOk) return s;
  // A is read again: the views stay valid only while no resize touched their handle.
  const T* a = ReadMatrix<T>(ah).data;
  if (pivoting) return QRPivotedCompute(a, m, n, wantQ ? q : nullptr, r, perm, pivot, size, work);
  return QRCompute(a, m, n, wantQ ? q : nullptr, r, size, work);
}

}  // namespace ql
