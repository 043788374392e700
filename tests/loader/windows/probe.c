/* A Windows host that loads QUARZ_LINALG.dll by path and prints, a line each:
 * KMP_DUPLICATE_LIB_OK before; "load failed", or the status and value of
 * dDotProdH([1,2,3], [4,5,6]) and of dTransposeH of a 2 x 3 matrix (with its output's size
 * and the number of resizes it asked of this program, the host: it exports the marker and
 * NumericArrayResize) run on a thread that then ends, the marker kernel's count of
 * per-thread buffer releases, and the switch while loaded and after FreeLibrary. */
#include <windows.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

typedef struct { int32_t n, pad; double v[3]; } Vec3; /* length, padding, elements */

static HMODULE lib;
static volatile long resizes;

__declspec(dllexport) int32_t AZNewHandle;

/* Room for any element type; the block is [sizes (8 bytes), elements]. */
__declspec(dllexport) int32_t NumericArrayResize(int32_t type, int32_t dims, void*** handle, int32_t count) {
  (void)type, (void)dims;
  void* block = realloc(**handle, 8 + (size_t)count * 16);
  if (!block) return 2;
  **handle = block;
  InterlockedIncrement(&resizes);
  return 0;
}

static const char* Switch(void) {
  const char* v = getenv("KMP_DUPLICATE_LIB_OK");
  return v ? v : "(unset)";
}

static DWORD WINAPI Dot(void* unused) {
  int32_t (*dot)(void*, void*, double*) = (int32_t (*)(void*, void*, double*))GetProcAddress(lib, "dDotProdH");
  Vec3 x = {3, 0, {1, 2, 3}}, y = {3, 0, {4, 5, 6}};
  Vec3 *px = &x, *py = &y;
  double r = 0;
  int32_t s = dot(&px, &py, &r);
  printf("%d %g\n", (int)s, r);
  int32_t (*transpose)(void*, void*) = (int32_t (*)(void*, void*))GetProcAddress(lib, "dTransposeH");
  struct { int32_t rows, cols; double v[6]; } a = {2, 3, {1, 2, 3, 4, 5, 6}}, *pa = &a;
  int32_t* out = NULL; /* no block yet */
  s = transpose(&pa, &out);
  printf("%d %dx%d resized %ld\n", (int)s, out ? out[0] : -1, out ? out[1] : -1, resizes);
  free(out);
  return (DWORD)(uintptr_t)unused;
}

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  printf("%s\n", Switch());
  lib = LoadLibraryA(argv[1]);
  if (!lib) {
    printf("load failed\n");
    return 0;
  }
  HANDLE t = CreateThread(NULL, 0, Dot, NULL, 0, NULL);
  WaitForSingleObject(t, INFINITE);
  CloseHandle(t);
  HMODULE kernel = GetModuleHandleA("quarz_core_130000.dll");
  int (*count)(void) = kernel ? (int (*)(void))GetProcAddress(kernel, "MarkerBuffersReleased") : NULL;
  printf("released %d\n", count ? count() : -1);
  printf("%s\n", Switch());
  FreeLibrary(lib);
  printf("%s\n", Switch());
  return 0;
}
