// LU factorization P·A = L·U in all four element types.
#include "support/square_systems.h"

namespace qt {
namespace {

template <class T>
class SquareLU : public ::testing::Test {};
TYPED_TEST_SUITE(SquareLU, ElementTypes);

template <class T>
struct LUHandles {
  HostArray<T> l = Mat<T>(0, 0), u = Mat<T>(0, 0);
  HostArray<int32_t> p = Mat<int32_t>(0, 0), piv = Vec<int32_t>({});
  HostArray<T> work = Vec<T>({});
  HostArray<int32_t> iwork = Vec<int32_t>({});
  int32_t Run(ArrayHandle a) { return Api<T>::LUH(a, l, u, p, piv, work, iwork); }
  void ExpectEmptied() const {
    EXPECT_EQ(l.dim(0), 0); EXPECT_EQ(l.dim(1), 0);
    EXPECT_EQ(u.dim(0), 0); EXPECT_EQ(u.dim(1), 0);
    EXPECT_EQ(p.dim(0), 0); EXPECT_EQ(p.dim(1), 0);
    EXPECT_EQ(piv.dim(0), 0);
    EXPECT_EQ(work.dim(0), 0);
    EXPECT_EQ(iwork.dim(0), 0);
  }
};

// Checks every property of a factorization of the m x n matrix a.
template <class T>
void ExpectValidFactorization(int m, int n, const std::vector<T>& a, const LUHandles<T>& h) {
  const int k = std::min(m, n);
  ASSERT_EQ(h.l.dim(0), m); ASSERT_EQ(h.l.dim(1), k);
  ASSERT_EQ(h.u.dim(0), k); ASSERT_EQ(h.u.dim(1), n);
  ASSERT_EQ(h.p.dim(0), m); ASSERT_EQ(h.p.dim(1), m);
  ASSERT_EQ(h.piv.dim(0), m);
  EXPECT_EQ(h.work.dim(0), 0);
  EXPECT_EQ(h.iwork.dim(0), 0);
  // Unit lower trapezoidal L with bounded multipliers: partial pivoting keeps them at
  // modulus 1 or less (complex pivots are chosen by |re| + |im|, which allows sqrt 2).
  const RealT<T> bound = (kIsComplex<T> ? std::sqrt(RealT<T>(2)) : RealT<T>(1)) + 4 * Eps<T>();
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < k; ++j) {
      const T v = h.l.at(i, j);
      if (j == i) EXPECT_EQ(v, T(1)) << i;
      else if (j > i) EXPECT_EQ(v, T(0)) << i << "," << j;
      else EXPECT_LE(std::abs(v), bound);
    }
  for (int i = 0; i < k; ++i)
    for (int j = 0; j < i; ++j) EXPECT_EQ(h.u.at(i, j), T(0)) << i << "," << j;
  // The pivots, replayed on the identity order, give P's rows.
  std::vector<int> order(m);
  std::iota(order.begin(), order.end(), 0);
  for (int i = 0; i < m; ++i) {
    const int32_t r = h.piv.data()[i];
    ASSERT_GE(r, i < k ? i : 0);
    ASSERT_LT(r, m);
    if (i >= k) {
      EXPECT_EQ(r, i);
    }
    std::swap(order[i], order[r]);
  }
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < m; ++j) ASSERT_EQ(h.p.at(i, j), j == order[i] ? 1 : 0) << i << "," << j;
  // ||P·A - L·U|| / (max(m, n) ||A|| eps).
  const WideMat wa = Widen(m, n, a);
  WideMat pa(m, n);
  for (int i = 0; i < m; ++i)
    for (int j = 0; j < n; ++j) pa(i, j) = wa(order[i], j);
  const WideMat lu = Mul(Widen(m, k, h.l.values()), Widen(k, n, h.u.values()));
  const long double norm = std::max(Frobenius(wa), (long double)std::numeric_limits<RealT<T>>::min());
  EXPECT_LT(FrobeniusDiff(pa, lu) / (std::max(m, n) * norm * Eps<T>()), 30) << m << "x" << n;
}

TYPED_TEST(SquareLU, FactorsSquareTallAndWide) {
  using T = TypeParam;
  const std::pair<int, int> shapes[] = {{1, 1}, {2, 2}, {3, 3}, {17, 17}, {64, 64}, {200, 200},
                                        {9, 4},  {120, 37}, {2, 1}, {4, 9}, {37, 120}, {1, 5}};
  for (auto [m, n] : shapes) {
    SCOPED_TRACE(std::to_string(m) + "x" + std::to_string(n));
    const auto a = RandomValues<T>(size_t(m) * n, 100 + m * 7 + n);
    auto ah = Mat(m, n, a);
    LUHandles<T> h;
    ASSERT_EQ(h.Run(ah), StatusOk);
    ExpectValidFactorization(m, n, a, h);
    EXPECT_EQ(ah.values(), a) << "A is read only";
  }
}

