/* A Windows host that loads QUARZ_LINALG.dll by path and prints what it sees:
 *   probe dot <dll>     KMP_DUPLICATE_LIB_OK before; then "status value" of
 *                       dDotProdH([1,2,3], [4,5,6]), or "load failed"; the switch while
 *                       loaded and after FreeLibrary
 *   probe thread <dll>  the dot product on a thread that then ends, and the kernel's
 *                       count of per-thread buffer releases */
#include <windows.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

typedef int32_t (*DotFn)(void*, void*, double*);
typedef struct { int32_t n, pad; double v[3]; } Vec3;

static HMODULE lib;

static const char* Switch(void) {
  const char* v = getenv("KMP_DUPLICATE_LIB_OK");
  return v ? v : "(unset)";
}

static DWORD WINAPI Dot(void* unused) {
  (void)unused;
  DotFn dot = (DotFn)GetProcAddress(lib, "dDotProdH");
  Vec3 x = {3, 0, {1, 2, 3}}, y = {3, 0, {4, 5, 6}};
  Vec3 *px = &x, *py = &y;
  double r = 0;
  int32_t s = dot ? dot(&px, &py, &r) : -1;
  printf("%d %g\n", (int)s, r);
  return 0;
}

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  printf("%s\n", Switch());
  lib = LoadLibraryA(argv[2]);
  if (!lib) {
    printf("load failed\n");
    return 0;
  }
  if (strcmp(argv[1], "thread") == 0) {
    HANDLE t = CreateThread(NULL, 0, Dot, NULL, 0, NULL);
    WaitForSingleObject(t, INFINITE);
    CloseHandle(t);
    HMODULE kernel = GetModuleHandleA("quarz_core_130000.dll");
    int (*count)(void) = kernel ? (int (*)(void))GetProcAddress(kernel, "MarkerBuffersReleased") : NULL;
    printf("released %d\n", count ? count() : -1);
  } else {
    Dot(NULL);
  }
  printf("%s\n", Switch());
  FreeLibrary(lib);
  printf("%s\n", Switch());
  return 0;
}
