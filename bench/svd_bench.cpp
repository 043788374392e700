// dSVDH (full vectors) against a direct dgesdd on the same data.
//
// The direct side keeps A column-major and copies it into the kernel's buffer with
// memcpy every iteration (gesdd destroys its input); its workspace is queried once,
// outside the loop, as a caller with its own buffers would. The export gets host outputs
// that already have the right sizes; its two work handles start empty and are sized and
// emptied by every call, as a host would see them. The export factors Aᵀ (its row-major
// block as the kernel reads it), which costs the same as A.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "kernel/lapack_svd.h"
#include "support/host_array.h"

namespace {

std::vector<double> Matrix(int n) { return qt::RandomValues<double>(size_t(n) * n, 31); }

void BM_dSVDH_full(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Matrix(n)), u = qt::Mat<double>(n, n), v = qt::Mat<double>(n, n);
  auto s = qt::Vec(std::vector<double>(n));
  auto work = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  for (auto _ : state) {
    if (dSVDH(a, 0, QuarzSVDVectorsFull, u, s, v, work, nullptr, iwork) != StatusOk) state.SkipWithError("dSVDH failed");
    benchmark::DoNotOptimize(v.data()[0]);
  }
}

void BM_direct_dgesdd_full(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a = Matrix(n);  // any layout: the same values, read column-major
  std::vector<double> copy(a.size()), u(a.size()), vt(a.size()), s(n);
  std::vector<int> iwork(8 * size_t(n));
  double query;
  if (ql::kernel::gesdd('A', n, n, copy.data(), n, s.data(), u.data(), n, vt.data(), n, &query, -1, nullptr,
                        iwork.data()) != 0) {
    state.SkipWithError("query failed");
  }
  std::vector<double> work(static_cast<size_t>(query) + 1);
  for (auto _ : state) {
    std::memcpy(copy.data(), a.data(), sizeof(double) * a.size());
    if (ql::kernel::gesdd('A', n, n, copy.data(), n, s.data(), u.data(), n, vt.data(), n, work.data(),
                          static_cast<int>(work.size()), nullptr, iwork.data()) != 0) {
      state.SkipWithError("gesdd failed");
    }
    benchmark::DoNotOptimize(vt[0]);
  }
}

BENCHMARK(BM_dSVDH_full)->Arg(4)->Arg(16)->Arg(512)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dgesdd_full)->Arg(4)->Arg(16)->Arg(512)->Unit(benchmark::kMicrosecond);

}  // namespace
