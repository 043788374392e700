// Matrix products, transpose, trace and special matrices in all four element types.
#include <cmath>
#include <functional>

#include "support/host_array.h"

namespace qt {
namespace {

template <class T>
class Products : public ::testing::Test {};
TYPED_TEST_SUITE(Products, ElementTypes);

// Sizes of a 2-D output, as a pair, for compact expectations.
template <class T>
std::pair<int32_t, int32_t> Dims(const HostArray<T>& a) {
  return {a.dim(0), a.dim(1)};
}
const std::pair<int32_t, int32_t> kEmpty{0, 0};

// Filled with something, so that emptying it is visible.
template <class T>
HostArray<T> Stale(int32_t r = 2, int32_t c = 2) {
  return Mat<T>(r, c, std::vector<T>(size_t(r) * c, T(7)));
}

// |got - want| <= tol for both parts.
template <class T>
::testing::AssertionResult Near(const T& got, const LC& want, long double tol) {
  const LC d = Wide(got) - want;
  if (std::abs(d.real()) <= tol && std::abs(d.imag()) <= tol) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "got (" << std::real(got) << ", " << std::imag(got) << ") want ("
                                       << want.real() << ", " << want.imag() << ") tol " << tol;
}

// ---- Matrix product -------------------------------------------------------------

TYPED_TEST(Products, MatrixProductChecksInOrder) {
  using T = TypeParam;
  struct Case { int32_t ar, ac, br, bc; int32_t status; std::pair<int32_t, int32_t> r; };
  const Case cases[] = {
      {2, 3, 2, 3, StatusInnerDimMismatch, kEmpty},
      {2, -1, 3, 2, StatusInnerDimMismatch, kEmpty},  // mismatch wins over a negative size
      {-2, 3, 4, 2, StatusInnerDimMismatch, kEmpty},
      {-2, 3, 3, 2, StatusBadDimension, kEmpty},
      {2, -1, -1, 2, StatusBadDimension, kEmpty},
      {2, 3, 3, -4, StatusBadDimension, kEmpty},
      {0, 4, 4, 5, StatusOk, {0, 5}},
      {3, 4, 4, 0, StatusOk, {3, 0}},
      {0, 0, 0, 0, StatusOk, {0, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.ar << "x" << c.ac << " times " << c.br << "x" << c.bc);
    auto A = HostArray<T>::RawMatrix(c.ar, c.ac, std::max(0, c.ar) * std::max(0, c.ac));
    auto B = HostArray<T>::RawMatrix(c.br, c.bc, std::max(0, c.br) * std::max(0, c.bc));
    auto R = Stale<T>();
    EXPECT_EQ(Api<T>::MtrxMulH(A, B, R), c.status);
    EXPECT_EQ(Dims(R), c.r);
  }
  // A missing output cannot be sized.
  auto A = Mat<T>(1, 1, {T(2)});
  EXPECT_EQ(Api<T>::MtrxMulH(A, A, nullptr), StatusKernelError);
}

TYPED_TEST(Products, MatrixProductOverEmptyInnerDimensionIsNaN) {
  using T = TypeParam;
  auto A = Mat<T>(3, 0), B = Mat<T>(0, 2), R = Mat<T>(0, 0);
  ASSERT_EQ(Api<T>::MtrxMulH(A, B, R), StatusOk);
  ASSERT_EQ(Dims(R), std::make_pair(3, 2));
  for (const T& v : R.values()) EXPECT_TRUE(IsNaN(v));
}

TYPED_TEST(Products, MatrixProductSizeGuard) {
  using T = TypeParam;
  // 16 + 16 and 15 + 16 bits: refused before the host is asked.
  for (int32_t m : {65536, 32768}) {
    auto A = HostArray<T>::RawMatrix(m, 1), B = HostArray<T>::RawMatrix(1, 65536), R = Mat<T>(0, 0);
    const int64_t before = KortResizeCount();
    EXPECT_EQ(Api<T>::MtrxMulH(A, B, R), StatusOutOfMemory) << m;
    EXPECT_EQ(KortResizeCount(), before) << m;
    EXPECT_EQ(Dims(R), kEmpty);
  }
  // 15 + 15 bits: the host is asked (and here refuses, instead of handing out 2^30
  // elements).
  auto A = Mat<T>(32768, 1), B = Mat<T>(1, 32768), R = Mat<T>(0, 0);
  const int64_t before = KortResizeCount();
  KortFailResizeAt(1);
  EXPECT_EQ(Api<T>::MtrxMulH(A, B, R), StatusOutOfMemory);
  KortFailResizeAt(0);
  EXPECT_EQ(KortResizeCount(), before + 1);
  EXPECT_EQ(Dims(R), kEmpty);
}

TYPED_TEST(Products, MatrixProductClosedForms) {
  using T = TypeParam;
  auto a = Mat<T>(1, 1, {T(3)}), b = Mat<T>(1, 1, {T(-4)}), R = Mat<T>(0, 0);
  ASSERT_EQ(Api<T>::MtrxMulH(a, b, R), StatusOk);
  EXPECT_EQ(R.values(), std::vector<T>{T(-12)});
  // [[1, 2], [3, 4]] [[5, 6], [7, 8]] = [[19, 22], [43, 50]].
  auto A = Mat<T>(2, 2, {T(1), T(2), T(3), T(4)}), B = Mat<T>(2, 2, {T(5), T(6), T(7), T(8)});
  ASSERT_EQ(Api<T>::MtrxMulH(A, B, R), StatusOk);
  EXPECT_EQ(R.values(), (std::vector<T>{T(19), T(22), T(43), T(50)}));
  if constexpr (kIsComplex<T>) {
    auto x = Mat<T>(1, 1, {T(1, 2)}), y = Mat<T>(1, 1, {T(3, 4)});
    ASSERT_EQ(Api<T>::MtrxMulH(x, y, R), StatusOk);
    EXPECT_EQ(R.values(), std::vector<T>{T(-5, 10)});  // not conjugated
  }
}

// Naive product in long double with the bound of a length-k sum.
template <class T>
void CheckProduct(int m, int k, int n, unsigned seed) {
  SCOPED_TRACE(::testing::Message() << m << "x" << k << " times " << k << "x" << n);
  const auto av = RandomValues<T>(size_t(m) * k, seed), bv = RandomValues<T>(size_t(k) * n, seed + 1);
  auto A = Mat<T>(m, k, av), B = Mat<T>(k, n, bv), R = Mat<T>(0, 0);
  ASSERT_EQ(Api<T>::MtrxMulH(A, B, R), StatusOk);
  ASSERT_EQ(Dims(R), std::make_pair(m, n));
  for (int i = 0; i < m; ++i) {
    for (int j = 0; j < n; ++j) {
      LC s = 0;
      long double mag = 0;
      for (int l = 0; l < k; ++l) {
        s += Wide(av[size_t(i) * k + l]) * Wide(bv[size_t(l) * n + j]);
        mag += std::abs(Wide(av[size_t(i) * k + l])) * std::abs(Wide(bv[size_t(l) * n + j]));
      }
      ASSERT_TRUE(Near(R.at(i, j), s, 4.0L * (k + 2) * Eps<T>() * mag)) << i << "," << j;
    }
  }
  EXPECT_EQ(A.values(), av);
  EXPECT_EQ(B.values(), bv);
}

TYPED_TEST(Products, MatrixProductAgreesWithNaiveProduct) {
  using T = TypeParam;
  const int shapes[][3] = {{1, 1, 1}, {2, 3, 4}, {7, 5, 3}, {1, 100, 1}, {100, 1, 100}, {17, 33, 9}, {65, 64, 66}};
  unsigned seed = 1;
  for (const auto& s : shapes) CheckProduct<T>(s[0], s[1], s[2], seed += 7);
}

TYPED_TEST(Products, MatrixProductWritesASizedOutputInPlace) {
  using T = TypeParam;
  auto A = Mat<T>(2, 3, RandomValues<T>(6, 3)), B = Mat<T>(3, 4, RandomValues<T>(12, 4));
  auto R = Stale<T>(2, 4);
  const int64_t before = KortResizeCount();
  ASSERT_EQ(Api<T>::MtrxMulH(A, B, R), StatusOk);
  EXPECT_EQ(KortResizeCount(), before);
  EXPECT_NE(R.at(0, 0), T(7));
  // A stale output of another shape is resized.
  auto S = Stale<T>(4, 2);
  ASSERT_EQ(Api<T>::MtrxMulH(A, B, S), StatusOk);
  EXPECT_EQ(KortResizeCount(), before + 1);
  EXPECT_EQ(S.values(), R.values());
}

// ---- Matrix-vector and vector-matrix products ------------------------------------

TYPED_TEST(Products, MatrixVectorChecksInOrder) {
  using T = TypeParam;
  struct Case { int32_t rows, cols, xlen; int32_t mv, vm; int32_t ymv, yvm; };
  const Case cases[] = {
      {2, 3, 2, StatusInnerDimMismatch, StatusOk, 0, 3},
      {2, 3, 3, StatusOk, StatusInnerDimMismatch, 2, 0},
      {2, -3, 0, StatusInnerDimMismatch, StatusInnerDimMismatch, 0, 0},
      {2, -3, 2, StatusInnerDimMismatch, StatusBadDimension, 0, 0},
      {-2, 3, 3, StatusBadDimension, StatusInnerDimMismatch, 0, 0},
      {3, 0, 0, StatusOk, StatusInnerDimMismatch, 0, 0},
      {3, 0, 3, StatusInnerDimMismatch, StatusOk, 0, 0},
      {0, 4, 4, StatusOk, StatusInnerDimMismatch, 0, 0},
      {0, 4, 0, StatusInnerDimMismatch, StatusOk, 0, 0},
      {0, 0, 0, StatusOk, StatusOk, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.rows << "x" << c.cols << ", x of " << c.xlen);
    auto A = HostArray<T>::RawMatrix(c.rows, c.cols, std::max(0, c.rows) * std::max(0, c.cols));
    auto x = Vec(std::vector<T>(c.xlen, T(1)));
    auto y1 = Vec<T>({T(7), T(7)}), y2 = Vec<T>({T(7), T(7)});
    EXPECT_EQ(Api<T>::MtrxVecMulH(A, x, y1), c.mv);
    EXPECT_EQ(y1.dim(0), c.ymv);
    EXPECT_EQ(Api<T>::VecMtrxMulH(x, A, y2), c.vm);
    EXPECT_EQ(y2.dim(0), c.yvm);
  }
}

TYPED_TEST(Products, MatrixVectorEmptyResultNeedsNoResizeWhenAlreadyEmpty) {
  using T = TypeParam;
  auto A = Mat<T>(3, 0), x = Vec<T>({}), y = Vec<T>({});
  const int64_t before = KortResizeCount();
  EXPECT_EQ(Api<T>::MtrxVecMulH(A, x, y), StatusOk);
  EXPECT_EQ(KortResizeCount(), before);
  EXPECT_EQ(Api<T>::MtrxVecMulH(A, x, nullptr), StatusKernelError);
}

TYPED_TEST(Products, MatrixVectorAgreesWithNaiveSums) {
  using T = TypeParam;
  const int shapes[][2] = {{1, 1}, {1, 7}, {7, 1}, {5, 3}, {33, 65}, {200, 3}};
  unsigned seed = 20;
  for (const auto& s : shapes) {
    const int m = s[0], n = s[1];
    SCOPED_TRACE(::testing::Message() << m << "x" << n);
    const auto av = RandomValues<T>(size_t(m) * n, ++seed);
    const auto xn = RandomValues<T>(n, ++seed), xm = RandomValues<T>(m, ++seed);
    auto A = Mat<T>(m, n, av), x1 = Vec(xn), x2 = Vec(xm), y1 = Vec<T>({}), y2 = Vec<T>({});
    ASSERT_EQ(Api<T>::MtrxVecMulH(A, x1, y1), StatusOk);
    ASSERT_EQ(Api<T>::VecMtrxMulH(x2, A, y2), StatusOk);
    ASSERT_EQ(y1.dim(0), m);
    ASSERT_EQ(y2.dim(0), n);
    for (int i = 0; i < m; ++i) {
      LC s1 = 0;
      long double mag = 0;
      for (int j = 0; j < n; ++j) {
        s1 += Wide(av[size_t(i) * n + j]) * Wide(xn[j]);
        mag += std::abs(Wide(av[size_t(i) * n + j])) * std::abs(Wide(xn[j]));
      }
      EXPECT_TRUE(Near(y1.values()[i], s1, 4.0L * (n + 2) * Eps<T>() * mag)) << i;
    }
    for (int j = 0; j < n; ++j) {
      LC s2 = 0;
      long double mag = 0;
      for (int i = 0; i < m; ++i) {
        s2 += Wide(xm[i]) * Wide(av[size_t(i) * n + j]);
        mag += std::abs(Wide(xm[i])) * std::abs(Wide(av[size_t(i) * n + j]));
      }
      EXPECT_TRUE(Near(y2.values()[j], s2, 4.0L * (m + 2) * Eps<T>() * mag)) << j;
    }
    // Outputs of the right length are written in place.
    const int64_t before = KortResizeCount();
    ASSERT_EQ(Api<T>::MtrxVecMulH(A, x1, y1), StatusOk);
    ASSERT_EQ(Api<T>::VecMtrxMulH(x2, A, y2), StatusOk);
    EXPECT_EQ(KortResizeCount(), before);
  }
  if constexpr (kIsComplex<T>) {
    auto A = Mat<T>(1, 1, {T(0, 1)}), x = Vec<T>({T(0, 1)}), y = Vec<T>({});
    ASSERT_EQ(Api<T>::VecMtrxMulH(x, A, y), StatusOk);
    EXPECT_EQ(y.values(), std::vector<T>{T(-1, 0)});  // not conjugated
    ASSERT_EQ(Api<T>::MtrxVecMulH(A, x, y), StatusOk);
    EXPECT_EQ(y.values(), std::vector<T>{T(-1, 0)});
  }
}

// ---- Outer and Kronecker products -------------------------------------------------

TYPED_TEST(Products, OuterProduct) {
  using T = TypeParam;
  auto M = Stale<T>();
  auto empty = Vec<T>({}), one = Vec<T>({T(1)});
  EXPECT_EQ(Api<T>::OuterProdH(empty, one, M), StatusEmptyInput);
  EXPECT_EQ(Dims(M), kEmpty);
  M = Stale<T>();
  EXPECT_EQ(Api<T>::OuterProdH(one, empty, M), StatusEmptyInput);
  EXPECT_EQ(Dims(M), kEmpty);

  auto x = Vec<T>({T(1), T(2)}), y = Vec<T>({T(3), T(4), T(5)});
  ASSERT_EQ(Api<T>::OuterProdH(x, y, M), StatusOk);
  ASSERT_EQ(Dims(M), std::make_pair(2, 3));
  EXPECT_EQ(M.values(), (std::vector<T>{T(3), T(4), T(5), T(6), T(8), T(10)}));
  const int64_t before = KortResizeCount();
  ASSERT_EQ(Api<T>::OuterProdH(y, x, M), StatusOk);  // 3 x 2: resized
  ASSERT_EQ(Api<T>::OuterProdH(y, x, M), StatusOk);  // in place
  EXPECT_EQ(KortResizeCount(), before + 1);
  EXPECT_EQ(M.values(), (std::vector<T>{T(3), T(6), T(4), T(8), T(5), T(10)}));

  // Each element is one rounded product.
  const auto xv = RandomValues<T>(9, 5), yv = RandomValues<T>(13, 6);
  auto X = Vec(xv), Y = Vec(yv);
  ASSERT_EQ(Api<T>::OuterProdH(X, Y, M), StatusOk);
  ASSERT_EQ(Dims(M), std::make_pair(9, 13));
  for (int i = 0; i < 9; ++i)
    for (int j = 0; j < 13; ++j)
      EXPECT_TRUE(Near(M.at(i, j), Wide(xv[i]) * Wide(yv[j]), 4 * Eps<T>())) << i << "," << j;

  if constexpr (kIsComplex<T>) {
    auto a = Vec<T>({T(0, 1)});
    ASSERT_EQ(Api<T>::OuterProdH(a, a, M), StatusOk);
    EXPECT_EQ(M.values(), std::vector<T>{T(-1, 0)});
  }

  // 15 + 16 bits: refused without asking the host.
  auto big = Vec(std::vector<T>(65536)), half = Vec(std::vector<T>(32768));
  M = Mat<T>(0, 0);
  const int64_t count = KortResizeCount();
  EXPECT_EQ(Api<T>::OuterProdH(half, big, M), StatusOutOfMemory);
  EXPECT_EQ(KortResizeCount(), count);
  EXPECT_EQ(Dims(M), kEmpty);
}

TYPED_TEST(Products, KroneckerProductChecks) {
  using T = TypeParam;
  struct Case { int32_t p, q, r, s; int32_t status; };
  const Case cases[] = {
      {0, 2, 1, 1, StatusEmptyInput},
      {1, 1, 1, 0, StatusEmptyInput},
      {-1, 1, 1, 1, StatusEmptyInput},
      {65536, 1, 65536, 1, StatusOutOfMemory},  // p r = 2^32: beyond int32
      {32768, 1, 65536, 1, StatusOutOfMemory},  // p r = 2^31: beyond int32
      {1, 65536, 1, 65536, StatusOutOfMemory},
      {256, 256, 256, 256, StatusOutOfMemory},  // 65536 x 65536: 16 + 16 bits
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.p << "x" << c.q << " kron " << c.r << "x" << c.s);
    auto A = HostArray<T>::RawMatrix(c.p, c.q), B = HostArray<T>::RawMatrix(c.r, c.s);
    auto M = Stale<T>();
    const int64_t before = KortResizeCount();
    EXPECT_EQ(Api<T>::KronProdH(A, B, M), c.status);
    EXPECT_EQ(Dims(M), kEmpty);
    EXPECT_EQ(KortResizeCount(), before + 1);  // only the emptying of the stale output
  }
}

TYPED_TEST(Products, KroneckerProductLayout) {
  using T = TypeParam;
  auto M = Mat<T>(0, 0);
  auto a = Mat<T>(1, 2, {T(1), T(2)}), b = Mat<T>(2, 1, {T(1), T(10)});
  ASSERT_EQ(Api<T>::KronProdH(a, b, M), StatusOk);
  ASSERT_EQ(Dims(M), std::make_pair(2, 2));
  EXPECT_EQ(M.values(), (std::vector<T>{T(1), T(2), T(10), T(20)}));

  // A 1 x 1 factor scales the other.
  const auto bv = RandomValues<T>(6, 8);
  auto c = Mat<T>(1, 1, {T(3)}), B = Mat<T>(2, 3, bv);
  ASSERT_EQ(Api<T>::KronProdH(c, B, M), StatusOk);
  ASSERT_EQ(Dims(M), std::make_pair(2, 3));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(M.values()[i], bv[i] * T(3));

  const int p = 3, q = 4, r = 5, s = 2;
  const auto av = RandomValues<T>(p * q, 9), wv = RandomValues<T>(r * s, 10);
  auto A = Mat<T>(p, q, av), W = Mat<T>(r, s, wv);
  ASSERT_EQ(Api<T>::KronProdH(A, W, M), StatusOk);
  ASSERT_EQ(Dims(M), std::make_pair(p * r, q * s));
  for (int i = 0; i < p; ++i)
    for (int j = 0; j < q; ++j)
      for (int k = 0; k < r; ++k)
        for (int l = 0; l < s; ++l)
          EXPECT_TRUE(Near(M.at(i * r + k, j * s + l), Wide(av[i * q + j]) * Wide(wv[k * s + l]), 4 * Eps<T>()));
  if constexpr (kIsComplex<T>) {
    auto z = Mat<T>(1, 1, {T(0, 1)});
    ASSERT_EQ(Api<T>::KronProdH(z, z, M), StatusOk);
    EXPECT_EQ(M.values(), std::vector<T>{T(-1, 0)});
  }
}

// ---- Transpose and trace ----------------------------------------------------------

TYPED_TEST(Products, TransposeMatchesElementFormula) {
  using T = TypeParam;
  auto At = Mat<T>(0, 0);
  // Shapes around the tile edge, including odd remainders in both directions.
  const int shapes[][2] = {{1, 1},   {2, 3},   {1, 5},     {5, 1},    {31, 33},  {32, 32},
                           {64, 64}, {64, 65}, {70, 33},   {100, 1},  {128, 192}, {130, 197}};
  unsigned seed = 40;
  for (const auto& s : shapes) {
    const int m = s[0], n = s[1];
    SCOPED_TRACE(::testing::Message() << m << "x" << n);
    const auto av = RandomValues<T>(size_t(m) * n, ++seed);
    auto A = Mat<T>(m, n, av);
    ASSERT_EQ(Api<T>::TransposeH(A, At), StatusOk);
    ASSERT_EQ(Dims(At), std::make_pair(n, m));
    for (int i = 0; i < m; ++i)
      for (int j = 0; j < n; ++j) {
        T want = av[size_t(i) * n + j];
        if constexpr (kIsComplex<T>) want = std::conj(want);
        ASSERT_EQ(At.at(j, i), want);
      }
    EXPECT_EQ(A.values(), av);
  }
  auto A = Mat<T>(2, 3, {T(1), T(2), T(3), T(4), T(5), T(6)});
  const int64_t before = KortResizeCount();
  At = Stale<T>(3, 2);
  ASSERT_EQ(Api<T>::TransposeH(A, At), StatusOk);
  EXPECT_EQ(KortResizeCount(), before);  // already 3 x 2
  EXPECT_EQ(At.values(), (std::vector<T>{T(1), T(4), T(2), T(5), T(3), T(6)}));
}

// Large enough that the output is written past the cache.
TYPED_TEST(Products, LargeTransposeMatchesElementFormula) {
  using T = TypeParam;
  // Rows of the result a multiple of 8 elements long (all starting at the same place in
  // a cache line) and not.
  for (const int m : {1032, 1030}) {
    SCOPED_TRACE(m);
    const int n = 2050;
    std::vector<T> av(size_t(m) * n);
    for (size_t k = 0; k < av.size(); ++k) {
      if constexpr (kIsComplex<T>) av[k] = T(RealT<T>(k % 1000), RealT<T>(k % 7) - 3);
      else av[k] = T(k % 100000);
    }
    auto A = Mat<T>(m, n, av), At = Mat<T>(0, 0);
    ASSERT_EQ(Api<T>::TransposeH(A, At), StatusOk);
    ASSERT_EQ(Dims(At), std::make_pair(n, m));
    const T* t = At.data();
    int64_t wrong = 0;
    for (int i = 0; i < m; ++i) {
      for (int j = 0; j < n; ++j) {
        T want = av[size_t(i) * n + j];
        if constexpr (kIsComplex<T>) want = std::conj(want);
        wrong += !(t[size_t(j) * m + i] == want);
      }
    }
    EXPECT_EQ(wrong, 0);
  }
}

TYPED_TEST(Products, ComplexTransposeConjugatesToNegativeZero) {
  using T = TypeParam;
  if constexpr (kIsComplex<T>) {
    // 1 x 3 and, for the tiled path, 64 x 192 with the same three values in row 0.
    for (int rows : {1, 64}) {
      std::vector<T> av(size_t(rows) * 192, T(5, 1));
      av[0] = T(1, 2);
      av[1] = T(3, 0);
      av[2] = T(4, -0.0);
      auto A = Mat<T>(rows, 192, av), At = Mat<T>(0, 0);
      ASSERT_EQ(Api<T>::TransposeH(A, At), StatusOk);
      EXPECT_EQ(At.at(0, 0), T(1, -2));
      EXPECT_EQ(At.at(1, 0).real(), 3);
      EXPECT_EQ(At.at(1, 0).imag(), 0);
      EXPECT_TRUE(std::signbit(At.at(1, 0).imag()));   // -0.0 - 0
      EXPECT_FALSE(std::signbit(At.at(2, 0).imag()));  // -0.0 - (-0.0)
    }
  }
}

TYPED_TEST(Products, TransposeFailures) {
  using T = TypeParam;
  struct Case { int32_t rows, cols; int32_t status; };
  const Case cases[] = {
      {0, 4, StatusEmptyInput},
      {4, 0, StatusEmptyInput},
      {0, 0, StatusEmptyInput},
      {-1, 3, StatusOutOfMemory},  // the host refuses a negative element count
      {65536, 65536, StatusOutOfMemory},
      {32768, 65536, StatusOutOfMemory},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.rows << "x" << c.cols);
    auto A = HostArray<T>::RawMatrix(c.rows, c.cols), At = Stale<T>();
    EXPECT_EQ(Api<T>::TransposeH(A, At), c.status);
    EXPECT_EQ(Dims(At), kEmpty);
  }
  // The size guard refuses before the host is asked.
  auto A = HostArray<T>::RawMatrix(65536, 32768), At = Mat<T>(0, 0);
  const int64_t before = KortResizeCount();
  EXPECT_EQ(Api<T>::TransposeH(A, At), StatusOutOfMemory);
  EXPECT_EQ(KortResizeCount(), before);
}

TYPED_TEST(Products, Trace) {
  using T = TypeParam;
  T t = T(7);
  auto A = Mat<T>(2, 3, {T(1), T(2), T(3), T(4), T(5), T(6)});
  ASSERT_EQ(Api<T>::TraceH(A, &t), StatusOk);
  EXPECT_EQ(t, T(6));
  auto B = Mat<T>(3, 2, {T(1), T(2), T(3), T(4), T(5), T(6)});
  ASSERT_EQ(Api<T>::TraceH(B, &t), StatusOk);
  EXPECT_EQ(t, T(5));
  for (auto dims : {std::make_pair(0, 0), std::make_pair(3, 0), std::make_pair(0, 3), std::make_pair(-1, 2)}) {
    auto E = HostArray<T>::RawMatrix(dims.first, dims.second);
    t = T(7);
    EXPECT_EQ(Api<T>::TraceH(E, &t), StatusEmptyInput);
    EXPECT_TRUE(IsNaN(t));
  }
  EXPECT_EQ(Api<T>::TraceH(A, nullptr), StatusKernelError);

  for (int n : {1, 4, 5, 9, 50}) {
    const auto av = RandomValues<T>(size_t(n) * (n + 1), 60 + n);
    auto R = Mat<T>(n, n + 1, av);
    LC s = 0;
    long double mag = 0;
    for (int i = 0; i < n; ++i) {
      s += Wide(av[size_t(i) * (n + 2)]);
      mag += std::abs(Wide(av[size_t(i) * (n + 2)]));
    }
    ASSERT_EQ(Api<T>::TraceH(R, &t), StatusOk);
    EXPECT_TRUE(Near(t, s, 2.0L * n * Eps<T>() * mag)) << n;
  }
}

// ---- Special matrices --------------------------------------------------------------

TYPED_TEST(Products, SpecialMatrixClosedForms) {
  using T = TypeParam;
  struct Case { int32_t type, size; std::vector<double> x, y; int32_t rows, cols; std::vector<double> m; };
  const Case cases[] = {
      {0, 3, {4, 5}, {6}, 3, 3, {1, 0, 0, 0, 1, 0, 0, 0, 1}},
      {0, 1, {}, {}, 1, 1, {1}},
      {1, 9, {2, -3, 4}, {}, 3, 3, {2, 0, 0, 0, -3, 0, 0, 0, 4}},
      {2, 0, {1, 2, 3}, {9, 4, 5}, 3, 3, {1, 4, 5, 2, 1, 4, 3, 2, 1}},
      {2, 0, {1, 2}, {9, 4, 5}, 2, 3, {1, 4, 5, 2, 1, 4}},
      {2, 0, {1, 2, 3}, {9}, 3, 1, {1, 2, 3}},
      {3, 0, {2, 3}, {}, 2, 2, {2, 1, 3, 1}},
      {3, 0, {2, -1, 3}, {}, 3, 3, {4, 2, 1, 1, -1, 1, 9, 3, 1}},
      {4, 0, {1, -3, 2}, {}, 2, 2, {3, -2, 1, 0}},
      {4, 0, {2, 4}, {}, 1, 1, {-2}},
      {4, 0, {2, 0, 4, 8}, {}, 3, 3, {0, -2, -4, 1, 0, 0, 0, 1, 0}},
      {5, 0, {1, 2, 3}, {9, 4, 5}, 3, 3, {1, 2, 3, 2, 3, 4, 3, 4, 5}},
      {5, 0, {1, 2}, {9, 4, 5}, 2, 3, {1, 2, 4, 2, 4, 5}},
  };
  auto toT = [](const std::vector<double>& v) {
    std::vector<T> r;
    for (double e : v) r.push_back(T(RealT<T>(e)));
    return r;
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "type " << c.type);
    auto x = Vec(toT(c.x)), y = Vec(toT(c.y)), M = Stale<T>();
    ASSERT_EQ(Api<T>::SpecialMtrxH(c.type, c.size, x, y, M), StatusOk);
    EXPECT_EQ(Dims(M), std::make_pair(c.rows, c.cols));
    EXPECT_EQ(M.values(), toT(c.m));
  }
}

