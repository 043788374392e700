#include "kernel/entries.h"

#include <atomic>

namespace ql::kernel {

#define QL_KERNEL_ENTRY(name) decltype(&::name) name = nullptr;
#include "kernel/entries.inc"
#undef QL_KERNEL_ENTRY

void (*thread_free_buffers)() = nullptr;

namespace {
// Written at attach and detach, which the loader runs before and after every call.
std::atomic<bool> g_bound{false};
}  // namespace

void UnbindEntries() {
  g_bound.store(false, std::memory_order_release);
#define QL_KERNEL_ENTRY(name) name = nullptr;
#include "kernel/entries.inc"
#undef QL_KERNEL_ENTRY
  thread_free_buffers = nullptr;
}

const char* BindEntries(void* (*lookup)(void* context, const char* symbol), void* context) {
  UnbindEntries();
  // The kernel's symbols are functions; the object-to-function pointer conversion is the
  // one every dynamic loader interface relies on.
#define QL_KERNEL_ENTRY(name)                                    \
  if (void* p = lookup(context, #name)) {                        \
    name = reinterpret_cast<decltype(&::name)>(p);               \
  } else {                                                       \
    UnbindEntries();                                             \
    return #name;                                                \
  }
#include "kernel/entries.inc"
#undef QL_KERNEL_ENTRY
  thread_free_buffers = reinterpret_cast<void (*)()>(lookup(context, "MKL_Thread_Free_Buffers"));
  g_bound.store(true, std::memory_order_release);
  return nullptr;
}

bool EntriesBound() { return g_bound.load(std::memory_order_acquire); }

}  // namespace ql::kernel
