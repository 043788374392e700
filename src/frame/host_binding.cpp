// Late binding of the host runtime's functions, written once for every platform: the
// TLS slot and announced module steps of the search, the records of resolved functions
// and the forwarders. What only the operating system answers (TLS values, the search
// among loaded modules, function addresses, unloads, the fatal message) comes from
// host_os.
#include "frame/host_binding.h"

#include <cstdio>
#include <new>

namespace ql {
namespace {

constexpr uint32_t kNoTlsIndex = 0xFFFFFFFFu;

std::atomic<void*> g_module{nullptr};
std::atomic<uint32_t> g_tls_index{kNoTlsIndex};
// Counts SetKORTModule/SetKORTTLSIndex calls: an announcement starts a fresh search.
std::atomic<uint32_t> g_announcements{0};

HostFunctionBinding<32> g_resize{{nullptr}, "NumericArrayResize"};
HostFunctionBinding<16> g_qsort{{nullptr}, "QSort"};

// The entry for `module` among the nodes from `from` up to (not including) `until` that
// are still trusted after `unloads` unloads. Entries are pushed newest first, so the walk
// ends at the first one made before them.
const BoundHostFunction* FindBound(const BoundHostFunction* from, const BoundHostFunction* until, void* module,
                                   uint64_t unloads) {
  for (const BoundHostFunction* b = from; b != until && b->unloads >= unloads; b = b->older) {
    if (b->module == module) return b;
  }
  return nullptr;
}

}  // namespace

void* LocateHostRuntime() {
  uint32_t index = g_tls_index.load(std::memory_order_relaxed);
  if (index != kNoTlsIndex) {
    if (void* m = host_os::TlsValue(index)) return m;
  }
  if (void* m = g_module.load(std::memory_order_relaxed)) return m;
  return host_os::SearchLoadedRuntime(g_announcements.load(std::memory_order_acquire));
}

// A module handle is taken to name the same module until a module is unloaded (on
// Windows, which does not track unloads, for the life of the process). Unloads are
// noticed on the search path, at an announcement, and before a function is looked up: a
// host that unloads a runtime, loads another that receives the same handle and names it
// only in a TLS slot, with no announcement and no search in between, would still be
// served from the old entry.
void* BindHostFunction(std::atomic<const BoundHostFunction*>& resolved, const char* name) {
  void* module = LocateHostRuntime();
  if (!module) host_os::Fatal("KORVOV.LIB was not called from a Korvo process.");
  uint64_t unloads = host_os::UnloadsSeen();
  const BoundHostFunction* seen = resolved.load(std::memory_order_acquire);
  if (const BoundHostFunction* b = FindBound(seen, nullptr, module, unloads)) return b->address;

  unloads = host_os::ObserveUnloads();
  void* address = host_os::FunctionAddress(module, name);
  if (!address) {
    char text[300];
    std::snprintf(text, sizeof text, "KORVOV.LIB could not locate \"%s\".", name);
    host_os::Fatal(text);
  }
  auto* node = new (std::nothrow) BoundHostFunction{module, address, unloads, seen};
  if (!node) return address;  // not remembered: the next call looks it up again
  while (!resolved.compare_exchange_weak(node->older, node, std::memory_order_release,
                                         std::memory_order_acquire)) {
    // Others published meanwhile; if one of them resolved this module, keep one entry.
    if (const BoundHostFunction* b = FindBound(node->older, seen, module, unloads)) {
      delete node;
      return b->address;
    }
    seen = node->older;
  }
  return address;
}

int32_t HostResize(int32_t typeCode, int32_t numDims, ArrayHandle* handle, int32_t count) {
  using Fn = int32_t (*)(int32_t, int32_t, ArrayHandle*, int32_t);
  return reinterpret_cast<Fn>(BindHostFunction(g_resize))(typeCode, numDims, handle, count);
}

void HostQSort(void* base, int32_t count, int32_t elemSize, int (*compare)(const void*, const void*)) {
  using Fn = void (*)(void*, int32_t, int32_t, int (*)(const void*, const void*));
  reinterpret_cast<Fn>(BindHostFunction(g_qsort))(base, count, elemSize, compare);
}

}  // namespace ql

extern "C" {

// One empty function under both hook names: the host can watch or intercept the
// moment a module or TLS slot is announced.
QUARZ_API void SetKORTModuleHook(void) {}
// GCC wants the alias to repeat the nothrow it infers for the empty target; clang reads
// that attribute as an exception clause the declaration lacks and refuses it.
#if defined(__clang__)
QUARZ_API void SetKORTTLSIndexHook(void) __attribute__((alias("SetKORTModuleHook")));
#else
QUARZ_API void SetKORTTLSIndexHook(void) __attribute__((alias("SetKORTModuleHook"), nothrow));
#endif

QUARZ_API void SetKORTModule(void* module) {
  ql::host_os::ObserveUnloads();
  ql::g_module.store(module, std::memory_order_relaxed);
  ql::g_announcements.fetch_add(1, std::memory_order_release);
  SetKORTModuleHook();
}

QUARZ_API void SetKORTTLSIndex(uint32_t index) {
  ql::host_os::ObserveUnloads();
  ql::g_tls_index.store(index, std::memory_order_relaxed);
  ql::g_announcements.fetch_add(1, std::memory_order_release);
  SetKORTModuleHook();
}

}  // extern "C"
