// A host that loads the library by path and reports what it sees, one scenario per run:
//   dot <lib>         status and value of dDotProdH([1,2,3], [4,5,6]) on this thread
//   thread <lib> <kernel>  the same on a thread that then ends; the kernel's count of
//                     per-thread buffer releases afterwards
//   switch <lib>      KMP_DUPLICATE_LIB_OK before, while loaded, after unloading
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

using DotFn = int32_t (*)(void*, void*, double*);

// A 1-D double block: length, 4 bytes of padding, elements.
struct Vec3 {
  int32_t n = 3, pad = 0;
  double v[3];
};

void Dot(void* lib) {
  auto dot = reinterpret_cast<DotFn>(dlsym(lib, "dDotProdH"));
  if (!dot) {
    std::printf("no dDotProdH\n");
    return;
  }
  Vec3 x{3, 0, {1, 2, 3}}, y{3, 0, {4, 5, 6}};
  Vec3 *px = &x, *py = &y;
  double r = 0;
  int32_t s = dot(&px, &py, &r);
  std::printf("%d %g\n", s, r);
}

const char* Switch() {
  const char* v = std::getenv("KMP_DUPLICATE_LIB_OK");
  return v ? v : "(unset)";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const char* scenario = argv[1];
  if (std::strcmp(scenario, "switch") == 0) {
    std::printf("%s ", Switch());
    void* lib = dlopen(argv[2], RTLD_NOW | RTLD_LOCAL);
    std::printf("%s ", Switch());
    if (lib) dlclose(lib);
    std::printf("%s\n", Switch());
    return lib ? 0 : 1;
  }
  void* lib = dlopen(argv[2], RTLD_NOW | RTLD_LOCAL);
  if (!lib) {
    std::printf("dlopen failed: %s\n", dlerror());
    return 1;
  }
  if (std::strcmp(scenario, "dot") == 0) {
    Dot(lib);
  } else if (std::strcmp(scenario, "thread") == 0 && argc > 3) {
    std::thread([lib] { Dot(lib); }).join();
    void* kernel = dlopen(argv[3], RTLD_NOW | RTLD_NOLOAD);
    auto count = kernel ? reinterpret_cast<int (*)()>(dlsym(kernel, "MarkerBuffersReleased")) : nullptr;
    std::printf("released %d\n", count ? count() : -1);
  }
  std::fflush(stdout);
  return 0;
}
