// The Sylvester equation A·X + X·B = C and the continuous Lyapunov equation
// A·X + X·Aᴴ = Q by the Bartels–Stewart method: Schur forms of both coefficient
// matrices, the kernel's triangular solver (trsyl) on the transformed right-hand side,
// and the transformation back.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "factor/schur.h"
#include "frame/array.h"
#include "frame/finite_scan.h"
#include "frame/workspace.h"
#include "kernel/blas.h"
#include "kernel/lapack_qr.h"
#include "kernel/lapack_sylvester.h"
#include "kernel/workspace_query.h"
#include "products/transpose.h"

namespace ql {

// Solves A·X + X·B = C for row-major A (m x m), B (n x n), C and X (m x n); b null means
// B = Aᴴ (n = m). The row-major blocks read column-major are the transposes, and
// A·X + X·B = C is Bᵀ·Xᵀ + Xᵀ·Aᵀ = Cᵀ: the kernel solves that equation on the blocks as
// they lie, with Bᵀ = U·T·Uᴴ and Aᵀ = V·S·Vᴴ: T·Y + Y·S = Uᴴ·Cᵀ·V, Xᵀ = U·Y·Vᴴ.
//
// The work handle holds T, U, S, V, the transformed right-hand side and a product, the
// eigenvalues (as the kernel gives them, and as complex numbers) and the Schur routine's
// workspace. A singular equation (an eigenvalue of A
// and one of B that sum to exactly 0) is StatusSingular; one the kernel had to perturb
// (eigenvalues that nearly cancel) gives X with the warning WarnSingular.
template <class T>
Status SylvesterCompute(const T* a, int32_t m, const T* b, int32_t n, const T* c, T* x, ArrayHandle work) {
  using R = RealOf<T>;
  constexpr bool kComplex = Elem<T>::kComplex;
  const int32_t k = std::max(m, n);
  kernel::WorkspaceSizes sizes;
  const Status query = kernel::QueryWorkspace<T>(
      [&](T* w, lapack_int lw, auto...) {
        return kernel::gees('V', k, nullptr, k, nullptr, nullptr, nullptr, k, w, lw, nullptr);
      },
      {std::max<int64_t>(1, (kComplex ? 2 : 3) * int64_t{k})}, &sizes);
  if (query != StatusOk) return query;
  if (!work) return StatusKernelError;
  const int64_t nn = int64_t{n} * n, mm = int64_t{m} * m, nm = int64_t{n} * m;
  WorkLayout<T> layout;
  const auto tPiece = layout.template Add<T>(nn);
  const auto uPiece = layout.template Add<T>(nn);
  const auto sPiece = layout.template Add<T>(mm);
  const auto vPiece = layout.template Add<T>(mm);
  const auto fPiece = layout.template Add<T>(nm);
  const auto pPiece = layout.template Add<T>(nm);
  const auto wPiece = layout.template Add<T>(int64_t{n} + m);
  const auto wiPiece = layout.template Add<R>(kComplex ? 0 : int64_t{n} + m);
  const auto lambdaPiece = layout.template Add<ComplexOf<T>>(int64_t{n} + m);
  const auto workPiece = layout.template Add<T>(sizes.work);
  const auto rworkPiece = layout.template Add<R>(kComplex ? k : 0);
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  T *t = layout.Get(tPiece), *u = layout.Get(uPiece), *s = layout.Get(sPiece), *v = layout.Get(vPiece);
  T *f = layout.Get(fPiece), *p = layout.Get(pPiece), *w = layout.Get(wPiece);
  R* wi = layout.Get(wiPiece);

  if (b) {
    std::memcpy(static_cast<void*>(t), b, sizeof(T) * size_t(nn));
  } else {
    ConjTransposeCopy<T>(n, n, a, n, t, n);  // Bᵀ = conj(A), column-major
  }
  std::memcpy(static_cast<void*>(s), a, sizeof(T) * size_t(mm));
  const auto schur = [&](T* z, int32_t order, T* vectors, T* values, R* imag) {
    const lapack_int info = kernel::gees('V', order, z, order, values, imag, vectors, order, layout.Get(workPiece),
                                         static_cast<lapack_int>(sizes.work), layout.Get(rworkPiece));
    return info == 0 ? StatusOk : info > 0 ? StatusNoConvergence : StatusKernelError;
  };
  if (Status st = schur(t, n, u, w, wi); st != StatusOk) return st;
  if (Status st = schur(s, m, v, w + n, kComplex ? wi : wi + n); st != StatusOk) return st;

  const auto gemm = [](CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, int32_t rows, int32_t cols, int32_t inner, T alpha,
                       const T* x1, int32_t ld1, const T* x2, int32_t ld2, T* out) {
    kernel::gemm(CblasColMajor, ta, tb, rows, cols, inner, alpha, x1, ld1, x2, ld2, T(0), out, rows);
  };
  gemm(CblasConjTrans, CblasNoTrans, n, m, n, T(1), u, n, c, n, p);  // Uᴴ·Cᵀ
  gemm(CblasNoTrans, CblasNoTrans, n, m, m, T(1), p, n, v, m, f);    // ·V
  R scale = 1;
  const lapack_int info = kernel::trsyl('N', 'N', 1, n, m, t, n, s, m, f, n, &scale);
  if (info < 0) return StatusKernelError;
  gemm(CblasNoTrans, CblasNoTrans, n, m, n, T(1), u, n, f, n, p);          // U·Y
  gemm(CblasNoTrans, CblasConjTrans, n, m, m, T(R(1) / scale), p, n, v, m, x);  // ·Vᴴ / scale
  if (info == 0) return StatusOk;
  // Perturbed: singular when an eigenvalue of Bᵀ and one of Aᵀ sum to exactly 0.
  ComplexOf<T>* lambda = layout.Get(lambdaPiece);
  schur::JoinParts(w, wi, n + m, lambda);
  for (int32_t i = 0; i < n; ++i) {
    for (int32_t j = n; j < n + m; ++j) {
      if (lambda[i] + lambda[j] == ComplexOf<T>(0)) return StatusSingular;
    }
  }
  return WarnSingular;
}

namespace sylvester {

// The checks shared by the two fronts: sizes, then finiteness of every input.
template <class T>
Status Front(const MatrixView<T>& a, const MatrixView<T>& b, const MatrixView<T>& c) {
  if (a.rows < 1 || a.cols < 1 || b.rows < 1 || b.cols < 1 || c.rows < 1 || c.cols < 1) return StatusEmptyInput;
  if (a.rows != a.cols || b.rows != b.cols) return StatusNotSquare;
  if (c.rows != a.rows || c.cols != b.rows) return StatusSizeMismatch;
  const bool finite = AllAccepted(a.data, int64_t{a.rows} * a.rows) && AllAccepted(b.data, int64_t{b.rows} * b.rows) &&
                      AllAccepted(c.data, int64_t{c.rows} * c.cols);
  return finite ? StatusOk : StatusNotFinite;
}

}  // namespace sylvester

template <class T>
Status SylvesterH(ArrayHandle ah, ArrayHandle bh, ArrayHandle ch, ArrayHandle xh, ArrayHandle work) {
  const auto a = ReadMatrix<T>(ah), b = ReadMatrix<T>(bh), c = ReadMatrix<T>(ch);
  if (Status s = sylvester::Front(a, b, c); s != StatusOk) return s;
  T* x;
  if (Status s = ResizeMatrix<T>(xh, a.rows, b.rows, &x); s != StatusOk) return s;
  return SylvesterCompute(ReadMatrix<T>(ah).data, a.rows, ReadMatrix<T>(bh).data, b.rows, ReadMatrix<T>(ch).data, x,
                          work);
}

// A·X + X·Aᴴ = Q: the Sylvester equation with B = Aᴴ.
template <class T>
Status ContLyapunovH(ArrayHandle ah, ArrayHandle qh, ArrayHandle xh, ArrayHandle work) {
  const auto a = ReadMatrix<T>(ah), q = ReadMatrix<T>(qh);
  if (Status s = sylvester::Front(a, a, q); s != StatusOk) return s;
  T* x;
  if (Status s = ResizeMatrix<T>(xh, a.rows, a.rows, &x); s != StatusOk) return s;
  return SylvesterCompute<T>(ReadMatrix<T>(ah).data, a.rows, nullptr, a.rows, ReadMatrix<T>(qh).data, x, work);
}

}  // namespace ql
