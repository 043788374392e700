// A host process in one of several configurations, run by binding_test in a child
// process. It loads the library and the runtimes as the scenario says, makes calls that
// resize an output, and prints which runtime served each resize.
//
// Built three times: plain; with PROBE_MAIN_IS_HOST, where the program itself exports
// "AZNewHandle" (but not "gKORTVersion") and its own NumericArrayResize; and with
// PROBE_LINKS_KOFFRT, where the program is linked against libkoffrt.so, whose markers
// are then in the global scope without the program defining any.
#include <dlfcn.h>
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "quarz_linalg.h"

#ifdef PROBE_MAIN_IS_HOST
namespace {
int64_t g_main_resizes = 0;
}
extern "C" __attribute__((visibility("default"))) ArrayHandle AZNewHandle(int64_t) { return nullptr; }
extern "C" __attribute__((visibility("default"))) int32_t NumericArrayResize(int32_t typeCode, int32_t numDims,
                                                                            ArrayHandle* h, int32_t count) {
  ++g_main_resizes;
  // Serve the request through libkort's allocator so the probe can free the handles alike.
  static auto real = reinterpret_cast<int32_t (*)(int32_t, int32_t, ArrayHandle*, int32_t)>(
      dlsym(dlopen(PROBE_LIB_DIR "/libkort.so", RTLD_LAZY | RTLD_NOLOAD), "NumericArrayResize"));
  return real(typeCode, numDims, h, count);
}
#endif

#ifdef PROBE_LINKS_KOFFRT
#include "kort.h"
#endif

