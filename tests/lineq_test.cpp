// Linear equations A·x = y and A·X = Y for every matrix type, all four element types.
#include "support/square_systems.h"

namespace qt {
namespace {

template <class T>
class SquareLinEq : public ::testing::Test {};
TYPED_TEST_SUITE(SquareLinEq, ElementTypes);

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

template <class T> RealT<T> Largest() { return std::numeric_limits<RealT<T>>::max(); }

// A host matrix of the given type, and the matrix the solver must have used: the whole
// of A for the general and triangular types (the unread triangle set to zero); for the
// positive definite type the transpose of the Hermitian matrix completed from A's lower
// triangle (the kernel reads the row-major block as its transpose and is not asked to
// conjugate, so a complex system is solved with Aᵀ).
template <class T>
std::pair<std::vector<T>, WideMat> SystemOfType(int type, int n, unsigned seed) {
  std::vector<T> a;
  WideMat used(n, n);
  switch (type) {
    case 0:
      a = ShuffledDominantMatrix<T>(n, seed);
      used = Widen(n, n, a);
      break;
    case 1: {
      a = PositiveDefiniteMatrix<T>(n, seed);
      // Junk in the strict upper triangle: finite, so it passes the scan, but unused.
      const auto junk = RandomValues<T>(size_t(n) * n, seed + 1);
      for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j) a[size_t(i) * n + j] = junk[size_t(i) * n + j] * T(RealT<T>(50));
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
          used(i, j) = i <= j ? Wide(a[size_t(j) * n + i]) : std::conj(Wide(a[size_t(i) * n + j]));
      break;
    }
    default: {
      const bool lower = type == 2;
      a = TriangularMatrix<T>(n, seed, lower, T(RealT<T>(kNaN)));
      for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) used(i, j) = (lower ? j <= i : j >= i) ? Wide(a[size_t(i) * n + j]) : LC(0);
      break;
    }
  }
  return {a, used};
}

// ||M·X - Y|| / (||M|| ||X|| eps) for row-major n x k X and Y.
template <class T>
long double BackwardError(const WideMat& m, int k, const std::vector<T>& x, const std::vector<T>& y) {
  const int n = m.r;
  const WideMat wx = Widen(n, k, x);
  return FrobeniusDiff(Mul(m, wx), Widen(n, k, y)) / (Frobenius(m) * Frobenius(wx) * Eps<T>());
}

TYPED_TEST(SquareLinEq, SolvesEveryTypeWithSmallBackwardError) {
  using T = TypeParam;
  for (int n : {1, 2, 3, 17, 64, 200}) {
    for (int type = 0; type <= 3; ++type) {
      SCOPED_TRACE("n=" + std::to_string(n) + " type " + std::to_string(type));
      const auto [a, used] = SystemOfType<T>(type, n, 7 * n + type);
      auto ah = Mat(n, n, a);
      auto value = Vec<T>({}), pivot = Vec<int32_t>({});
      // One right-hand side.
      const auto y = RandomValues<T>(n, 3 * n + type);
      auto yh = Vec(y), xh = Vec<T>({});
      ASSERT_EQ(Api<T>::LinEqH(ah, yh, type, xh, value, pivot), StatusOk);
      ASSERT_EQ(xh.dim(0), n);
      EXPECT_LT(BackwardError(used, 1, xh.values(), y), 30);
      EXPECT_EQ(value.dim(0), 0);
      EXPECT_EQ(pivot.dim(0), 0);
      // Several at once, through the set form.
      for (int k : {1, 5}) {
        const auto ys = RandomValues<T>(size_t(n) * k, 5 * n + k);
        auto ysh = Mat(n, k, ys), xs = Mat<T>(0, 0);
        ASSERT_EQ(Api<T>::LinEqSetH(ah, ysh, type, xs, value, pivot), StatusOk);
        ASSERT_EQ(xs.dim(0), n);
        ASSERT_EQ(xs.dim(1), k);
        EXPECT_LT(BackwardError(used, k, xs.values(), ys), 30) << "k=" << k;
        EXPECT_EQ(ysh.values(), ys);
        EXPECT_EQ(value.dim(0), 0);
        EXPECT_EQ(pivot.dim(0), 0);
      }
      // Inputs are read only (compared bitwise: NaN in the unread triangle included).
      EXPECT_EQ(std::memcmp(ah.data(), a.data(), a.size() * sizeof(T)), 0);
      EXPECT_EQ(yh.values(), y);
    }
  }
}

