// dLinearFitH (unweighted least squares: sums, best fit and residue in one export)
// against the four kernel dot products that give its sums, on the same host arrays.
#include <benchmark/benchmark.h>

#include <vector>

#include "kernel/blas.h"
#include "support/host_array.h"

namespace {

struct FitData {
  explicit FitData(int n)
      : x(qt::Vec(qt::RandomValues<double>(n, 1))), y(qt::Vec(qt::RandomValues<double>(n, 2))), ones(size_t(n), 1.0) {}
  qt::HostArray<double> x, y;
  std::vector<double> ones;
};

void BM_dLinearFitH_least_squares(benchmark::State& state) {
  FitData d(static_cast<int>(state.range(0)));
  double slope, intercept, residue;
  for (auto _ : state) {
    int32_t iterations = 0;
    benchmark::DoNotOptimize(dLinearFitH(d.y, d.x, nullptr, &slope, &intercept, &residue,
                                         QuarzLinearFitMethodLeastSquares, 0, 0, &iterations, nullptr));
    benchmark::DoNotOptimize(slope);
  }
}

void BM_cblas_ddot_fit_sums(benchmark::State& state) {
  FitData d(static_cast<int>(state.range(0)));
  const int n = d.x.dim(0);
  const double *x = d.x.data(), *y = d.y.data(), *one = d.ones.data();
  for (auto _ : state) {
    double s[4] = {ql::kernel::dot(n, x, 1, one, 1), ql::kernel::dot(n, y, 1, one, 1), ql::kernel::dot(n, x, 1, x, 1),
                   ql::kernel::dot(n, x, 1, y, 1)};
    benchmark::DoNotOptimize(s);
  }
}

BENCHMARK(BM_dLinearFitH_least_squares)->Arg(16)->Arg(100000);
BENCHMARK(BM_cblas_ddot_fit_sums)->Arg(16)->Arg(100000);

}  // namespace
