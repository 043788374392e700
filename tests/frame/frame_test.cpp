// What only the frame itself can be made to do: the size guard and the count checks in
// front of the host, and an operation that throws. Layouts and the roles of every
// export are checked through the exports (contract suite, oracle suite).
#include <gtest/gtest.h>

#include <complex>
#include <cstring>

#include "frame/array.h"
#include "frame/export.h"
#include "kort.h"

namespace {

using ql::Status;

TEST(FrameResize, SizeGuardRefusesBeforeAskingTheHost) {
  const int32_t zero[2] = {0, 0};
  ArrayHandle h = KortArrayNew(QuarzTypeDouble, 2, zero);
  struct Case { int32_t rows, cols; };
  // ceil(log2 r) + ceil(log2 c) >= 31 is refused.
  for (Case c : {Case{65536, 65536}, Case{32768, 65536}, Case{65536, 32768}, Case{1 << 30, 2},
                 Case{1, INT32_MAX}}) {
    int64_t calls = KortResizeCount();
    double* data = reinterpret_cast<double*>(1);
    EXPECT_EQ(ql::ResizeMatrix<double>(h, c.rows, c.cols, &data), StatusOutOfMemory) << c.rows << "x" << c.cols;
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(KortResizeCount(), calls);
  }
  // 15 + 15 = 30 is attempted: the host is asked (and here told to refuse).
  for (Case c : {Case{32768, 32768}, Case{1 << 29, 2}, Case{1, 1 << 30}}) {
    int64_t calls = KortResizeCount();
    KortFailResizeAt(1);
    EXPECT_EQ(ql::ResizeMatrix<double>(h, c.rows, c.cols), StatusOutOfMemory);
    KortFailResizeAt(0);
    EXPECT_EQ(KortResizeCount(), calls + 1);
    EXPECT_EQ(KortArrayDim(h, 0), 0) << "sizes are not written after a refusal";
  }
  KortArrayFree(h);
}

TEST(FrameResize, NullHandleIsAMissingOutput) {
  EXPECT_EQ(ql::ResizeMatrix<double>(nullptr, 2, 2), StatusKernelError);
  EXPECT_EQ(ql::ResizeVector<float>(nullptr, 2), StatusKernelError);
  // Negative sizes and counts beyond the host's int32 are refused without asking it.
  const int64_t calls = KortResizeCount();
  const int32_t one = 1;
  ArrayHandle h = KortArrayNew(QuarzTypeDouble, 1, &one);
  EXPECT_EQ(ql::ResizeVector<double>(h, int64_t{INT32_MAX} + 1), StatusOutOfMemory);
  EXPECT_EQ(ql::ResizeVector<double>(h, -1), StatusOutOfMemory);
  EXPECT_EQ(ql::ResizeMatrix<double>(h, -1, 3), StatusOutOfMemory);
  EXPECT_EQ(KortResizeCount(), calls);
  KortArrayFree(h);
  ql::ClearMatrix<double>(nullptr);  // nothing to do, no crash
  ql::ClearVector<double>(nullptr);
}

// What only the frame can be made to do: an operation that throws. Our own allocation
// failing is out of memory; anything else a kernel error; the clean-up runs either way.
TEST(CallFrame, EscapingExceptionsBecomeStatusesAndStillCleanUp) {
  const int32_t three = 3;
  for (bool badAlloc : {true, false}) {
    ArrayHandle out = KortArrayNew(QuarzTypeFloat, 1, &three);
    float scalar = 1;
    Status got = ql::RunExport(
        [&]() -> Status {
          if (badAlloc) throw std::bad_alloc();
          throw 1;
        },
        ql::Out1<float>{out}, ql::ScalarOut<float>{&scalar, ql::Elem<float>::NaN()});
    EXPECT_EQ(got, badAlloc ? StatusOutOfMemory : StatusKernelError);
    EXPECT_EQ(KortArrayDim(out, 0), 0);
    EXPECT_TRUE(std::isnan(scalar));
    KortArrayFree(out);
  }
}

}  // namespace
