// Determinant by LU, Cholesky and diagonal product, all four element types.
#include "support/square_systems.h"

namespace qt {
namespace {

template <class T>
class SquareDeterminant : public ::testing::Test {};
TYPED_TEST_SUITE(SquareDeterminant, ElementTypes);

template <class T>
int32_t Det(const HostArray<T>& a, int32_t type, T* r, ArrayHandle work, ArrayHandle iwork) {
  return Api<T>::DeterminantH(a, type, r, work, iwork);
}

template <class T>
void ExpectClose(const T& got, const LC& want, long double relTol) {
  const long double err = std::abs(Wide(got) - want);
  EXPECT_LE(err, relTol * std::max(std::abs(want), 1e-30L)) << "got " << got << " want " << want.real() << "+" << want.imag() << "i";
}

TYPED_TEST(SquareDeterminant, AgreesWithLongDoubleElimination) {
  using T = TypeParam;
  for (int n : {1, 2, 3, 4, 5, 17, 64}) {
    SCOPED_TRACE("n=" + std::to_string(n));
    // The matrices are scaled so that the determinant stays well inside the range of T.
    const T scale = T(RealT<T>(1.0 / n));
    const long double tol = 200.0L * n * Eps<T>();
    auto work = Vec<T>({}), iwork = Vec<int32_t>({});
    {  // general, rows shuffled so that the sign of the interchanges matters
      auto a = ShuffledDominantMatrix<T>(n, 90 + n);
      for (auto& v : a) v *= scale;
      auto ah = Mat(n, n, a);
      T r;
      ASSERT_EQ(Det(ah, 0, &r, work, iwork), StatusOk);
      ExpectClose(r, ReferenceDeterminant(Widen(n, n, a)), tol);
      EXPECT_EQ(ah.values(), a);
    }
    {  // positive definite (the whole matrix goes to the reference)
      auto a = PositiveDefiniteMatrix<T>(n, 30 + n);
      for (auto& v : a) v *= scale;
      auto ah = Mat(n, n, a);
      T r;
      ASSERT_EQ(Det(ah, 1, &r, work, iwork), StatusOk);
      const LC want = ReferenceDeterminant(Widen(n, n, a));
      ExpectClose(r, want, tol);
      EXPECT_EQ(std::imag(r), 0);
    }
    for (int type : {2, 3}) {  // triangular: the reference sees the zeroed other triangle
      auto a = TriangularMatrix<T>(n, 60 + n, type == 3, T(0));
      auto ah = Mat(n, n, a);
      T r;
      ASSERT_EQ(Det(ah, type, &r, work, iwork), StatusOk);
      ExpectClose(r, ReferenceDeterminant(Widen(n, n, a)), tol);
    }
    EXPECT_EQ(work.dim(0), 0);
    EXPECT_EQ(iwork.dim(0), 0);
  }
}

TYPED_TEST(SquareDeterminant, RowInterchangesGiveTheSign) {
  using T = TypeParam;
  struct Case { int n; std::vector<T> a; T det; };
  const Case cases[] = {
      {3, {T(0), T(2), T(0), T(3), T(0), T(0), T(0), T(0), T(4)}, T(-24)},
      {3, {T(0), T(0), T(1), T(1), T(0), T(0), T(0), T(1), T(0)}, T(1)},   // a 3-cycle
      {4, {T(0), T(1), T(0), T(0), T(1), T(0), T(0), T(0),
           T(0), T(0), T(0), T(1), T(0), T(0), T(1), T(0)}, T(1)},          // two swaps
      {4, {T(0), T(0), T(0), T(2), T(0), T(0), T(2), T(0),
           T(0), T(2), T(0), T(0), T(2), T(0), T(0), T(0)}, T(16)},         // reversal
      {3, {T(0), T(0), T(5), T(0), T(-1), T(0), T(2), T(0), T(0)}, T(10)},
  };
  for (const auto& c : cases) {
    auto a = Mat(c.n, c.n, c.a), work = Vec<T>({});
    auto iwork = Vec<int32_t>({});
    T r;
    ASSERT_EQ(Det(a, 0, &r, work, iwork), StatusOk);
    EXPECT_EQ(r, c.det);
  }
  if constexpr (kIsComplex<T>) {
    // diag(i, 2, -i) with rows 0 and 1 swapped: -(i·2·(-i)) = -2.
    auto a = Mat<T>(3, 3, {T(0), T(2), T(0), T(0, 1), T(0), T(0), T(0), T(0), T(0, -1)});
    auto work = Vec<T>({});
    auto iwork = Vec<int32_t>({});
    T r;
    ASSERT_EQ(Det(a, 0, &r, work, iwork), StatusOk);
    EXPECT_EQ(r, T(-2));
  }
}

TYPED_TEST(SquareDeterminant, ExactZeroPivotGivesExactlyZero) {
  using T = TypeParam;
  const std::vector<T> cases[] = {
      {T(1), T(0), T(2), T(3), T(0), T(4), T(5), T(0), T(6)},  // zero column
      {T(0), T(0), T(0), T(3), T(1), T(4), T(5), T(9), T(6)},  // zero row
      {T(1), T(2), T(3), T(4), T(5), T(6), T(0), T(0), T(0)},
  };
  for (const auto& v : cases) {
    auto a = Mat(3, 3, v), work = Vec<T>({});
    auto iwork = Vec<int32_t>({});
    T r = T(7);
    EXPECT_EQ(Det(a, 0, &r, work, iwork), StatusOk);
    EXPECT_EQ(r, T(0));
    EXPECT_FALSE(std::signbit(std::real(r)));
    EXPECT_EQ(work.dim(0), 0);
    EXPECT_EQ(iwork.dim(0), 0);
  }
}

TYPED_TEST(SquareDeterminant, OrdersOneAndTwoNeedNoWorkArrays) {
  using T = TypeParam;
  for (int type = 0; type <= 3; ++type) {
    auto a = Mat<T>(1, 1, {T(-3.5)});
    T r;
    ASSERT_EQ(Det(a, type, &r, nullptr, nullptr), StatusOk) << type;
    EXPECT_EQ(r, T(-3.5));
  }
  // 2 x 2 of types 0 and 1: a00·a11 − a01·a10, positive definite or not.
  struct Case { std::vector<T> a; T det; };
  std::vector<Case> cases = {
      {{T(3), T(1), T(4), T(2)}, T(2)},
      {{T(1), T(2), T(2), T(1)}, T(-3)},  // symmetric indefinite: still the formula for type 1
      {{T(0), T(1), T(1), T(0)}, T(-1)},
  };
  if constexpr (kIsComplex<T>) cases.push_back({{T(1, 2), T(3, 0), T(0, 1), T(2, -1)}, T(4, 0)});
  for (const auto& c : cases)
    for (int type : {0, 1}) {
      auto a = Mat(2, 2, c.a);
      T r;
      ASSERT_EQ(Det(a, type, &r, nullptr, nullptr), StatusOk) << type;
      EXPECT_EQ(r, c.det) << type;
    }
  // Triangular types multiply the diagonal whatever the other entries hold.
  const std::vector<T> full = {T(2), T(7), T(1), T(-1), T(3), T(8), T(5), T(6), T(-4)};
  for (int type : {2, 3}) {
    auto a = Mat(3, 3, full);
    T r;
    ASSERT_EQ(Det(a, type, &r, nullptr, nullptr), StatusOk);
    EXPECT_EQ(r, T(-24));
  }
}

TYPED_TEST(SquareDeterminant, StatusesInCheckOrder) {
  using T = TypeParam;
  const std::vector<T> indefinite = {T(1), T(2), T(0), T(2), T(1), T(0), T(0), T(0), T(1)};
  const std::vector<T> good = {T(4), T(1), T(0), T(1), T(4), T(1), T(0), T(1), T(4)};
  struct Case { std::string what; int rows, cols; std::vector<T> a; int32_t type; int32_t status; bool noWork = false, noIwork = false; };
  const Case cases[] = {
      {"0 x 0", 0, 0, {}, 0, StatusEmptyInput},
      {"0 x 3: emptiness before squareness", 0, 3, {}, 0, StatusEmptyInput},
      {"3 x 0", 3, 0, {}, 9, StatusEmptyInput},
      {"2 x 3", 2, 3, std::vector<T>(6, T(1)), 0, StatusNotSquare},
      {"3 x 2, bad type", 3, 2, std::vector<T>(6, T(1)), 9, StatusNotSquare},
      {"type 4", 3, 3, good, 4, StatusBadOption},
      {"type -1 at order 1", 1, 1, {T(2)}, -1, StatusBadOption},
      {"indefinite order 3", 3, 3, indefinite, 1, StatusNotPositiveDefinite},
      {"no work, general", 3, 3, good, 0, StatusKernelError, true},
      {"no work, positive definite", 3, 3, good, 1, StatusKernelError, true},
      {"no iwork, general", 3, 3, good, 0, StatusKernelError, false, true},
      {"no iwork, positive definite", 3, 3, good, 1, StatusOk, false, true},
      {"no work, triangular", 3, 3, good, 2, StatusOk, true, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto a = HostArray<T>::RawMatrix(c.rows, c.cols, std::max<int32_t>(int32_t(c.a.size()), 1));
    std::copy(c.a.begin(), c.a.end(), a.data());
    auto work = Vec<T>({}), iwork = Vec<int32_t>({});
    T r = T(7);
    EXPECT_EQ(Det(a, c.type, &r, c.noWork ? nullptr : work.h(), c.noIwork ? nullptr : iwork.h()), c.status);
    if (c.status < 0) EXPECT_TRUE(IsNaN(r));
    else if (c.type >= 2) EXPECT_EQ(r, T(64));  // the diagonal of `good`
    else ExpectClose(r, LC(56), 100 * Eps<T>());
    EXPECT_EQ(work.dim(0), 0);
    EXPECT_EQ(iwork.dim(0), 0);
  }
  T r = T(7);
  EXPECT_EQ(Api<T>::DeterminantH(nullptr, 0, &r, nullptr, nullptr), StatusEmptyInput);
  EXPECT_TRUE(IsNaN(r));
  auto a = Mat<T>(1, 1, {T(2)});
  EXPECT_EQ(Api<T>::DeterminantH(a, 0, nullptr, nullptr, nullptr), StatusKernelError);
}

TYPED_TEST(SquareDeterminant, RefusedResizesLeaveNaNAndLeakNothing) {
  using T = TypeParam;
  for (int type : {0, 1}) {
    SCOPED_TRACE("type " + std::to_string(type));
    auto a = Mat(5, 5, PositiveDefiniteMatrix<T>(5, 8));
    auto work = Vec<T>({}), iwork = Vec<int32_t>({});
    const int64_t bytes = KortLiveBytes();
    T r;
    SweepRefusedResizes([&] { return Det(a, type, &r, work, iwork); }, type == 0 ? 2 : 1, [&](int64_t, int32_t) {
      EXPECT_TRUE(IsNaN(r));
      EXPECT_EQ(work.dim(0), 0);
      EXPECT_EQ(iwork.dim(0), 0);
      EXPECT_EQ(KortLiveBytes(), bytes);
    });
  }
}

}  // namespace
}  // namespace qt
