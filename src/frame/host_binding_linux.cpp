// What binding asks of Linux: TLS slots are pthread keys, modules dlopen handles, the
// runtimes libkort.so and libkoffrt.so, and the loader's counters tell unloads apart.
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>
#include <unistd.h>

#include <cstring>
#include <initializer_list>
#include <utility>

#include "frame/host_binding.h"
#include "frame/module_name.h"

namespace ql::host_os {
namespace {

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

// The most unloads seen so far, brought up to date wherever the loader is asked anyway
// or the cost does not matter.
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

// A runtime already loaded under this name (a version suffix allowed: a program linked
// against an installed libkort.so.1 loads that file), or null (never loads it).
int FindLoaded(struct dl_phdr_info* info, size_t, void* data) {
  auto* search = static_cast<std::pair<const char*, const char*>*>(data);
  const char* file = info->dlpi_name;
  if (!file || !*file) return 0;
  const char* slash = std::strrchr(file, '/');
  if (!SameModule(slash ? slash + 1 : file, search->first)) return 0;
  search->second = file;
  return 1;
}

void* LoadedModule(const char* name) {
  std::pair<const char*, const char*> search{name, nullptr};
  dl_iterate_phdr(FindLoaded, &search);
  if (!search.second) return nullptr;
  void* h = dlopen(search.second, RTLD_LAZY | RTLD_NOLOAD);
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

}  // namespace

void* TlsValue(uint32_t index) { return pthread_getspecific(static_cast<pthread_key_t>(index)); }

// The answer depends only on what is loaded: it is kept until a module is loaded or
// unloaded or the host announces a module or TLS index.
void* SearchLoadedRuntime(uint32_t announcements) {
  // Read the key before searching: a change during the search then shows as a new key.
  const uint64_t loaded = ObserveLoadedSet().key();
  void* found;
  if (RecalledSearch(loaded, announcements, &found)) return found;
  found = MainProgramHost();
  if (!found) found = LoadedModule("libkort.so");
  if (!found) found = LoadedModule("libkoffrt.so");
  RecordSearch(loaded, announcements, found);
  return found;
}

void* FunctionAddress(void* module, const char* name) { return dlsym(module, name); }

uint64_t UnloadsSeen() { return g_unloads.load(std::memory_order_relaxed); }

uint64_t ObserveUnloads() {
  ObserveLoadedSet();
  return g_unloads.load(std::memory_order_relaxed);
}

void Fatal(const char* text) {
  // The message box of the Windows host becomes a line on stderr.
  size_t len = std::strlen(text);
  ssize_t ignored = write(STDERR_FILENO, text, len);
  ignored = write(STDERR_FILENO, "\n", 1);
  (void)ignored;
  _exit(1);
}

}  // namespace ql::host_os
