// The host calls exports on its own threads: concurrent calls share only the host
// binding, which may be re-resolved under them when the host switches modules.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <string>
#include <thread>

#include "support/host_array.h"

namespace qt {
namespace {

using CountFn = int64_t (*)();

// Two genuinely different runtimes, each counting the resizes it serves: the linked
// libkort.so and libkoffrt.so (the same source under the other runtime name) loaded from
// beside it, with a TLS index announced for the threads to name either in their slot.
// Announces "no index" again when done.
class TwoRuntimes {
 public:
  TwoRuntimes() {
    Dl_info info;
    if (!dladdr(reinterpret_cast<void*>(&KortResizeCount), &info) || !info.dli_fname) return;
    std::string dir = info.dli_fname;
    dir.erase(dir.find_last_of('/') + 1);
    kort_ = LinkedKort();
    koffrt_ = dlopen((dir + "libkoffrt.so").c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!kort_ || !koffrt_) return;
    kort_count_ = reinterpret_cast<CountFn>(dlsym(kort_, "KortResizeCount"));
    koffrt_count_ = reinterpret_cast<CountFn>(dlsym(koffrt_, "KortResizeCount"));
    if (pthread_key_create(&key_, nullptr) != 0) return;
    keyed_ = true;
    SetKORTTLSIndex(static_cast<uint32_t>(key_));
  }
  ~TwoRuntimes() {
    SetKORTTLSIndex(0xFFFFFFFFu);
    if (keyed_) pthread_key_delete(key_);
    if (koffrt_) dlclose(koffrt_);
    if (kort_) dlclose(kort_);
  }
  bool ok() const { return keyed_ && kort_count_ && koffrt_count_ && kort_count_ != koffrt_count_; }
  void* runtime(int which) const { return which ? koffrt_ : kort_; }
  int64_t served(int which) const { return which ? koffrt_count_() : kort_count_(); }
  // Names a runtime in the calling thread's slot.
  void Name(int which) const { pthread_setspecific(key_, runtime(which)); }

 private:
  void* kort_ = nullptr;
  void* koffrt_ = nullptr;
  CountFn kort_count_ = nullptr;
  CountFn koffrt_count_ = nullptr;
  pthread_key_t key_{};
  bool keyed_ = false;
};

// One resize per call: the output alternates between 2 x 1 and 1 x 2.
struct ResizingCall {
  HostArray<double> wide = Mat<double>(1, 2, {1, 2});
  HostArray<double> tall = Mat<double>(2, 1, {1, 2});
  HostArray<double> out = Mat<double>(0, 0);
  int calls = 0;
  bool operator()() { return dTransposeH(calls++ % 2 ? tall : wide, out) == StatusOk; }
};

TEST(Threads, EachThreadIsServedByTheRuntimeItsTlsSlotNames) {
  // Half the threads name libkort.so, half libkoffrt.so, all resizing at once: a binding
  // whose module and address can be read from two different writes sends some resizes
  // to the other runtime. Counts are checked per round, so misrouted resizes in the two
  // directions cannot hide each other by cancelling out.
  TwoRuntimes rt;
  ASSERT_TRUE(rt.ok());
  constexpr int kThreads = 8, kRounds = 20, kCallsPerRound = 12000;
  for (int round = 0; round < kRounds; ++round) {
    const int64_t before[2] = {rt.served(0), rt.served(1)};
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        rt.Name(t % 2);
        ResizingCall call;
        for (int i = 0; i < kCallsPerRound; ++i) {
          if (!call()) ++failed;
        }
      });
    }
    for (auto& t : threads) t.join();
    ASSERT_EQ(failed.load(), 0);
    const int64_t expected = int64_t{kThreads / 2} * kCallsPerRound;
    ASSERT_EQ(rt.served(0) - before[0], expected) << "libkort.so, round " << round;
    ASSERT_EQ(rt.served(1) - before[1], expected) << "libkoffrt.so, round " << round;
  }
}

}  // namespace
}  // namespace qt
