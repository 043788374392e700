// Internal workspace helpers: the layout that carves one host work handle into typed
// pieces, and the LAPACK workspace query. Neither has an export of its own, so they are
// compiled in here, with the library's src/ on the include path, the frame's
// host binding, the reference host and the BLAS/LAPACK package linked.
#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <cstdint>
#include <limits>
#include <vector>

#include "frame/workspace.h"
#include "kernel/workspace_query.h"
#include "kort.h"

namespace {

using ql::Status;
using ql::WorkLayout;
using ql::kernel::CountFromQuery;
using ql::kernel::QueryWorkspace;
using ql::kernel::WorkspaceSizes;
using cf = std::complex<float>;
using cd = std::complex<double>;

template <class T> int32_t Code();
template <> int32_t Code<float>() { return QuarzTypeFloat; }
template <> int32_t Code<double>() { return QuarzTypeDouble; }
template <> int32_t Code<cf>() { return QuarzTypeComplexFloat; }
template <> int32_t Code<cd>() { return QuarzTypeComplexDouble; }

// An empty 1-D host work array of element type E.
template <class E>
struct WorkArray {
  WorkArray() {
    const int32_t zero = 0;
    h = KortArrayNew(Code<E>(), 1, &zero);
  }
  ~WorkArray() { KortArrayFree(h); }
  const char* begin() const { return static_cast<const char*>(KortArrayData(h, Code<E>(), 1)); }
  const char* end() const { return begin() + int64_t{KortArrayDim(h, 0)} * int64_t{sizeof(E)}; }
  ArrayHandle h;
};

struct Span {
  const char* begin;
  const char* end;
  size_t align;
};

template <class E, class T>
Span SpanOf(const WorkLayout<E>& layout, ql::WorkPiece<T> piece) {
  const char* p = reinterpret_cast<const char*>(layout.template Get<T>(piece));
  return {p, p + piece.count * int64_t{sizeof(T)}, alignof(T)};
}

// Catches offsets aligned relative to the first element instead of in memory (1-D
// float and complex-float elements start at byte 4 of the block), overlapping pieces,
// and a total that leaves the last piece or the alignment shift outside the block.
template <class E>
void CheckMixedPieces() {
  WorkArray<E> work;
  WorkLayout<E> layout;
  const auto a = layout.template Add<float>(3);
  const auto b = layout.template Add<double>(5);
  const auto c = layout.template Add<int32_t>(1);
  const auto d = layout.template Add<cd>(2);
  const auto e = layout.template Add<cf>(3);
  const auto f = layout.template Add<double>(0);
  ASSERT_EQ(layout.Bind(work.h), StatusOk);
  std::vector<Span> spans = {SpanOf(layout, a), SpanOf(layout, b), SpanOf(layout, c),
                             SpanOf(layout, d), SpanOf(layout, e), SpanOf(layout, f)};
  for (const Span& s : spans) {
    ASSERT_NE(s.begin, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(s.begin) % s.align, 0u);
    EXPECT_GE(s.begin, work.begin());
    EXPECT_LE(s.end, work.end());
  }
  std::sort(spans.begin(), spans.end(), [](const Span& x, const Span& y) { return x.begin < y.begin; });
  for (size_t i = 1; i < spans.size(); ++i) EXPECT_LE(spans[i - 1].end, spans[i].begin);
}

TEST(WorkLayout, PiecesAreAlignedDisjointAndInsideTheBlock) {
  CheckMixedPieces<float>();
  CheckMixedPieces<cf>();
  CheckMixedPieces<double>();
  CheckMixedPieces<cd>();
}

// Catches totals computed in 32 bits (or in piece elements rather than bytes of E),
// and int64 overflow on absurd counts: each is refused before the host is asked, and
// the handle keeps its size.
TEST(WorkLayout, TooLargeForTheHostIsRefusedWithoutAHostCall) {
  constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
  struct Case { int64_t floats, complexDoubles; };
  // Two halves that together exceed INT32_MAX floats; 2^29 complex doubles (2^31
  // floats); int64 overflow; a negative count.
  for (Case c : {Case{int64_t{1} << 31, 0}, Case{0, int64_t{1} << 29}, Case{kMax, kMax / 8}, Case{-1, 0}}) {
    WorkArray<float> work;
    WorkLayout<float> layout;
    layout.Add<float>(c.floats / 2 + (c.floats < 0 ? c.floats : 0));
    layout.Add<float>(c.floats / 2);
    layout.Add<cd>(c.complexDoubles);
    const int64_t calls = KortResizeCount();
    EXPECT_EQ(layout.Bind(work.h), StatusOutOfMemory) << c.floats << " " << c.complexDoubles;
    EXPECT_EQ(KortResizeCount(), calls);
    EXPECT_EQ(KortArrayDim(work.h, 0), 0);
  }
}

// Catches an off-by-one that refuses the largest host array: INT32_MAX elements are
// asked for (the host is made to refuse, so nothing is allocated).
TEST(WorkLayout, LargestHostArrayIsAskedFor) {
  WorkArray<float> work;
  WorkLayout<float> layout;
  layout.Add<float>(std::numeric_limits<int32_t>::max());
  const int64_t calls = KortResizeCount();
  KortFailResizeAt(1);
  const Status s = layout.Bind(work.h);
  KortFailResizeAt(0);
  EXPECT_EQ(s, StatusOutOfMemory);
  EXPECT_EQ(KortResizeCount(), calls + 1);
}

// Catches sizing from a single-precision report as it stands: above 2^24 a float
// cannot hold every integer, and a routine storing its size in one may round it down.
TEST(WorkspaceQuery, SinglePrecisionReportIsRoundedUp) {
  // Each of these rounds down to the nearest float.
  for (int64_t need : {int64_t{16777217}, int64_t{33554433}, int64_t{123456787}, int64_t{2000000001}}) {
    const float reported = static_cast<float>(need);
    ASSERT_LT(static_cast<double>(reported), static_cast<double>(need));
    EXPECT_GE(CountFromQuery(reported), need) << need;
    EXPECT_GE(CountFromQuery(cf(reported, 0).real()), need) << need;
  }
  // Below 2^24 the report is exact and taken as it is.
  EXPECT_EQ(CountFromQuery(4096.0f), 4096);
  EXPECT_EQ(CountFromQuery(4096.0), 4096);
}

// Catches undefined conversions of reports that are not sizes (the sanitizer build
// traps them) and negative counts passed on to the sizing.
TEST(WorkspaceQuery, ReportsThatAreNotSizesGiveNoCountOrAnOversizedOne) {
  EXPECT_EQ(CountFromQuery(std::numeric_limits<float>::quiet_NaN()), 0);
  EXPECT_EQ(CountFromQuery(-3.0), 0);
  EXPECT_EQ(CountFromQuery(lapack_int{-3}), 0);
  EXPECT_GT(CountFromQuery(1e30f), int64_t{std::numeric_limits<int32_t>::max()});
  EXPECT_GT(CountFromQuery(std::numeric_limits<double>::infinity()),
            int64_t{std::numeric_limits<int32_t>::max()});
}

// Catches a query that is not a query (a size other than -1 makes the routine work on
// a one-element buffer), trusting a report below the documented minimum, a reported
// size that is dropped, and a refused argument that goes unnoticed.
TEST(WorkspaceQuery, TakesTheLargerOfReportAndMinimumPerWorkspace) {
  WorkspaceSizes sizes;
  auto routine = [](cd* w, lapack_int lw, double* rw, lapack_int lrw, lapack_int* iw, lapack_int liw) {
    if (lw != -1 || lrw != -1 || liw != -1) return lapack_int{-99};
    w[0] = cd(3, 0);
    rw[0] = 50;
    iw[0] = 2;
    return lapack_int{0};
  };
  ASSERT_EQ(QueryWorkspace<cd>(routine, {10, 4, 7}, &sizes), StatusOk);
  EXPECT_EQ(sizes.work, 10);
  EXPECT_EQ(sizes.rwork, 50);
  EXPECT_EQ(sizes.iwork, 7);

  auto refuses = [](float*, lapack_int, auto...) { return lapack_int{-4}; };
  EXPECT_EQ(QueryWorkspace<float>(refuses, {1}, &sizes), StatusKernelError);
}

}  // namespace

