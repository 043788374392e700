#include "frame/host_binding.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace ql {
namespace {

constexpr uint32_t kNoTlsIndex = 0xFFFFFFFFu;

std::atomic<void*> g_module{nullptr};
std::atomic<uint32_t> g_tls_index{kNoTlsIndex};
// The main program once it has been seen to export a host marker; its symbol table
// only grows, so a hit stays a hit.
std::atomic<void*> g_main_host{nullptr};

HostFunctionBinding<32> g_resize{{nullptr}, {nullptr}, "NumericArrayResize"};
HostFunctionBinding<16> g_qsort{{nullptr}, {nullptr}, "QSort"};

[[noreturn]] void Fatal(const char* text) {
  // The message box of the Windows host becomes a line on stderr.
  size_t len = std::strlen(text);
  ssize_t ignored = write(STDERR_FILENO, text, len);
  ignored = write(STDERR_FILENO, "\n", 1);
  (void)ignored;
  _exit(1);
}

// A runtime already loaded under this name, or null (never loads it).
void* LoadedModule(const char* name) {
  void* h = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
  // NOLOAD still takes a reference; drop it. The handle stays valid while the module
  // is loaded, which is all the comparison in BindHostFunction needs.
  if (h) dlclose(h);
  return h;
}

void* MainProgramHost() {
  void* cached = g_main_host.load(std::memory_order_acquire);
  if (cached) return cached;
  void* main = dlopen(nullptr, RTLD_LAZY);
  if (!main) return nullptr;
  if (dlsym(main, "gKORTVersion") || dlsym(main, "AZNewHandle")) {
    g_main_host.store(main, std::memory_order_release);
    return main;
  }
  dlclose(main);
  return nullptr;
}

}  // namespace

void* LocateHostRuntime() {
  uint32_t index = g_tls_index.load(std::memory_order_relaxed);
  if (index != kNoTlsIndex) {
    if (void* m = pthread_getspecific(static_cast<pthread_key_t>(index))) return m;
  }
  if (void* m = g_module.load(std::memory_order_relaxed)) return m;
  if (void* m = MainProgramHost()) return m;
  if (void* m = LoadedModule("libkort.so")) return m;
  return LoadedModule("libkoffrt.so");
}

void* BindHostFunction(std::atomic<void*>& address, std::atomic<void*>& module, const char* name) {
  void* located = LocateHostRuntime();
  if (!located) Fatal("KORVOV.LIB was not called from a Korvo process.");
  void* fn;
  if (module.load(std::memory_order_acquire) != located ||
      !(fn = address.load(std::memory_order_relaxed))) {
    // Concurrent first calls may both get here; they store the same values.
    fn = dlsym(located, name);
    address.store(fn, std::memory_order_relaxed);
    module.store(located, std::memory_order_release);
  }
  if (fn) return fn;
  char text[300];
  std::snprintf(text, sizeof text, "KORVOV.LIB could not locate \"%s\".", name);
  Fatal(text);
}

int32_t HostResize(int32_t typeCode, int32_t numDims, ArrayHandle* handle, int64_t count) {
  using Fn = int32_t (*)(int32_t, int32_t, ArrayHandle*, int64_t);
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
