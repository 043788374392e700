// The contract every export keeps, driven by the export list: statuses in their check
// order, outputs emptied and scalar results set to their failure value after an error,
// work handles empty after every return, inputs left as they were, handles passed twice,
// sizes too large for the host, every refused host resize, and no host memory left
// behind. Numerical values are the oracle suite's business, not this file's.
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <cstring>
#include <limits>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "kort.h"
#include "support/call_builder.h"

namespace qt {
namespace {

// Runs `body` on a fresh call of every export of the list and checks the host holds no
// more handles or bytes afterwards.
template <class Body>
void ForEachExport(Body body) {
  for (const ExportEntry& e : kExportTable) {
    SCOPED_TRACE(e.name);
    const int64_t handles = LiveHandles(), bytes = LiveBytes();
    body(e);
    EXPECT_EQ(LiveHandles(), handles);
    EXPECT_EQ(LiveBytes(), bytes);
  }
}

TEST(Contract, EveryExportAcceptsValidInput) {
  ForEachExport([](const ExportEntry& e) {
    Call c(e, "");
    EXPECT_GE(c.Run(), 0);
    c.ExpectContract();
  });
}

TEST(Contract, MissingOutputsWorkHandlesAndResultPointers) {
  ForEachExport([](const ExportEntry& e) {
    for (int k = 0; k < e.nargs; ++k) {
      const Role r = e.args[k].role;
      if (!IsWritten(r) && r != Role::ElemOut && r != Role::RealOut && r != Role::IntOut) continue;
      SCOPED_TRACE(e.args[k].name);
      Call c(e, std::string(e.args[k].name) + "=null");
      const int32_t s = c.Run();
      // An in-place array that is missing reads as empty; anything else the operation
      // has to write is a missing required handle.
      if (r == Role::Inout) {
        EXPECT_LT(s, 0);
      } else {
        EXPECT_EQ(s, StatusKernelError);
      }
      c.ExpectContract();
    }
  });
}

TEST(Contract, OptionsOutsideTheirTable) {
  ForEachExport([](const ExportEntry& e) {
    for (int k = 0; k < e.nargs; ++k) {
      if (e.args[k].option < 0) continue;
      const OptionTable& t = kOptionTables[e.args[k].option];
      for (int32_t bad : {t.values[t.count - 1] + 1, t.values[0] - 1}) {
        SCOPED_TRACE(std::string(e.args[k].name) + "=" + std::to_string(bad));
        Call c(e, std::string(e.args[k].name) + "=" + std::to_string(bad));
        EXPECT_EQ(c.Run(), StatusBadOption);
        c.ExpectContract();
      }
    }
  });
}

// A 2-D input whose sizes claim more elements than a host array can hold is refused
// before anything reads it (the block behind it holds one element).
TEST(Contract, InputsClaimingMoreThanAHostArrayHolds) {
  ForEachExport([](const ExportEntry& e) {
    for (int k = 0; k < e.nargs; ++k) {
      if (e.args[k].rank != 2 || (e.args[k].role != Role::In && e.args[k].role != Role::Inout)) continue;
      SCOPED_TRACE(e.args[k].name);
      Call c(e, std::string(e.args[k].name) + "=!50000x50000");
      EXPECT_EQ(c.Run(), StatusOutOfMemory);
      c.ExpectContract();
    }
  });
}

TEST(Contract, HandlesPassedTwice) {
  ForEachExport([](const ExportEntry& e) {
    Call clean(e, "");
    const int32_t expected = clean.Run();
    for (int j = 0; j < e.nargs; ++j) {
      if (!IsWritten(e.args[j].role)) continue;
      for (int i = 0; i < e.nargs; ++i) {
        const Role r = e.args[i].role;
        if (i == j || !(r == Role::In || (IsWritten(r) && i < j))) continue;
        SCOPED_TRACE(std::string(e.args[j].name) + "=@" + e.args[i].name);
        Call c(e, std::string(e.args[j].name) + "=@" + e.args[i].name);
        const int32_t s = c.Run();
        c.ExpectContract();
        if (r != Role::In) {
          EXPECT_EQ(s, StatusKernelError);  // two written handles cannot share a block
        } else {
          // The input is read from a copy: the same status, and an output of the same
          // type holds what it holds without the sharing.
          EXPECT_EQ(s, expected);
          if (e.args[j].role != Role::Work && e.args[j].code == e.args[i].code) {
            EXPECT_EQ(c.Output(j), clean.Output(j));
          }
        }
      }
    }
  });
}

TEST(Contract, EveryRefusedResize) {
  int64_t refused = 0;
  ForEachExport([&](const ExportEntry& e) {
    Call clean(e, "");
    const int64_t before = KortResizeCount();
    const int32_t expected = clean.Run();
    const int64_t total = KortResizeCount() - before;
    for (int64_t k = 1; k <= total; ++k) {
      SCOPED_TRACE("refused resize " + std::to_string(k));
      ++refused;
      Call c(e, "");
      KortFailResizeAt(k);
      const int64_t start = KortResizeCount();
      const int32_t s = c.Run();
      const bool reached = KortResizeCount() - start >= k;
      KortFailResizeAt(0);
      EXPECT_TRUE(reached);
      c.ExpectContract();
      // A refused resize is StatusOutOfMemory, unless only the final emptying of a work
      // handle was refused: then the call stands with the same results.
      if (s != expected) {
        EXPECT_EQ(s, StatusOutOfMemory);
        continue;
      }
      for (int j = 0; j < e.nargs; ++j) {
        if (e.args[j].role == Role::Out || e.args[j].role == Role::Inout) {
          EXPECT_EQ(c.Output(j), clean.Output(j)) << e.args[j].name;
        }
      }
    }
  });
  // Every export with an array output sizes it through the host at least once.
  EXPECT_GE(refused, int64_t{std::size(kExportTable)} / 2);
  std::printf("refused %lld host resizes over %zu exports\n", static_cast<long long>(refused), std::size(kExportTable));
}

// A host that runs out of memory stays out: from the k-th resize on every resize is
// refused, including the ones the clean-up makes to empty the outputs and work handles.
// Those must still read as empty with sizes 0 and leave no host memory behind.
TEST(Contract, EveryResizeRefusedFromOneOn) {
  int64_t sweeps = 0;
  ForEachExport([&](const ExportEntry& e) {
    Call clean(e, "");
    const int64_t before = KortResizeCount();
    const int32_t expected = clean.Run();
    const int64_t total = KortResizeCount() - before;
    for (int64_t k = 1; k <= total; ++k) {
      SCOPED_TRACE("resizes refused from " + std::to_string(k));
      ++sweeps;
      Call c(e, "");
      KortFailResizeFrom(k);
      const int32_t s = c.Run();
      KortFailResizeFrom(0);
      c.ExpectContract();
      // Only refusals of the final emptying of work handles leave the results standing.
      if (s != expected) {
        EXPECT_EQ(s, StatusOutOfMemory);
        continue;
      }
      for (int j = 0; j < e.nargs; ++j) {
        if (e.args[j].role == Role::Out || e.args[j].role == Role::Inout) {
          EXPECT_EQ(c.Output(j), clean.Output(j)) << e.args[j].name;
        }
      }
    }
  });
  std::printf("refused every resize from the k-th on in %lld calls over %zu exports\n", static_cast<long long>(sweeps),
              std::size(kExportTable));
}

// Statuses of the families in their check order: the first failing check decides. A row
// names the operation, the letters it applies to (null: all), the arguments that differ
// from the valid defaults, and the status. "!rxc" claims sizes over a one-element block:
// the check order must reach a size refusal before anything reads the elements.
struct Row {
  const char* op;
  const char* letters;
  const char* args;
  int32_t status;
};

const Row kRows[] = {
    {"DotProdH", nullptr, "x=3 y=0", StatusSizeMismatch},
    {"DotProdH", nullptr, "x=0 y=1", StatusSizeMismatch},
    {"DotProdH", nullptr, "x=0 y=0", StatusEmptyInput},
    {"DotProdH", nullptr, "x=null y=null", StatusEmptyInput},
    {"VectorNormH", nullptr, "x=0 p=nan", StatusEmptyInput},
    {"VectorNormH", nullptr, "x=1 p=nan", StatusNormParamNaN},
    {"VectorNormH", nullptr, "x=1 p=0", StatusZeroParameter},
    {"VectorNormH", nullptr, "x=1 p=-0", StatusZeroParameter},
    {"MeanH", nullptr, "x=0", StatusEmptyInput},
    {"RMSH", nullptr, "x=0", StatusEmptyInput},

    {"MtrxMulH", nullptr, "A=2x3 B=2x3", StatusInnerDimMismatch},
    {"MtrxMulH", nullptr, "A=2x-1 B=3x2", StatusInnerDimMismatch},
    {"MtrxMulH", nullptr, "A=-2x3 B=4x2", StatusInnerDimMismatch},
    {"MtrxMulH", nullptr, "A=-2x3 B=3x2", StatusBadDimension},
    {"MtrxMulH", nullptr, "A=2x-1 B=-1x2", StatusBadDimension},
    {"MtrxMulH", nullptr, "A=2x3 B=3x-4", StatusBadDimension},
    {"MtrxMulH", nullptr, "A=!65536x2 B=!2x65536", StatusOutOfMemory},
    {"MtrxMulH", nullptr, "A=!32768x2 B=!2x65536", StatusOutOfMemory},
    {"MtrxVecMulH", nullptr, "A=2x-3 x=0", StatusInnerDimMismatch},
    {"MtrxVecMulH", nullptr, "A=2x-3 x=2", StatusInnerDimMismatch},
    {"MtrxVecMulH", nullptr, "A=-2x3 x=3", StatusBadDimension},
    {"VecMtrxMulH", nullptr, "A=2x-3 x=0", StatusInnerDimMismatch},
    {"VecMtrxMulH", nullptr, "A=2x-3 x=2", StatusBadDimension},
    {"VecMtrxMulH", nullptr, "A=-2x3 x=3", StatusInnerDimMismatch},
    {"OuterProdH", nullptr, "x=0 y=1", StatusEmptyInput},
    {"OuterProdH", nullptr, "x=1 y=0", StatusEmptyInput},
    {"OuterProdH", nullptr, "x=!65536 y=!65536", StatusOutOfMemory},
    {"OuterProdH", nullptr, "x=!32768 y=!65536", StatusOutOfMemory},
    {"KronProdH", nullptr, "A=0x2 B=1x1", StatusEmptyInput},
    {"KronProdH", nullptr, "A=1x1 B=1x0", StatusEmptyInput},
    {"KronProdH", nullptr, "A=-1x1 B=1x1", StatusEmptyInput},
    {"KronProdH", nullptr, "A=!65536x1 B=!65536x1", StatusOutOfMemory},
    {"KronProdH", nullptr, "A=!32768x1 B=!65536x1", StatusOutOfMemory},
    {"KronProdH", nullptr, "A=!256x256 B=!256x256", StatusOutOfMemory},
    {"TransposeH", nullptr, "A=0x4", StatusEmptyInput},
    {"TransposeH", nullptr, "A=4x0", StatusEmptyInput},
    {"TransposeH", nullptr, "A=-1x3", StatusOutOfMemory},
    {"TransposeH", nullptr, "A=!65536x65536", StatusOutOfMemory},
    {"TransposeH", nullptr, "A=!32768x65536", StatusOutOfMemory},
    {"TraceH", nullptr, "A=0x0", StatusEmptyInput},
    {"TraceH", nullptr, "A=3x0", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=0 size=0 x=3 y=3", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=0 size=-2 x=3 y=3", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=1 size=5 x=0 y=3", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=2 size=5 x=3 y=0", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=2 size=5 x=0 y=3", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=3 size=5 x=0 y=0", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=4 size=5 x=1 y=0", StatusParameterTooSmall},
    {"SpecialMtrxH", nullptr, "type=4 size=5 x=0 y=0", StatusParameterTooSmall},
    {"SpecialMtrxH", nullptr, "type=5 size=5 x=3 y=0", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=6 size=0 x=3 y=3", StatusEmptyInput},
    {"SpecialMtrxH", nullptr, "type=0 size=65536 x=0 y=0", StatusOutOfMemory},
    {"SpecialMtrxH", nullptr, "type=6 size=65536 x=0 y=0", StatusOutOfMemory},
    {"SpecialMtrxH", nullptr, "type=-2147483648 size=1 x=0 y=0", StatusBadOption},

    {"LUH", nullptr, "A=0x3", StatusEmptyInput},
    {"LUH", nullptr, "A=3x0", StatusEmptyInput},
    {"LUH", nullptr, "A=null", StatusEmptyInput},
    {"LUH", nullptr, "A=4x4:sing", WarnSingular},
    {"CholeskyH", nullptr, "A=0x3", StatusNotSquare},
    {"CholeskyH", nullptr, "A=3x0", StatusNotSquare},
    {"CholeskyH", nullptr, "A=2x3 option=7", StatusNotSquare},
    {"CholeskyH", nullptr, "A=0x0 option=5", StatusEmptyInput},
    {"CholeskyH", nullptr, "A=[4] option=2", StatusBadOption},
    {"CholeskyH", nullptr, "A=[0]", StatusNotPositiveDefinite},
    {"CholeskyH", nullptr, "A=[-1] option=1", StatusNotPositiveDefinite},
    {"CholeskyH", nullptr, "A=3x3:indef", StatusNotPositiveDefinite},
    {"CholeskyH", nullptr, "A=3x3:indef option=1", StatusNotPositiveDefinite},
    {"CholeskyH", nullptr, "A=[1,0;5,1]", StatusNotPositiveDefinite},  // reads the lower triangle
    {"CholeskyH", nullptr, "A=[1,5;0,1] option=1", StatusNotPositiveDefinite},

    {"LinEqH", nullptr, "A=0x0 y=0", StatusEmptyInput},
    {"LinEqH", nullptr, "A=0x0 y=3 matrixType=9", StatusEmptyInput},
    {"LinEqH", nullptr, "A=0x3 y=0", StatusEmptyInput},
    {"LinEqH", nullptr, "A=2x3 y=2", StatusNotSquare},
    {"LinEqH", nullptr, "A=2x3 y=0 matrixType=9", StatusNotSquare},
    {"LinEqH", nullptr, "A=2x2 y=1", StatusSizeMismatch},
    {"LinEqH", nullptr, "A=2x2 y=3 matrixType=9", StatusSizeMismatch},
    {"LinEqH", nullptr, "A=[nan,0;0,1] y=2 matrixType=4", StatusBadOption},
    {"LinEqH", nullptr, "A=[1,nan;0,1] y=2", StatusNotFinite},
    {"LinEqH", nullptr, "A=[1,0;inf,1] y=2 matrixType=1", StatusNotFinite},
    {"LinEqH", nullptr, "A=2x2:hpd y=[1,-inf]", StatusNotFinite},
    {"LinEqH", nullptr, "A=2x2:hpd y=[nan,1] matrixType=3", StatusNotFinite},
    {"LinEqH", nullptr, "A=[big,0;0,1] y=2", StatusNotFinite},
    {"LinEqH", nullptr, "A=[1,0;0,-big] y=2 matrixType=2", StatusNotFinite},
    {"LinEqH", nullptr, "A=2x2:hpd y=[1,big]", StatusNotFinite},
    {"LinEqH", nullptr, "A=[below] y=[below] matrixType=2", StatusOk},
    {"LinEqH", nullptr, "A=[2,nan;0,2] y=2 matrixType=1", StatusNotFinite},  // scans the unread triangle
    {"LinEqH", nullptr, "A=[2,nan;1,2] y=2 matrixType=2", StatusOk},
    {"LinEqH", nullptr, "A=[2,0;nan,2] y=2 matrixType=2", StatusNotFinite},
    {"LinEqH", nullptr, "A=[2,0;1,nan] y=2 matrixType=2", StatusNotFinite},
    {"LinEqH", nullptr, "A=[2,1;nan,2] y=2 matrixType=3", StatusOk},
    {"LinEqH", nullptr, "A=[2,inf;0,2] y=2 matrixType=3", StatusNotFinite},
    {"LinEqH", "cz", "A=[1,bigj;0,1] y=2", StatusNotFinite},
    {"LinEqH", "cz", "A=2x2:hpd y=[1,nanj]", StatusNotFinite},
    {"LinEqH", nullptr, "A=[1,2;1,2] y=2", StatusSingular},
    {"LinEqH", nullptr, "A=[1,0;3,0] y=2 matrixType=2", StatusSingular},
    {"LinEqH", nullptr, "A=[0,3;0,1] y=2 matrixType=3", StatusSingular},
    {"LinEqH", nullptr, "A=[1,2;2,1] y=2 matrixType=1", StatusNotPositiveDefinite},
    {"LinEqH", nullptr, "A=[1,0;2,1] y=2 matrixType=1", StatusNotPositiveDefinite},  // reads the lower triangle
    {"LinEqH", nullptr, "matrixType=3 valueScratch=null", StatusKernelError},
    {"LinEqH", nullptr, "matrixType=1 pivotScratch=null", StatusOk},
    {"LinEqH", nullptr, "matrixType=2 pivotScratch=null", StatusOk},
    {"LinEqH", nullptr, "A=[nan,0;0,1] y=2 valueScratch=null pivotScratch=null", StatusNotFinite},
    {"LinEqSetH", nullptr, "A=0x0 Y=0x2", StatusEmptyInput},
    {"LinEqSetH", nullptr, "A=2x2 Y=2x0", StatusEmptyInput},
    {"LinEqSetH", nullptr, "A=2x3 Y=2x2", StatusNotSquare},
    {"LinEqSetH", nullptr, "A=2x2 Y=3x2", StatusSizeMismatch},
    {"LinEqSetH", nullptr, "A=[1,2;1,2] Y=2x3", StatusSingular},
    {"LinEqSetH", nullptr, "A=2x2:hpd Y=[1,2;nan,3]", StatusNotFinite},

    {"DeterminantH", nullptr, "A=0x0", StatusEmptyInput},
    {"DeterminantH", nullptr, "A=0x3", StatusEmptyInput},
    {"DeterminantH", nullptr, "A=3x0 matrixType=9", StatusEmptyInput},
    {"DeterminantH", nullptr, "A=2x3", StatusNotSquare},
    {"DeterminantH", nullptr, "A=3x2 matrixType=9", StatusNotSquare},
    {"DeterminantH", nullptr, "A=[2] matrixType=-1", StatusBadOption},
    {"DeterminantH", nullptr, "A=3x3:indef matrixType=1", StatusNotPositiveDefinite},
    {"DeterminantH", nullptr, "A=4x4:sing", StatusOk},
    {"DeterminantH", nullptr, "A=[1,2;3,4] work=null iwork=null", StatusOk},
    {"DeterminantH", nullptr, "A=[1,2;3,4] matrixType=1 work=null iwork=null", StatusOk},
    {"DeterminantH", nullptr, "A=3x3 matrixType=2 work=null iwork=null", StatusOk},
    {"DeterminantH", nullptr, "A=3x3:hpd matrixType=1 iwork=null", StatusOk},

    {"SVDH", nullptr, "A=0x3", StatusEmptyInput},
    {"SVDH", nullptr, "A=3x0 vectorSize=5", StatusEmptyInput},
    {"SVDH", nullptr, "A=null", StatusEmptyInput},
    {"SVDH", nullptr, "A=3x2 valuesOnly=0 vectorSize=2", StatusBadOption},
    {"SVDH", nullptr, "A=3x2 valuesOnly=1 vectorSize=2", StatusBadOption},
    {"SVDH", nullptr, "A=[nan,1] vectorSize=-1", StatusBadOption},
    {"SVDH", nullptr, "A=[1,nan;0,1]", StatusNotFinite},
    {"SVDH", nullptr, "A=[1,0;-inf,1] valuesOnly=0", StatusNotFinite},
    {"SVDH", nullptr, "A=[1,0;0,big] valuesOnly=0 vectorSize=1", StatusNotFinite},
    {"SVDH", "cz", "A=[1,-bigj]", StatusNotFinite},
    {"SVDH", nullptr, "A=[below,0;0,-below] valuesOnly=0", StatusOk},
    {"SVDH", nullptr, "A=[nan] work=null iwork=null", StatusNotFinite},  // scanned before the work handles
    {"SVDH", nullptr, "A=3x5 valuesOnly=0", StatusOk},
    {"SVDH", nullptr, "A=4x4:zero valuesOnly=0 vectorSize=1", StatusOk},
    {"SVDH", nullptr, "A=3x3 valuesOnly=0 U=null", StatusKernelError},
    {"SVDH", nullptr, "A=3x3 valuesOnly=0 V=null", StatusKernelError},
    {"MtrxNormH", nullptr, "A=0x3", StatusEmptyInput},
    {"MtrxNormH", nullptr, "A=3x0 normType=7", StatusEmptyInput},
    {"MtrxNormH", nullptr, "A=null", StatusEmptyInput},
    {"MtrxNormH", nullptr, "A=[nan] normType=4", StatusBadOption},
    {"MtrxNormH", nullptr, "A=[nan] values=null", StatusKernelError},
    {"MtrxNormH", nullptr, "A=[nan] work=null", StatusNotFinite},
    {"MtrxNormH", nullptr, "A=[1,inf;0,1]", StatusNotFinite},
    {"MtrxNormH", nullptr, "A=[big,1]", StatusNotFinite},
    {"MtrxNormH", nullptr, "A=[1,inf;0,1] normType=1", StatusOk},
    {"MtrxNormH", nullptr, "A=[1,big;nan,1] normType=2", StatusOk},
    {"MtrxNormH", nullptr, "A=[1,-inf;0,1] normType=3", StatusOk},
    {"MtrxNormH", nullptr, "A=2x5 normType=1 values=null work=null iwork=null", StatusOk},
    {"MtrxNormH", nullptr, "A=5x2 normType=2 values=null work=null iwork=null", StatusOk},
    {"MtrxNormH", nullptr, "A=2x5 normType=3 values=null work=null iwork=null", StatusOk},
    {"RankH", nullptr, "A=0x3", StatusEmptyInput},
    {"RankH", nullptr, "A=null values=null", StatusEmptyInput},
    {"RankH", nullptr, "A=[1,inf] values=null", StatusKernelError},
    {"RankH", nullptr, "A=[1,inf] work=null", StatusNotFinite},
    {"RankH", "cz", "A=[1,-bigj]", StatusNotFinite},
    {"RankH", nullptr, "A=4x4:zero tolerance=nan", StatusOk},
    {"RankH", nullptr, "A=3x5 tolerance=-1", StatusOk},
    {"InvMtrxH", nullptr, "A=0x3", StatusEmptyInput},
    {"InvMtrxH", nullptr, "A=0x0 matrixType=9", StatusEmptyInput},
    {"InvMtrxH", nullptr, "A=null", StatusEmptyInput},
    {"InvMtrxH", nullptr, "A=3x0", StatusNotSquare},
    {"InvMtrxH", nullptr, "A=2x3 matrixType=9", StatusNotSquare},
    {"InvMtrxH", nullptr, "A=[4] matrixType=4", StatusBadOption},
    {"InvMtrxH", nullptr, "A=[1,2;2,4]", StatusSingular},
    {"InvMtrxH", nullptr, "A=[1,2;2,4] valueScratch=null", StatusSingular},  // found before the work is sized
    {"InvMtrxH", nullptr, "A=[1,2;2,4] pivotScratch=null", StatusKernelError},
    {"InvMtrxH", nullptr, "A=[1,2;2,1] matrixType=1", StatusNotPositiveDefinite},
    {"InvMtrxH", nullptr, "A=[1,0;2,1] matrixType=1", StatusNotPositiveDefinite},  // reads the lower triangle
    {"InvMtrxH", nullptr, "A=[1,5;0,1] matrixType=1", StatusOk},
    {"InvMtrxH", nullptr, "A=[1,0;3,0] matrixType=2", StatusSingular},
    {"InvMtrxH", nullptr, "A=[0,3;0,1] matrixType=3", StatusSingular},
    {"InvMtrxH", nullptr, "A=[1,nan;0,1] matrixType=2", StatusOk},
    {"InvMtrxH", nullptr, "matrixType=1 valueScratch=null pivotScratch=null", StatusOk},
    {"InvMtrxH", nullptr, "matrixType=3 valueScratch=null pivotScratch=null", StatusOk},
    {"PseudoInvMtrxH", nullptr, "A=0x3", StatusEmptyInput},
    {"PseudoInvMtrxH", nullptr, "A=3x0 values=null", StatusEmptyInput},
    {"PseudoInvMtrxH", nullptr, "A=[nan]", StatusNotFinite},
    {"PseudoInvMtrxH", nullptr, "A=[1,inf] values=null", StatusKernelError},
    {"PseudoInvMtrxH", nullptr, "A=[1,inf] vectors=null", StatusKernelError},
    {"PseudoInvMtrxH", nullptr, "A=[1,inf] work=null", StatusNotFinite},
    {"PseudoInvMtrxH", "cz", "A=[1,bigj;0,1]", StatusNotFinite},
    {"PseudoInvMtrxH", nullptr, "A=4x4:zero", StatusOk},
    {"PseudoInvMtrxH", nullptr, "A=3x5 tolerance=-1", StatusOk},
    {"PseudoInvMtrxH", nullptr, "A=5x2 tolerance=nan", StatusOk},

    {"EigenVH", nullptr, "A=0x0", StatusEmptyInput},
    {"EigenVH", nullptr, "A=0x3 config=7", StatusEmptyInput},
    {"EigenVH", nullptr, "A=3x0", StatusNotSquare},
    {"EigenVH", nullptr, "A=3x2 config=7", StatusNotSquare},
    {"EigenVH", nullptr, "A=[nan] config=2", StatusBadOption},
    {"EigenVH", nullptr, "A=!40000x40000 config=1", StatusOutOfMemory},  // vectors refused unread
    {"EigenVH", nullptr, "A=[1,nan;0,1]", StatusNotFinite},
    {"EigenVH", nullptr, "A=[big]", StatusNotFinite},
    {"EigenVH", nullptr, "A=[-big] config=1", StatusNotFinite},
    {"EigenVH", nullptr, "A=[below] config=1", StatusOk},
    // The lower bound of doubles sits a few ulps above -largest; floats use -largest.
    {"EigenVH", "dz", "A=[-below]", StatusNotFinite},
    {"EigenVH", "dz", "A=[-1.7976931348623e308]", StatusNotFinite},
    {"EigenVH", "dz", "A=[-1.79769313486229e308]", StatusOk},
    {"EigenVH", "sc", "A=[-below]", StatusOk},
    {"EigenVH", "cz", "A=[1,-bigj;0,1]", StatusNotFinite},
    {"EigenVH", "z", "A=[1,-belowj;0,1]", StatusNotFinite},
    {"EigenVH", "sd", "A=[nan] realWork=null", StatusNotFinite},  // scanned before the scratch
    {"EigenVH", "cz", "A=[nan] complexWork=null realWork=null", StatusNotFinite},
    {"EigenVH", "sd", "realWork=null spare=2:rand", StatusKernelError},
    {"EigenVH", nullptr, "A=[0,-1;1,0] config=1", StatusOk},
    // A real A passed again as a complex output: its sizes match, its bytes do not.
    {"EigenVH", nullptr, "A=[2] config=1 values=@A", StatusOk},
    {"EigenVH", nullptr, "A=[0,-1;1,0] config=1 vectors=@A", StatusOk},
    {"GenEigenVH", nullptr, "A=[2,1;0,1] B=[1,0;0,1] config=1 vectors=@B", StatusOk},
    {"SymEigenVH", nullptr, "A=0x2 config=9", StatusEmptyInput},
    {"SymEigenVH", nullptr, "A=2x0", StatusNotSquare},
    {"SymEigenVH", nullptr, "A=2x2 config=-1", StatusBadOption},
    {"SymEigenVH", nullptr, "A=[1,nan;0,1]", StatusNotFinite},  // the unread triangle is scanned too
    {"SymEigenVH", "d", "A=[-below]", StatusNotFinite},
    {"SymEigenVH", "s", "A=[-below]", StatusOk},
    {"SymEigenVH", nullptr, "A=[nan] realWork=null intWork=null", StatusNotFinite},
    {"SymEigenVH", nullptr, "A=3x3:indef config=1", StatusOk},
    {"HermEigenVH", nullptr, "A=0x2 config=9", StatusEmptyInput},
    {"HermEigenVH", nullptr, "A=2x2 config=2", StatusBadOption},
    {"HermEigenVH", nullptr, "A=[1,nanj;0,1]", StatusNotFinite},
    {"HermEigenVH", "z", "A=[1,0;-belowj,1] config=1", StatusNotFinite},
    {"HermEigenVH", "c", "A=[1,0;-belowj,1] config=1", StatusOk},
    {"HermEigenVH", nullptr, "A=[inf] complexWork=null realWork=null intWork=null", StatusNotFinite},
    {"HermEigenVH", nullptr, "A=3x3:indef config=1", StatusOk},
    {"GenEigenVH", nullptr, "A=2x3 B=0x0 config=9", StatusEmptyInput},
    {"GenEigenVH", nullptr, "A=3x0 B=3x3", StatusEmptyInput},
    {"GenEigenVH", nullptr, "A=2x3 B=3x3 config=9", StatusNotSquare},
    {"GenEigenVH", nullptr, "A=2x2 B=3x2 config=9", StatusNotSquare},
    {"GenEigenVH", nullptr, "A=2x2 B=3x3 config=9", StatusPairSizeMismatch},
    {"GenEigenVH", nullptr, "A=[nan] B=[1] config=9", StatusBadOption},
    {"GenEigenVH", nullptr, "A=!40000x40000 B=!40000x40000 config=1", StatusOutOfMemory},
    {"GenEigenVH", nullptr, "A=[1,0;0,1] B=[1,inf;0,1]", StatusNotFinite},
    {"GenEigenVH", nullptr, "A=[big] B=[1] config=1", StatusNotFinite},
    {"GenEigenVH", "dz", "A=[1] B=[-below]", StatusNotFinite},
    {"GenEigenVH", "sc", "A=[1] B=[-below]", StatusOk},
    {"GenEigenVH", "cz", "A=[1] B=[nanj]", StatusNotFinite},
    {"GenEigenVH", nullptr, "A=[1] B=[nan] work=null realWork=null", StatusNotFinite},
    {"GenEigenVH", "sd", "realWork=2:rand", StatusOk},
    {"GenEigenVH", nullptr, "A=[1,0;0,1] B=[1,0;0,0] config=1", StatusOk},

    {"QRH", nullptr, "A=0x3", StatusEmptyInput},
    {"QRH", nullptr, "A=3x0 size=7", StatusEmptyInput},
    {"QRH", nullptr, "A=null", StatusEmptyInput},
    {"QRH", nullptr, "A=[nan,1] size=3", StatusBadOption},
    {"QRH", nullptr, "A=!40000x2 size=0", StatusOutOfMemory},  // Q is sized before A is read
    {"QRH", nullptr, "A=[1,inf;0,1]", StatusNotFinite},
    {"QRH", nullptr, "A=[1,-big;0,1] pivoting=0", StatusNotFinite},
    {"QRH", "cz", "A=[1,nanj] pivoting=0 size=2", StatusNotFinite},
    {"QRH", nullptr, "A=[below,1] pivoting=0 size=2", StatusOk},
    {"QRH", nullptr, "A=[nan] work=null", StatusNotFinite},
    {"QRH", nullptr, "pivoting=0 work=null", StatusKernelError},
    {"QRH", nullptr, "A=3x5 pivoting=0 size=1", StatusOk},
    {"QRH", nullptr, "A=5x3 pivoting=0 size=2", StatusOk},
    {"QRH", nullptr, "A=5x3 size=0", StatusOk},
    {"SchurH", nullptr, "A=0x3", StatusEmptyInput},
    {"SchurH", nullptr, "A=0x0 ordering=9", StatusEmptyInput},
    {"SchurH", nullptr, "A=3x0", StatusNotSquare},
    {"SchurH", nullptr, "A=2x3 ordering=9", StatusNotSquare},
    {"SchurH", nullptr, "A=[nan] ordering=5", StatusBadOption},
    {"SchurH", nullptr, "A=[1,inf;0,1]", StatusNotFinite},
    {"SchurH", nullptr, "A=[1,0;-big,1] vectors=0 ordering=2", StatusNotFinite},
    {"SchurH", "cz", "A=[1,nanj;0,1]", StatusNotFinite},
    {"SchurH", nullptr, "A=[below,0;0,1] ordering=1", StatusOk},
    {"SchurH", nullptr, "A=[nan] work=null", StatusNotFinite},
    {"SchurH", nullptr, "ordering=0 iwork=null", StatusKernelError},  // required on every path
    {"SchurH", nullptr, "A=[0,-1;1,0] ordering=4", StatusOk},
    {"SchurH", nullptr, "A=6x6 ordering=1 vectors=0", StatusOk},
    {"SchurH", nullptr, "A=6x6 ordering=3", StatusOk},
    {"QZH", nullptr, "A=0x3 B=3x3", StatusEmptyInput},
    {"QZH", nullptr, "A=3x3 B=3x0 ordering=9", StatusEmptyInput},
    {"QZH", nullptr, "A=2x3 B=0x0", StatusEmptyInput},
    {"QZH", nullptr, "A=2x3 B=3x3 ordering=9", StatusNotSquare},
    {"QZH", nullptr, "A=3x3 B=3x2", StatusNotSquare},
    {"QZH", nullptr, "A=2x2 B=3x3 ordering=9", StatusPairSizeMismatch},
    {"QZH", nullptr, "A=[nan] B=[1] ordering=5", StatusBadOption},
    {"QZH", nullptr, "A=[1,inf;0,1] B=2x2", StatusNotFinite},
    {"QZH", nullptr, "A=2x2 B=[1,0;0,-big] vectors=0 ordering=1", StatusNotFinite},
    {"QZH", "cz", "A=2x2 B=[1,nanj;0,1]", StatusNotFinite},
    {"QZH", nullptr, "A=[below] B=[1] ordering=1", StatusOk},
    {"QZH", nullptr, "A=[nan] B=[1] work=null", StatusNotFinite},
    {"QZH", nullptr, "iwork=null", StatusKernelError},  // required on every path
    {"QZH", nullptr, "A=[1,2;0,0] B=[3,4;0,0]", WarnZeroPencil},
    {"QZH", nullptr, "A=[1,2;0,0] B=[3,4;0,0] vectors=0 ordering=3", WarnZeroPencil},
    {"QZH", nullptr, "A=[1,0;0,1] B=[1,0;0,0] ordering=4", StatusOk},
    {"QZH", nullptr, "A=[0,-1;1,0] B=2x2:hpd ordering=2", StatusOk},
};

TEST(Contract, FamilyStatusesInCheckOrder) {
  for (const Row& row : kRows) {
    bool found = false;
    ForEachExport([&](const ExportEntry& e) {
      if (std::string(e.op) != row.op || (row.letters && !std::strchr(row.letters, e.letter))) return;
      found = true;
      SCOPED_TRACE(row.args);
      Call c(e, row.args);
      EXPECT_EQ(c.Run(), row.status);
      c.ExpectContract();
    });
    EXPECT_TRUE(found) << row.op;
  }
}

}  // namespace
}  // namespace qt
