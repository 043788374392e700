// The reference host runtime on its own: resize semantics, the memory pool, accounting,
// failure switches.
#include <cstdlib>
#include <thread>

#include "support/host_array.h"

namespace qt {
namespace {

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

TEST(ReferenceHost, FailFromSwitchRefusesEveryResizeUntilDisarmed) {
  auto a = Vec<double>({1});
  ArrayHandle h = a.h();
  KortFailResizeFrom(2);
  EXPECT_EQ(NumericArrayResize(QuarzTypeDouble, 1, &h, 2), 0);
  for (int32_t n : {3, 4, 5}) EXPECT_NE(NumericArrayResize(QuarzTypeDouble, 1, &h, n), 0) << n;
  KortFailResizeFrom(0);
  EXPECT_EQ(NumericArrayResize(QuarzTypeDouble, 1, &h, 6), 0);
}

// The block a handle points to.
const void* BlockOf(ArrayHandle h) { return *h; }

// An emptied work handle must regrow in its own block: anything else makes every call
// of an export fetch its workspace from the system again.
bool MovesOnResize() {
  const char* e = std::getenv("KORT_MOVE_ON_RESIZE");
  return e && e[0] == '1';
}

// A small block's in-place resizes are counted by the thread that makes them; a thread
// that ends hands its counts on, so shrinking on one thread and regrowing on another
// leaves the counters where they were.
TEST(ReferenceHost, ShrinkThenRegrowKeepsTheBlock) {
  if (MovesOnResize()) GTEST_SKIP() << "KORT_MOVE_ON_RESIZE=1: blocks are not kept";
  for (auto [count, elsewhere] : {std::pair{100, false}, {100, true}, {1 << 20, false}}) {  // heap, mapped
    auto a = Mat<double>(1, count);
    ArrayHandle h = a.h();
    const void* block = BlockOf(h);
    const int64_t bytes = KortLiveBytes(), kept = KortKeptBytes();
    int32_t shrunk = -1;
    const auto shrink = [&] { shrunk = NumericArrayResize(QuarzTypeDouble, 2, &h, 0); };
    if (elsewhere) std::thread(shrink).join();
    else shrink();
    ASSERT_EQ(shrunk, 0);
    EXPECT_EQ(BlockOf(h), block) << count;
    EXPECT_EQ(KortLiveBytes(), bytes - int64_t{8} * count);
    EXPECT_EQ(KortKeptBytes(), kept + int64_t{8} * count);
    ASSERT_EQ(NumericArrayResize(QuarzTypeDouble, 2, &h, count), 0);
    EXPECT_EQ(BlockOf(h), block) << count;
    EXPECT_EQ(KortLiveBytes(), bytes);
    EXPECT_EQ(KortKeptBytes(), kept);
  }
}

// A handle of a size freed just before gets that block again, zero-filled as every new
// array is (a reused block must not show its former contents).
TEST(ReferenceHost, FreedBlockServesTheNextHandleOfItsSizeClass) {
  const int32_t count = 300000;  // 2.4 MB: a huge-page block
  auto a = Vec(std::vector<double>(count, 7.0));
  const void* block = BlockOf(a.h());
  const int64_t cached = KortCachedBytes();
  a = Vec<double>({});
  EXPECT_GT(KortCachedBytes(), cached);
  auto b = Mat<double>(count / 1000, 1000 - 10);  // a little smaller, the same class
  EXPECT_EQ(BlockOf(b.h()), block);
  EXPECT_EQ(KortCachedBytes(), cached);
  int64_t nonzero = 0;
  for (int64_t i = 0; i < b.size(); ++i) nonzero += b.data()[i] != 0;
  EXPECT_EQ(nonzero, 0);
}

// Neither the cache nor the capacity that handles keep may grow without bound. The blocks
// here are mapped but never touched, so they cost address space only.
TEST(ReferenceHost, PoolStaysWithinItsCaps) {
  if (MovesOnResize()) GTEST_SKIP() << "KORT_MOVE_ON_RESIZE=1: blocks are not kept";
  KortTrimPool();
  EXPECT_EQ(KortCachedBytes(), 0);
  const int32_t big = static_cast<int32_t>(KORT_CACHE_CAP_BYTES / 16 * 3 / 8);  // 3/8 of a cap each
  std::vector<HostArray<std::complex<double>>> arrays;
  for (int i = 0; i < 4; ++i) arrays.push_back(Vec(std::vector<std::complex<double>>{}));
  for (auto& a : arrays) {
    ArrayHandle h = a.h();
    ASSERT_EQ(NumericArrayResize(QuarzTypeComplexDouble, 1, &h, big), 0);
  }
  std::vector<const void*> blocks;
  for (auto& a : arrays) {
    ArrayHandle h = a.h();
    blocks.push_back(BlockOf(h));
    ASSERT_EQ(NumericArrayResize(QuarzTypeComplexDouble, 1, &h, 0), 0);
    EXPECT_LE(KortKeptBytes(), KORT_KEEP_CAP_BYTES);
  }
  EXPECT_EQ(BlockOf(arrays[0].h()), blocks[0]) << "room under the cap: the block stays";
  EXPECT_NE(BlockOf(arrays[3].h()), blocks[3]) << "past the cap: the block is released";
  EXPECT_GT(KortCachedBytes(), 0);
  while (!arrays.empty()) {
    arrays.pop_back();
    EXPECT_LE(KortCachedBytes(), KORT_CACHE_CAP_BYTES);
  }
  const int64_t cached = KortCachedBytes();
  KortArrayFree(AZNewHandle(KORT_CACHE_CAP_BYTES + 1));
  EXPECT_EQ(KortCachedBytes(), cached) << "a block beyond the cap is not cached";
  KortTrimPool();
  EXPECT_EQ(KortCachedBytes(), 0);
}

// Blocks move between the heap, mapped classes and the cache; the counters follow what
// the handles hold, and come back when they are freed.
TEST(ReferenceHost, CountersExactAfterMixedOperations) {
  const int64_t handles = KortLiveHandles(), bytes = KortLiveBytes(), kept = KortKeptBytes();
  std::vector<ArrayHandle> hs(6, nullptr);
  int64_t held = 0;
  const int32_t counts[] = {3, 70000, 0, 500000, 20, 9000, 1 << 21, 1};
  for (int step = 0; step < 40; ++step) {
    ArrayHandle& h = hs[step % hs.size()];
    const int64_t before = h ? int64_t{8} + int64_t{16} * KortArrayDim(h, 0) : 0;
    const int32_t count = counts[(step * 5) % 8];
    ASSERT_EQ(NumericArrayResize(QuarzTypeComplexDouble, 1, &h, count), 0);
    static_cast<int32_t*>(static_cast<void*>(*h))[0] = count;
    held += int64_t{8} + int64_t{16} * count - before;
    ASSERT_EQ(KortLiveBytes() - bytes, held) << step;
    if (step % 7 == 6) {
      held -= int64_t{8} + int64_t{16} * count;
      KortArrayFree(h);
      h = nullptr;
    }
  }
  EXPECT_EQ(KortLiveBytes() - bytes, held);
  for (ArrayHandle h : hs) KortArrayFree(h);
  EXPECT_EQ(KortLiveHandles(), handles);
  EXPECT_EQ(KortLiveBytes(), bytes);
  EXPECT_EQ(KortKeptBytes(), kept);
}

// Threads sharing the cache: a block handed to two handles at once would mix their fills.
TEST(ReferenceHost, ThreadsNeverShareABlock) {
  const int64_t handles = KortLiveHandles(), bytes = KortLiveBytes();
  std::vector<std::thread> threads;
  std::vector<int> bad(4, 0);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &bad] {
      for (int i = 0; i < 200; ++i) {
        const int32_t count = 10000 + 9000 * ((i + t) % 7);  // 80 kB to 460 kB
        auto a = Vec(std::vector<double>(count, t + 1.0));
        std::this_thread::yield();
        for (int32_t k = 0; k < count; k += 997) bad[t] += a.data()[k] != t + 1.0;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(bad, std::vector<int>(4, 0));
  EXPECT_EQ(KortLiveHandles(), handles);
  EXPECT_EQ(KortLiveBytes(), bytes);
}

}  // namespace
}  // namespace qt
