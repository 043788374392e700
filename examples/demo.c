/* A host program in miniature: it links the reference host runtime, loads
 * libquarz_linalg by name and calls exports through the addresses it looks up, as the
 * host application does. */
#include <dlfcn.h>
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "kort.h"

typedef int32_t (*DotFn)(ArrayHandle, ArrayHandle, double*);
typedef int32_t (*ZDotFn)(ArrayHandle, ArrayHandle, QuarzComplexDouble*);
typedef int32_t (*NormFn)(ArrayHandle, double, double*);
typedef int32_t (*StatFn)(ArrayHandle, double*);

static ArrayHandle vector_d(int32_t n, const double* values) {
  ArrayHandle h = KortArrayNew(QuarzTypeDouble, 1, &n);
  memcpy(KortArrayData(h, QuarzTypeDouble, 1), values, sizeof(double) * (size_t)n);
  return h;
}

int main(void) {
  void* lib = dlopen("libquarz_linalg.so", RTLD_NOW | RTLD_LOCAL);
  if (!lib) {
    fprintf(stderr, "cannot load libquarz_linalg.so: %s\n", dlerror());
    return 1;
  }
  DotFn dDotProdH = (DotFn)dlsym(lib, "dDotProdH");
  ZDotFn zDotProdH = (ZDotFn)dlsym(lib, "zDotProdH");
  NormFn dVectorNormH = (NormFn)dlsym(lib, "dVectorNormH");
  StatFn dMeanH = (StatFn)dlsym(lib, "dMeanH");
  StatFn dRMSH = (StatFn)dlsym(lib, "dRMSH");
  if (!dDotProdH || !zDotProdH || !dVectorNormH || !dMeanH || !dRMSH) {
    fprintf(stderr, "missing export: %s\n", dlerror());
    return 1;
  }

  const double xv[] = {1, 2, 3}, yv[] = {4, -5, 6};
  ArrayHandle x = vector_d(3, xv), y = vector_d(3, yv), empty = vector_d(0, NULL);
  double r;
  int32_t s;

  s = dDotProdH(x, y, &r);
  printf("dDotProdH([1 2 3], [4 -5 6])      = %g   (status %d)\n", r, s);
  s = dVectorNormH(x, 2.0, &r);
  printf("dVectorNormH([1 2 3], p = 2)      = %.6f (status %d)\n", r, s);
  s = dVectorNormH(x, -INFINITY, &r);
  printf("dVectorNormH([1 2 3], p = -inf)   = %g   (status %d)\n", r, s);
  s = dMeanH(y, &r);
  printf("dMeanH([4 -5 6])                  = %.6f (status %d)\n", r, s);
  s = dRMSH(x, &r);
  printf("dRMSH([1 2 3])                    = %.6f (status %d)\n", r, s);
  s = dDotProdH(x, empty, &r);
  printf("dDotProdH([1 2 3], [])            = %g (status %d: lengths differ)\n", r, s);

  int32_t one = 1;
  ArrayHandle zi = KortArrayNew(QuarzTypeComplexDouble, 1, &one);
  QuarzComplexDouble* e = (QuarzComplexDouble*)KortArrayData(zi, QuarzTypeComplexDouble, 1);
  e->re = 0;
  e->im = 1;
  QuarzComplexDouble zr;
  s = zDotProdH(zi, zi, &zr);
  printf("zDotProdH([i], [i])               = %g%+gi (status %d)\n", zr.re, zr.im, s);

  KortArrayFree(x);
  KortArrayFree(y);
  KortArrayFree(empty);
  KortArrayFree(zi);
  printf("host handles still live: %lld\n", (long long)KortLiveHandles());
  dlclose(lib);
  return 0;
}