TYPED_TEST(Products, SpecialMatrixFailures) {
  using T = TypeParam;
  struct Case { int32_t type, size, nx, ny; int32_t status; bool resized; };
  const Case cases[] = {
      {0, 0, 3, 3, StatusEmptyInput, false},
      {0, -2, 3, 3, StatusEmptyInput, false},
      {1, 5, 0, 3, StatusEmptyInput, false},
      {2, 5, 3, 0, StatusEmptyInput, false},
      {2, 5, 0, 3, StatusEmptyInput, false},
      {3, 5, 0, 0, StatusEmptyInput, false},
      {4, 5, 1, 0, StatusParameterTooSmall, false},
      {4, 5, 0, 0, StatusParameterTooSmall, false},
      {5, 5, 3, 0, StatusEmptyInput, false},
      {6, 0, 3, 3, StatusEmptyInput, false},  // emptiness first, then the type
      {0, 65536, 0, 0, StatusOutOfMemory, false},
      {6, 65536, 0, 0, StatusOutOfMemory, false},
      {6, 2, 0, 0, StatusBadOption, true},  // M is sized first, then emptied
      {-1, 2, 0, 0, StatusBadOption, true},
      {INT32_MIN, 1, 0, 0, StatusBadOption, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << "type " << c.type << " size " << c.size);
    auto x = Vec(std::vector<T>(c.nx, T(1))), y = Vec(std::vector<T>(c.ny, T(1)));
    auto M = Mat<T>(0, 0);
    const int64_t before = KortResizeCount();
    EXPECT_EQ(Api<T>::SpecialMtrxH(c.type, c.size, x, y, M), c.status);
    EXPECT_EQ(Dims(M), kEmpty);
    // Resized to the requested size and emptied again, or left alone.
    EXPECT_EQ(KortResizeCount() - before, c.resized ? 2 : 0);
  }
}

