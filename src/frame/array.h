// Views of host arrays and the one way outputs are sized and emptied.
//
// A view is read once from a handle and must be read again after any resize of that
// handle, since the host may move the block.
#pragma once

#include <cstdint>

#include "frame/host_binding.h"
#include "frame/status.h"
#include "frame/traits.h"

namespace ql {

inline int32_t* SizesOf(ArrayHandle h) {
  return (h && *h) ? reinterpret_cast<int32_t*>(*h) : nullptr;
}

template <class T>
struct VectorView {
  int32_t n;
  T* data;
};

template <class T>
struct MatrixView {
  int32_t rows, cols;
  T* data;
};

// A null handle or a handle without a block reads as empty.
template <class T>
inline VectorView<T> ReadVector(ArrayHandle h) {
  int32_t* s = SizesOf(h);
  if (!s) return {0, nullptr};
  return {s[0], reinterpret_cast<T*>(reinterpret_cast<char*>(s) + Elem<T>::kOffset1D)};
}

template <class T>
inline MatrixView<T> ReadMatrix(ArrayHandle h) {
  int32_t* s = SizesOf(h);
  if (!s) return {0, 0, nullptr};
  return {s[0], s[1], reinterpret_cast<T*>(reinterpret_cast<char*>(s) + kOffset2D)};
}

// ceil(log2 x); 0 for x <= 1.
inline int CeilLog2(int32_t x) {
  return x <= 1 ? 0 : 32 - __builtin_clz(static_cast<uint32_t>(x) - 1u);
}

// The host counts elements in an int32. Every size is computed in 64 bits and refused
// here, before the host is asked, when it is negative or does not fit.
inline bool HostCountFits(int64_t n) { return n >= 0 && n <= INT32_MAX; }

// Sizes a 1-D output to n elements; no host call when it already has n. A null handle
// cannot receive a block (the host would hand the new handle to our local copy), so it
// is a missing required handle, unless no element is asked for (the frame decides
// whether that output may be missing).
template <class T>
Status ResizeVector(ArrayHandle h, int64_t n, T** data = nullptr) {
  if (data) *data = nullptr;
  if (!h) return n == 0 ? StatusOk : StatusKernelError;
  if (!HostCountFits(n)) return StatusOutOfMemory;
  if (!*h || SizesOf(h)[0] != n) {
    ArrayHandle local = h;
    if (HostResize(Elem<T>::kTypeCode, 1, &local, static_cast<int32_t>(n)) != 0) return StatusOutOfMemory;
    SizesOf(h)[0] = static_cast<int32_t>(n);
  }
  if (data) *data = ReadVector<T>(h).data;
  return StatusOk;
}

// Sizes a 2-D output to rows x cols. Refused before the host is asked when a size is
// negative or ceil(log2 rows) + ceil(log2 cols) >= 31, so rows * cols always fits an
// int32. A null handle as in ResizeVector.
template <class T>
Status ResizeMatrix(ArrayHandle h, int32_t rows, int32_t cols, T** data = nullptr) {
  if (data) *data = nullptr;
  if (rows < 0 || cols < 0 || CeilLog2(rows) + CeilLog2(cols) >= 31) return StatusOutOfMemory;
  if (!h) return rows == 0 || cols == 0 ? StatusOk : StatusKernelError;
  int32_t* s = SizesOf(h);
  if (!s || s[0] != rows || s[1] != cols) {
    ArrayHandle local = h;
    if (HostResize(Elem<T>::kTypeCode, 2, &local, rows * cols) != 0) return StatusOutOfMemory;
    s = SizesOf(h);
    s[0] = rows;
    s[1] = cols;
  }
  if (data) *data = ReadMatrix<T>(h).data;
  return StatusOk;
}

// Empties an output or work handle: 0 elements, every size 0. A handle that is already
// empty is left alone, so clean-up costs nothing on paths that never touched it.
template <class T>
void ClearVector(ArrayHandle h) {
  int32_t* s = SizesOf(h);
  if (!s || s[0] == 0) return;
  ArrayHandle local = h;
  HostResize(Elem<T>::kTypeCode, 1, &local, 0);
  SizesOf(h)[0] = 0;
}

template <class T>
void ClearMatrix(ArrayHandle h) {
  int32_t* s = SizesOf(h);
  if (!s || (s[0] == 0 && s[1] == 0)) return;
  ArrayHandle local = h;
  HostResize(Elem<T>::kTypeCode, 2, &local, 0);
  s = SizesOf(h);
  s[0] = 0;
  s[1] = 0;
}

// Sizes a 2-D output of element C, wider than the letter's own element T (the complex
// result of real data). A handle of type T with these sizes (the input passed again as
// the output) holds too few bytes for C, so it is emptied first and sized through the host.
template <class C, class T>
Status ResizeWiderMatrix(ArrayHandle h, int32_t rows, int32_t cols, C** data) {
  if constexpr (sizeof(C) > sizeof(T)) ClearMatrix<C>(h);
  return ResizeMatrix<C>(h, rows, cols, data);
}

// int32 matrix outputs (permutations, index sets).
inline Status ResizeIndexMatrix(ArrayHandle h, int32_t rows, int32_t cols, int32_t** data = nullptr) {
  return ResizeMatrix<int32_t>(h, rows, cols, data);
}
inline void ClearIndexMatrix(ArrayHandle h) { ClearMatrix<int32_t>(h); }

}  // namespace ql
