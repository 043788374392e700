// The benchmark process is the host, and its memory manager is glibc's malloc behind the
// reference runtime. Exports that take work handles grow them from empty and empty them
// again on every call; with glibc's default trimming, a multi-megabyte work block goes
// back to the system each time and the next call pays a page fault per 4 KiB regrowing
// it, a cost of the host's allocator rather than of the library. Unless
// QUARZ_BENCH_DEFAULT_MALLOC is set, freed memory is kept, as a host's own memory
// manager would keep its pool.
#include <malloc.h>

#include <cstdlib>

namespace {

const bool kTuned = [] {
  if (std::getenv("QUARZ_BENCH_DEFAULT_MALLOC")) return false;
  mallopt(M_MMAP_THRESHOLD, 256 << 20);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  return true;
}();

}  // namespace
