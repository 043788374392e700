// Matrix products: matrix times matrix, matrix times vector, vector times matrix,
// outer and Kronecker products. Complex factors are never conjugated here.
#pragma once

#include <cstdint>
#include <limits>

#include "frame/array.h"
#include "kernel/blas.h"
#include "products/elementwise.h"

namespace ql {

// R = A * B. An empty inner dimension gives a matrix of NaN (not zeros); an empty
// outer dimension gives an empty R without a kernel call.
template <class T>
Status MtrxMulH(ArrayHandle Ah, ArrayHandle Bh, ArrayHandle Rh) {
  const auto A = ReadMatrix<T>(Ah), B = ReadMatrix<T>(Bh);
  const int32_t m = A.rows, k = A.cols, n = B.cols;
  // The inner sizes are compared before their signs are looked at.
  if (k != B.rows) return StatusInnerDimMismatch;
  if (m < 0 || k < 0 || n < 0) return StatusBadDimension;
  T* r;
  if (const Status s = ResizeMatrix<T>(Rh, m, n, &r); s != StatusOk) return s;
  if (m == 0 || n == 0) return StatusOk;
  if (k == 0) {
    FillValue(int64_t{m} * n, Elem<T>::NaN(), r);
    return StatusOk;
  }
  // Row-major operands go to the kernel as they are.
  kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, k, T(1), A.data, k, B.data, n, T(0), r, n);
  return StatusOk;
}

namespace prod {

// y = op(A) x with op = none (x has A's columns, y its rows) or the plain transpose
// (x has A's rows, y its columns), behind the checks both products share.
template <class T>
Status MatVec(ArrayHandle Ah, ArrayHandle xh, ArrayHandle yh, CBLAS_TRANSPOSE op) {
  const auto A = ReadMatrix<T>(Ah);
  const auto x = ReadVector<T>(xh);
  const int32_t m = A.rows, n = A.cols;
  if (x.n != (op == CblasNoTrans ? n : m)) return StatusInnerDimMismatch;
  if (m < 0 || n < 0) return StatusBadDimension;
  // Unlike the matrix product, an empty inner dimension gives an empty result.
  if (m == 0 || n == 0) return ResizeVector<T>(yh, 0);
  T* y;
  if (const Status s = ResizeVector<T>(yh, op == CblasNoTrans ? m : n, &y); s != StatusOk) return s;
  kernel::gemv(CblasRowMajor, op, m, n, T(1), A.data, n, x.data, 1, T(0), y, 1);
  return StatusOk;
}

}  // namespace prod

// y = A x.
template <class T>
Status MtrxVecMulH(ArrayHandle Ah, ArrayHandle xh, ArrayHandle yh) {
  return prod::MatVec<T>(Ah, xh, yh, CblasNoTrans);
}

// y = x A (x a row vector): y[j] = sum over i of x[i] A[i][j], without conjugation.
template <class T>
Status VecMtrxMulH(ArrayHandle xh, ArrayHandle Ah, ArrayHandle yh) {
  return prod::MatVec<T>(Ah, xh, yh, CblasTrans);
}

// M[i][j] = x[i] y[j].
template <class T>
Status OuterProdH(ArrayHandle xh, ArrayHandle yh, ArrayHandle Mh) {
  const auto x = ReadVector<T>(xh), y = ReadVector<T>(yh);
  const int32_t m = x.n, n = y.n;
  if (m < 1 || n < 1) return StatusEmptyInput;
  T* out;
  if (const Status s = ResizeMatrix<T>(Mh, m, n, &out); s != StatusOk) return s;
  for (int32_t i = 0; i < m; ++i) {
    T* row = out + int64_t{i} * n;
    if constexpr (Elem<T>::kComplex) {
      ScaleInto(n, x.data[i], y.data, row);
    } else {
      kernel::copy(n, y.data, 1, row, 1);
      kernel::scal(n, x.data[i], row, 1);
    }
  }
  return StatusOk;
}

// M[i r + k][j s + l] = A[i][j] B[k][l] for A p x q and B r x s.
template <class T>
Status KronProdH(ArrayHandle Ah, ArrayHandle Bh, ArrayHandle Mh) {
  const auto A = ReadMatrix<T>(Ah), B = ReadMatrix<T>(Bh);
  const int32_t p = A.rows, q = A.cols, r = B.rows, s = B.cols;
  if (p < 1 || q < 1 || r < 1 || s < 1) return StatusEmptyInput;
  const int64_t rows = int64_t{p} * r, cols = int64_t{q} * s;
  if (rows > std::numeric_limits<int32_t>::max() || cols > std::numeric_limits<int32_t>::max()) {
    return StatusOutOfMemory;
  }
  T* out;
  if (const Status st = ResizeMatrix<T>(Mh, static_cast<int32_t>(rows), static_cast<int32_t>(cols), &out);
      st != StatusOk) {
    return st;
  }
  // Written in order, one row of B scaled by each element of a row of A.
  for (int32_t i = 0; i < p; ++i) {
    const T* arow = A.data + int64_t{i} * q;
    for (int32_t k = 0; k < r; ++k) {
      const T* brow = B.data + int64_t{k} * s;
      for (int32_t j = 0; j < q; ++j, out += s) ScaleInto(s, arow[j], brow, out);
    }
  }
  return StatusOk;
}

}  // namespace ql
