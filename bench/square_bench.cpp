// dLinEqH, dLUH and dDeterminantH against direct getrf / gesv calls on the same data.
//
// Every iteration of the direct side copies the matrix into its own column-major buffer
// with memcpy first (the kernel overwrites its input, and a copy is the least any caller
// must make), so both sides pay for one pass over A. The exports receive host outputs
// that already have the right sizes, so their output resizes cost nothing; their work
// handles start empty and are sized and emptied by every call, as a host would see it.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "best.h"
#include "kernel/lapack.h"
#include "support/host_array.h"

namespace {

// A well-conditioned n x n matrix and right-hand side.
struct System {
  explicit System(int n) : n(n), a(qt::RandomValues<double>(size_t(n) * n, 21)), y(qt::RandomValues<double>(n, 22)) {
    for (int i = 0; i < n; ++i) a[size_t(i) * n + i] += n;
  }
  int n;
  std::vector<double> a, y;
};

void BM_dLinEqH(benchmark::State& state) {
  const System s(static_cast<int>(state.range(0)));
  auto a = qt::Mat(s.n, s.n, s.a);
  auto y = qt::Vec(s.y), x = qt::Vec(std::vector<double>(s.n));
  auto value = qt::Vec<double>({});
  auto pivot = qt::Vec<int32_t>({});
  for (auto _ : state) {
    if (dLinEqH(a, y, 0, x, value, pivot) != StatusOk) state.SkipWithError("dLinEqH failed");
    benchmark::DoNotOptimize(x.data()[0]);
  }
}

void BM_direct_dgesv(benchmark::State& state) {
  const System s(static_cast<int>(state.range(0)));
  const int n = s.n;
  std::vector<double> work(size_t(n) * n), b(n);
  std::vector<int> ipiv(n);
  for (auto _ : state) {
    // The kernel solves with the transpose of the row-major block; that costs the same.
    std::memcpy(work.data(), s.a.data(), sizeof(double) * work.size());
    std::memcpy(b.data(), s.y.data(), sizeof(double) * n);
    if (ql::kernel::gesv(n, 1, work.data(), n, ipiv.data(), b.data(), n) != 0) state.SkipWithError("gesv failed");
    benchmark::DoNotOptimize(b[0]);
  }
}

void BM_dLUH(benchmark::State& state) {
  const System s(static_cast<int>(state.range(0)));
  const int n = s.n;
  auto a = qt::Mat(n, n, s.a), l = qt::Mat<double>(n, n), u = qt::Mat<double>(n, n);
  auto p = qt::Mat<int32_t>(n, n), piv = qt::Vec(std::vector<int32_t>(n));
  auto work = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  for (auto _ : state) {
    if (dLUH(a, l, u, p, piv, work, iwork) != StatusOk) state.SkipWithError("dLUH failed");
    benchmark::DoNotOptimize(u.data()[0]);
  }
}

void BM_direct_dgetrf(benchmark::State& state) {
  const System s(static_cast<int>(state.range(0)));
  const int n = s.n;
  std::vector<double> work(size_t(n) * n);
  std::vector<int> ipiv(n);
  for (auto _ : state) {
    std::memcpy(work.data(), s.a.data(), sizeof(double) * work.size());
    if (ql::kernel::getrf(n, n, work.data(), n, ipiv.data()) < 0) state.SkipWithError("getrf failed");
    benchmark::DoNotOptimize(work[0]);
  }
}

void BM_dDeterminantH(benchmark::State& state) {
  const System s(static_cast<int>(state.range(0)));
  auto a = qt::Mat(s.n, s.n, s.a);
  auto work = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  double r;
  for (auto _ : state) {
    if (dDeterminantH(a, 0, &r, work, iwork) != StatusOk) state.SkipWithError("dDeterminantH failed");
    benchmark::DoNotOptimize(r);
  }
}

BENCHMARK(BM_dLinEqH)->Arg(4)->Arg(16)->Arg(256)->Arg(1024)->Unit(benchmark::kMicrosecond)->ComputeStatistics("best", qb::Best);
BENCHMARK(BM_direct_dgesv)->Arg(4)->Arg(16)->Arg(256)->Arg(1024)->Unit(benchmark::kMicrosecond)->ComputeStatistics("best", qb::Best);
BENCHMARK(BM_dLUH)->Arg(16)->Arg(256)->Arg(1024)->Unit(benchmark::kMicrosecond)->ComputeStatistics("best", qb::Best);
BENCHMARK(BM_direct_dgetrf)->Arg(16)->Arg(256)->Arg(1024)->Unit(benchmark::kMicrosecond)->ComputeStatistics("best", qb::Best);
BENCHMARK(BM_dDeterminantH)->Arg(16)->Arg(256)->Arg(1024)->Unit(benchmark::kMicrosecond)->ComputeStatistics("best", qb::Best);

}  // namespace
