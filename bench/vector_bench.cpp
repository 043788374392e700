// dDotProdH against cblas_ddot on the same host arrays.
#include <benchmark/benchmark.h>

#include "kernel/blas.h"
#include "support/host_array.h"

namespace {

struct DotData {
  explicit DotData(int n) : x(qt::Vec(qt::RandomValues<double>(n, 1))), y(qt::Vec(qt::RandomValues<double>(n, 2))) {}
  qt::HostArray<double> x, y;
};

void BM_dDotProdH(benchmark::State& state) {
  DotData d(static_cast<int>(state.range(0)));
  double r;
  for (auto _ : state) {
    benchmark::DoNotOptimize(dDotProdH(d.x, d.y, &r));
    benchmark::DoNotOptimize(r);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0) * 16);
}

void BM_cblas_ddot(benchmark::State& state) {
  DotData d(static_cast<int>(state.range(0)));
  const int n = d.x.dim(0);
  const double *x = d.x.data(), *y = d.y.data();
  for (auto _ : state) {
    double r = ql::kernel::dot(n, y, 1, x, 1);
    benchmark::DoNotOptimize(r);
  }
  state.SetBytesProcessed(state.iterations() * state.range(0) * 16);
}

BENCHMARK(BM_dDotProdH)->Arg(4)->Arg(1000000);
BENCHMARK(BM_cblas_ddot)->Arg(4)->Arg(1000000);

}  // namespace