TYPED_TEST(Products, CompanionMatrixHasThePolynomialRootsAsEigenvalues) {
  using T = TypeParam;
  // x = a * prod (t - r_i), with complex roots for the complex types.
  std::vector<LC> roots = {0.5L, -1.25L, 2.0L, 0.75L};
  if constexpr (kIsComplex<T>) roots = {LC(0.5L, 1), LC(-1.25L, 0), LC(2, -0.5L), LC(0, 0.75L)};
  const LC a = 2;
  std::vector<LC> coef = {a};
  for (const LC& r : roots) {
    coef.push_back(0);
    for (size_t i = coef.size() - 1; i > 0; --i) coef[i] -= r * coef[i - 1];
  }
  std::vector<T> xv;
  for (const LC& c : coef) xv.push_back(Narrow<T>(c));
  auto x = Vec(xv), y = Vec<T>({}), M = Mat<T>(0, 0);
  ASSERT_EQ(Api<T>::SpecialMtrxH(4, 0, x, y, M), StatusOk);
  const int n = int(roots.size());
  ASSERT_EQ(Dims(M), std::make_pair(n, n));
  // M v = r v for v = (r^(n-1), ..., r, 1).
  for (const LC& r : roots) {
    std::vector<LC> v(n);
    v[n - 1] = 1;
    for (int k = n - 2; k >= 0; --k) v[k] = v[k + 1] * r;
    for (int i = 0; i < n; ++i) {
      LC mv = 0;
      long double mag = std::abs(r * v[i]);
      for (int j = 0; j < n; ++j) {
        mv += Wide(M.at(i, j)) * v[j];
        mag += std::abs(Wide(M.at(i, j)) * v[j]);
      }
      // Rounding of the coefficients and of -1/x[0] is relative to each term.
      EXPECT_LE(std::abs(mv - r * v[i]), 32 * Eps<T>() * mag) << "root " << r.real() << " row " << i;
    }
  }
  // A zero leading coefficient is not rejected.
  auto z = Vec<T>({T(0), T(1), T(2)});
  ASSERT_EQ(Api<T>::SpecialMtrxH(4, 0, z, y, M), StatusOk);
  EXPECT_FALSE(std::isfinite(std::abs(Wide(M.at(0, 0)))));
  EXPECT_EQ(M.at(1, 0), T(1));
}