TYPED_TEST(SquareLinEq, OneByOneEveryType) {
  using T = TypeParam;
  for (int type = 0; type <= 3; ++type) {
    auto a = Mat<T>(1, 1, {T(2)});
    auto y = Vec<T>({T(4)}), x = Vec<T>({}), v = Vec<T>({});
    auto p = Vec<int32_t>({});
    ASSERT_EQ(Api<T>::LinEqH(a, y, type, x, v, p), StatusOk) << type;
    ASSERT_EQ(x.dim(0), 1);
    // Exact but for the rounding of sqrt(2)² on the positive definite path.
    EXPECT_LE(std::abs(x.data()[0] - T(2)), 4 * Eps<T>()) << type;
  }
}

// One case of the status table: A, the right-hand side, the type, which scratch handles
// are missing, and the expected status.
template <class T>
struct Case {
  std::string what;
  int rows, cols;
  std::vector<T> a;
  int yLen;
  std::vector<T> y;
  int32_t type;
  int32_t status;
  bool noValue = false, noPivot = false;
};

template <class T>
std::vector<Case<T>> StatusCases() {
  using R = RealT<T>;
  const T nan = T(R(kNaN)), inf = T(R(kInf)), big = T(Largest<T>()), below = T(std::nextafter(Largest<T>(), R(0)));
  const std::vector<T> id2 = {T(1), T(0), T(0), T(1)}, ok2 = {T(1), T(2)};
  std::vector<Case<T>> c = {
      {"empty", 0, 0, {}, 0, {}, 0, StatusEmptyInput},
      {"empty A, y given", 0, 0, {}, 3, {T(1), T(1), T(1)}, 9, StatusEmptyInput},
      {"0 x 3", 0, 3, {}, 0, {}, 0, StatusEmptyInput},
      {"not square, y fine", 2, 3, std::vector<T>(6, T(1)), 2, ok2, 0, StatusNotSquare},
      {"not square, bad type", 2, 3, std::vector<T>(6, T(1)), 7, {}, 9, StatusNotSquare},
      {"y too short", 2, 2, id2, 1, {T(1)}, 0, StatusSizeMismatch},
      {"y too long, bad type", 2, 2, id2, 3, {T(1), T(1), T(1)}, 9, StatusSizeMismatch},
      {"type 4", 2, 2, id2, 2, ok2, 4, StatusBadOption},
      {"type -1", 2, 2, id2, 2, ok2, -1, StatusBadOption},
      {"type checked before the scan", 2, 2, {nan, T(0), T(0), T(1)}, 2, ok2, 4, StatusBadOption},
      {"NaN in A", 2, 2, {T(1), nan, T(0), T(1)}, 2, ok2, 0, StatusNotFinite},
      {"inf in A", 2, 2, {T(1), T(0), inf, T(1)}, 2, ok2, 1, StatusNotFinite},
      {"-inf in y", 2, 2, id2, 2, {T(1), -inf}, 0, StatusNotFinite},
      {"NaN in y", 2, 2, id2, 2, {nan, T(1)}, 3, StatusNotFinite},
      {"largest in A", 2, 2, {big, T(0), T(0), T(1)}, 2, ok2, 0, StatusNotFinite},
      {"-largest in A", 2, 2, {T(1), T(0), T(0), -big}, 2, ok2, 2, StatusNotFinite},
      {"largest in y", 2, 2, id2, 2, {T(1), big}, 0, StatusNotFinite},
      {"just below largest passes", 1, 1, {below}, 1, {below}, 2, StatusOk},
      {"PD scans the unread triangle", 2, 2, {T(2), nan, T(0), T(2)}, 2, ok2, 1, StatusNotFinite},
      {"lower: NaN above the diagonal is ignored", 2, 2, {T(2), nan, T(1), T(2)}, 2, ok2, 2, StatusOk},
      {"lower: NaN below the diagonal", 2, 2, {T(2), T(0), nan, T(2)}, 2, ok2, 2, StatusNotFinite},
      {"lower: NaN on the diagonal", 2, 2, {T(2), T(0), T(1), nan}, 2, ok2, 2, StatusNotFinite},
      {"upper: NaN below the diagonal is ignored", 2, 2, {T(2), T(1), nan, T(2)}, 2, ok2, 3, StatusOk},
      {"upper: NaN above the diagonal", 2, 2, {T(2), inf, T(0), T(2)}, 2, ok2, 3, StatusNotFinite},
      {"singular: equal rows", 2, 2, {T(1), T(2), T(1), T(2)}, 2, ok2, 0, StatusSingular},
      {"lower: zero on the diagonal", 2, 2, {T(1), T(0), T(3), T(0)}, 2, ok2, 2, StatusSingular},
      {"upper: zero on the diagonal", 2, 2, {T(0), T(3), T(0), T(1)}, 2, ok2, 3, StatusSingular},
      {"indefinite", 2, 2, {T(1), T(2), T(2), T(1)}, 2, ok2, 1, StatusNotPositiveDefinite},
      {"PD reads the lower triangle", 2, 2, {T(1), T(0), T(2), T(1)}, 2, ok2, 1, StatusNotPositiveDefinite},
      {"no value scratch", 2, 2, id2, 2, ok2, 0, StatusKernelError, true},
      {"no value scratch, triangular", 2, 2, id2, 2, ok2, 3, StatusKernelError, true},
      {"no pivot scratch", 2, 2, id2, 2, ok2, 0, StatusKernelError, false, true},
      {"PD needs no pivot scratch", 2, 2, id2, 2, ok2, 1, StatusOk, false, true},
      {"triangular needs no pivot scratch", 2, 2, id2, 2, ok2, 2, StatusOk, false, true},
      {"scan before missing scratch", 2, 2, {nan, T(0), T(0), T(1)}, 2, ok2, 0, StatusNotFinite, true, true},
  };
  if constexpr (kIsComplex<T>) {
    c.push_back({"largest imaginary part", 2, 2, {T(1), T(0, Largest<T>()), T(0), T(1)}, 2, ok2, 0, StatusNotFinite});
    c.push_back({"NaN imaginary part in y", 2, 2, id2, 2, {T(1), T(0, R(kNaN))}, 0, StatusNotFinite});
  }
  return c;
}

