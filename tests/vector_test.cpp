// Dot product, vector norm, mean and RMS in all four element types.
#include <cmath>

#include "support/host_array.h"

namespace qt {
namespace {

template <class T>
class VectorOps : public ::testing::Test {};
TYPED_TEST_SUITE(VectorOps, ElementTypes);

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TYPED_TEST(VectorOps, DotProductChecksLengthBeforeEmptiness) {
  using T = TypeParam;
  struct Case { std::vector<T> x, y; int32_t status; };
  const Case cases[] = {
      {{T(1), T(2), T(3)}, {}, StatusSizeMismatch},
      {{}, {T(1)}, StatusSizeMismatch},
      {{T(1)}, {T(1), T(2)}, StatusSizeMismatch},
      {{}, {}, StatusEmptyInput},
  };
  for (const auto& c : cases) {
    auto x = Vec(c.x), y = Vec(c.y);
    T r = T(7);
    EXPECT_EQ(Api<T>::DotProdH(x, y, &r), c.status);
    EXPECT_TRUE(IsNaN(r));
  }
  // Null handles read as empty vectors.
  T r = T(7);
  EXPECT_EQ(Api<T>::DotProdH(nullptr, nullptr, &r), StatusEmptyInput);
  EXPECT_TRUE(IsNaN(r));
}

TYPED_TEST(VectorOps, DotProductAgreesWithLongDoubleSum) {
  using T = TypeParam;
  for (int n : {1, 2, 3, 7, 64, 1001}) {
    auto xv = RandomValues<T>(n, 11 + n), yv = RandomValues<T>(n, 97 + n);
    LC ref = 0;
    long double absSum = 0;
    for (int i = 0; i < n; ++i) {
      const LC xi = Wide(xv[i]), yi = Wide(yv[i]);
      ref += xi * std::conj(yi);
      absSum += std::abs(xi) * std::abs(yi);
    }
    auto x = Vec(xv), y = Vec(yv);
    T r;
    ASSERT_EQ(Api<T>::DotProdH(x, y, &r), StatusOk);
    // Forward error bound of a length-n sum: n * eps * sum |x||y| (with slack 4).
    const long double tol = 4.0L * n * Eps<T>() * absSum;
    EXPECT_LE(std::abs(std::real(r) - ref.real()), tol) << "n=" << n;
    EXPECT_LE(std::abs(std::imag(r) - (kIsComplex<T> ? ref.imag() : 0.0L)), tol) << "n=" << n;
    // Inputs are read only.
    EXPECT_EQ(x.values(), xv);
    EXPECT_EQ(y.values(), yv);
  }
}

TYPED_TEST(VectorOps, ComplexDotConjugatesTheSecondInput) {
  using T = TypeParam;
  if constexpr (kIsComplex<T>) {
    const T i(0, 1);
    T r;
    auto a = Vec<T>({i}), b = Vec<T>({i}), one = Vec<T>({T(1)});
    ASSERT_EQ(Api<T>::DotProdH(a, b, &r), StatusOk);
    EXPECT_EQ(r, T(1, 0));
    ASSERT_EQ(Api<T>::DotProdH(one, b, &r), StatusOk);
    EXPECT_EQ(r, T(0, -1));
  }
}

TYPED_TEST(VectorOps, NormStatusesInOrder) {
  using T = TypeParam;
  using R = RealT<T>;
  struct Case { std::vector<T> x; double p; int32_t status; };
  const Case cases[] = {
      {{}, kNaN, StatusEmptyInput},  // emptiness is checked before p
      {{}, 0, StatusEmptyInput},
      {{T(1)}, kNaN, StatusNormParamNaN},
      {{T(1)}, 0, StatusZeroParameter},
      {{T(1)}, -0.0, StatusZeroParameter},
  };
  for (const auto& c : cases) {
    auto x = Vec(c.x);
    R r = 7;
    EXPECT_EQ(Api<T>::VectorNormH(x, R(c.p), &r), c.status) << "p=" << c.p;
    EXPECT_TRUE(std::isnan(r));
  }
}

TYPED_TEST(VectorOps, NormValues) {
  using T = TypeParam;
  using R = RealT<T>;
  struct Case { std::vector<T> x; double p; double expected; };
  std::vector<Case> cases = {
      {{T(1), T(2)}, -1, 2.0 / 3.0},
      {{T(3), T(-1), T(2)}, -kInf, 1},
      {{T(3), T(-1), T(2)}, kInf, 3},
      {{T(3), T(-4)}, 1, 7},
      {{T(3), T(-4)}, 2, 5},
      {{T(3), T(-4)}, 3, std::cbrt(91.0)},
      {{T(1), T(0), T(2)}, -2, 0},  // |0|^p = inf, inf^(1/p) = 0
      {{T(16)}, 0.5, 16},
  };
  if constexpr (kIsComplex<T>) {
    // Moduli, not |re| + |im|.
    cases.push_back({{T(3, 4), T(0, -5)}, 1, 10});
    cases.push_back({{T(3, 4), T(0, -5)}, 2, std::sqrt(50.0)});
    cases.push_back({{T(3, 4), T(0, -1)}, -kInf, 1});
    cases.push_back({{T(3, 4), T(6, 8)}, 4, std::pow(625.0 + 10000.0, 0.25)});
  }
  for (const auto& c : cases) {
    auto x = Vec(c.x);
    R r;
    ASSERT_EQ(Api<T>::VectorNormH(x, R(c.p), &r), StatusOk) << "p=" << c.p;
    EXPECT_NEAR(r, c.expected, 8 * Eps<T>() * std::max(1.0, c.expected)) << "p=" << c.p;
  }
}

TYPED_TEST(VectorOps, TwoNormIsNotRescaled) {
  using T = TypeParam;
  using R = RealT<T>;
  const R big = std::sqrt(std::numeric_limits<R>::max()) * 4;  // big^2 overflows
  auto x = Vec<T>({T(big), T(1)});
  R r;
  ASSERT_EQ(Api<T>::VectorNormH(x, R(2), &r), StatusOk);
  EXPECT_TRUE(std::isinf(r));
  ASSERT_EQ(Api<T>::RMSH(x, &r), StatusOk);
  EXPECT_TRUE(std::isinf(r));
}

TYPED_TEST(VectorOps, MeanAndRms) {
  using T = TypeParam;
  using R = RealT<T>;
  T m;
  R r;
  auto empty = Vec<T>({});
  m = T(1);
  r = 1;
  EXPECT_EQ(Api<T>::MeanH(empty, &m), StatusEmptyInput);
  EXPECT_EQ(Api<T>::RMSH(empty, &r), StatusEmptyInput);
  EXPECT_TRUE(IsNaN(m));
  EXPECT_TRUE(std::isnan(r));

  auto v34 = Vec<T>({T(3), T(4)});
  ASSERT_EQ(Api<T>::RMSH(v34, &r), StatusOk);
  EXPECT_NEAR(r, 5 / std::sqrt(2.0), 4 * Eps<T>());
  if constexpr (kIsComplex<T>) {
    auto z = Vec<T>({T(3, 4)});
    ASSERT_EQ(Api<T>::RMSH(z, &r), StatusOk);
    EXPECT_NEAR(r, 5, 4 * Eps<T>() * 5);
  }

  // Against a long double reference over lengths that exercise every remainder of the
  // unrolled loops.
  for (int n : {1, 2, 3, 4, 5, 6, 7, 8, 9, 333}) {
    auto xv = RandomValues<T>(n, 5 * n + 1);
    LC sum = 0;
    long double sq = 0, absSum = 0;
    for (const T& e : xv) {
      const LC el = Wide(e);
      sum += el;
      sq += std::norm(el);
      absSum += std::abs(el);
    }
    auto x = Vec(xv);
    ASSERT_EQ(Api<T>::MeanH(x, &m), StatusOk);
    const long double tol = 2.0L * n * Eps<T>() * absSum / n;
    EXPECT_LE(std::abs(std::real(m) - sum.real() / n), tol) << n;
    EXPECT_LE(std::abs(std::imag(m) - (kIsComplex<T> ? sum.imag() / n : 0.0L)), tol) << n;
    ASSERT_EQ(Api<T>::RMSH(x, &r), StatusOk);
    EXPECT_NEAR(r, std::sqrt(sq / n), 2.0 * n * Eps<T>()) << n;
  }
}

TEST(VectorOps, MeanOverflowsWithoutRescaling) {
  auto x = Vec<double>({1e308, 1e308});
  double m;
  ASSERT_EQ(dMeanH(x, &m), StatusOk);
  EXPECT_TRUE(std::isinf(m));
}

TYPED_TEST(VectorOps, NullResultPointerIsAMissingOutput) {
  using T = TypeParam;
  auto x = Vec<T>({T(1)});
  EXPECT_EQ(Api<T>::DotProdH(x, x, nullptr), StatusKernelError);
  EXPECT_EQ(Api<T>::VectorNormH(x, 2, nullptr), StatusKernelError);
  EXPECT_EQ(Api<T>::MeanH(x, nullptr), StatusKernelError);
  EXPECT_EQ(Api<T>::RMSH(x, nullptr), StatusKernelError);
}

}  // namespace
}  // namespace qt
