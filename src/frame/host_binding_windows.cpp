// Late binding of the host runtime's functions on Windows: the module search by
// GetModuleHandleA/GetProcAddress/TlsGetValue and the fatal message box. Same records
// as elsewhere (frame/host_binding.h): each host function keeps the modules it was
// resolved in, newest first, so a thread never pairs one module with another's address.
#include <windows.h>

#include <cstdio>
#include <new>

#include "frame/host_binding.h"

namespace ql {
namespace {

constexpr uint32_t kNoTlsIndex = 0xFFFFFFFFu;

std::atomic<void*> g_module{nullptr};
std::atomic<uint32_t> g_tls_index{kNoTlsIndex};

HostFunctionBinding<32> g_resize{{nullptr}, "NumericArrayResize"};
HostFunctionBinding<16> g_qsort{{nullptr}, "QSort"};

[[noreturn]] void Fatal(const char* text) {
  MessageBoxA(nullptr, text, "Fatal Error", 0x2010);
  ExitProcess(1);
}

const BoundHostFunction* FindBound(const BoundHostFunction* from, const BoundHostFunction* until, void* module) {
  for (const BoundHostFunction* b = from; b != until; b = b->older) {
    if (b->module == module) return b;
  }
  return nullptr;
}

}  // namespace

void* LocateHostRuntime() {
  const uint32_t index = g_tls_index.load(std::memory_order_relaxed);
  if (index != kNoTlsIndex) {
    if (void* m = TlsGetValue(index)) return m;
  }
  if (void* m = g_module.load(std::memory_order_relaxed)) return m;
  HMODULE main = GetModuleHandleA(nullptr);
  if (main && (GetProcAddress(main, "gKORTVersion") || GetProcAddress(main, "AZNewHandle"))) return main;
  if (HMODULE kort = GetModuleHandleA("kort.dll")) return kort;
  return GetModuleHandleA("koffrt.dll");
}

void* BindHostFunction(std::atomic<const BoundHostFunction*>& resolved, const char* name) {
  void* module = LocateHostRuntime();
  if (!module) Fatal("KORVOV.LIB was not called from a Korvo process.");
  const BoundHostFunction* seen = resolved.load(std::memory_order_acquire);
  if (const BoundHostFunction* b = FindBound(seen, nullptr, module)) return b->address;
  void* address = reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
  if (!address) {
    char text[300];
    std::snprintf(text, sizeof text, "KORVOV.LIB could not locate \"%s\".", name);
    Fatal(text);
  }
  auto* node = new (std::nothrow) BoundHostFunction{module, address, 0, seen};
  if (!node) return address;
  while (!resolved.compare_exchange_weak(node->older, node, std::memory_order_release,
                                         std::memory_order_acquire)) {
    if (const BoundHostFunction* b = FindBound(node->older, seen, module)) {
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

// One empty function under both hook names.
QUARZ_API void SetKORTModuleHook(void) {}
QUARZ_API void SetKORTTLSIndexHook(void) __attribute__((alias("SetKORTModuleHook"), nothrow));

QUARZ_API void SetKORTModule(void* module) {
  ql::g_module.store(module, std::memory_order_relaxed);
  SetKORTModuleHook();
}

QUARZ_API void SetKORTTLSIndex(uint32_t index) {
  ql::g_tls_index.store(index, std::memory_order_relaxed);
  SetKORTModuleHook();
}

}  // extern "C"
