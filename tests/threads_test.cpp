// The host calls exports on its own threads: concurrent calls share only the host
// binding, which may be re-resolved under them when the host switches modules.
#include <dlfcn.h>

#include <atomic>
#include <thread>

#include "support/host_array.h"

namespace qt {
namespace {

TEST(Threads, ConcurrentSolvesWhileTheHostModuleSwitches) {
  // The same runtime under two identities: found through the main program, and announced
  // by its own handle; every switch makes the next resize re-resolve.
  void* kort = dlopen("libkort.so", RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(kort, nullptr);
  std::atomic<bool> stop{false};
  std::thread switcher([&] {
    for (int i = 0; !stop.load(); ++i) SetKORTModule(i % 2 ? kort : nullptr);
  });

  std::atomic<int> bad{0};
  auto worker = [&](unsigned seed) {
    for (int iter = 0; iter < 150; ++iter) {
      const int n = 2 + static_cast<int>((seed + iter) % 30);
      auto av = RandomValues<double>(size_t(n) * n, seed * 1000 + iter);
      for (int i = 0; i < n; ++i) av[size_t(i) * n + i] += n;  // well conditioned
      auto yv = RandomValues<double>(n, seed * 7 + iter);
      auto a = Mat(n, n, av), y = Vec(yv), x = Vec<double>({});
      auto work = Vec<double>({});
      auto piv = Vec<int32_t>({});
      if (dLinEqH(a, y, 0, x, work, piv) != StatusOk || x.dim(0) != n || work.dim(0) != 0 || piv.dim(0) != 0) {
        ++bad;
        continue;
      }
      // Residual of the solve, relative to ||A|| ||x|| (max norms), in units of eps.
      double r = 0, an = 0, xn = 0;
      for (int i = 0; i < n; ++i) {
        double s = -yv[i];
        for (int j = 0; j < n; ++j) {
          s += av[size_t(i) * n + j] * x.data()[j];
          an = std::max(an, std::abs(av[size_t(i) * n + j]));
        }
        r = std::max(r, std::abs(s));
        xn = std::max(xn, std::abs(x.data()[i]));
      }
      if (r > 30 * n * an * xn * Eps<double>()) ++bad;
    }
  };
  std::vector<std::thread> workers;
  for (unsigned t = 1; t <= 3; ++t) workers.emplace_back(worker, t);
  for (auto& w : workers) w.join();
  stop = true;
  switcher.join();
  SetKORTModule(nullptr);
  dlclose(kort);
  EXPECT_EQ(bad.load(), 0);
}

}  // namespace
}  // namespace qt
