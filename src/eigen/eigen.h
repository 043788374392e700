// Eigenvalues and eigenvectors of one square host matrix: general (geev), real
// symmetric and complex Hermitian (syevr / heevr).
//
// The kernel gets the host's row-major block as it is stored, which it reads as the
// transpose Aᵀ. Nothing is transposed on the way in:
// - general: the LEFT eigenvectors u of Aᵀ (uᴴ·Aᵀ = λ·uᴴ) satisfy A·conj(u) = λ·conj(u),
//   so the right eigenvectors of A are the conjugated left ones of Aᵀ;
// - symmetric / Hermitian: the upper triangle of Aᵀ is the host's lower triangle, and
//   the Hermitian matrix the kernel completes from it is conj(A), whose eigenvectors
//   are the conjugates of A's (the same for real data).
#pragma once

#include <algorithm>
#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>

#include "frame/array.h"
#include "frame/finite_scan.h"
#include "frame/workspace.h"
#include "kernel/lapack_eigen.h"
#include "kernel/workspace_query.h"
#include "products/transpose.h"

namespace ql {

namespace eigen {

// The input scan refuses NaN, the infinities, the largest finite value and everything
// at or below the lower bound: -largest for float, but for double a constant a few
// units in the last place above -largest (-1.7976931348623e308), so doubles just above
// -largest are refused while on the positive side only the largest double itself is.
template <class R>
constexpr R LowerBound();
template <>
constexpr float LowerBound<float>() {
  return -std::numeric_limits<float>::max();
}
template <>
constexpr double LowerBound<double>() {
  return -0x1.fffffffffffb0p+1023;
}

// True when every real number of the count elements (both parts of complex ones) lies
// strictly between the lower bound and the largest finite value; NaN fails both tests.
template <class T>
bool Admitted(const T* a, int64_t count) {
  using R = RealOf<T>;
  return scan::PartsWithin<false>(a, count, static_cast<T*>(nullptr), -LowerBound<R>(), Elem<R>::Largest());
}

// Order check shared by the single-matrix fronts: empty, square, option.
inline Status CheckSquare(ArrayHandle ah, int32_t config, int32_t* n) {
  const auto a = ReadMatrix<char>(ah);
  *n = a.rows;
  if (a.rows < 1) return StatusEmptyInput;
  if (a.cols != a.rows) return StatusNotSquare;
  if (config != QuarzEigenOutputValues && config != QuarzEigenOutputVectors) return StatusBadOption;
  return StatusOk;
}

// Sizes the eigenvalues to n (element V) and the eigenvectors to n x n (element E), or
// empties the eigenvectors when only values are wanted; *vectors is then null. The
// eigenvector handle is required either way: a null one is a missing handle (-20999),
// also when only values are wanted, since the host expects it back emptied.
//
// An output wider than the letter's element T (the complex results of real data) is
// always sized through the host, even when its sizes already match: a handle of the
// letter's own type with those sizes, A itself passed again as the output for one,
// holds only half the bytes. Emptying it first makes the resize a host call, and the
// host sizes the block for the type code it is given.
template <class T, class V, class E>
Status SizeOutputs(int32_t n, int32_t config, ArrayHandle valuesH, ArrayHandle vectorsH, V** values,
                   E** vectors) {
  *vectors = nullptr;
  if constexpr (sizeof(V) > sizeof(T)) ClearVector<V>(valuesH);
  if (Status s = ResizeVector<V>(valuesH, n, values); s != StatusOk) return s;
  if (config == QuarzEigenOutputValues) return ResizeMatrix<E>(vectorsH, 0, 0);
  if constexpr (sizeof(E) > sizeof(T)) ClearMatrix<E>(vectorsH);
  return ResizeMatrix<E>(vectorsH, n, n, vectors);
}

// The driver's column-major left eigenvectors vl of the transposed problem, turned
// into A's right eigenvectors in the row-major complex output (column j belongs to
// eigenvalue j).
//
// Real data: a real eigenvalue's column is real; a complex pair (flagged by a nonzero
// imaginary part `imag[j]`, the pair's first member first) stores u = vl_j + i·vl_{j+1}
// and its conjugate, and conj(u) = vl_j - i·vl_{j+1} belongs to eigenvalue j.
// Rows go in blocks so that the reads of vl and the writes of the output both stay in
// cache.
template <class R>
void RightFromLeft(int32_t n, const R* vl, const R* imag, std::complex<R>* out) {
  constexpr int32_t kRows = 32;
  for (int32_t i0 = 0; i0 < n; i0 += kRows) {
    const int32_t i1 = std::min(n, i0 + kRows);
    for (int32_t j = 0; j < n; ++j) {
      const R* c = vl + int64_t{j} * n;
      if (imag[j] == R(0) || j + 1 == n) {
        for (int32_t i = i0; i < i1; ++i) out[int64_t{i} * n + j] = {c[i], R(0)};
        continue;
      }
      const R* d = c + n;
      for (int32_t i = i0; i < i1; ++i) {
        out[int64_t{i} * n + j] = {c[i], -d[i]};
        out[int64_t{i} * n + j + 1] = {c[i], d[i]};
      }
      ++j;
    }
  }
}

// Complex data: output[i][j] = conj(vl(i, j)).
template <class R>
void RightFromLeft(int32_t n, const std::complex<R>* vl, const R*, std::complex<R>* out) {
  ConjTransposeCopy(n, n, vl, n, out, n);
}

inline int64_t AtLeastOne(int64_t v) { return std::max<int64_t>(1, v); }

// The drivers' real workspace of the complex types: `count` reals in `realWork`. Real
// data has none and gets null without the handle being touched.
template <class T>
Status BindRealWork(ArrayHandle realWork, int64_t count, RealOf<T>** rw) {
  *rw = nullptr;
  if constexpr (IsComplex<T>::value) {
    WorkLayout<RealOf<T>> layout;
    const auto piece = layout.template Add<RealOf<T>>(count);
    if (Status s = layout.Bind(realWork); s != StatusOk) return s;
    *rw = layout.Get(piece);
  }
  return StatusOk;
}

}  // namespace eigen

// The general worker: eigenvalues w (complex, the driver's order) and, when v is not
// null, right eigenvectors (complex, unit norm, largest component real) of the
// row-major n x n matrix a. Real data: `work` holds the copy, wr, wi, vl and the
// driver's work. Complex data: `work` holds the copy, vl and the driver's work,
// `realWork` the driver's 2n reals, and the eigenvalues go straight into w.
template <class T>
Status GeneralEigen(const T* a, int32_t n, ComplexOf<T>* w, ComplexOf<T>* v, ArrayHandle work,
                    ArrayHandle realWork) {
  using R = RealOf<T>;
  constexpr bool kComplex = IsComplex<T>::value;
  const int64_t nn = int64_t{n} * n;
  if (!eigen::Admitted(a, nn)) return StatusNotFinite;
  const char jobvl = v ? 'V' : 'N';

  kernel::WorkspaceSizes sizes;
  const kernel::WorkspaceSizes minimum{eigen::AtLeastOne(kComplex ? 2 * n : (v ? 4 : 3) * int64_t{n}),
                                       kComplex ? 2 * int64_t{n} : 0, 0};
  if (Status s = kernel::QueryWorkspace<T>(
          [&](T* wk, lapack_int lw, R* rw, auto...) {
            return kernel::geev(jobvl, 'N', n, nullptr, n, nullptr, nullptr, nullptr, n, nullptr, n, wk, lw, rw);
          },
          minimum, &sizes);
      s != StatusOk) {
    return s;
  }

  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(nn);
  const auto wrPiece = layout.template Add<T>(kComplex ? 0 : n);
  const auto wiPiece = layout.template Add<R>(kComplex ? 0 : n);
  const auto vlPiece = layout.template Add<T>(v ? nn : 0);
  const auto workPiece = layout.template Add<T>(sizes.work);
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  R* rwork;
  if (Status s = eigen::BindRealWork<T>(realWork, sizes.rwork, &rwork); s != StatusOk) return s;

  T* copy = layout.Get(copyPiece);
  T* vl = v ? layout.Get(vlPiece) : nullptr;
  R* wi = layout.Get(wiPiece);
  std::memcpy(static_cast<void*>(copy), a, sizeof(T) * size_t(nn));
  T* values;
  if constexpr (kComplex) {
    values = w;
  } else {
    values = layout.Get(wrPiece);
  }
  const lapack_int info = kernel::geev(jobvl, 'N', n, copy, n, values, wi, vl, n, nullptr, n,
                                       layout.Get(workPiece), static_cast<lapack_int>(sizes.work),
                                       rwork);
  if (Status s = FromInfo(info, StatusNoConvergence); s != StatusOk) return s;
  if constexpr (!kComplex) {
    for (int32_t j = 0; j < n; ++j) w[j] = {values[j], wi[j]};
  }
  if (v) eigen::RightFromLeft(n, vl, wi, v);
  return StatusOk;
}

// The symmetric / Hermitian worker: ascending real eigenvalues w and, when v is not null,
// orthonormal eigenvectors of the matrix whose lower triangle (diagonal included) the
// row-major n x n block a holds; the upper triangle is scanned but not used. `work`
// holds the copy, room for the eigenvectors (reserved even without them) and the
// driver's work; `realWork` its real work (complex data only); `intWork` the support
// pairs and the integer work.
template <class T>
Status HermitianEigen(const T* a, int32_t n, RealOf<T>* w, T* v, ArrayHandle work, ArrayHandle realWork,
                      ArrayHandle intWork) {
  using R = RealOf<T>;
  constexpr bool kComplex = IsComplex<T>::value;
  const int64_t nn = int64_t{n} * n;
  if (!eigen::Admitted(a, nn)) return StatusNotFinite;
  const char jobz = v ? 'V' : 'N';
  lapack_int found = 0;

  kernel::WorkspaceSizes sizes;
  const kernel::WorkspaceSizes minimum{eigen::AtLeastOne((kComplex ? 2 : 26) * int64_t{n}),
                                       kComplex ? eigen::AtLeastOne(24 * int64_t{n}) : 0,
                                       eigen::AtLeastOne(10 * int64_t{n})};
  if (Status s = kernel::QueryWorkspace<T>(
          [&](T* wk, lapack_int lw, R* rw, lapack_int lrw, lapack_int* iw, lapack_int liw) {
            return kernel::heevr(jobz, 'A', 'U', n, nullptr, n, R(0), R(0), 0, 0, R(0), &found, nullptr, nullptr, n,
                                 nullptr, wk, lw, rw, lrw, iw, liw);
          },
          minimum, &sizes);
      s != StatusOk) {
    return s;
  }

  WorkLayout<T> layout;
  const auto copyPiece = layout.template Add<T>(nn);
  const auto zPiece = layout.template Add<T>(nn);
  const auto workPiece = layout.template Add<T>(sizes.work);
  if (Status s = layout.Bind(work); s != StatusOk) return s;
  R* rwork;
  if (Status s = eigen::BindRealWork<T>(realWork, sizes.rwork, &rwork); s != StatusOk) return s;
  WorkLayout<int32_t> intLayout;
  const auto isuppzPiece = intLayout.template Add<int32_t>(2 * int64_t{n});
  const auto iworkPiece = intLayout.template Add<int32_t>(sizes.iwork);
  if (Status s = intLayout.Bind(intWork); s != StatusOk) return s;

  T* copy = layout.Get(copyPiece);
  T* z = layout.Get(zPiece);
  std::memcpy(static_cast<void*>(copy), a, sizeof(T) * size_t(nn));
  // Every nonzero info, the driver's internal failures included, is a kernel error.
  const lapack_int info = kernel::heevr(
      jobz, 'A', 'U', n, copy, n, R(0), R(0), 0, 0, R(0), &found, w, z, n, intLayout.Get(isuppzPiece),
      layout.Get(workPiece), static_cast<lapack_int>(sizes.work), rwork,
      static_cast<lapack_int>(sizes.rwork), intLayout.Get(iworkPiece), static_cast<lapack_int>(sizes.iwork));
  if (info != 0) return StatusKernelError;
  if (v) ConjTransposeCopy(n, n, z, n, v, n);
  return StatusOk;
}

// General matrices. `work` is the element-type scratch; `realWork` the real one of the
// complex types (the real types have none).
template <class T>
Status EigenVH(ArrayHandle ah, int32_t config, ArrayHandle valuesH, ArrayHandle vectorsH, ArrayHandle work,
               ArrayHandle realWork = nullptr) {
  int32_t n;
  if (Status s = eigen::CheckSquare(ah, config, &n); s != StatusOk) return s;
  ComplexOf<T>*w, *v;
  if (Status s = eigen::SizeOutputs<T>(n, config, valuesH, vectorsH, &w, &v); s != StatusOk) return s;
  return GeneralEigen(ReadMatrix<T>(ah).data, n, w, v, work, realWork);
}

template <class T>
Status SymEigenVH(ArrayHandle ah, int32_t config, ArrayHandle valuesH, ArrayHandle vectorsH, ArrayHandle work,
                  ArrayHandle intWork) {
  int32_t n;
  if (Status s = eigen::CheckSquare(ah, config, &n); s != StatusOk) return s;
  RealOf<T>* w;
  T* v;
  if (Status s = eigen::SizeOutputs<T>(n, config, valuesH, vectorsH, &w, &v); s != StatusOk) return s;
  return HermitianEigen(ReadMatrix<T>(ah).data, n, w, v, work, nullptr, intWork);
}

template <class T>
Status HermEigenVH(ArrayHandle ah, int32_t config, ArrayHandle valuesH, ArrayHandle vectorsH, ArrayHandle work,
                   ArrayHandle realWork, ArrayHandle intWork) {
  int32_t n;
  if (Status s = eigen::CheckSquare(ah, config, &n); s != StatusOk) return s;
  RealOf<T>* w;
  T* v;
  if (Status s = eigen::SizeOutputs<T>(n, config, valuesH, vectorsH, &w, &v); s != StatusOk) return s;
  return HermitianEigen(ReadMatrix<T>(ah).data, n, w, v, work, realWork, intWork);
}

}  // namespace ql
