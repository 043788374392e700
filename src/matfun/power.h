// Whole-number powers of a square matrix in place, by repeated squaring; negative powers
// start from the Moore–Penrose pseudo-inverse, so singular matrices are accepted.
#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include "frame/array.h"
#include "matfun/common.h"
#include "solve/inverse.h"

namespace ql {

// A = A^p. p = 0 gives the identity and p = 1 leaves A as it is (neither looks at the
// elements); p = −1 is the pseudo-inverse in place; other powers take the power scratch
// (n² elements for |p| = 2, else three n x n buffers: base, spare, accumulator). The
// pseudo-inverse (default tolerance) gets pinvValues, pinvVectors, svdWork1 and svdWork3
// in the order of its own scratch. The magnitude of p is taken unsigned, so
// p = −2³¹ is 31 squarings of the pseudo-inverse.
template <class T>
Status MtrxPowH(ArrayHandle ah, int32_t p, ArrayHandle powerWork, ArrayHandle pinvVectors, ArrayHandle pinvValues,
                ArrayHandle svdWork1, ArrayHandle svdWork3) {
  using R = RealOf<T>;
  const auto m = ReadMatrix<T>(ah);
  const int32_t n = m.rows;
  if (m.cols != n) return StatusNotSquare;
  if (n < 1) return StatusEmptyInput;
  T* a = m.data;
  const int64_t nn = int64_t{n} * n;
  if (p == 0) {
    std::fill(a, a + nn, T(0));
    for (int64_t i = 0; i < n; ++i) a[i * n + i] = T(1);
    return StatusOk;
  }
  if (p == 1) return StatusOk;
  const auto pinv = [&](T* out) {
    return PseudoInverseCompute<T>(a, n, n, R(-1), out, pinvValues, pinvVectors, svdWork1, svdWork3);
  };
  if (p == -1) return pinv(a);

  uint32_t mag = p < 0 ? 0u - static_cast<uint32_t>(p) : static_cast<uint32_t>(p);
  if (!powerWork) return StatusKernelError;
  T* w;
  if (Status s = ResizeVector<T>(powerWork, mag == 2 ? nn : 3 * nn, &w); s != StatusOk) return s;
  T* base = w;
  if (p < 0) {
    if (Status s = pinv(base); s != StatusOk) return s;
  } else {
    std::copy(a, a + nn, base);
  }
  if (mag == 2) {
    matfun::Product(n, base, base, a);
    return StatusOk;
  }
  T* spare = w + nn;
  T* acc = w + 2 * nn;
  for (; mag % 2 == 0; mag /= 2) {
    matfun::Product(n, base, base, spare);
    std::swap(base, spare);
  }
  std::copy(base, base + nn, acc);
  for (uint32_t q = mag / 2; q != 0; q /= 2) {
    matfun::Product(n, base, base, spare);
    std::swap(base, spare);
    if (q % 2 == 1) {
      matfun::Product(n, base, acc, spare);
      std::swap(acc, spare);
    }
  }
  std::copy(acc, acc + nn, a);
  return StatusOk;
}

}  // namespace ql
