// For programs that call the library's kernel layer directly (benchmarks, internal
// tests): its entries are bound, at start-up, to the BLAS the program itself links.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/kernel_loading.h"
#include "kernel/entries.h"

namespace {

void* LinkedEntry(void*, const char* symbol) {
#define QL_KERNEL_ENTRY(name) \
  if (std::strcmp(symbol, #name) == 0) return reinterpret_cast<void*>(&::name);
#include "kernel/entries.inc"
#undef QL_KERNEL_ENTRY
  return nullptr;
}

const bool g_bound = [] {
  if (const char* missing = ql::kernel::BindEntries(LinkedEntry, nullptr)) {
    std::fprintf(stderr, "kernel entry %s not bound\n", missing);
    std::abort();
  }
  return true;
}();

}  // namespace

bool ql::KernelReady() noexcept { return g_bound && ql::kernel::EntriesBound(); }
