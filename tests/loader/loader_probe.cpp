// A host that loads the library by path and prints, a line each: KMP_DUPLICATE_LIB_OK
// before; the status and value of dDotProdH([1,2,3], [4,5,6]) run on a thread that then
// ends; the marker kernel's count of per-thread buffer releases (when the kernel is one);
// the switch while loaded and after unloading.  Usage: loader_probe <library>
#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

struct Vec3 {  // a 1-D double block: length, 4 bytes of padding, elements
  int32_t n, pad;
  double v[3];
};

const char* Switch() {
  const char* v = std::getenv("KMP_DUPLICATE_LIB_OK");
  return v ? v : "(unset)";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  std::printf("%s\n", Switch());
  void* lib = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!lib) return 1;
  auto dot = reinterpret_cast<int32_t (*)(void*, void*, double*)>(dlsym(lib, "dDotProdH"));
  std::thread([dot] {
    Vec3 x{3, 0, {1, 2, 3}}, y{3, 0, {4, 5, 6}};
    Vec3 *px = &x, *py = &y;
    double r = 0;
    int32_t s = dot(&px, &py, &r);
    std::printf("%d %g\n", s, r);
  }).join();
  std::string dir(argv[1]);
  dir.erase(dir.rfind('/') + 1);
  if (void* kernel = dlopen((dir + "libquarz_core_130000.so").c_str(), RTLD_NOW | RTLD_NOLOAD)) {
    if (auto count = reinterpret_cast<int (*)()>(dlsym(kernel, "MarkerBuffersReleased"))) {
      std::printf("released %d\n", count());
    }
    dlclose(kernel);
  }
  std::printf("%s\n", Switch());
  dlclose(lib);
  std::printf("%s\n", Switch());
  return 0;
}
