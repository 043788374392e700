// libFuzzer target over the C ABI: each input picks one export of the list and builds
// every argument from the fuzzer's bytes (missing handles, handles passed twice, shapes
// negative, empty, tall, wide or claiming more than a host array holds, blocks holding
// more than their sizes read, NaN, infinities, largest finite values, denormals, options
// outside their tables, null result pointers). A run fails on a crash, a sanitizer
// report, a status outside the documented set, a broken frame promise (outputs emptied,
// work handles empty, scalar results NaN, inputs unchanged), host memory left behind, or
// any illegal argument the kernel reports through xerbla.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string>

#include <lapack.h>

#include "support/call_builder.h"

namespace {

const std::string* g_current = nullptr;  // the call being run, for the reports
bool g_self_check = false;
int g_xerbla_calls = 0;

constexpr int32_t kDocumented[] = {
    StatusOk, StatusOutOfMemory, StatusSizeMismatch, StatusEmptyInput, StatusBadDimension,
    StatusParameterTooSmall, StatusBlasArgument, StatusInnerDimMismatch, StatusNotSquare,
    StatusSingular, StatusFitData, StatusArrayTooSmall, StatusBlasShape, StatusBadOption,
    StatusNoConvergence, StatusNotFinite, StatusPairSizeMismatch, StatusNotPositiveDefinite,
    StatusReorderFailed, StatusReorderInexact, StatusNormParamNaN, StatusZeroParameter,
    StatusKernelError, WarnRankDeficient, WarnSingular, WarnZeroPencil, WarnSqrtInexact,
    WarnComplexLogarithm};

[[noreturn]] void Fail(const std::string& what) {
  std::fprintf(stderr, "FINDING: %s\n  call: %s\n", what.c_str(), g_current ? g_current->c_str() : "(none)");
  std::abort();
}

const char* const kTokens[] = {"0", "1", "-1", "2.5", "-0", "1e-3", "nan", "-nan", "inf", "-inf", "big", "-big",
                               "below", "-below", "1e-310", "4.9e-324", "1e-40", "1.4e-45", "3j", "-bigj", "nanj", "1e30"};
const char* const kFills[] = {"hpd", "rand", "sing", "indef", "zero"};
const int32_t kDims[] = {-3, -1, 0, 1, 1, 2, 2, 3, 3, 4, 5, 8};
const char* const kHuge[] = {"!50000x50000", "!2147483647x2", "!2x1073741824", "!65536x32768", "!46341x46341"};
const int32_t kInts[] = {-2, -1, 0, 1, 2, 3, 4, 5, 8, 46341, 65536, INT32_MIN, INT32_MAX};

template <size_t N, class T>
T Pick(FuzzedDataProvider& in, const T (&set)[N]) {
  return set[in.ConsumeIntegralInRange<size_t>(0, N - 1)];
}

// Sizes "r" or "rxc"; never two negative sizes, whose product would claim elements.
std::string Dims(FuzzedDataProvider& in, int rank, int32_t* out) {
  out[0] = Pick(in, kDims);
  out[1] = rank == 2 ? Pick(in, kDims) : 1;
  if (out[0] < 0 && out[1] < 0) out[1] = 0;
  return rank == 2 ? std::to_string(out[0]) + "x" + std::to_string(out[1]) : std::to_string(out[0]);
}

std::string HandleSpec(FuzzedDataProvider& in, const qt::ExportEntry& e, int k) {
  const qt::ArgSpec& a = e.args[k];
  switch (in.ConsumeIntegral<uint8_t>() % 16) {
    case 6: return "null";
    case 7: {  // the same handle as an earlier one
      const int j = in.ConsumeIntegralInRange<int>(0, k);
      return j < k && qt::IsHandle(e.args[j].role) && a.rank == e.args[j].rank ? "@" + std::string(e.args[j].name) : "";
    }
    case 8:
    case 9: {
      int32_t d[2];
      return Dims(in, a.rank, d) + ":" + Pick(in, kFills);
    }
    case 10:
    case 11: {  // explicit elements
      const int rows = a.rank == 2 ? in.ConsumeIntegralInRange<int>(1, 3) : 1, cols = in.ConsumeIntegralInRange<int>(1, 4);
      std::string m = "[";
      for (int i = 0; i < rows; ++i) {
        for (int j = 0; j < cols; ++j) m += std::string(j ? "," : (i ? ";" : "")) + Pick(in, kTokens);
      }
      return m + "]";
    }
    case 12: return a.rank == 2 ? Pick(in, kHuge) : "";  // more than any host array holds
    case 13: {  // a block holding at least what its sizes read
      int32_t block[2], read[2];
      std::string b = Dims(in, a.rank, block), r = Dims(in, a.rank, read);
      const int64_t holds = int64_t{std::max(block[0], 0)} * std::max(block[1], 0);
      if (read[0] >= 0 && read[1] >= 0 && int64_t{read[0]} * read[1] > holds) return b;
      return b + "/" + r + ":" + Pick(in, kFills);
    }
    case 14: {
      const int n = in.ConsumeIntegralInRange<int>(6, 16);
      return std::to_string(n) + (a.rank == 2 ? "x" + std::to_string(n) : "") + ":" + Pick(in, kFills);
    }
    default: return "";  // the valid default
  }
}

std::string ScalarSpec(FuzzedDataProvider& in, const qt::ArgSpec& a) {
  const uint8_t c = in.ConsumeIntegral<uint8_t>() % 8;
  switch (a.role) {
    case qt::Role::Int:
      if (a.pinned) return "";  // other values leave memory safety to the caller
      if (c < 3 && a.option >= 0) {
        const qt::OptionTable& t = qt::kOptionTables[a.option];
        return std::to_string(t.values[in.ConsumeIntegralInRange<int>(0, t.count - 1)]);
      }
      if (c < 5) return std::to_string(Pick(in, kInts));
      return "";
    case qt::Role::Uint: return c < 4 ? std::to_string(in.ConsumeIntegral<uint32_t>()) : "";
    case qt::Role::Real: return c < 5 ? Pick(in, kTokens) : "";
    case qt::Role::Module: return "null";
    // An int32 result read first is a limit (iterations): small values, or the run is
    // bounded only by the fuzzer's timeout.
    case qt::Role::IntOut: return c == 0 ? "null" : c < 4 ? std::to_string(in.ConsumeIntegralInRange<int>(-2, 1000)) : "";
    default: return c == 0 ? "null" : c < 3 ? Pick(in, kTokens) : "";
  }
}

}  // namespace

