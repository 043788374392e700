// Generalized eigenproblem A·v = λ·B·v of two square host matrices (ggev).
//
// As for one matrix, the kernel reads the row-major blocks as the transposed pencil
// (Aᵀ, Bᵀ), whose left eigenvectors u (uᴴ·Aᵀ = λ·uᴴ·Bᵀ) give A·conj(u) = λ·B·conj(u):
// the right eigenvectors of (A, B) are the conjugated left ones, and no block is
// transposed on the way in.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>

#include "eigen/eigen.h"

namespace ql {

namespace eigen {

// λ = α/β for real data: an imaginary part α_i that is exactly zero is not divided, so
// β = 0 gives a real ±infinity (NaN for α_r = 0 too) with imaginary part 0.
template <class R>
std::complex<R> Ratio(R alphaRe, R alphaIm, R beta) {
  return {alphaRe / beta, alphaIm == R(0) ? R(0) : alphaIm / beta};
}

// α/β for complex data by Smith's division: through the larger part of β first, which
// keeps the intermediate quotient at most 1 in modulus. β = 0 gives NaN in both parts
// (the first ratio is 0/0).
template <class R>
std::complex<R> Ratio(std::complex<R> alpha, std::complex<R> beta) {
  const R ar = alpha.real(), ai = alpha.imag(), br = beta.real(), bi = beta.imag();
  if (std::abs(br) >= std::abs(bi)) {
    const R r = bi / br, d = br + bi * r;
    return {(ar + ai * r) / d, (ai - ar * r) / d};
  }
  const R r = br / bi, d = bi + br * r;
  return {(ar * r + ai) / d, (ai * r - ar) / d};
}

}  // namespace eigen

// The generalized worker: eigenvalues w = α/β (complex, the driver's order) and, when v
// is not null, right eigenvectors of the row-major n x n pencil (a, b). `work` holds the
// copies of A and B, α (real parts for real data; complex data divides in place in the
// output w), the imaginary parts of α (real data), β, the driver's work and vl;
// `realWork` the driver's 8n reals (complex data only).
template <class T>
Status GeneralizedEigen(const T* a, const T* b, int32_t n, ComplexOf<T>* w, ComplexOf<T>* v, ArrayHandle work,
                        ArrayHandle realWork) {
  using R = RealOf<T>;
  constexpr bool kComplex = IsComplex<T>::value;
  const int64_t nn = int64_t{n} * n;
  if (!eigen::Admitted(a, nn) || !eigen::Admitted(b, nn)) return StatusNotFinite;
  const char jobvl = v ? 'V' : 'N';

  kernel::WorkspaceSizes sizes;
  const kernel::WorkspaceSizes minimum{eigen::AtLeastOne((kComplex ? 2 : 8) * int64_t{n}),
                                       kComplex ? 8 * int64_t{n} : 0, 0};
  if (Status s = kernel::QueryWorkspace<T>(
          [&](T* wk, lapack_int lw, R* rw, auto...) {
            return kernel::ggev(jobvl, 'N', n, nullptr, n, nullptr, n, nullptr, nullptr, nullptr, nullptr, n, nullptr, n,
                                wk, lw, rw);
          },
          minimum, &sizes);
      s != StatusOk) {
    return s;
  }

  WorkLayout<T> layout;
  const auto aPiece = layout.template Add<T>(nn);
  const auto bPiece = layout.template Add<T>(nn);
  const auto alphaPiece = layout.template Add<T>(kComplex ? 0 : n);
  const auto alphaiPiece = layout.template Add<R>(kComplex ? 0 : n);
  const auto betaPiece = layout.template Add<T>(n);
  const auto workPiece = layout.template Add<T>(sizes.work);
  const auto vlPiece = layout.template Add<T>(v ? nn : 0);
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  R* rwork;
  if (Status s = eigen::BindRealWork<T>(realWork, sizes.rwork, &rwork); s != StatusOk) return s;

  T* ac = layout.Get(aPiece);
  T* bc = layout.Get(bPiece);
  T* beta = layout.Get(betaPiece);
  R* alphai = layout.Get(alphaiPiece);
  T* vl = v ? layout.Get(vlPiece) : nullptr;
  std::memcpy(static_cast<void*>(ac), a, sizeof(T) * size_t(nn));
  std::memcpy(static_cast<void*>(bc), b, sizeof(T) * size_t(nn));
  T* alpha;
  if constexpr (kComplex) {
    alpha = w;
  } else {
    alpha = layout.Get(alphaPiece);
  }
  const lapack_int info = kernel::ggev(jobvl, 'N', n, ac, n, bc, n, alpha, alphai, beta, vl, n, nullptr, n,
                                       layout.Get(workPiece), static_cast<lapack_int>(sizes.work),
                                       rwork);
  // 1..n: the QZ iteration failed; beyond n the driver's other failures.
  if (info < 0 || info > n) return StatusKernelError;
  if (info > 0) return StatusNoConvergence;
  for (int32_t j = 0; j < n; ++j) {
    if constexpr (kComplex) {
      w[j] = eigen::Ratio(alpha[j], beta[j]);
    } else {
      w[j] = eigen::Ratio(alpha[j], alphai[j], beta[j]);
    }
  }
  // Pairs are told by α_i, as the driver stores them: both members of a pair share one
  // β, so this is the nonzero imaginary part of the eigenvalue itself unless α_i/β
  // underflows to zero, where α_i still keeps the pair together.
  if (v) eigen::RightFromLeft(n, vl, alphai, v);
  return StatusOk;
}

// `work` is the element-type scratch; `realWork` the real one of the complex types (the
// real types have none).
template <class T>
Status GenEigenVH(ArrayHandle ah, ArrayHandle bh, int32_t config, ArrayHandle valuesH, ArrayHandle vectorsH,
                  ArrayHandle work, ArrayHandle realWork = nullptr) {
  const auto a = ReadMatrix<T>(ah), b = ReadMatrix<T>(bh);
  if (a.rows < 1 || a.cols < 1 || b.rows < 1 || b.cols < 1) return StatusEmptyInput;
  if (a.rows != a.cols || b.rows != b.cols) return StatusNotSquare;
  if (a.rows != b.rows) return StatusPairSizeMismatch;
  if (config != QuarzEigenOutputValues && config != QuarzEigenOutputVectors) return StatusBadOption;
  const int32_t n = a.rows;
  ComplexOf<T>*w, *v;
  if (Status s = eigen::SizeOutputs<T>(n, config, valuesH, vectorsH, &w, &v); s != StatusOk) return s;
  return GeneralizedEigen(ReadMatrix<T>(ah).data, ReadMatrix<T>(bh).data, n, w, v, work, realWork);
}

}  // namespace ql
