// The finiteness scan that guards the solvers' inputs, alone and fused with the copy the
// kernel needs, against the kernel's own copy of the same n x n elements.
#include <benchmark/benchmark.h>

#include <complex>
#include <vector>

#include "frame/finite_scan.h"
#include "kernel/blas.h"
#include "support/host_array.h"

namespace {

template <class T>
void BM_scan(benchmark::State& state) {
  const int64_t m = state.range(0) * state.range(0);
  const auto a = qt::RandomValues<T>(size_t(m), 31);
  for (auto _ : state) benchmark::DoNotOptimize(ql::AllAccepted(a.data(), m));
}

template <class T>
void BM_copy_scan(benchmark::State& state) {
  const int64_t m = state.range(0) * state.range(0);
  const auto a = qt::RandomValues<T>(size_t(m), 31);
  std::vector<T> b(a.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(ql::CopyAccepted(a.data(), m, b.data()));
    benchmark::ClobberMemory();
  }
}

template <class T>
void BM_direct_copy(benchmark::State& state) {
  const int64_t m = state.range(0) * state.range(0);
  const auto a = qt::RandomValues<T>(size_t(m), 31);
  std::vector<T> b(a.size());
  for (auto _ : state) {
    ql::kernel::copy(static_cast<blasint>(m), a.data(), 1, b.data(), 1);
    benchmark::ClobberMemory();
  }
}

#define QL_SCAN_BENCH(T)                                                        \
  BENCHMARK_TEMPLATE(BM_scan, T)->Arg(4)->Arg(16)->Arg(256)->Arg(1024);          \
  BENCHMARK_TEMPLATE(BM_copy_scan, T)->Arg(4)->Arg(16)->Arg(256)->Arg(1024);     \
  BENCHMARK_TEMPLATE(BM_direct_copy, T)->Arg(4)->Arg(16)->Arg(256)->Arg(1024)
QL_SCAN_BENCH(float);
QL_SCAN_BENCH(double);
QL_SCAN_BENCH(std::complex<double>);

}  // namespace