TYPED_TEST(SquareLinEq, StatusesInCheckOrder) {
  using T = TypeParam;
  for (const auto& c : StatusCases<T>()) {
    SCOPED_TRACE(c.what);
    auto a = HostArray<T>::RawMatrix(c.rows, c.cols, std::max<int32_t>(int32_t(c.a.size()), 1));
    std::copy(c.a.begin(), c.a.end(), a.data());
    std::vector<T> yv = c.y;
    yv.resize(c.yLen, T(1));
    auto y = Vec(yv);
    // Outputs and scratch hold stale data on entry.
    auto x = Vec<T>({T(9), T(9), T(9)}), value = Vec<T>({T(5)});
    auto pivot = Vec<int32_t>({5, 5});
    const int32_t s = Api<T>::LinEqH(a, y, c.type, x, c.noValue ? nullptr : value.h(),
                                     c.noPivot ? nullptr : pivot.h());
    EXPECT_EQ(s, c.status);
    if (s < 0) {
      EXPECT_EQ(x.dim(0), 0);
    }
    // Scratch handles that were passed are empty again.
    EXPECT_EQ(value.dim(0), c.noValue ? 1 : 0);
    EXPECT_EQ(pivot.dim(0), c.noPivot ? 2 : 0);
    if (!c.a.empty()) {
      EXPECT_EQ(std::memcmp(a.data(), c.a.data(), c.a.size() * sizeof(T)), 0);
    }

    // The set form with the same data as one column.
    auto ys = Mat(c.yLen, 1, yv), xs = Mat<T>(1, 1, {T(9)});
    EXPECT_EQ(Api<T>::LinEqSetH(a, ys, c.type, xs, c.noValue ? nullptr : value.h(),
                                c.noPivot ? nullptr : pivot.h()),
              c.status);
    if (s < 0) {
      EXPECT_EQ(xs.dim(0), 0);
      EXPECT_EQ(xs.dim(1), 0);
    }
  }
}

