// Operand checks shared by the koblas_ entry points: a BLAS routine addressed over host
// arrays, each matrix operand by a (row, column) offset into a host matrix and a leading
// dimension, each vector operand by an offset and an increment into a host vector.
//
// A sub-matrix starts at host element row * cols + col and the kernel walks from there
// in `runs` runs of `len` contiguous elements, ld apart; it may run across host rows,
// the checks only keep it inside the host block. Counts are computed in 64 bits, which
// holds every product of two int32 exactly.
#pragma once

#include <cblas.h>

#include <cstdint>
#include <cstdlib>

#include "frame/array.h"
#include "frame/status.h"

namespace ql::blas {

// The checking flag's one value that turns the checks on.
constexpr int32_t kCheck = 1;

inline bool IsLayout(int32_t v) { return v == CblasRowMajor || v == CblasColMajor; }
inline bool IsTranspose(int32_t v) { return v == CblasNoTrans || v == CblasTrans || v == CblasConjTrans; }
inline bool IsUplo(int32_t v) { return v == CblasUpper || v == CblasLower; }
inline bool IsDiag(int32_t v) { return v == CblasNonUnit || v == CblasUnit; }
inline bool IsSide(int32_t v) { return v == CblasLeft || v == CblasRight; }

// How the kernel walks an operand: `runs` runs of `len` contiguous elements.
struct Walk {
  int32_t runs, len;
};

// A rows x cols matrix in the given layout: rows of cols elements, or (column-major)
// columns of rows elements. Any layout value other than column-major reads as row-major;
// the dispatch refuses it afterwards.
inline Walk WalkOf(int32_t layout, int32_t rows, int32_t cols) {
  return layout == CblasColMajor ? Walk{cols, rows} : Walk{rows, cols};
}

// An offset that may address an array about to be sized: inside [0, size), or 0 when
// the size is 0.
inline bool OffsetInside(int32_t off, int32_t size) { return off >= 0 && (off < size || (off == 0 && size == 0)); }

template <class T>
Status MatrixOffset(const MatrixView<T>& M, int32_t row, int32_t col) {
  return OffsetInside(row, M.rows) && OffsetInside(col, M.cols) ? StatusOk : StatusBlasArgument;
}

// Elements of the host block from the sub-matrix's first element on.
template <class T>
int64_t ElementsFrom(const MatrixView<T>& M, int32_t row, int32_t col) {
  return int64_t{M.rows} * M.cols - int64_t{M.cols} * row - col;
}

// A walk of no run, or of runs of no element, reads nothing.
inline bool Empty(Walk w) { return w.runs == 0 || w.len == 0; }

// The walk ends inside the host block.
template <class T>
Status BlockHolds(const MatrixView<T>& M, int32_t row, int32_t col, Walk w, int32_t ld) {
  return (int64_t{w.runs} - 1) * ld + w.len <= ElementsFrom(M, row, col) ? StatusOk : StatusArrayTooSmall;
}

// The walk stays inside the host block and each run fits the leading dimension.
template <class T>
Status MatrixFits(const MatrixView<T>& M, int32_t row, int32_t col, Walk w, int32_t ld) {
  return w.len > ld ? StatusArrayTooSmall : BlockHolds(M, row, col, w, ld);
}

// The leading dimension handed to the kernel, which refuses (and reports) one below
// max(1, run length) even where it reads nothing: for an empty walk the value is never
// used and is raised to what the kernel accepts; below that for a walk that reads
// elements it is StatusArrayTooSmall. Every dispatch passes its operands through here,
// so no call, checked or trusted, reaches the kernel's argument report.
inline Status KernelLeading(int32_t& ld, Walk w) {
  const int32_t need = w.len > 1 ? w.len : 1;
  if (ld >= need) return StatusOk;
  if (!Empty(w)) return StatusArrayTooSmall;
  ld = need;
  return StatusOk;
}

// A vector walked `len` times from `off` with step |inc| fits in n elements. The offset
// is already known to lie in [0, n) and inc to be non-zero.
template <class T>
Status VectorFits(const VectorView<T>& v, int32_t off, int32_t inc, int32_t len) {
  return (int64_t{v.n} - off - 1) / std::llabs(inc) >= int64_t{len} - 1 ? StatusOk : StatusArrayTooSmall;
}

// Sizes an empty output matrix to hold a sub-matrix stored as `w` at (row, col): one
// host row per run plus `row` above, `ld` columns, or run length plus `col` when ld < 1;
// ld becomes that column count. The kernel then adds nothing of the old contents: beta
// becomes 0.
template <class T>
Status SizeEmptyMatrix(ArrayHandle h, MatrixView<T>& M, int32_t row, int32_t col, Walk w, int32_t& ld,
                       const T*& beta) {
  static const T kZero{};
  const int64_t rows = int64_t{w.runs} + row, cols = ld < 1 ? int64_t{w.len} + col : ld;
  if (rows > INT32_MAX || cols > INT32_MAX) return StatusOutOfMemory;
  if (const Status s = ResizeMatrix<T>(h, static_cast<int32_t>(rows), static_cast<int32_t>(cols)); s != StatusOk) {
    return s;
  }
  M = ReadMatrix<T>(h);
  ld = static_cast<int32_t>(cols);
  beta = &kZero;
  return StatusOk;
}

// Sizes an empty output vector to hold `len` elements from `off` with step |inc|.
template <class T>
Status SizeEmptyVector(ArrayHandle h, VectorView<T>& v, int32_t off, int32_t inc, int32_t len, const T*& beta) {
  static const T kZero{};
  if (const Status s = ResizeVector<T>(h, std::llabs(inc) * (int64_t{len} - 1) + 1 + off); s != StatusOk) return s;
  v = ReadVector<T>(h);
  beta = &kZero;
  return StatusOk;
}

// The first element of an operand for the kernel, trusted as given. A handle without a
// block is a missing required handle.
template <class T>
Status At(const MatrixView<T>& M, int32_t row, int32_t col, T*& p) {
  if (!M.data) return StatusKernelError;
  p = M.data + (int64_t{row} * M.cols + col);
  return StatusOk;
}

template <class T>
Status At(const VectorView<T>& v, int32_t off, T*& p) {
  if (!v.data) return StatusKernelError;
  p = v.data + off;
  return StatusOk;
}

}  // namespace ql::blas
