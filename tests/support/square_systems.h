// Test-side matrices and long-double oracles for the square-system suites.
#pragma once

#include <algorithm>
#include <cmath>
#include <complex>
#include <numeric>
#include <random>
#include <vector>

#include "support/host_array.h"

namespace qt {

template <class T> T Conj(const T& v) {
  if constexpr (kIsComplex<T>) return std::conj(v);
  else return v;
}

// A dense row-major matrix in long double complex, for the oracles.
struct WideMat {
  int r = 0, c = 0;
  std::vector<LC> v;
  WideMat(int rows, int cols) : r(rows), c(cols), v(size_t(rows) * cols) {}
  LC& operator()(int i, int j) { return v[size_t(i) * c + j]; }
  const LC& operator()(int i, int j) const { return v[size_t(i) * c + j]; }
};

template <class T> WideMat Widen(int r, int c, const std::vector<T>& a) {
  WideMat w(r, c);
  for (size_t i = 0; i < a.size(); ++i) w.v[i] = Wide(a[i]);
  return w;
}
inline WideMat Mul(const WideMat& a, const WideMat& b) {
  WideMat p(a.r, b.c);
  for (int i = 0; i < a.r; ++i)
    for (int l = 0; l < a.c; ++l) {
      const LC x = a(i, l);
      for (int j = 0; j < b.c; ++j) p(i, j) += x * b(l, j);
    }
  return p;
}
inline WideMat ConjTranspose(const WideMat& a) {
  WideMat t(a.c, a.r);
  for (int i = 0; i < a.r; ++i)
    for (int j = 0; j < a.c; ++j) t(j, i) = std::conj(a(i, j));
  return t;
}
inline long double Frobenius(const WideMat& a) {
  long double s = 0;
  for (const LC& x : a.v) s += std::norm(x);
  return std::sqrt(s);
}
inline long double FrobeniusDiff(const WideMat& a, const WideMat& b) {
  long double s = 0;
  for (size_t i = 0; i < a.v.size(); ++i) s += std::norm(a.v[i] - b.v[i]);
  return std::sqrt(s);
}

// Gaussian elimination with partial pivoting in long double: the determinant oracle.
inline LC ReferenceDeterminant(WideMat a) {
  const int n = a.r;
  LC det = 1;
  for (int j = 0; j < n; ++j) {
    int p = j;
    for (int i = j + 1; i < n; ++i)
      if (std::abs(a(i, j)) > std::abs(a(p, j))) p = i;
    if (a(p, j) == LC(0)) return 0;
    if (p != j) {
      for (int l = 0; l < n; ++l) std::swap(a(p, l), a(j, l));
      det = -det;
    }
    det *= a(j, j);
    for (int i = j + 1; i < n; ++i) {
      const LC f = a(i, j) / a(j, j);
      for (int l = j; l < n; ++l) a(i, l) -= f * a(j, l);
    }
  }
  return det;
}

// Random values plus n on the diagonal: strictly diagonally dominant, well conditioned.
template <class T> std::vector<T> DominantMatrix(int n, unsigned seed) {
  auto a = RandomValues<T>(size_t(n) * n, seed);
  for (int i = 0; i < n; ++i) a[size_t(i) * n + i] += T(RealT<T>(n));
  return a;
}

// The same with its rows shuffled, so that the factorization has to interchange rows.
template <class T> std::vector<T> ShuffledDominantMatrix(int n, unsigned seed) {
  auto a = DominantMatrix<T>(n, seed);
  std::vector<int> order(n);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(seed));
  std::vector<T> s(a.size());
  for (int i = 0; i < n; ++i) std::copy_n(&a[size_t(order[i]) * n], n, &s[size_t(i) * n]);
  return s;
}

// B·Bᴴ + n·I rounded to T, exactly symmetric (Hermitian) with a real diagonal.
template <class T> std::vector<T> PositiveDefiniteMatrix(int n, unsigned seed) {
  const WideMat b = Widen(n, n, RandomValues<T>(size_t(n) * n, seed));
  const WideMat h = Mul(b, ConjTranspose(b));
  std::vector<T> a(size_t(n) * n);
  for (int i = 0; i < n; ++i) {
    a[size_t(i) * n + i] = T(RealT<T>(h(i, i).real() + n));
    for (int j = 0; j < i; ++j) {
      a[size_t(i) * n + j] = Narrow<T>(h(i, j));
      a[size_t(j) * n + i] = Conj(a[size_t(i) * n + j]);
    }
  }
  return a;
}

// Triangular with a diagonal in [1, 2] and small off-diagonal entries (well conditioned);
// the other triangle holds `other`.
template <class T> std::vector<T> TriangularMatrix(int n, unsigned seed, bool lower, T other) {
  auto a = RandomValues<T>(size_t(n) * n, seed);
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j) {
      T& e = a[size_t(i) * n + j];
      if (i == j) e = T(RealT<T>(1.5) + std::real(e) / 2);
      else if ((j < i) == lower) e /= T(RealT<T>(n));
      else e = other;
    }
  return a;
}

// Refuses each host resize of `call` in turn. A successful run ends by emptying its
// `cleanups` work arrays; refusing one of those last resizes leaves the results standing
// (status 0). Every other refusal must give -20001 and is handed to `check`.
template <class Call, class Check>
void SweepRefusedResizes(Call call, size_t cleanups, Check check) {
  std::vector<int32_t> statuses;
  ForEachRefusedResize(call, [&](int64_t k, int32_t status) {
    statuses.push_back(status);
    if (status != StatusOk) check(k, status);
  });
  ASSERT_GE(statuses.size(), cleanups);
  for (size_t i = 0; i < statuses.size(); ++i)
    EXPECT_EQ(statuses[i], i + cleanups < statuses.size() ? StatusOutOfMemory : StatusOk)
        << "resize " << i + 1 << " of " << statuses.size() << " refused";
}

}  // namespace qt
