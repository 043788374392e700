// Whole-number powers of a square matrix, in place: repeated squaring, with the
// Moore–Penrose pseudo-inverse as the base of negative powers so that singular matrices
// are accepted.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

#include "frame/array.h"
#include "kernel/blas.h"
#include "solve/inverse.h"

namespace ql {

namespace power {

// z = x·y for n x n row-major blocks (z distinct from both).
template <class T>
void Product(const T* x, const T* y, T* z, int32_t n) {
  kernel::gemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, n, n, n, T(1), x, n, y, n, T(0), z, n);
}

// The worker of MtrxPowH on the row-major n x n block a, in place.
template <class T>
Status PowerCompute(T* a, int32_t n, int32_t p, ArrayHandle powerWork, ArrayHandle pinvVectors,
                    ArrayHandle pinvValues, ArrayHandle svdWork, ArrayHandle svdIwork) {
  const int64_t nn = int64_t{n} * n;
  if (p == 0) {
    std::fill(a, a + nn, T(0));
    for (int64_t i = 0; i < n; ++i) a[i * n + i] = T(1);
    return StatusOk;
  }
  if (p == 1) return StatusOk;
  // The base of negative powers cuts its singular values at n·s1 times the double
  // epsilon in every element type, so single precision keeps values that its own
  // epsilon would drop (diag(1, 1e-8)^-1 is diag(1, 1e8)).
  const auto pseudoInverse = [&](T* out) {
    return PseudoInverseCompute<T>(a, n, n, RealOf<T>(-1), out, pinvValues, pinvVectors, svdWork, svdIwork,
                                   static_cast<RealOf<T>>(kDoubleEpsilon));
  };
  if (p == -1) return pseudoInverse(a);

  uint32_t q = p < 0 ? 0u - static_cast<uint32_t>(p) : static_cast<uint32_t>(p);
  T* work;
  if (Status s = ResizeVector<T>(powerWork, q == 2 ? nn : 3 * nn, &work); s != StatusOk) return s;
  T* b = work;
  if (p < 0) {
    if (Status s = pseudoInverse(b); s != StatusOk) return s;
  } else {
    std::memcpy(static_cast<void*>(b), a, sizeof(T) * size_t(nn));
  }
  if (q == 2) {
    power::Product(b, b, a, n);
    return StatusOk;
  }
  T* t = work + nn;
  T* r = work + 2 * nn;
  for (; q % 2 == 0; q /= 2) {
    power::Product(b, b, t, n);
    std::swap(b, t);
  }
  // q is odd: r = B, then B is squared once per remaining bit and multiplied in where
  // the bit is set.
  std::memcpy(static_cast<void*>(r), b, sizeof(T) * size_t(nn));
  for (q /= 2; q != 0; q /= 2) {
    power::Product(b, b, t, n);
    std::swap(b, t);
    if (q % 2) {
      power::Product(b, r, t, n);
      std::swap(r, t);
    }
  }
  std::memcpy(static_cast<void*>(a), r, sizeof(T) * size_t(nn));
  return StatusOk;
}

}  // namespace power

// A (n x n) becomes A^p. p = 0 gives the identity, p = 1 leaves A, p = -1 is the
// pseudo-inverse (default tolerance); other powers take a base B (a copy of A, or A's
// pseudo-inverse for p < 0) and multiply by repeated squaring in three n x n buffers of
// powerWork (one when |p| = 2, where A = B·B directly). The pseudo-inverse's scratch is
// passed on in its own order: values, vectors, work, iwork. The magnitude of p is taken
// as unsigned, so p = -2^31 is the 2^31-th power of the pseudo-inverse.
template <class T>
Status MtrxPowH(ArrayHandle ah, int32_t p, ArrayHandle powerWork, ArrayHandle pinvVectors, ArrayHandle pinvValues,
                ArrayHandle svdWork, ArrayHandle svdIwork) {
  const auto a = ReadMatrix<T>(ah);
  if (a.rows != a.cols) return StatusNotSquare;
  if (a.rows < 1) return StatusEmptyInput;
  return power::PowerCompute(a.data, a.rows, p, powerWork, pinvVectors, pinvValues, svdWork, svdIwork);
}

}  // namespace ql
