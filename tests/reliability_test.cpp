// Every export of the list called from many host threads at once, while the host module
// switches under them: each call must give, bit for bit, what the same call gives alone.
// Shared state that a call could leak into another (a workspace kept between calls, a
// static buffer, a binding read half-updated) shows up as a differing result.
#include <dlfcn.h>

#include <atomic>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/call_builder.h"
#include "support/host_array.h"

namespace qt {
namespace {

struct Job {
  const ExportEntry* e;
  std::string argText;
  std::vector<unsigned char> expected;
};

// Valid defaults with every array input resized to n (square matrices, n-vectors):
// several block sizes per export, so that concurrent calls need different workspaces.
std::string Shaped(const ExportEntry& e, int n) {
  if (n == 4) return "";  // the builder's own defaults
  std::string argText;
  for (int k = 0; k < e.nargs; ++k) {
    const ArgSpec& a = e.args[k];
    if (a.role != Role::In && a.role != Role::Inout) continue;
    argText += std::string(a.name) + "=" + std::to_string(n) + (a.rank == 2 ? "x" + std::to_string(n) : "") + ":hpd ";
  }
  return argText;
}

std::vector<Job> SerialRun() {
  std::vector<Job> jobs;
  for (const ExportEntry& e : kExportTable) {
    for (int n : {1, 3, 4, 7}) {
      Call c(e, Shaped(e, n));
      c.Run();
      jobs.push_back({&e, Shaped(e, n), c.Results()});
    }
  }
  return jobs;
}

TEST(Reliability, ManyHostThreadsGetTheSerialResultsBitForBit) {
  void* kort = LinkedKort();
  ASSERT_NE(kort, nullptr);
  const int64_t handles = LiveHandles(), bytes = LiveBytes();
  const std::vector<Job> jobs = SerialRun();

  // At least 10^4 calls per thread, in whole rounds over the jobs.
  constexpr int kThreads = 8;
  constexpr size_t kCallsPerThread = 10000;
  const size_t rounds = (kCallsPerThread + jobs.size() - 1) / jobs.size();
  std::atomic<bool> stop{false};
  std::atomic<int64_t> calls{0}, differing{0};
  std::mutex m;
  std::string first;
  // The host switches between naming its runtime and leaving the library to find it.
  std::thread switcher([&] {
    for (int i = 0; !stop.load(); ++i) {
      SetKORTModule(i % 2 ? kort : nullptr);
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      // Each thread walks the jobs with its own stride, so different exports overlap.
      const size_t stride = size_t(2 * t + 1);
      for (size_t round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < jobs.size(); ++i) {
          const Job& job = jobs[(size_t(t) * 97 + i * stride) % jobs.size()];
          Call c(*job.e, job.argText);
          c.Run();
          ++calls;
          if (c.Results() != job.expected && differing++ == 0) {
            std::lock_guard<std::mutex> lock(m);
            first = std::string(job.e->name) + " \"" + job.argText + "\"";
          }
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  stop = true;
  switcher.join();
  SetKORTModule(nullptr);
  dlclose(kort);

  EXPECT_EQ(differing.load(), 0) << "first: " << first;
  EXPECT_EQ(calls.load(), int64_t{kThreads} * int64_t(rounds * jobs.size()));
  EXPECT_EQ(LiveHandles(), handles);
  EXPECT_EQ(LiveBytes(), bytes);
  std::printf("%d threads x %zu calls over %zu exports\n", kThreads, rounds * jobs.size(), std::size(kExportTable));
}

}  // namespace
}  // namespace qt
