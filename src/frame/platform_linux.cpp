// The kernel loader's platform on Linux, and the notifications that drive it: the
// library's load constructor attaches, its unload destructor detaches, and a thread-exit
// hook, armed on each thread's first call, runs thread detach.
//
// Names: the toolkit's modules are libquarz_fft.so, libquarz_linalg.so, libquarz_sparse.so
// and libquarz_thread.so, matched by file name (a version suffix allowed) among the
// loaded objects; the OpenMP runtime is libiomp5.so and the kernel
// libquarz_core_130000.so (the build lays out both
// beside the library as links to the system's libgomp and OpenBLAS; an installed library
// has them in its folder quarz_linalg/, out of the loader's default path). The configuration
// store is a key file, /etc/orvane/korvo-13.0.conf or the file named by
// QUARZ_TOOLKIT_CONFIG, whose section [SOFTWARE\Orvane\Korvo\13.0\AddOns\Quarz Toolkit]
// holds RunTimeDIR64=<directory>.
//
// A constructor cannot refuse the load. When attach fails the library stays loaded, says
// so in one line on standard error, and every export returns StatusKernelError.
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/kernel_loading.h"
#include "frame/module_name.h"
#include "kernel/entries.h"

namespace ql {
namespace {

constexpr const char* kConfigVariable = "QUARZ_TOOLKIT_CONFIG";
constexpr const char* kSystemConfig = "/etc/orvane/korvo-13.0.conf";
constexpr const char* kConfigSection = "[SOFTWARE\\Orvane\\Korvo\\13.0\\AddOns\\Quarz Toolkit]";
constexpr const char* kConfigValue = "RunTimeDIR64";

struct ModuleSearch {
  const char* name;
  const char* path;  // dlpi_name of the first match
  bool found;
};

int MatchModule(struct dl_phdr_info* info, size_t, void* data) {
  auto* search = static_cast<ModuleSearch*>(data);
  const char* file = info->dlpi_name;
  if (!file || !*file) return 0;  // the main program
  if (const char* slash = std::strrchr(file, '/')) file = slash + 1;
  if (!SameModule(file, search->name)) return 0;
  search->path = info->dlpi_name;
  search->found = true;
  return 1;
}

// Strips blanks and a line end at both ends, in place.
char* Trim(char* s) {
  while (*s == ' ' || *s == '\t') ++s;
  size_t n = std::strlen(s);
  while (n > 0 && (s[n - 1] == ' ' || s[n - 1] == '\t' || s[n - 1] == '\n' || s[n - 1] == '\r')) s[--n] = 0;
  return s;
}

class LinuxPlatform final : public Platform {
 public:
  size_t GetEnv(const char* name, char* buffer, size_t size) override {
    buffer[0] = 0;
    const char* value = std::getenv(name);
    if (!value) return 0;
    const size_t need = std::strlen(value) + 1;
    if (need <= size) std::memcpy(buffer, value, need);
    return need;
  }

  void SetEnv(const char* name, const char* value) override { setenv(name, value, 1); }

  Lookup ModulePath(const char* name, char* path, size_t size) override {
    ModuleSearch search{name, nullptr, false};
    dl_iterate_phdr(MatchModule, &search);
    if (!search.found) return Lookup::kNotLoaded;
    if (std::strlen(search.path) + 1 > size) return Lookup::kFailed;
    std::strcpy(path, search.path);
    return Lookup::kFound;
  }

  bool ReadRunTimeDirectory(char* path, uint32_t bytes, uint32_t* got) override {
    const char* file = std::getenv(kConfigVariable);
    FILE* f = std::fopen(file ? file : kSystemConfig, "r");
    if (!f) return false;
    char line[1024];
    bool in_section = false, found = false;
    while (!found && std::fgets(line, sizeof line, f)) {
      char* s = Trim(line);
      if (*s == '[') {
        in_section = std::strcmp(s, kConfigSection) == 0;
        continue;
      }
      char* eq = std::strchr(s, '=');
      if (!in_section || !eq) continue;
      *eq = 0;
      if (std::strcmp(Trim(s), kConfigValue) != 0) continue;
      const char* value = Trim(eq + 1);
      const size_t n = std::strlen(value);
      if (n > bytes) break;  // does not fit: unreadable, as the registry would have it
      std::memcpy(path, value, n);
      *got = static_cast<uint32_t>(n);
      found = true;
    }
    std::fclose(f);
    return found;
  }

  // dlopen by full path. A module finds its own dependencies through its RUNPATH (an
  // $ORIGIN entry puts its directory there) and the system's search; the OpenMP runtime,
  // loaded first, already satisfies the kernel's dependency on it by its soname.
  void* Load(const char* path) override { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }
  void Unload(void* module) override { dlclose(module); }
  void* Symbol(void* module, const char* name) override { return dlsym(module, name); }
};

// Runs thread detach when a thread that has called the library ends.
struct ThreadExitHook {
  ~ThreadExitHook() { ThreadDetach(ProcessLoaderState()); }
};

__attribute__((constructor)) void AttachOnLoad() {
  LinuxPlatform platform;
  if (ProcessAttach(platform, ProcessLoaderState()) == 0) {
    static const char text[] =
        "libquarz_linalg: math kernel not found (libiomp5.so and libquarz_core_130000.so beside the library, "
        "in its quarz_linalg/ folder or in the configured run-time directory); every operation returns -20999\n";
    ssize_t ignored = write(STDERR_FILENO, text, sizeof text - 1);
    (void)ignored;
  }
}

__attribute__((destructor)) void DetachOnUnload() {
  LinuxPlatform platform;
  ProcessDetach(platform, ProcessLoaderState());
}

}  // namespace

bool KernelReady() noexcept {
  if (!kernel::EntriesBound()) return false;
  static thread_local ThreadExitHook hook;
  (void)&hook;
  return true;
}

}  // namespace ql
