#include "frame/host_binding.h"

#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <initializer_list>
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

[[noreturn]] void Fatal(const char* text) {
  // The message box of the Windows host becomes a line on stderr.
  size_t len = std::strlen(text);
  ssize_t ignored = write(STDERR_FILENO, text, len);
  ignored = write(STDERR_FILENO, "\n", 1);
  (void)ignored;
  _exit(1);
}

// ---- The loaded set ---------------------------------------------------------------------

// The loader's load and unload counters; the first callback has them, and stopping there
// keeps the call short (it still takes the loader's list lock).
struct LoadedSet {
  uint64_t adds = 0, subs = 0;
  // Both counters only grow, so their sum changes exactly when either does.
  uint64_t key() const { return adds + subs; }
};

int FirstModuleCounters(struct dl_phdr_info* info, size_t, void* out) {
  auto* set = static_cast<LoadedSet*>(out);
  set->adds = info->dlpi_adds;
  set->subs = info->dlpi_subs;
  return 1;
}

// The most unloads seen so far. Resolved functions made before the latest unload are not
// trusted: the handle they are keyed by may since name another module. It is brought up
// to date wherever the loader is asked anyway or the cost does not matter: on the search
// path, at an announcement, and before a function is looked up.
std::atomic<uint64_t> g_unloads{0};

LoadedSet ObserveLoadedSet() {
  LoadedSet set;
  dl_iterate_phdr(FirstModuleCounters, &set);
  uint64_t seen = g_unloads.load(std::memory_order_relaxed);
  while (seen < set.subs && !g_unloads.compare_exchange_weak(seen, set.subs, std::memory_order_relaxed)) {
  }
  return set;
}

// ---- The search among loaded modules, remembered per state of the loaded set --------

// The last answer of the search, with the loaded set and the announcement count it was
// found under. A sequence counter makes the three fields read as one: odd while a writer
// is filling them. Writers never wait for each other; one that finds the counter odd or
// loses the race simply leaves its answer unrecorded.
constexpr uint64_t kNoKey = ~uint64_t{0};
std::atomic<uint32_t> g_search_seq{0};
std::atomic<uint64_t> g_search_loaded{kNoKey};
std::atomic<uint32_t> g_search_announced{0};
std::atomic<void*> g_search_module{nullptr};

bool RecalledSearch(uint64_t loaded, uint32_t announced, void** module) {
  uint32_t seq = g_search_seq.load(std::memory_order_acquire);
  if (seq & 1u) return false;
  uint64_t l = g_search_loaded.load(std::memory_order_relaxed);
  uint32_t a = g_search_announced.load(std::memory_order_relaxed);
  void* m = g_search_module.load(std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_acquire);
  if (g_search_seq.load(std::memory_order_relaxed) != seq || l != loaded || a != announced) return false;
  *module = m;
  return true;
}

void RecordSearch(uint64_t loaded, uint32_t announced, void* module) {
  uint32_t seq = g_search_seq.load(std::memory_order_relaxed);
  if ((seq & 1u) || !g_search_seq.compare_exchange_strong(seq, seq + 1, std::memory_order_relaxed)) return;
  std::atomic_thread_fence(std::memory_order_release);
  g_search_loaded.store(loaded, std::memory_order_relaxed);
  g_search_announced.store(announced, std::memory_order_relaxed);
  g_search_module.store(module, std::memory_order_relaxed);
  g_search_seq.store(seq + 2, std::memory_order_release);
}

// A runtime already loaded under this name, or null (never loads it).
void* LoadedModule(const char* name) {
  void* h = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
  // NOLOAD still takes a reference; drop it. The handle stays valid while the module
  // is loaded, and an unload changes the loaded-set key, which discards the answer.
  if (h) dlclose(h);
  return h;
}

// The main program is the host when it exports a marker itself. dlsym on the program's
// handle searches the whole global scope, so a program merely linked against libkort.so
// would pass for a host with libkort's marker and then bind whatever definition comes
// first in that scope, ahead of the libkort.so/libkoffrt.so order that applies to it.
// So the marker's definition has to lie in the program's own image. (A program that
// reads a runtime's gKORTVersion directly holds a copy of the variable and so counts as
// exporting it; its lookups then reach that runtime through the global scope.)
void* MainProgramHost() {
  void* main = dlopen(nullptr, RTLD_LAZY);
  if (!main) return nullptr;
  struct link_map* main_map = nullptr;
  if (dlinfo(main, RTLD_DI_LINKMAP, &main_map) == 0 && main_map) {
    for (const char* marker : {"gKORTVersion", "AZNewHandle"}) {
      void* sym = dlsym(main, marker);
      Dl_info info;
      struct link_map* owner = nullptr;
      if (sym && dladdr1(sym, &info, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP) && owner == main_map) {
        return main;  // the program itself: never unloaded, the reference does not matter
      }
    }
  }
  dlclose(main);
  return nullptr;
}

// Steps 3 to 5 of the search depend only on what is loaded: the answer is kept until a
// module is loaded or unloaded or the host announces a module or TLS index.
void* SearchLoadedModules() {
  // Read the key before searching: a change during the search then shows as a new key.
  const uint64_t loaded = ObserveLoadedSet().key();
  const uint32_t announced = g_announcements.load(std::memory_order_acquire);
  void* found;
  if (RecalledSearch(loaded, announced, &found)) return found;
  found = MainProgramHost();
  if (!found) found = LoadedModule("libkort.so");
  if (!found) found = LoadedModule("libkoffrt.so");
  RecordSearch(loaded, announced, found);
  return found;
}

// ---- Resolved functions ----------------------------------------------------------------

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
    if (void* m = pthread_getspecific(static_cast<pthread_key_t>(index))) return m;
  }
  if (void* m = g_module.load(std::memory_order_relaxed)) return m;
  return SearchLoadedModules();
}

// A module handle is taken to name the same module until a module is unloaded, and
// unloads are noticed at the points listed above: a host that unloads a runtime, loads
// another that receives the same handle and names it only in a TLS slot, with no
// announcement and no search in between, would still be served from the old entry.
void* BindHostFunction(std::atomic<const BoundHostFunction*>& resolved, const char* name) {
  void* module = LocateHostRuntime();
  if (!module) Fatal("KORVOV.LIB was not called from a Korvo process.");
  uint64_t unloads = g_unloads.load(std::memory_order_relaxed);
  const BoundHostFunction* seen = resolved.load(std::memory_order_acquire);
  if (const BoundHostFunction* b = FindBound(seen, nullptr, module, unloads)) return b->address;

  ObserveLoadedSet();
  unloads = g_unloads.load(std::memory_order_relaxed);
  void* address = dlsym(module, name);
  if (!address) {
    char text[300];
    std::snprintf(text, sizeof text, "KORVOV.LIB could not locate \"%s\".", name);
    Fatal(text);
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
  ql::ObserveLoadedSet();
  ql::g_module.store(module, std::memory_order_relaxed);
  ql::g_announcements.fetch_add(1, std::memory_order_release);
  SetKORTModuleHook();
}

QUARZ_API void SetKORTTLSIndex(uint32_t index) {
  ql::ObserveLoadedSet();
  ql::g_tls_index.store(index, std::memory_order_relaxed);
  ql::g_announcements.fetch_add(1, std::memory_order_release);
  SetKORTModuleHook();
}

}  // extern "C"
