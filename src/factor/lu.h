// LU factorization with partial pivoting, P·A = L·U, of a general m x n host matrix.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "factor/column_major.h"
#include "frame/array.h"
#include "kernel/lapack.h"

namespace ql {

// Splits the kernel's packed column-major factor F (leading dimension ldf, pivots already
// 0-based) into unit lower trapezoidal L (m x k), upper trapezoidal U (k x n) and the
// 0/1 permutation P (m x m) with P[i][r] = 1 when row i of P·A is row r of A. w is an
// int32 scratch of m entries that tracks which original row sits at each position while
// the interchanges are replayed in order.
template <class T>
void AssembleLU(const T* f, int64_t ldf, int32_t m, int32_t n, const int32_t* piv, T* l, T* u, int32_t* p,
                int32_t* w) {
  const int32_t k = std::min(m, n);
  // One of L and U has A's shape (L when m >= n, U when m <= n). For L, a band of rows
  // at a time: the factor's columns left of the band's diagonal block go to L, those
  // right of it to U (both with the blocked copy), the diagonal block to L, and its rows
  // are split there while the band is in cache.
  if (m >= n) {
    constexpr int32_t kBand = 64;
    for (int32_t i0 = 0; i0 < m; i0 += kBand) {
      const int32_t i1 = std::min(m, i0 + kBand), h = i1 - i0;
      const int32_t j1 = std::min(n, i1);  // the band's diagonal block is columns i0..j1
      TransposeCopy<T>(j1, h, f + i0, ldf, l + int64_t{i0} * n, n);
      if (j1 < n) TransposeCopy<T>(n - j1, h, f + j1 * ldf + i0, ldf, u + int64_t{i0} * n + j1, n);
      for (int32_t i = i0; i < std::min(i1, k); ++i) {
        T* lrow = l + int64_t{i} * n;
        T* urow = u + int64_t{i} * n;
        std::fill(urow, urow + i, T(0));
        std::copy(lrow + i, lrow + j1, urow + i);
        lrow[i] = T(1);
        std::fill(lrow + i + 1, lrow + n, T(0));
      }
    }
  } else {
    TransposeCopy<T>(n, m, f, ldf, u, n);
    for (int32_t i = 0; i < m; ++i) {
      T* lrow = l + int64_t{i} * k;
      T* urow = u + int64_t{i} * n;
      std::copy(urow, urow + i, lrow);
      lrow[i] = T(1);
      std::fill(lrow + i + 1, lrow + k, T(0));
      std::fill(urow, urow + i, T(0));
    }
  }
  std::memset(p, 0, sizeof(int32_t) * size_t(m) * size_t(m));
  for (int32_t i = 0; i < m; ++i) w[i] = i;
  for (int32_t i = 0; i < m; ++i) {
    const int32_t r = piv[i];
    p[int64_t{i} * m + w[r]] = 1;
    if (r != i) w[r] = w[i];
  }
}

// The worker behind LUH: copies A column-major into the element work handle, factors it
// there with getrf (pivots straight into the pivot output), then assembles L, U and P.
// An exact zero pivot is the warning 20003 with every output filled.
template <class T>
Status LUFactorize(const T* a, int32_t m, int32_t n, T* l, T* u, int32_t* p, int32_t* piv,
                   ArrayHandle work, ArrayHandle iwork) {
  if (m < 1 || n < 1) return StatusEmptyInput;
  if (!work || !iwork) return StatusKernelError;
  // The factor starts on a cache line where the element alignment allows it (the host
  // block's elements start 4 or 8 bytes into it): the blocked transpose into it then
  // writes whole lines from its first row on. The work handle holds the few elements
  // that may take. A column stride that is a multiple of 1 KB would put the columns that
  // the transposes and getrf touch together into a few first-level cache sets, so such a
  // stride gets one more cache line; getrf's result does not depend on its stride.
  constexpr int64_t kLineElements = 64 / sizeof(T);
  const int64_t ldf = m + (int64_t{m} * int64_t{sizeof(T)} % 1024 == 0 ? kLineElements : 0);
  T* w0;
  // The factor may exceed the host's int32 element count: ResizeVector refuses it unasked.
  if (Status s = ResizeVector<T>(work, ldf * n + kLineElements - 1, &w0); s != StatusOk) return s;
  const auto address = reinterpret_cast<uintptr_t>(w0);
  T* f = w0 + (address % sizeof(T) == 0 ? (64 - address % 64) % 64 / sizeof(T) : 0);
  TransposeCopy<T>(m, n, a, n, f, ldf);
  const lapack_int info = kernel::getrf(m, n, f, static_cast<lapack_int>(ldf), piv);
  if (info < 0) return StatusKernelError;
  const Status result = info > 0 ? Status{WarnSingular} : Status{StatusOk};
  const int32_t k = std::min(m, n);
  for (int32_t i = 0; i < k; ++i) piv[i] -= 1;
  for (int32_t i = k; i < m; ++i) piv[i] = i;
  int32_t* w;
  if (Status s = ResizeVector<int32_t>(iwork, m, &w); s != StatusOk) return s;
  AssembleLU(f, ldf, m, n, piv, l, u, p, w);
  return result;
}

template <class T>
Status LUH(ArrayHandle ah, ArrayHandle lh, ArrayHandle uh, ArrayHandle ph, ArrayHandle pivh,
           ArrayHandle work, ArrayHandle iwork) {
  const auto a0 = ReadMatrix<T>(ah);
  const int32_t m = a0.rows, n = a0.cols;
  if (m < 1 || n < 1) return StatusEmptyInput;
  const int32_t k = std::min(m, n);
  T *l, *u;
  int32_t *p, *piv;
  if (Status s = ResizeMatrix<T>(lh, m, k, &l); s != StatusOk) return s;
  if (Status s = ResizeMatrix<T>(uh, k, n, &u); s != StatusOk) return s;
  if (Status s = ResizeIndexMatrix(ph, m, m, &p); s != StatusOk) return s;
  if (Status s = ResizeVector<int32_t>(pivh, m, &piv); s != StatusOk) return s;
  // A is read again: the views stay valid only while no resize touched their handle.
  return LUFactorize(ReadMatrix<T>(ah).data, m, n, l, u, p, piv, work, iwork);
}

}  // namespace ql
