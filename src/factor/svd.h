// Singular value decomposition A = U·diag(S)·Vᴴ of a general m x n host matrix, and the
// worker that the measures and solvers share.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "factor/column_major.h"
#include "frame/array.h"
#include "frame/workspace.h"
#include "kernel/lapack_svd.h"
#include "kernel/workspace_query.h"
#include "products/transpose.h"

namespace ql {

// The tolerance below which a singular value counts as zero when the caller gives none:
// max(m, n) · s1 · ε, multiplied in that order, s1 the largest singular value, ε the
// element type's epsilon unless the caller names another.
template <class T>
RealOf<T> DefaultTolerance(int32_t m, int32_t n, RealOf<T> s1, RealOf<T> epsilon = Elem<T>::Epsilon()) {
  return static_cast<RealOf<T>>(std::max(m, n)) * s1 * epsilon;
}

// The worker behind SVDH. a is a row-major m x n block; jobz 'N' gives the k = min(m, n)
// singular values only (u and v are not touched and may be null), 'S' also U (m x k) and
// V (n x k), 'A' U (m x m) and V (n x n), all row-major, into arrays the caller sized.
//
// The row-major block read column-major is Aᵀ (n x m), so the kernel factors Aᵀ = X·Σ·Yᴴ
// on a copy without transposing it. Then A = conj(Y)·Σ·conj(X)ᴴ: the kernel's Yᴴ output,
// column-major c x m, read row-major is conj(Y), that is U, so it is written straight
// into u; its X output (column-major n x r, in the work handle) is conj(V), and is
// conjugate-transposed into v.
//
// Work: the element handle holds the copy of A, the kernel's workspace, the X area and,
// for complex types, the real rwork; the int32 handle the kernel's 8k iwork. Neither is
// emptied here: the export's frame does that.
template <class T>
Status SVDCompute(const T* a, int32_t m, int32_t n, T* u, RealOf<T>* s, T* v, char jobz, ArrayHandle work,
                  ArrayHandle iwork) {
  using R = RealOf<T>;
  if (m < 1 || n < 1) return StatusEmptyInput;
  const int64_t mn = int64_t{m} * n;
  if (!AllAccepted(a, mn)) return StatusNotFinite;
  const int32_t k = std::min(m, n);
  const bool vectors = jobz != 'N';
  const int32_t c = jobz == 'A' ? m : k;  // columns of U; leading dimension of the kernel's Yᴴ
  const int32_t r = jobz == 'A' ? n : k;  // columns of V

  const auto minimum = kernel::GesddWorkspaceMinimum<Elem<T>::kComplex>(jobz, n, m);
  kernel::WorkspaceSizes sizes;
  const Status q = kernel::QueryWorkspace<T>(
      [&](T* w, lapack_int lw, R* rw, auto...) {
        return kernel::gesdd(jobz, n, m, nullptr, n, s, nullptr, n, nullptr, c, w, lw, rw, nullptr);
      },
      {minimum.work, minimum.rwork, minimum.iwork}, &sizes);
  if (q != StatusOk) return q;

  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(mn);
  const auto workPiece = layout.template Add<T>(sizes.work);
  const auto areaPiece = layout.template Add<T>(vectors ? int64_t{r} * n : 0);
  const auto rworkPiece = layout.template Add<R>(sizes.rwork);
  if (Status st = layout.Bind(work); st != StatusOk) return st;
  int32_t* iw;
  if (Status st = ResizeVector<int32_t>(iwork, sizes.iwork, &iw); st != StatusOk) return st;

  T* copy = layout.Get(copyPiece);
  T* area = layout.Get(areaPiece);
  std::memcpy(static_cast<void*>(copy), a, sizeof(T) * size_t(mn));
  // Every piece fits the host's int32 element count once Bind succeeded, so the
  // workspace length does too. Any info but 0 from the computing call is reported as a
  // failed decomposition: its arguments already passed the query.
  const lapack_int info = kernel::gesdd(jobz, n, m, copy, n, s, area, n, vectors ? u : area, c,
                                        layout.Get(workPiece), static_cast<lapack_int>(sizes.work),
                                        layout.Get(rworkPiece), iw);
  if (info != 0) return StatusNoConvergence;
  if (vectors) ConjTransposeCopy<T>(r, n, area, n, v, r);
  return StatusOk;
}

// The k = min(m, n) singular values alone, largest first, into the values handle sized
// here to k (required: a null one is a missing handle), for the measures built on them.
template <class T>
Status SingularValues(const T* a, int32_t m, int32_t n, ArrayHandle values, ArrayHandle work, ArrayHandle iwork,
                      RealOf<T>** s) {
  if (!values) return StatusKernelError;
  if (Status st = ResizeVector<RealOf<T>>(values, std::min(m, n), s); st != StatusOk) return st;
  return SVDCompute<T>(a, m, n, nullptr, *s, nullptr, 'N', work, iwork);
}

// A valuesOnly flag that is non-zero asks for S alone (U and V become 0 x 0); otherwise
// vectorSize picks the economy (U m x k, V n x k) or full (U m x m, V n x n) vectors.
template <class T>
Status SVDH(ArrayHandle ah, int32_t valuesOnly, int32_t vectorSize, ArrayHandle uh, ArrayHandle sh,
            ArrayHandle vh, ArrayHandle work, ArrayHandle iwork) {
  const auto a0 = ReadMatrix<T>(ah);
  const int32_t m = a0.rows, n = a0.cols;
  if (m < 1 || n < 1) return StatusEmptyInput;
  // Checked even when only the values are asked for.
  if (vectorSize != QuarzSVDVectorsEconomy && vectorSize != QuarzSVDVectorsFull) return StatusBadOption;
  const bool full = vectorSize == QuarzSVDVectorsFull;
  const int32_t k = std::min(m, n);
  const char jobz = valuesOnly ? 'N' : full ? 'A' : 'S';
  T *u = nullptr, *v = nullptr;
  if (Status st = ResizeMatrix<T>(uh, valuesOnly ? 0 : m, valuesOnly ? 0 : full ? m : k, &u); st != StatusOk) return st;
  if (Status st = ResizeMatrix<T>(vh, valuesOnly ? 0 : n, valuesOnly ? 0 : full ? n : k, &v); st != StatusOk) return st;
  RealOf<T>* s;
  if (Status st = ResizeVector<RealOf<T>>(sh, k, &s); st != StatusOk) return st;
  // A is read again: the views stay valid only while no resize touched their handle.
  return SVDCompute(ReadMatrix<T>(ah).data, m, n, u, s, v, jobz, work, iwork);
}

}  // namespace ql
