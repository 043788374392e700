// dSymEigenVH, dEigenVH and dGenEigenVH with eigenvectors against direct dsyevr /
// dgeev / dggev calls on the same data, in the same run.
//
// The direct side copies the matrix into its own buffer with memcpy on every iteration
// (the drivers overwrite their input) and reuses workspace it queried once before the
// loop: the least any caller pays. The exports get outputs of the right sizes and empty
// work handles, which every call sizes from a fresh query and empties again, as a host
// sees it; they also pay for turning the driver's eigenvectors into the row-major
// output (complex pairs for dEigenVH).
#include <benchmark/benchmark.h>

#include <complex>
#include <cstring>
#include <vector>

#include "kernel/lapack_eigen.h"
#include "support/host_array.h"

namespace {

using C = std::complex<double>;

// A random symmetric matrix (both triangles filled) and a random general one.
std::vector<double> Symmetric(int n) {
  std::vector<double> a = qt::RandomValues<double>(size_t(n) * n, 31);
  for (int i = 0; i < n; ++i) {
    for (int j = 0; j < i; ++j) a[size_t(j) * n + i] = a[size_t(i) * n + j];
  }
  return a;
}

void BM_dSymEigenVH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, Symmetric(n)), v = qt::Mat<double>(n, n);
  auto w = qt::Vec(std::vector<double>(n));
  auto work = qt::Vec<double>({});
  auto iwork = qt::Vec<int32_t>({});
  for (auto _ : state) {
    if (dSymEigenVH(a, QuarzEigenOutputVectors, w, v, work, iwork) != StatusOk) state.SkipWithError("dSymEigenVH failed");
    benchmark::DoNotOptimize(v.data()[0]);
  }
}

void BM_direct_dsyevr(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a = Symmetric(n);
  std::vector<double> copy(a.size()), z(a.size()), w(n);
  std::vector<int> isuppz(2 * size_t(n));
  int m;
  double qwork;
  int qiwork;
  ql::kernel::heevr('V', 'A', 'U', n, copy.data(), n, 0, 0, 0, 0, 0, &m, w.data(), z.data(), n, isuppz.data(), &qwork, -1,
                    nullptr, 0, &qiwork, -1);
  std::vector<double> work(static_cast<size_t>(qwork));
  std::vector<int> iwork(static_cast<size_t>(qiwork));
  for (auto _ : state) {
    std::memcpy(copy.data(), a.data(), sizeof(double) * a.size());
    if (ql::kernel::heevr('V', 'A', 'U', n, copy.data(), n, 0, 0, 0, 0, 0, &m, w.data(), z.data(), n, isuppz.data(),
                          work.data(), int(work.size()), nullptr, 0, iwork.data(), int(iwork.size())) != 0) {
      state.SkipWithError("dsyevr failed");
    }
    benchmark::DoNotOptimize(z[0]);
  }
}

void BM_dEigenVH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, qt::RandomValues<double>(size_t(n) * n, 32));
  auto v = qt::Mat<C>(n, n);
  auto w = qt::Vec(std::vector<C>(n));
  auto work = qt::Vec<double>({});
  for (auto _ : state) {
    if (dEigenVH(a, QuarzEigenOutputVectors, w, v, work, nullptr) != StatusOk) state.SkipWithError("dEigenVH failed");
    benchmark::DoNotOptimize(v.data()[0]);
  }
}

void BM_direct_dgeev(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a = qt::RandomValues<double>(size_t(n) * n, 32);
  std::vector<double> copy(a.size()), vl(a.size()), wr(n), wi(n);
  double qwork;
  ql::kernel::geev('V', 'N', n, copy.data(), n, wr.data(), wi.data(), vl.data(), n, nullptr, n, &qwork, -1, nullptr);
  std::vector<double> work(static_cast<size_t>(qwork));
  for (auto _ : state) {
    std::memcpy(copy.data(), a.data(), sizeof(double) * a.size());
    if (ql::kernel::geev('V', 'N', n, copy.data(), n, wr.data(), wi.data(), vl.data(), n, nullptr, n, work.data(),
                         int(work.size()), nullptr) != 0) {
      state.SkipWithError("dgeev failed");
    }
    benchmark::DoNotOptimize(vl[0]);
  }
}

// The pencil (A, B) of two random general matrices, right eigenvectors.
void BM_dGenEigenVH(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  auto a = qt::Mat(n, n, qt::RandomValues<double>(size_t(n) * n, 33));
  auto b = qt::Mat(n, n, qt::RandomValues<double>(size_t(n) * n, 34));
  auto v = qt::Mat<C>(n, n);
  auto w = qt::Vec(std::vector<C>(n));
  auto work = qt::Vec<double>({});
  for (auto _ : state) {
    if (dGenEigenVH(a, b, QuarzEigenOutputVectors, w, v, work, nullptr) != StatusOk) {
      state.SkipWithError("dGenEigenVH failed");
    }
    benchmark::DoNotOptimize(v.data()[0]);
  }
}

void BM_direct_dggev(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  const std::vector<double> a = qt::RandomValues<double>(size_t(n) * n, 33);
  const std::vector<double> b = qt::RandomValues<double>(size_t(n) * n, 34);
  std::vector<double> ac(a.size()), bc(b.size()), vl(a.size()), ar(n), ai(n), beta(n);
  double qwork;
  ql::kernel::ggev('V', 'N', n, ac.data(), n, bc.data(), n, ar.data(), ai.data(), beta.data(), vl.data(), n, nullptr, n,
                   &qwork, -1, nullptr);
  std::vector<double> work(static_cast<size_t>(qwork));
  for (auto _ : state) {
    std::memcpy(ac.data(), a.data(), sizeof(double) * a.size());
    std::memcpy(bc.data(), b.data(), sizeof(double) * b.size());
    if (ql::kernel::ggev('V', 'N', n, ac.data(), n, bc.data(), n, ar.data(), ai.data(), beta.data(), vl.data(), n,
                         nullptr, n, work.data(), int(work.size()), nullptr) != 0) {
      state.SkipWithError("dggev failed");
    }
    benchmark::DoNotOptimize(vl[0]);
  }
}

BENCHMARK(BM_dSymEigenVH)->Arg(64)->Arg(256)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dsyevr)->Arg(64)->Arg(256)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_dGenEigenVH)->Arg(4)->Arg(16)->Arg(64)->Arg(256)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dggev)->Arg(4)->Arg(16)->Arg(64)->Arg(256)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_dSymEigenVH)->Arg(4)->Arg(16)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dsyevr)->Arg(4)->Arg(16)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_dEigenVH)->Arg(4)->Arg(16)->Arg(500)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_direct_dgeev)->Arg(4)->Arg(16)->Arg(500)->Unit(benchmark::kMicrosecond);

}  // namespace