namespace {

using MulFn = int32_t (*)(ArrayHandle, ArrayHandle, ArrayHandle);
using SetModuleFn = void (*)(void*);
using SetIndexFn = void (*)(uint32_t);
using CountFn = int64_t (*)();

void* g_lib;
void* g_kort;
void* g_koffrt;

void* Load(const char* name) {
  void* h = dlopen((std::string(PROBE_LIB_DIR) + "/" + name).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!h) {
    std::fprintf(stderr, "probe: cannot load %s: %s\n", name, dlerror());
    std::exit(3);
  }
  return h;
}

int64_t Count(void* runtime) {
  if (!runtime) return 0;
  return reinterpret_cast<CountFn>(dlsym(runtime, "KortResizeCount"))();
}

// Calls dMtrxMulH on 1x1 inputs with an empty output: one resize, served by whichever
// runtime the library binds to. Arrays come from a loaded runtime's allocator; with no
// runtime at all they are static blocks, which the library must not get to touch.
int32_t OneResize() {
  using NewFn = ArrayHandle (*)(int32_t, int32_t, const int32_t*);
  using FreeFn = void (*)(ArrayHandle);
  auto mul = reinterpret_cast<MulFn>(dlsym(g_lib, "dMtrxMulH"));
  if (!mul) {
    std::fprintf(stderr, "probe: no dMtrxMulH in the library\n");
    std::exit(4);
  }
  void* alloc_lib = g_kort ? g_kort : g_koffrt;
  static double block[2] = {0, 3.0};
  static void* master = block;
  const int32_t sizes[2] = {1, 1};
  std::memcpy(block, sizes, sizeof sizes);
  static struct QuarzArrayBlock* no_block = nullptr;
  ArrayHandle a = reinterpret_cast<ArrayHandle>(&master), r = &no_block;
  FreeFn free_array = nullptr;
  if (alloc_lib) {
    auto new_array = reinterpret_cast<NewFn>(dlsym(alloc_lib, "KortArrayNew"));
    free_array = reinterpret_cast<FreeFn>(dlsym(alloc_lib, "KortArrayFree"));
    const int32_t one[2] = {1, 1}, zero[2] = {0, 0};
    a = new_array(QuarzTypeDouble, 2, one);
    static_cast<double*>(static_cast<void*>(*a))[1] = 3.0;
    r = new_array(QuarzTypeDouble, 2, zero);
  }
  int32_t s = mul(a, a, r);
  std::printf("status=%d value=%g\n", s, static_cast<double*>(static_cast<void*>(*r))[1]);
  if (free_array) {
    free_array(a);
    free_array(r);
  }
  return s;
}

#ifdef PROBE_MAIN_IS_HOST
// An unweighted least-absolute-residual fit of three points: it sorts through the
// host's QSort, which this program does not offer.
void SortingFit() {
  using NewFn = ArrayHandle (*)(int32_t, int32_t, const int32_t*);
  using FitFn = int32_t (*)(ArrayHandle, ArrayHandle, ArrayHandle, double*, double*, double*, int32_t, double, double,
                            int32_t*, ArrayHandle);
  auto new_array = reinterpret_cast<NewFn>(dlsym(g_kort, "KortArrayNew"));
  auto fit = reinterpret_cast<FitFn>(dlsym(g_lib, "dLinearFitH"));
  const int32_t three = 3, none = 0;
  ArrayHandle x = new_array(QuarzTypeDouble, 1, &three), y = new_array(QuarzTypeDouble, 1, &three);
  ArrayHandle scratch = new_array(QuarzTypeDouble, 1, &none);
  for (int i = 0; i < 3; ++i) {
    static_cast<double*>(static_cast<void*>(*x))[1 + i] = i + 1;
    static_cast<double*>(static_cast<void*>(*y))[1 + i] = i * i;
  }
  double slope, intercept, residue;
  int32_t iterations = 10;
  int32_t s = fit(y, x, nullptr, &slope, &intercept, &residue, QuarzLinearFitMethodLeastAbsolute, 0, 0, &iterations,
                  scratch);
  std::printf("status=%d\n", s);
}
#endif

void Report(const char* label) {
  std::printf("%s kort=%lld koffrt=%lld main=%lld\n", label, (long long)Count(g_kort), (long long)Count(g_koffrt),
#ifdef PROBE_MAIN_IS_HOST
              (long long)g_main_resizes
#else
              0LL
#endif
  );
}

void* ThreadBody(void*) {
  OneResize();
  return nullptr;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const std::string scenario = argv[1];
  g_lib = Load("libquarz_linalg.so");
  auto set_module = reinterpret_cast<SetModuleFn>(dlsym(g_lib, "SetKORTModule"));
  auto set_index = reinterpret_cast<SetIndexFn>(dlsym(g_lib, "SetKORTTLSIndex"));

  if (scenario == "none") {
    OneResize();
  } else if (scenario == "kort") {
    g_kort = Load("libkort.so");
    OneResize();
  } else if (scenario == "koffrt") {
    g_koffrt = Load("libkoffrt.so");
    OneResize();
  } else if (scenario == "both") {
    g_koffrt = Load("libkoffrt.so");
    g_kort = Load("libkort.so");
    OneResize();
  } else if (scenario == "module") {
    // The announced module wins over a runtime found by name.
    g_kort = Load("libkort.so");
    g_koffrt = Load("libkoffrt.so");
    set_module(g_koffrt);
    OneResize();
  } else if (scenario == "switch") {
    g_kort = Load("libkort.so");
    g_koffrt = Load("libkoffrt.so");
    set_module(g_kort);
    OneResize();
    Report("first");
    set_module(g_koffrt);
    OneResize();
    Report("second");
    set_module(nullptr);  // back to the search by name: kort
    OneResize();
  } else if (scenario == "tls") {
    // The thread's slot wins over the announced module; a thread whose slot is empty
    // falls back to it.
    g_kort = Load("libkort.so");
    g_koffrt = Load("libkoffrt.so");
    pthread_key_t key;
    pthread_key_create(&key, nullptr);
    set_module(g_koffrt);
    set_index(static_cast<uint32_t>(key));
    pthread_setspecific(key, g_kort);
    OneResize();
    Report("slot");
    pthread_t t;
    pthread_create(&t, nullptr, ThreadBody, nullptr);
    pthread_join(t, nullptr);
    Report("empty-slot");
    pthread_setspecific(key, g_koffrt);
    OneResize();
  } else if (scenario == "main") {
    g_kort = Load("libkort.so");
    OneResize();
#ifdef PROBE_MAIN_IS_HOST
  } else if (scenario == "main-no-qsort") {
    g_kort = Load("libkort.so");
    SortingFit();
#endif
  } else if (scenario == "loaded-later") {
    // A runtime loaded after the first search is found by the next one, in its place in
    // the order (libkort.so before libkoffrt.so).
    g_koffrt = Load("libkoffrt.so");
    OneResize();
    Report("first");
    g_kort = Load("libkort.so");
    OneResize();
  } else if (scenario == "unloaded") {
    // The runtime found first goes away; the next search finds the other one.
    g_kort = Load("libkort.so");
    g_koffrt = Load("libkoffrt.so");
    OneResize();
    Report("first");
    dlclose(g_kort);
    g_kort = nullptr;
    std::printf("kort %s\n", dlopen(PROBE_LIB_DIR "/libkort.so", RTLD_LAZY | RTLD_NOLOAD) ? "still loaded" : "unloaded");
    OneResize();
#ifdef PROBE_LINKS_KOFFRT
  } else if (scenario == "linked") {
    // libkoffrt.so's markers are visible through the program's handle, but the program
    // defines none: the search goes on by name and libkort.so comes first.
    // (A call, not a read of gKORTVersion: reading it would copy the variable into the
    // program, which would then define the marker.)
    std::printf("linked koffrt resizes %lld\n", static_cast<long long>(KortResizeCount()));
    g_koffrt = dlopen("libkoffrt.so", RTLD_LAZY | RTLD_NOLOAD);
    g_kort = Load("libkort.so");
    OneResize();
#endif
  } else if (scenario == "missing") {
    // A module that is no host runtime: the function cannot be found in it.
    set_module(dlopen("libm.so.6", RTLD_NOW));
    OneResize();
  } else {
    return 2;
  }
  Report("final");
  return 0;
}
