// The contract every export keeps, driven by the export list: statuses in their check
// order, outputs emptied and scalar results set to their failure value after an error,
// work handles empty after every return, inputs left as they were, handles passed twice,
// sizes too large for the host, every refused host resize, and no host memory left
// behind. Numerical values are the oracle suite's business, not this file's.
#include <gtest/gtest.h>
#include <unistd.h>

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
      // An in-place array that is missing reads as empty; an optional work handle is
      // either needed on the default path or not touched (the family rows pin down which
      // paths need it); anything else the operation has to write is a missing required
      // handle.
      if (r == Role::Inout) {
        EXPECT_LT(s, 0);
      } else if (e.args[k].optional) {
        if (s != StatusKernelError) {
          EXPECT_EQ(s, Call(e, "").Run());
        }
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
// before anything reads it (the block behind it holds one element), unless the operation
// needs it square and it is not: then the operation's own shape check answers first.
TEST(Contract, InputsClaimingMoreThanAHostArrayHolds) {
  ForEachExport([](const ExportEntry& e) {
    for (int k = 0; k < e.nargs; ++k) {
      if (e.args[k].rank != 2 || (e.args[k].role != Role::In && e.args[k].role != Role::Inout)) continue;
      SCOPED_TRACE(e.args[k].name);
      Call c(e, std::string(e.args[k].name) + "=!50000x50000");
      EXPECT_EQ(c.Run(), StatusOutOfMemory);
      c.ExpectContract();
      if (!e.args[k].square) continue;
      const std::string huge = std::string(e.args[k].name) + "=!65536x32768";
      Call wide(e, huge);
      EXPECT_EQ(wide.Run(), StatusNotSquare);
      wide.ExpectContract();
      // Also when a written handle is the same handle, which makes the frame copy it.
      for (int j = 0; j < e.nargs; ++j) {
        if (!IsWritten(e.args[j].role) || e.args[k].role != Role::In) continue;
        Call shared(e, huge + " " + e.args[j].name + "=@" + e.args[k].name);
        EXPECT_EQ(shared.Run(), StatusNotSquare);
        break;
      }
    }
  });
}

// Runs `call`, returning what it wrote to standard output and standard error.
template <class Call>
std::string Captured(Call call) {
  std::fflush(stdout);
  std::fflush(stderr);
  FILE* sink = std::tmpfile();
  const int out = dup(1), err = dup(2);
  dup2(fileno(sink), 1);
  dup2(fileno(sink), 2);
  call();
  std::fflush(stdout);
  std::fflush(stderr);
  dup2(out, 1);
  dup2(err, 2);
  close(out);
  close(err);
  std::string text(static_cast<size_t>(std::ftell(sink)), '\0');
  std::rewind(sink);
  text.resize(std::fread(text.data(), 1, text.size(), sink));
  std::fclose(sink);
  return text;
}

// Zero sizes with zero leading dimensions, in both layouts and both checking modes: the
// kernel refuses such a leading dimension even for an empty operand, and reports it on
// the standard streams, so a call that reached it would print.
TEST(Contract, KoblasZeroSizesNeverReachTheKernelsArgumentCheck) {
  ForEachExport([](const ExportEntry& e) {
    if (std::strncmp(e.name, "koblas_", 7) != 0) return;
    std::string lds;
    std::vector<std::string> sizes;
    for (int k = 0; k < e.nargs; ++k) {
      const std::string name = e.args[k].name;
      if (name == "m" || name == "n" || name == "k") sizes.push_back(name);
      if (name.rfind("ld", 0) == 0) lds += " " + name + "=0";
    }
    for (const char* layout : {"101", "102"}) {
      for (const char* check : {"0", "1"}) {
        for (const std::string& size : sizes) {
          const std::string args = size + "=0" + lds + " layout=" + layout + " check=" + check;
          SCOPED_TRACE(args);
          Call c(e, args);
          EXPECT_EQ(Captured([&] { c.Run(); }), "");
          c.ExpectContract();
        }
      }
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
          // type holds what it holds without the sharing. An in-place array starts from
          // the shared block, which holds its own default elements only at the same rank.
          EXPECT_EQ(s, expected);
          const bool sameStart = e.args[j].role != Role::Inout || e.args[j].rank == e.args[i].rank;
          if (e.args[j].role != Role::Work && e.args[j].code == e.args[i].code && sameStart) {
            EXPECT_EQ(c.Output(j), clean.Output(j));
          }
        }
      }
    }
  });
}

// Refuses host resizes of a valid call of every export: `refuse(k)` arranges for the k-th
// resize (or every one from the k-th on) to fail, for each k up to the number of resizes
// the call makes. A refused resize is StatusOutOfMemory, unless only the final emptying
// of a work handle was refused: then the call stands with the same results. Either way
// the outputs, work handles and host memory are left as the contract says. Returns the
// number of refusing calls made.
template <class Refuse>
int64_t SweepRefusedResizes(Refuse refuse) {
  int64_t calls = 0;
  ForEachExport([&](const ExportEntry& e) {
    Call clean(e, "");
    const int64_t before = KortResizeCount();
    const int32_t expected = clean.Run();
    const int64_t total = KortResizeCount() - before;
    for (int64_t k = 1; k <= total; ++k) {
      SCOPED_TRACE("refusing resize " + std::to_string(k));
      ++calls;
      Call c(e, "");
      refuse(k);
      const int64_t start = KortResizeCount();
      const int32_t s = c.Run();
      const bool reached = KortResizeCount() - start >= k;
      refuse(0);
      EXPECT_TRUE(reached);
      c.ExpectContract();
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
  return calls;
}

TEST(Contract, EveryRefusedResize) {
  const int64_t refused = SweepRefusedResizes(KortFailResizeAt);
  // Every export with an array output sizes it through the host at least once.
  EXPECT_GE(refused, int64_t{std::size(kExportTable)} / 2);
  std::printf("refused %lld host resizes over %zu exports\n", static_cast<long long>(refused), std::size(kExportTable));
}

// A host that runs out of memory stays out: from the k-th resize on every resize is
// refused, including the ones the clean-up makes to empty the outputs and work handles.
// Those must still read as empty with sizes 0 and leave no host memory behind.
TEST(Contract, EveryResizeRefusedFromOneOn) {
  const int64_t sweeps = SweepRefusedResizes(KortFailResizeFrom);
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
#include "statuses/vector.inc"
#include "statuses/products.inc"
#include "statuses/factor.inc"
#include "statuses/linear_equations.inc"
#include "statuses/determinant.inc"
#include "statuses/svd.inc"
#include "statuses/condition.inc"
#include "statuses/eigen.inc"
#include "statuses/qr_schur_qz.inc"
#include "statuses/koblas.inc"
#include "statuses/least_squares.inc"
#include "statuses/matrix_power.inc"
#include "statuses/matfun.inc"
#include "statuses/fit.inc"
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
