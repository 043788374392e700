// Cholesky factorization in place, both triangle options, all four element types.
#include "support/square_systems.h"

namespace qt {
namespace {

template <class T>
class SquareCholesky : public ::testing::Test {};
TYPED_TEST_SUITE(SquareCholesky, ElementTypes);

// h with the triangle that must not be read overwritten by `junk`.
template <class T>
std::vector<T> WithJunkTriangle(int n, std::vector<T> h, bool keepLower, const std::vector<T>& junk) {
  for (int i = 0; i < n; ++i)
    for (int j = 0; j < n; ++j)
      if (keepLower ? j > i : j < i) h[size_t(i) * n + j] = junk[size_t(i) * n + j];
  return h;
}

TYPED_TEST(SquareCholesky, FactorReproducesAAndZeroesTheOtherTriangle) {
  using T = TypeParam;
  for (int n : {1, 2, 3, 17, 64}) {
    const auto h = PositiveDefiniteMatrix<T>(n, 40 + n);
    const WideMat wh = Widen(n, n, h);
    std::vector<T> lowerFactor;
    for (int option : {0, 1}) {
      SCOPED_TRACE("n=" + std::to_string(n) + " option " + std::to_string(option));
      const bool lower = option == 0;
      std::vector<T> results[2];
      for (unsigned junkSeed : {1u, 2u}) {
        // Large junk in the unread triangle: it must neither be used nor survive.
        auto junk = RandomValues<T>(size_t(n) * n, junkSeed);
        for (auto& v : junk) v *= T(RealT<T>(1000));
        auto a = Mat(n, n, WithJunkTriangle(n, h, lower, junk));
        ASSERT_EQ(Api<T>::CholeskyH(a, option), StatusOk);
        ASSERT_EQ(a.dim(0), n);
        ASSERT_EQ(a.dim(1), n);
        results[junkSeed - 1] = a.values();
      }
      EXPECT_EQ(results[0], results[1]) << "the unread triangle changed the factor";
      const auto& f = results[0];
      for (int i = 0; i < n; ++i) {
        EXPECT_GT(std::real(f[size_t(i) * n + i]), 0);
        EXPECT_EQ(std::imag(f[size_t(i) * n + i]), 0);
        for (int j = 0; j < n; ++j)
          if (lower ? j > i : j < i) {
            EXPECT_EQ(f[size_t(i) * n + j], T(0)) << i << "," << j;
          }
      }
      const WideMat wf = Widen(n, n, f);
      const WideMat product = lower ? Mul(wf, ConjTranspose(wf)) : Mul(ConjTranspose(wf), wf);
      EXPECT_LT(FrobeniusDiff(product, wh) / (n * Frobenius(wh) * Eps<T>()), 30);
      if (lower) {
        lowerFactor = f;
      } else {
        // U is the conjugate transpose of L.
        long double diff = 0;
        for (int i = 0; i < n; ++i)
          for (int j = 0; j < n; ++j)
            diff = std::max(diff, std::abs(Wide(f[size_t(i) * n + j]) - std::conj(Wide(lowerFactor[size_t(j) * n + i]))));
        EXPECT_LT(diff, 30 * n * Eps<T>() * std::sqrt(Frobenius(wh)));
      }
    }
  }
}

TYPED_TEST(SquareCholesky, SmallClosedCases) {
  using T = TypeParam;
  for (int option : {0, 1}) {
    auto a = Mat<T>(1, 1, {T(4)});
    ASSERT_EQ(Api<T>::CholeskyH(a, option), StatusOk);
    EXPECT_EQ(a.values(), std::vector<T>{T(2)});
  }
  // [[4, 2], [2, 5]] = L·Lᵀ with L = [[2, 0], [1, 2]].
  auto a = Mat<T>(2, 2, {T(4), T(-7), T(2), T(5)});
  ASSERT_EQ(Api<T>::CholeskyH(a, 0), StatusOk);
  EXPECT_EQ(a.values(), (std::vector<T>{T(2), T(0), T(1), T(2)}));
  if constexpr (kIsComplex<T>) {
    // Hermitian [[4, 2i], [-2i, 5]] = Uᴴ·U with U = [[2, i], [0, 2]].
    auto c = Mat<T>(2, 2, {T(4), T(0, 2), T(9, 9), T(5)});
    ASSERT_EQ(Api<T>::CholeskyH(c, 1), StatusOk);
    EXPECT_EQ(c.values(), (std::vector<T>{T(2), T(0, 1), T(0), T(2)}));
  }
}

TYPED_TEST(SquareCholesky, StatusesInCheckOrderAndAEmptied) {
  using T = TypeParam;
  struct Case { int rows, cols; std::vector<T> a; int32_t option; int32_t status; };
  const Case cases[] = {
      {0, 3, {}, 0, StatusNotSquare},  // squareness is checked before emptiness
      {3, 0, {}, 0, StatusNotSquare},
      {2, 3, std::vector<T>(6, T(1)), 7, StatusNotSquare},
      {0, 0, {}, 0, StatusEmptyInput},
      {0, 0, {}, 5, StatusEmptyInput},
      {1, 1, {T(4)}, 2, StatusBadOption},
      {1, 1, {T(4)}, -1, StatusBadOption},
      {1, 1, {T(0)}, 0, StatusNotPositiveDefinite},
      {1, 1, {T(-1)}, 1, StatusNotPositiveDefinite},
      // Symmetric indefinite, eigenvalues 3 and -1 in the leading 2 x 2.
      {3, 3, {T(1), T(2), T(0), T(2), T(1), T(0), T(0), T(0), T(1)}, 0, StatusNotPositiveDefinite},
      {3, 3, {T(1), T(2), T(0), T(2), T(1), T(0), T(0), T(0), T(1)}, 1, StatusNotPositiveDefinite},
      // Only the read triangle counts: a negative entry in the lower part fails option 0 ...
      {2, 2, {T(1), T(0), T(5), T(1)}, 0, StatusNotPositiveDefinite},
      // ... and passes option 1, which reads [[1, 0], [0, 1]].
      {2, 2, {T(1), T(0), T(5), T(1)}, 1, StatusOk},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.rows) + "x" + std::to_string(c.cols) + " option " + std::to_string(c.option));
    auto a = HostArray<T>::RawMatrix(c.rows, c.cols, std::max<int32_t>(int32_t(c.a.size()), 1));
    std::copy(c.a.begin(), c.a.end(), a.data());
    EXPECT_EQ(Api<T>::CholeskyH(a, c.option), c.status);
    if (c.status < 0) {
      EXPECT_EQ(a.dim(0), 0);
      EXPECT_EQ(a.dim(1), 0);
    }
  }
  EXPECT_EQ(Api<T>::CholeskyH(nullptr, 0), StatusEmptyInput);
}

}  // namespace
}  // namespace qt
