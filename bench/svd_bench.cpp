// dSVDH (full vectors), dInvMtrxH (general), dLSEqH and dLSEqSVH (the divide-and-conquer driver)
// against direct dgesdd, dgetrf + dgetri and dgelsd calls on the same data.
//
// The direct sides keep their data column-major and copy it into the kernel's buffer
// with memcpy every iteration (the kernels destroy their input); their workspaces are
// queried once, outside the loop, as a caller with its own buffers would. The exports
// get host outputs that already have the right sizes; their work handles start empty and
// are sized and emptied by every call, as a host would see them. The SVD export factors
// Aᵀ (its row-major block as the kernel reads it), which costs the same as A; the inverse
// export works in place, so each iteration first copies A back into its host array.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "kernel/lapack.h"
#include "kernel/lapack_lstsq.h"
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

// Diagonally dominant: far from singular at every size.
std::vector<double> Invertible(int n) {
  std::vector<double> a = Matrix(n);
  for (int i = 0; i < n; ++i) a[size_t(i) * n + i] += n;
  return a;
}

void BM_dInvMtrxH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a0 = Invertible(n);
  auto a = qt::Mat<double>(n, n);
  auto value = qt::Vec<double>({});
  auto pivot = qt::Vec<int32_t>({});
  for (auto _ : state) {
    std::memcpy(a.data(), a0.data(), sizeof(double) * a0.size());
    if (dInvMtrxH(a, QuarzLinEqMatrixGeneral, value, pivot) != StatusOk) state.SkipWithError("dInvMtrxH failed");
    benchmark::DoNotOptimize(a.data()[0]);
  }
}

void BM_direct_dgetrf_dgetri(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a0 = Invertible(n);
  std::vector<double> a(a0.size());
  std::vector<int> ipiv(n);
  double query;
  if (ql::kernel::getri(n, a.data(), n, ipiv.data(), &query, -1) != 0) state.SkipWithError("query failed");
  std::vector<double> work(static_cast<size_t>(query) + 1);
  for (auto _ : state) {
    std::memcpy(a.data(), a0.data(), sizeof(double) * a0.size());
    if (ql::kernel::getrf(n, n, a.data(), n, ipiv.data()) != 0 ||
        ql::kernel::getri(n, a.data(), n, ipiv.data(), work.data(), static_cast<int>(work.size())) != 0) {
      state.SkipWithError("getrf/getri failed");
    }
    benchmark::DoNotOptimize(a[0]);
  }
}

// An m x n least-squares problem with one right-hand side; the default tolerance
// selects the driver.
void BM_dLSEqH(benchmark::State& state) {
  const int m = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1));
  auto a = qt::Mat(m, n, qt::RandomValues<double>(size_t(m) * n, 41));
  auto y = qt::Vec(qt::RandomValues<double>(m, 42)), x = qt::Vec(std::vector<double>(n));
  auto work = qt::Vec<double>({}), refineWork = qt::Vec<double>({}), values = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  for (auto _ : state) {
    if (dLSEqH(a, y, -1.0, x, work, nullptr, iwork, refineWork, values) != StatusOk) state.SkipWithError("dLSEqH failed");
    benchmark::DoNotOptimize(x.data()[0]);
  }
}

// The same problem through the export that also returns the singular values and rank.
void BM_dLSEqSVH(benchmark::State& state) {
  const int m = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1));
  auto a = qt::Mat(m, n, qt::RandomValues<double>(size_t(m) * n, 41));
  auto y = qt::Mat(m, 1, qt::RandomValues<double>(m, 42)), x = qt::Mat<double>(n, 1);
  auto s = qt::Vec(std::vector<double>(std::min(m, n)));
  auto work = qt::Vec<double>({}), refineWork = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  int32_t rank = 0;
  for (auto _ : state) {
    if (dLSEqSVH(a, y, -1.0, x, s, &rank, work, iwork, refineWork) != StatusOk) {
      state.SkipWithError("dLSEqSVH failed");
    }
    benchmark::DoNotOptimize(x.data()[0]);
  }
}

void BM_direct_dgelsd(benchmark::State& state) {
  const int m = static_cast<int>(state.range(0)), n = static_cast<int>(state.range(1));
  const std::vector<double> a0 = qt::RandomValues<double>(size_t(m) * n, 41), y = qt::RandomValues<double>(m, 42);
  const int big = std::max(m, n);
  std::vector<double> a(a0.size()), b(big), s(std::min(m, n));
  const double rcond = big * 2.220446049250313e-16;
  int rank, iquery = 0;
  double query;
  if (ql::kernel::gelsd(m, n, 1, a.data(), m, b.data(), big, s.data(), rcond, &rank, &query, -1, nullptr, &iquery) != 0) {
    state.SkipWithError("query failed");
  }
  std::vector<double> work(static_cast<size_t>(query) + 1);
  std::vector<int> iwork(std::max(iquery, 1));
  for (auto _ : state) {
    std::memcpy(a.data(), a0.data(), sizeof(double) * a0.size());
    std::memcpy(b.data(), y.data(), sizeof(double) * m);
    if (ql::kernel::gelsd(m, n, 1, a.data(), m, b.data(), big, s.data(), rcond, &rank, work.data(),
                          static_cast<int>(work.size()), nullptr, iwork.data()) != 0) {
      state.SkipWithError("gelsd failed");
    }
    benchmark::DoNotOptimize(b[0]);
  }
}

BENCHMARK(BM_dSVDH_full)->Arg(4)->Arg(16)->Arg(512)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dgesdd_full)->Arg(4)->Arg(16)->Arg(64)->Arg(256)->Arg(512)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_dInvMtrxH)->Arg(4)->Arg(16)->Arg(1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dgetrf_dgetri)->Arg(4)->Arg(16)->Arg(1024)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_dLSEqH)->Args({4, 4})->Args({16, 16})->Args({1000, 200})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_dLSEqSVH)
    ->Args({4, 4})
    ->Args({16, 16})
    ->Args({64, 64})
    ->Args({256, 256})
    ->Args({1000, 200})
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dgelsd)->Args({64, 64})->Args({256, 256})->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dgelsd)->Args({4, 4})->Args({16, 16})->Args({1000, 200})->Unit(benchmark::kMicrosecond);

}  // namespace
