// The Sylvester equation A·X + X·B = C and the continuous Lyapunov equation
// A·X + X·Aᴴ = Q by the Bartels–Stewart method: Schur forms of both coefficient
// matrices, the kernel's triangular solver (trsyl) on the transformed right-hand side,
// and the transformation back. The discrete Lyapunov (Stein) equation A·X·Aᴴ − X + Q = 0
// the same way, with the triangular Stein equation solved here column by column.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include "factor/schur.h"
#include "frame/array.h"
#include "frame/finite_scan.h"
#include "frame/workspace.h"
#include "kernel/blas.h"
#include "kernel/lapack_matfun.h"
#include "kernel/lapack_qr.h"
#include "kernel/lapack_sylvester.h"
#include "kernel/workspace_query.h"
#include "products/transpose.h"

namespace ql {

namespace sylvester {

// The workspace of the Schur routine for an order up to k (Schur vectors wanted).
template <class T>
Status SchurQuery(int32_t k, kernel::WorkspaceSizes* sizes) {
  return kernel::QueryWorkspace<T>(
      [&](T* w, lapack_int lw, auto...) {
        return kernel::gees('V', k, nullptr, k, nullptr, nullptr, nullptr, k, w, lw, nullptr);
      },
      {std::max<int64_t>(1, (Elem<T>::kComplex ? 2 : 3) * int64_t{k})}, sizes);
}

// The Schur form of the column-major order x order block z in place, its vectors and
// eigenvalues (real data: real and imaginary parts apart), with lwork elements of work
// and order reals of rwork (complex data).
template <class T>
Status Schur(T* z, int32_t order, T* vectors, T* values, RealOf<T>* imag, T* work, int64_t lwork, RealOf<T>* rwork) {
  const lapack_int info =
      kernel::gees('V', order, z, order, values, imag, vectors, order, work, static_cast<lapack_int>(lwork), rwork);
  return info == 0 ? StatusOk : info > 0 ? StatusNoConvergence : StatusKernelError;
}

}  // namespace sylvester

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
  if (Status st = sylvester::SchurQuery<T>(k, &sizes); st != StatusOk) return st;
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
    return sylvester::Schur(z, order, vectors, values, imag, layout.Get(workPiece), sizes.work, layout.Get(rworkPiece));
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

// The front of both Lyapunov equations: their checks, X sized n x n, then
// solve(A's elements, n, Q's elements, X's elements).
template <class T, class Solve>
Status Lyapunov(ArrayHandle ah, ArrayHandle qh, ArrayHandle xh, Solve&& solve) {
  const auto a = ReadMatrix<T>(ah), q = ReadMatrix<T>(qh);
  if (Status s = Front(a, a, q); s != StatusOk) return s;
  T* x;
  if (Status s = ResizeMatrix<T>(xh, a.rows, a.rows, &x); s != StatusOk) return s;
  return solve(ReadMatrix<T>(ah).data, a.rows, ReadMatrix<T>(qh).data, x);
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
  return sylvester::Lyapunov<T>(ah, qh, xh, [work](const T* a, int32_t n, const T* q, T* x) {
    return SylvesterCompute<T>(a, n, nullptr, n, q, x, work);
  });
}

// Solves A·X·Aᴴ − X + Q = 0 for row-major A, Q and X (n x n) in complex arithmetic for
// every element type (a real A takes its complex Schur form, and X is the real part; the
// real Schur form's 2 x 2 blocks would need coupled column pairs, and the complex form
// costs about four times the real flops). The row-major blocks read column-major are
// B = Aᵀ, Qᵀ and Z = Xᵀ, and the equation transposed is Bᴴ·Z·B − Z + Qᵀ = 0. With
// B = V·S·Vᴴ (S upper triangular) and W = Vᴴ·Z·V it is Sᴴ·W·S − W = −G, G = Vᴴ·Qᵀ·V,
// whose column j reads (s_jj·Sᴴ − I)·w_j = −g_j − Sᴴ·(Σ_{k<j} s_kj·w_k): a triangular
// solve per column, from the first, once the sum is formed from the columns found
// (gemv, then trmv). Then Z = V·W·Vᴴ.
//
// The pivot s_jj·conj(s_ii) − 1 vanishes when an eigenvalue times the conjugate of
// another is 1. As the kernel's trsyl does for the Sylvester equation, a pivot of modulus
// at most smin = max(ε·max(1, max|s_ik|²), the smallest normal number) is replaced by smin,
// and X comes with WarnSingular; when some product of the eigenvalues equals 1 exactly the
// equation is singular (StatusSingular).
//
// The work handle holds S, V, G (then W), two n x n products, the shifted triangle, a
// column, the eigenvalues and the Schur routine's workspace.
template <class T>
Status DiscLyapunovCompute(const T* a, int32_t n, const T* q, T* x, ArrayHandle work) {
  using C = ComplexOf<T>;
  using R = RealOf<T>;
  kernel::WorkspaceSizes sizes;
  if (Status st = sylvester::SchurQuery<C>(n, &sizes); st != StatusOk) return st;
  if (!work) return StatusKernelError;
  const int64_t nn = int64_t{n} * n;
  WorkLayout<T> layout;
  const auto blocksPiece = layout.template Add<C>(5 * nn + 2 * int64_t{n});
  const auto workPiece = layout.template Add<C>(sizes.work);
  const auto rworkPiece = layout.template Add<R>(n);
  if (Status st = layout.Bind(work); st != StatusOk) return st;
  C* s = layout.Get(blocksPiece);
  C *v = s + nn, *g = v + nn, *p = g + nn, *m = p + nn, *h = m + nn, *lambda = h + n;

  std::copy(a, a + nn, s);
  std::copy(q, q + nn, m);
  if (Status st = sylvester::Schur(s, n, v, lambda, static_cast<R*>(nullptr), layout.Get(workPiece), sizes.work,
                                   layout.Get(rworkPiece));
      st != StatusOk) {
    return st;
  }
  const auto gemm = [n](CBLAS_TRANSPOSE ta, CBLAS_TRANSPOSE tb, const C* x1, const C* x2, C* out) {
    kernel::gemm(CblasColMajor, ta, tb, n, n, n, C(1), x1, n, x2, n, C(0), out, n);
  };
  gemm(CblasConjTrans, CblasNoTrans, v, m, p);  // Vᴴ·Qᵀ
  gemm(CblasNoTrans, CblasNoTrans, p, v, g);    // ·V

  R largest = 1;
  for (int64_t j = 0; j < n; ++j) {
    for (int64_t i = 0; i <= j; ++i) largest = std::max(largest, std::abs(s[j * n + i]));
  }
  const R smin = std::max(Elem<R>::Epsilon() * largest * largest, std::numeric_limits<R>::min());
  bool perturbed = false;
  for (int64_t j = 0; j < n; ++j) {
    C* w = g + j * n;  // −g_j becomes w_j
    const C* sj = s + j * n;
    for (int64_t i = 0; i < n; ++i) w[i] = -w[i];
    if (j > 0) {
      kernel::gemv(CblasColMajor, CblasNoTrans, n, static_cast<blasint>(j), C(1), g, n, sj, 1, C(0), h, 1);
      kernel::trmv(CblasColMajor, CblasUpper, CblasConjTrans, CblasNonUnit, n, s, n, h, 1);
      kernel::axpy(n, C(-1), h, 1, w, 1);
    }
    // M = conj(s_jj)·S − I, whose conjugate transpose is the column's matrix.
    const C shift = std::conj(sj[j]);
    for (int64_t c = 0; c < n; ++c) {
      for (int64_t i = 0; i <= c; ++i) m[c * n + i] = shift * s[c * n + i];
      C& d = m[c * n + c];
      d -= C(1);
      if (std::abs(d) <= smin) {
        d = C(smin);
        perturbed = true;
      }
    }
    kernel::trsv(CblasColMajor, CblasUpper, CblasConjTrans, CblasNonUnit, n, m, n, w, 1);
  }
  gemm(CblasNoTrans, CblasNoTrans, v, g, p);      // V·W
  gemm(CblasNoTrans, CblasConjTrans, p, v, m);    // ·Vᴴ
  if constexpr (Elem<T>::kComplex) {
    std::copy(m, m + nn, x);
  } else {
    for (int64_t i = 0; i < nn; ++i) x[i] = m[i].real();
  }
  if (!perturbed) return StatusOk;
  for (int32_t i = 0; i < n; ++i) {
    for (int32_t j = 0; j < n; ++j) {
      if (lambda[i] * std::conj(lambda[j]) == C(1)) return StatusSingular;
    }
  }
  return WarnSingular;
}

// A·X·Aᴴ − X + Q = 0, the discrete Lyapunov equation.
template <class T>
Status DiscLyapunovH(ArrayHandle ah, ArrayHandle qh, ArrayHandle xh, ArrayHandle work) {
  return sylvester::Lyapunov<T>(ah, qh, xh, [work](const T* a, int32_t n, const T* q, T* x) {
    return DiscLyapunovCompute<T>(a, n, q, x, work);
  });
}

}  // namespace ql
