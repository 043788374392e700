// The reference host runtime on its own: resize semantics, accounting, failure switch.
#include <cstdlib>

#include "support/host_array.h"

namespace qt {
namespace {

TEST(ReferenceHost, ElementOffsetsFollowTheLayoutTable) {
  struct Case { int32_t code, size, offset1d; };
  for (Case c : {Case{3, 4, 4}, Case{9, 4, 4}, Case{10, 8, 8}, Case{12, 8, 4}, Case{13, 16, 8}}) {
    EXPECT_EQ(KortElementSize(c.code), c.size) << c.code;
    EXPECT_EQ(KortElementOffset(c.code, 1), c.offset1d) << c.code;
    EXPECT_EQ(KortElementOffset(c.code, 2), 8) << c.code;
  }
  EXPECT_EQ(KortElementOffset(11, 1), -1);
  EXPECT_EQ(KortElementOffset(10, 3), -1);
}

TEST(ReferenceHost, ResizeOfANullHandleVariableAllocatesAHandle) {
  const int64_t handles = KortLiveHandles(), bytes = KortLiveBytes();
  ArrayHandle h = nullptr;
  ASSERT_EQ(NumericArrayResize(QuarzTypeComplexDouble, 1, &h, 3), 0);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(KortLiveHandles(), handles + 1);
  EXPECT_EQ(KortLiveBytes(), bytes + 8 + 3 * 16);
  KortArrayFree(h);
  EXPECT_EQ(KortLiveHandles(), handles);
  EXPECT_EQ(KortLiveBytes(), bytes);
}

TEST(ReferenceHost, ResizeKeepsElementsAndLeavesSizesToTheCaller) {
  auto a = Vec<double>({1, 2, 3});
  ArrayHandle h = a.h();
  ASSERT_EQ(NumericArrayResize(QuarzTypeDouble, 1, &h, 1000), 0);
  EXPECT_EQ(h, a.h()) << "an existing handle stays put; only its block may move";
  EXPECT_EQ(a.dim(0), 3);
  EXPECT_EQ(a.data()[2], 3.0);
  ASSERT_EQ(NumericArrayResize(QuarzTypeDouble, 1, &h, 0), 0);
  EXPECT_NE(a.data(), nullptr);
}

TEST(ReferenceHost, RefusesBadRequests) {
  auto a = Vec<float>({1});
  ArrayHandle h = a.h();
  EXPECT_NE(NumericArrayResize(11, 1, &h, 1), 0);                 // unknown type code
  EXPECT_NE(NumericArrayResize(QuarzTypeFloat, 3, &h, 1), 0);     // rank 3
  EXPECT_NE(NumericArrayResize(QuarzTypeFloat, 1, &h, -1), 0);    // negative count
  EXPECT_NE(NumericArrayResize(QuarzTypeComplexDouble, 1, &h, INT32_MIN), 0);
  EXPECT_NE(NumericArrayResize(QuarzTypeFloat, 1, nullptr, 1), 0);
  EXPECT_EQ(a.dim(0), 1);
}

#if defined(__x86_64__) || defined(__aarch64__)
// The count is an int32 in a 64-bit argument register whose upper half the caller need
// not clear. A host that read the whole register (an int64 count) would take such a call
// for a huge or negative count.
TEST(ReferenceHost, ResizeReadsOnlyThe32BitCount) {
  auto a = Vec<double>({1, 2});
  ArrayHandle h = a.h();
  using WideFn = int32_t (*)(int32_t, int32_t, ArrayHandle*, int64_t);
  // (Through void (*)(), the generic function pointer type, to say the cast is meant.)
  volatile WideFn wide = reinterpret_cast<WideFn>(reinterpret_cast<void (*)()>(&NumericArrayResize));
  const int64_t dirty = static_cast<int64_t>(0xFFFFFFFF00000000ull | 5u);
  const int64_t bytes = KortLiveBytes();
  ASSERT_EQ(wide(QuarzTypeDouble, 1, &h, dirty), 0);
  EXPECT_EQ(KortLiveBytes(), bytes + 3 * 8) << "the block grew from 2 to exactly 5 elements";
}
#endif

TEST(ReferenceHost, NewArrayRefusesSizesWhoseByteCountOverflows) {
  // 2^31 - 1 squared complex doubles: the element count fits 64 bits, the bytes do not.
  const int32_t dims[2] = {INT32_MAX, INT32_MAX};
  const int64_t handles = KortLiveHandles();
  EXPECT_EQ(KortArrayNew(QuarzTypeComplexDouble, 2, dims), nullptr);
  EXPECT_EQ(KortLiveHandles(), handles);
}

TEST(ReferenceHost, FailSwitchRefusesExactlyTheKthResize) {
  auto a = Vec<double>({1});
  ArrayHandle h = a.h();
  KortFailResizeAt(3);
  EXPECT_EQ(NumericArrayResize(QuarzTypeDouble, 1, &h, 2), 0);
  EXPECT_EQ(NumericArrayResize(QuarzTypeDouble, 1, &h, 3), 0);
  EXPECT_NE(NumericArrayResize(QuarzTypeDouble, 1, &h, 4), 0);
  EXPECT_EQ(NumericArrayResize(QuarzTypeDouble, 1, &h, 5), 0);
  KortFailResizeAt(0);
}

TEST(ReferenceHost, QSortSortsWithTheCallersComparison) {
  std::vector<int32_t> v = {5, -1, 3, 3, 0};
  QSort(v.data(), static_cast<int32_t>(v.size()), sizeof(int32_t), [](const void* a, const void* b) {
    const int32_t x = *static_cast<const int32_t*>(a), y = *static_cast<const int32_t*>(b);
    return (x > y) - (x < y);
  });
  EXPECT_EQ(v, (std::vector<int32_t>{-1, 0, 3, 3, 5}));
}

}  // namespace
}  // namespace qt