TYPED_TEST(SquareLU, OneByOne) {
  using T = TypeParam;
  for (T a : {T(-2.5), T(0)}) {
    auto ah = Mat<T>(1, 1, {a});
    LUHandles<T> h;
    EXPECT_EQ(h.Run(ah), a == T(0) ? WarnSingular : StatusOk);
    EXPECT_EQ(h.l.values(), std::vector<T>{T(1)});
    EXPECT_EQ(h.u.values(), std::vector<T>{a});
    EXPECT_EQ(h.p.values(), std::vector<int32_t>{1});
    EXPECT_EQ(h.piv.values(), std::vector<int32_t>{0});
  }
}

TYPED_TEST(SquareLU, ExactZeroPivotWarnsAndReturnsTheFactors) {
  using T = TypeParam;
  struct Case { int m, n; std::vector<T> a; };
  const Case cases[] = {
      {3, 3, {T(0), T(1), T(2), T(0), T(3), T(4), T(0), T(5), T(7)}},  // first column zero
      {3, 3, {T(1), T(2), T(3), T(2), T(4), T(6), T(0), T(0), T(0)}},  // rank one plus a zero row
      {4, 2, {T(0), T(1), T(0), T(2), T(0), T(3), T(0), T(4)}},
      {2, 4, {T(0), T(0), T(1), T(2), T(0), T(0), T(3), T(4)}},
  };
  for (const auto& c : cases) {
    auto ah = Mat(c.m, c.n, c.a);
    LUHandles<T> h;
    EXPECT_EQ(h.Run(ah), WarnSingular);
    ExpectValidFactorization(c.m, c.n, c.a, h);
  }
}

TYPED_TEST(SquareLU, EmptyInputsAndMissingWorkHandles) {
  using T = TypeParam;
  const std::pair<int, int> empty[] = {{0, 0}, {0, 3}, {3, 0}};
  for (auto [m, n] : empty) {
    auto ah = Mat<T>(m, n);
    LUHandles<T> h;
    h.l = Mat<T>(1, 1, {T(9)});
    h.p = Mat<int32_t>(1, 1, {1});
    h.piv = Vec<int32_t>({4});
    EXPECT_EQ(h.Run(ah), StatusEmptyInput);
    h.ExpectEmptied();
  }
  LUHandles<T> h;
  EXPECT_EQ(h.Run(nullptr), StatusEmptyInput);

  auto ah = Mat<T>(2, 2, {T(1), T(2), T(3), T(4)});
  for (int missing = 0; missing < 2; ++missing) {
    LUHandles<T> g;
    ArrayHandle work = missing == 0 ? nullptr : g.work.h(), iwork = missing == 1 ? nullptr : g.iwork.h();
    EXPECT_EQ(Api<T>::LUH(ah, g.l, g.u, g.p, g.piv, work, iwork), StatusKernelError);
    g.ExpectEmptied();
  }
}

TYPED_TEST(SquareLU, OutputsOfTheRightSizeAreUsedAsTheyStand) {
  using T = TypeParam;
  const int m = 5, n = 3;
  const auto a = RandomValues<T>(m * n, 3);
  auto ah = Mat(m, n, a);
  LUHandles<T> h;
  h.l = Mat<T>(m, n);
  h.u = Mat<T>(n, n);
  h.p = Mat<int32_t>(m, m);
  h.piv = Vec<int32_t>(std::vector<int32_t>(m));
  const int64_t before = KortResizeCount();
  ASSERT_EQ(h.Run(ah), StatusOk);
  // Only the two work arrays are resized, up and back down.
  EXPECT_EQ(KortResizeCount() - before, 4);
  ExpectValidFactorization(m, n, a, h);
}

TYPED_TEST(SquareLU, RefusedResizesEmptyEverythingAndLeakNothing) {
  using T = TypeParam;
  for (auto [m, n] : {std::pair{4, 4}, std::pair{6, 3}, std::pair{3, 6}}) {
    auto ah = Mat(m, n, RandomValues<T>(size_t(m) * n, 5));
    LUHandles<T> h;
    const int64_t bytes = KortLiveBytes(), handles = KortLiveHandles();
    SweepRefusedResizes([&] { return h.Run(ah); }, 2, [&](int64_t, int32_t) {
      h.ExpectEmptied();
      EXPECT_EQ(KortLiveBytes(), bytes);
      EXPECT_EQ(KortLiveHandles(), handles);
    });
  }
}

}  // namespace
}  // namespace qt
