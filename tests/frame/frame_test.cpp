// The frame's handle layer compiled into the test: sizing and emptying host arrays of
// every type code and rank, read back through the reference host.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>

#include "frame/array.h"
#include "frame/export.h"
#include "kort.h"

namespace {

using ql::Status;

template <class T>
class FrameLayout : public ::testing::Test {};
using LayoutTypes = ::testing::Types<int32_t, float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(FrameLayout, LayoutTypes);

// The documented layout: first element at byte 4 of a 1-D int32, float or complex-float
// block, at byte 8 of a 1-D double or complex-double block, at byte 8 of every 2-D block.
template <class T>
int32_t DocumentedOffset1D() {
  return std::is_same_v<T, double> || std::is_same_v<T, std::complex<double>> ? 8 : 4;
}
template <class T> int32_t DocumentedCode();
template <> int32_t DocumentedCode<int32_t>() { return 3; }
template <> int32_t DocumentedCode<float>() { return 9; }
template <> int32_t DocumentedCode<double>() { return 10; }
template <> int32_t DocumentedCode<std::complex<float>>() { return 12; }
template <> int32_t DocumentedCode<std::complex<double>>() { return 13; }

template <class T>
T Value(int i) {
  if constexpr (std::is_same_v<T, std::complex<float>> || std::is_same_v<T, std::complex<double>>) {
    return T(i + 0.5, -i);
  } else {
    return static_cast<T>(i + 1);
  }
}

TYPED_TEST(FrameLayout, VectorResizeWritesSizeAndElementsWhereTheHostReadsThem) {
  using T = TypeParam;
  const int32_t zero = 0;
  ArrayHandle h = KortArrayNew(DocumentedCode<T>(), 1, &zero);
  T* data = nullptr;
  ASSERT_EQ(ql::ResizeVector<T>(h, 5, &data), StatusOk);
  ASSERT_NE(data, nullptr);
  for (int i = 0; i < 5; ++i) data[i] = Value<T>(i);
  EXPECT_EQ(KortArrayDim(h, 0), 5);
  EXPECT_EQ(reinterpret_cast<char*>(data) - reinterpret_cast<char*>(*h), DocumentedOffset1D<T>());
  const T* host = static_cast<const T*>(KortArrayData(h, DocumentedCode<T>(), 1));
  for (int i = 0; i < 5; ++i) EXPECT_EQ(host[i], Value<T>(i));

  // Same size again: no host call.
  int64_t calls = KortResizeCount();
  ASSERT_EQ(ql::ResizeVector<T>(h, 5, &data), StatusOk);
  EXPECT_EQ(KortResizeCount(), calls);

  ql::ClearVector<T>(h);
  EXPECT_EQ(KortArrayDim(h, 0), 0);
  KortArrayFree(h);
}

TYPED_TEST(FrameLayout, MatrixResizeWritesBothSizesAndRowMajorElements) {
  using T = TypeParam;
  const int32_t zero[2] = {0, 0};
  ArrayHandle h = KortArrayNew(DocumentedCode<T>(), 2, zero);
  T* data = nullptr;
  ASSERT_EQ(ql::ResizeMatrix<T>(h, 2, 3, &data), StatusOk);
  for (int i = 0; i < 6; ++i) data[i] = Value<T>(i);
  EXPECT_EQ(KortArrayDim(h, 0), 2);
  EXPECT_EQ(KortArrayDim(h, 1), 3);
  EXPECT_EQ(reinterpret_cast<char*>(data) - reinterpret_cast<char*>(*h), 8);
  const T* host = static_cast<const T*>(KortArrayData(h, DocumentedCode<T>(), 2));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(host[i], Value<T>(i));

  // A 3 x 2 reshape has the same element count but other sizes: it is resized.
  int64_t calls = KortResizeCount();
  ASSERT_EQ(ql::ResizeMatrix<T>(h, 3, 2, &data), StatusOk);
  EXPECT_EQ(KortResizeCount(), calls + 1);
  EXPECT_EQ(KortArrayDim(h, 0), 3);
  ASSERT_EQ(ql::ResizeMatrix<T>(h, 3, 2, &data), StatusOk);
  EXPECT_EQ(KortResizeCount(), calls + 1);

  ql::ClearMatrix<T>(h);
  EXPECT_EQ(KortArrayDim(h, 0), 0);
  EXPECT_EQ(KortArrayDim(h, 1), 0);
  KortArrayFree(h);
}

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