// LAPACK's and OpenBLAS's handler of illegal arguments: no call of ours may reach it.
extern "C" void xerbla_(const char* name, const int* info, size_t len) {
  ++g_xerbla_calls;
  if (!g_self_check) Fail("kernel argument error in " + std::string(name, len) + ", argument " + std::to_string(*info));
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The handler above must be the one the kernel calls, or the check means nothing.
  g_self_check = true;
  lapack_int m = -1, n = 2, lda = 1, info = 0, ipiv[2];
  double a[2] = {0, 0};
  LAPACK_dgetrf(&m, &n, a, &lda, ipiv, &info);
  g_self_check = false;
  if (g_xerbla_calls != 1 || info != -1) {
    std::fprintf(stderr, "xerbla_ is not interposed (calls %d, info %d)\n", g_xerbla_calls, int(info));
    std::abort();
  }
  g_xerbla_calls = 0;
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const qt::ExportEntry& e = qt::kExportTable[in.ConsumeIntegralInRange<size_t>(0, std::size(qt::kExportTable) - 1)];
  std::string argText;
  for (int k = 0; k < e.nargs; ++k) {
    const std::string v = qt::IsHandle(e.args[k].role) ? HandleSpec(in, e, k) : ScalarSpec(in, e.args[k]);
    if (!v.empty()) argText += std::string(e.args[k].name) + "=" + v + " ";
  }
  const std::string call = std::string(e.name) + " \"" + argText + "\"";
  g_current = &call;
  if (std::getenv("QUARZ_FUZZ_PRINT")) std::fprintf(stderr, "%s\n", call.c_str());
  const int64_t handles = qt::LiveHandles(), bytes = qt::LiveBytes();
  {
    qt::Call c(e, argText);
    const int32_t status = c.Run();
    if (std::find(std::begin(kDocumented), std::end(kDocumented), status) == std::end(kDocumented)) {
      Fail("undocumented status " + std::to_string(status));
    }
    const std::string broken = c.Violations();
    if (!broken.empty()) Fail("status " + std::to_string(status) + ", frame contract broken:\n" + broken);
  }
  if (qt::LiveHandles() != handles || qt::LiveBytes() != bytes) Fail("host handles or bytes left behind");
  g_current = nullptr;
  return 0;
}
