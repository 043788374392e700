// Schur decomposition A = U·T·Uᴴ of a square host matrix: T upper quasi-triangular with
// 1 x 1 and 2 x 2 diagonal blocks for real data (a 2 x 2 block per complex conjugate
// pair), upper triangular for complex data; optionally with the eigenvalues sorted by
// real part or modulus. The worker SchurCompute is shared with the matrix functions.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <utility>

#include "factor/column_major.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "kernel/lapack_qr.h"
#include "kernel/workspace_query.h"

namespace ql {

namespace schur {

inline bool ValidOrdering(int32_t ordering) {
  return static_cast<uint32_t>(ordering) <= static_cast<uint32_t>(QuarzSchurOrderingModulusDecreasing);
}

inline bool Increasing(int32_t ordering) {
  return ordering == QuarzSchurOrderingRealIncreasing || ordering == QuarzSchurOrderingModulusIncreasing;
}

inline bool ByRealPart(int32_t ordering) {
  return ordering == QuarzSchurOrderingRealIncreasing || ordering == QuarzSchurOrderingRealDecreasing;
}

// The sort key of an eigenvalue: its real part, or its squared modulus re² + im².
template <class R>
R Key(const std::complex<R>& v, int32_t ordering) {
  return ByRealPart(ordering) ? v.real() : v.real() * v.real() + v.imag() * v.imag();
}

// True when the block with key `upper` must move below the one with key `lower`. Equal
// keys never move, so ties keep the kernel's order. A NaN key (an undetermined 0/0
// eigenvalue of a pencil) belongs after every number in either direction.
template <class R>
bool OutOfOrder(R upper, R lower, bool increasing) {
  if (std::isnan(upper)) return !std::isnan(lower);
  if (std::isnan(lower)) return false;
  return increasing ? upper > lower : lower > upper;
}

// Sizes (1 or 2) of the diagonal blocks of a column-major quasi-triangular n x n matrix,
// read from its subdiagonal, into sizes[0..count); the keys of their eigenvalues (the
// block's first) into keys. Complex data has 1 x 1 blocks only.
template <class T, class K>
int32_t MarkBlocks(const T* t, int32_t n, const K& keyOf, int32_t* sizes, RealOf<T>* keys) {
  int32_t count = 0;
  for (int32_t i = 0; i < n;) {
    const bool pair = !Elem<T>::kComplex && i + 1 < n && t[int64_t{i} * n + i + 1] != T(0);
    sizes[count] = pair ? 2 : 1;
    keys[count++] = keyOf(i);
    i += sizes[count - 1];
  }
  return count;
}

// Exchanges rows i and i + 1 and columns i and i + 1 of the column-major n x n matrix t.
template <class T>
void ExchangeAdjacent(T* t, int32_t n, int32_t i) {
  std::swap_ranges(t + int64_t{i} * n, t + int64_t{i + 1} * n, t + int64_t{i + 1} * n);
  for (int32_t c = 0; c < n; ++c) std::swap(t[int64_t{c} * n + i], t[int64_t{c} * n + i + 1]);
}

// True when the block sizes still match the subdiagonal of the column-major matrix t.
template <class T>
bool BlocksMatch(const T* t, int32_t n, const int32_t* sizes) {
  for (int32_t row = 0, b = 0; row < n; row += sizes[b++]) {
    const bool pair = !Elem<T>::kComplex && row + 1 < n && t[int64_t{row} * n + row + 1] != T(0);
    if ((pair ? 2 : 1) != sizes[b]) return false;
  }
  return true;
}

inline int32_t CountBlocks(int32_t n, const int32_t* sizes) {
  int32_t count = 0;
  for (int32_t row = 0; row < n; row += sizes[count++]) {
  }
  return count;
}

// Bubble passes over the diagonal blocks from the top: whenever two adjacent blocks are
// out of order the lower one is moved up past the upper one by
// `exchange(row, upper, lower)` (the pair starts at 0-based `row`, the blocks have
// `upper` and `lower` rows; it moves the eigenvalue lists along and returns the kernel's
// info), and their sizes and keys are exchanged too; passes repeat until one makes no
// exchange. The block sizes live in `sizes` (n entries). After each exchange `remark`
// checks the block structure against the matrix and marks the blocks again when it
// changed (a 2 x 2 block of a nearly real pair splitting into two 1 x 1 blocks); it
// returns the block count, or a negative number when the kernel failed.
template <class R, class Exchange, class Remark>
Status BubbleSort(int32_t count, int32_t ordering, int32_t* sizes, R* keys, Exchange&& exchange, Remark&& remark) {
  const bool increasing = Increasing(ordering);
  for (bool moved = true; moved;) {
    moved = false;
    int32_t row = 0;
    for (int32_t b = 0; b + 1 < count; ++b) {
      const int32_t upper = sizes[b], lower = sizes[b + 1];
      if (OutOfOrder(keys[b], keys[b + 1], increasing)) {
        const lapack_int info = exchange(row, upper, lower);
        if (info < 0) return StatusKernelError;
        if (info > 0) return StatusReorderFailed;
        std::swap(sizes[b], sizes[b + 1]);
        std::swap(keys[b], keys[b + 1]);
        moved = true;
        const int32_t again = remark(sizes, keys);
        if (again < 0) return StatusKernelError;
        if (again != count) {
          count = again;
          break;
        }
      }
      row += sizes[b];
    }
  }
  return StatusOk;
}

// Eigenvalues as the kernel reports them, for real data in two real arrays (im unused for
// complex data), as complex numbers.
template <class T>
void JoinParts(const T* re, const RealOf<T>* im, int32_t n, ComplexOf<T>* out) {
  for (int32_t i = 0; i < n; ++i) {
    if constexpr (IsComplex<T>::value) {
      out[i] = re[i];
    } else {
      out[i] = {re[i], im[i]};
    }
  }
}

}  // namespace schur

// The Schur worker. a: row-major n x n, replaced by T. u: row-major n x n Schur vectors,
// or null for none. values: the n eigenvalues in the order of T's diagonal. ordering:
// a QuarzSchurOrdering value. The caller sizes u and values.
//
// The work handle holds the column-major copy that the kernel turns into T, the
// eigenvalue parts, the Schur vectors, the kernel's workspace and, for reordering, the
// block keys and the exchange routine's workspace; the int32 handle the block sizes.
// Both are required: the int32 handle is sized only when the eigenvalues are reordered.
template <class T>
Status SchurCompute(T* a, int32_t n, int32_t ordering, T* u, ComplexOf<T>* values, ArrayHandle work,
                    ArrayHandle iwork) {
  using R = RealOf<T>;
  constexpr bool kComplex = Elem<T>::kComplex;
  if (n < 1) return StatusEmptyInput;
  if (!schur::ValidOrdering(ordering)) return StatusBadOption;
  const int64_t nn = int64_t{n} * n;
  if (!AllAccepted(a, nn)) return StatusNotFinite;
  const char jobvs = u ? 'V' : 'N';

  kernel::WorkspaceSizes sizes;
  const Status query = kernel::QueryWorkspace<T>(
      [&](T* w, lapack_int lw, auto...) {
        return kernel::gees(jobvs, n, nullptr, n, nullptr, nullptr, nullptr, n, w, lw, nullptr);
      },
      {std::max<int64_t>(1, (kComplex ? 2 : 3) * int64_t{n})}, &sizes);
  if (query != StatusOk) return query;
  if (!work) return StatusKernelError;

  const bool reorder = ordering != QuarzSchurOrderingNone;
  WorkLayout<T> layout;
  const auto tPiece = layout.template Add<T>(nn);
  const auto wPiece = layout.template Add<T>(n);
  const auto wiPiece = layout.template Add<R>(kComplex ? 0 : n);
  const auto vsPiece = layout.template Add<T>(u ? nn : 0);
  const auto workPiece = layout.template Add<T>(sizes.work);
  const auto rworkPiece = layout.template Add<R>(kComplex ? n : 0);
  const auto keyPiece = layout.template Add<R>(reorder ? n : 0);
  const auto exchangePiece = layout.template Add<T>(reorder && !kComplex ? n : 0);
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  T* t = layout.Get(tPiece);
  T* w = layout.Get(wPiece);
  R* wi = layout.Get(wiPiece);
  T* vs = u ? layout.Get(vsPiece) : nullptr;

  ToColumnMajor(a, n, n, t);
  const lapack_int info = kernel::gees(jobvs, n, t, n, w, wi, vs, n, layout.Get(workPiece),
                                       static_cast<lapack_int>(sizes.work), layout.Get(rworkPiece));
  if (info != 0) {
    if (info > 0 && info <= n) return StatusNoConvergence;
    if (info == n + 1) return StatusReorderFailed;
    if (info == n + 2) return StatusReorderInexact;
    return StatusKernelError;
  }
  schur::JoinParts(w, wi, n, values);

  if (reorder) {
    if constexpr (!kComplex) {
      // A pair whose imaginary part is at rounding level is made real, two 1 x 1 blocks
      // with the pair's real part. Rounding level: |im| within n·ε of |re|, and
      // |im| = sqrt(|b|·|c|) within ε of |b| + |c| for the block's off-diagonal entries
      // b (above) and c (below). Only the smaller of b and c is set to 0: zeroing both
      // would move A by the larger one, which need not be small (b = 1, c = -1e-40),
      // while the smaller is at most |im|. When b is the smaller one the two rows and
      // columns are first exchanged (an exact orthogonal similarity, applied to the
      // Schur vectors too), which puts it below the diagonal.
      const R eps = Elem<T>::Epsilon();
      for (int32_t i = 0; i + 1 < n; ++i) {
        if (values[i].imag() == R(0)) continue;
        const R re = values[i].real(), im = std::abs(values[i].imag());
        const T b = t[int64_t{i + 1} * n + i], c = t[int64_t{i} * n + i + 1];
        if (re != R(0) && im / std::abs(re) <= R(n) * eps && im <= eps * (std::abs(b) + std::abs(c))) {
          if (std::abs(b) < std::abs(c)) {
            schur::ExchangeAdjacent(t, n, i);
            if (vs) std::swap_ranges(vs + int64_t{i} * n, vs + int64_t{i + 1} * n, vs + int64_t{i + 1} * n);
          }
          t[int64_t{i} * n + i + 1] = T(0);
          values[i] = values[i + 1] = re;
        }
        ++i;
      }
    }
    int32_t* blockSizes;
    if (Status s = ResizeVector<int32_t>(iwork, n, &blockSizes); s != StatusOk) return s;
    R* keys = layout.Get(keyPiece);
    T* exchangeWork = layout.Get(exchangePiece);
    const char compq = u ? 'V' : 'N';
    const auto keyOf = [&](int32_t i) { return schur::Key(values[i], ordering); };
    const auto remark = [&](int32_t* sz, R* ky) {
      if constexpr (!kComplex) {
        // Eigenvalues of the blocks as they now stand, the way the kernel reports them.
        for (int32_t i = 0; i < n; ++i) {
          const bool pair = i + 1 < n && t[int64_t{i} * n + i + 1] != T(0);
          if (!pair) {
            values[i] = t[int64_t{i} * n + i];
            continue;
          }
          const R im = std::sqrt(std::abs(t[int64_t{i + 1} * n + i])) * std::sqrt(std::abs(t[int64_t{i} * n + i + 1]));
          values[i] = {t[int64_t{i} * n + i], im};
          values[i + 1] = {t[int64_t{i} * n + i], -im};
          ++i;
        }
      }
      return schur::MarkBlocks(t, n, keyOf, sz, ky);
    };
    const int32_t count = schur::MarkBlocks(t, n, keyOf, blockSizes, keys);
    // Only a changed structure calls for marking again; on every other exchange the
    // swapped lists already describe the blocks.
    const auto remarkIfSplit = [&](int32_t* sz, R* ky) {
      return schur::BlocksMatch(t, n, sz) ? schur::CountBlocks(n, sz) : remark(sz, ky);
    };
    const Status s = schur::BubbleSort(
        count, ordering, blockSizes, keys,
        [&](int32_t row, int32_t upper, int32_t lower) {
          lapack_int from = row + upper + 1, to = row + 1;
          const lapack_int info = kernel::trexc(compq, n, t, n, vs, n, &from, &to, exchangeWork);
          if (info == 0) std::rotate(values + row, values + row + upper, values + row + upper + lower);
          return info;
        },
        remarkIfSplit);
    if (s != StatusOk) return s;
  }

  ToColumnMajor(t, n, n, a);
  if (u) ToColumnMajor(vs, n, n, u);
  return StatusOk;
}

// vectors non-zero: the Schur vectors into U (n x n), else U is 0 x 0. ordering: none or
// the eigenvalues sorted by real part or squared modulus, up or down. T replaces A.
template <class T>
Status SchurH(ArrayHandle ah, int32_t vectors, int32_t ordering, ArrayHandle uh, ArrayHandle valuesh,
              ArrayHandle work, ArrayHandle iwork) {
  const auto a0 = ReadMatrix<T>(ah);
  const int32_t n = a0.rows;
  if (n < 1) return StatusEmptyInput;
  if (a0.cols != n) return StatusNotSquare;
  if (!schur::ValidOrdering(ordering)) return StatusBadOption;
  T* u = nullptr;
  if (Status s = ResizeMatrix<T>(uh, vectors ? n : 0, vectors ? n : 0, &u); s != StatusOk) return s;
  ComplexOf<T>* values;
  if (Status s = ResizeVector<ComplexOf<T>>(valuesh, n, &values); s != StatusOk) return s;
  return SchurCompute(ReadMatrix<T>(ah).data, n, ordering, vectors ? u : nullptr, values, work, iwork);
}

}  // namespace ql