TYPED_TEST(SquareLinEq, SetFormChecksEmptinessThenSquareThenRows) {
  using T = TypeParam;
  struct SetCase { int ar, ac, yr, yc; int32_t status; };
  const SetCase cases[] = {
      {0, 0, 0, 0, StatusEmptyInput},
      {2, 2, 2, 0, StatusEmptyInput},   // no right-hand side
      {2, 3, 2, 0, StatusEmptyInput},   // emptiness of Y before squareness of A
      {2, 3, 5, 1, StatusNotSquare},
      {2, 2, 3, 1, StatusSizeMismatch},
      {2, 2, 1, 4, StatusSizeMismatch},
  };
  for (const auto& c : cases) {
    auto a = HostArray<T>::RawMatrix(c.ar, c.ac, c.ar * c.ac + 1);
    auto y = HostArray<T>::RawMatrix(c.yr, c.yc, c.yr * c.yc + 1);
    auto x = Mat<T>(1, 1, {T(3)}), v = Vec<T>({});
    auto p = Vec<int32_t>({});
    EXPECT_EQ(Api<T>::LinEqSetH(a, y, 0, x, v, p), c.status) << c.ar << "x" << c.ac << " Y " << c.yr << "x" << c.yc;
    EXPECT_EQ(x.dim(0), 0);
    EXPECT_EQ(x.dim(1), 0);
  }
}

TYPED_TEST(SquareLinEq, RefusedResizesEmptyEverythingAndLeakNothing) {
  using T = TypeParam;
  const int n = 4;
  for (int type = 0; type <= 3; ++type) {
    for (int k : {0, 3}) {  // 0: the single right-hand side form
      SCOPED_TRACE("type " + std::to_string(type) + " k=" + std::to_string(k));
      auto a = Mat(n, n, SystemOfType<T>(type, n, 11 + type).first);
      auto y = k == 0 ? Vec(RandomValues<T>(n, 2)) : Mat(n, k, RandomValues<T>(size_t(n) * k, 3));
      auto x = k == 0 ? Vec<T>({}) : Mat<T>(0, 0), value = Vec<T>({});
      auto pivot = Vec<int32_t>({});
      const int64_t bytes = KortLiveBytes(), handles = KortLiveHandles();
      auto call = [&] {
        return k == 0 ? Api<T>::LinEqH(a, y, type, x, value, pivot) : Api<T>::LinEqSetH(a, y, type, x, value, pivot);
      };
      SweepRefusedResizes(call, type == 0 ? 2 : 1, [&](int64_t, int32_t) {
        EXPECT_EQ(x.dim(0), 0);
        EXPECT_EQ(value.dim(0), 0);
        EXPECT_EQ(pivot.dim(0), 0);
        EXPECT_EQ(KortLiveBytes(), bytes);
        EXPECT_EQ(KortLiveHandles(), handles);
      });
    }
  }
}

}  // namespace
}  // namespace qt