TYPED_TEST(Products, VandermondeRowsEvaluatePolynomials) {
  using T = TypeParam;
  const int n = 6;
  const auto xv = RandomValues<T>(n, 70), c = RandomValues<T>(n, 71);
  auto x = Vec(xv), y = Vec<T>({}), M = Mat<T>(0, 0);
  ASSERT_EQ(Api<T>::SpecialMtrxH(3, 0, x, y, M), StatusOk);
  ASSERT_EQ(Dims(M), std::make_pair(n, n));
  for (int i = 0; i < n; ++i) {
    // Horner: sum c[j] x^(n-1-j).
    LC p = 0, row = 0;
    long double mag = 0;
    for (int j = 0; j < n; ++j) p = p * Wide(xv[i]) + Wide(c[j]);
    for (int j = 0; j < n; ++j) {
      row += Wide(M.at(i, j)) * Wide(c[j]);
      mag += std::abs(Wide(M.at(i, j)) * Wide(c[j]));
    }
    // Each power is n - 1 rounded products at most.
    EXPECT_LE(std::abs(p - row), 4 * n * Eps<T>() * mag) << i;
    EXPECT_EQ(M.at(i, n - 1), T(1));
  }
}

TYPED_TEST(Products, ToeplitzAndHankelStructure) {
  using T = TypeParam;
  const int nx = 5, ny = 7;
  const auto xv = RandomValues<T>(nx, 80), yv = RandomValues<T>(ny, 81);
  auto x = Vec(xv), y = Vec(yv), M = Mat<T>(0, 0);
  ASSERT_EQ(Api<T>::SpecialMtrxH(2, 0, x, y, M), StatusOk);
  ASSERT_EQ(Dims(M), std::make_pair(nx, ny));
  for (int i = 0; i < nx; ++i)
    for (int j = 0; j < ny; ++j) EXPECT_EQ(M.at(i, j), i >= j ? xv[i - j] : yv[j - i]) << i << "," << j;
  ASSERT_EQ(Api<T>::SpecialMtrxH(5, 0, x, y, M), StatusOk);
  ASSERT_EQ(Dims(M), std::make_pair(nx, ny));
  for (int i = 0; i < nx; ++i)
    for (int j = 0; j < ny; ++j)
      EXPECT_EQ(M.at(i, j), i + j < nx ? xv[i + j] : yv[i + j - nx + 1]) << i << "," << j;
}

// ---- Failure injection ---------------------------------------------------------------

// Every export on valid input, with a fresh empty output per call; refusing any of
// its resizes gives -20001, an empty output and no leak.
TYPED_TEST(Products, RefusedResizesEmptyTheOutput) {
  using T = TypeParam;
  auto A = Mat<T>(3, 4, RandomValues<T>(12, 90)), B = Mat<T>(4, 2, RandomValues<T>(8, 91));
  auto x3 = Vec(RandomValues<T>(3, 92)), x4 = Vec(RandomValues<T>(4, 93));
  using Export = std::function<int32_t(ArrayHandle)>;
  const std::pair<const char*, Export> exports[] = {
      {"MtrxMulH", [&](ArrayHandle o) { return Api<T>::MtrxMulH(A, B, o); }},
      {"MtrxVecMulH", [&](ArrayHandle o) { return Api<T>::MtrxVecMulH(A, x4, o); }},
      {"VecMtrxMulH", [&](ArrayHandle o) { return Api<T>::VecMtrxMulH(x3, A, o); }},
      {"OuterProdH", [&](ArrayHandle o) { return Api<T>::OuterProdH(x3, x4, o); }},
      {"KronProdH", [&](ArrayHandle o) { return Api<T>::KronProdH(A, B, o); }},
      {"TransposeH", [&](ArrayHandle o) { return Api<T>::TransposeH(A, o); }},
      {"SpecialMtrxH", [&](ArrayHandle o) { return Api<T>::SpecialMtrxH(2, 0, x3, x4, o); }},
  };
  const bool vectorOut[] = {false, true, true, false, false, false, false};
  for (size_t e = 0; e < std::size(exports); ++e) {
    SCOPED_TRACE(exports[e].first);
    const int64_t liveBytes = KortLiveBytes(), liveHandles = KortLiveHandles();
    int32_t d0 = -1, d1 = -1;
    ForEachRefusedResize(
        [&] {
          auto out = vectorOut[e] ? Vec<T>({}) : Mat<T>(0, 0);
          const int32_t s = exports[e].second(out);
          d0 = out.dim(0);
          d1 = vectorOut[e] ? 0 : out.dim(1);
          return s;
        },
        [&](int64_t, int32_t status) {
          EXPECT_EQ(status, StatusOutOfMemory);
          EXPECT_EQ(d0, 0);
          EXPECT_EQ(d1, 0);
        });
    EXPECT_EQ(KortLiveBytes(), liveBytes);
    EXPECT_EQ(KortLiveHandles(), liveHandles);
  }
}

}  // namespace
}  // namespace qt
