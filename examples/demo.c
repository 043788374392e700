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
typedef int32_t (*MulFn)(ArrayHandle, ArrayHandle, ArrayHandle);
typedef int32_t (*SolveFn)(ArrayHandle, ArrayHandle, int32_t, ArrayHandle, ArrayHandle, ArrayHandle);

static ArrayHandle matrix_d(int32_t rows, int32_t cols, const double* values) {
  const int32_t dims[2] = {rows, cols};
  ArrayHandle h = KortArrayNew(QuarzTypeDouble, 2, dims);
  if (rows * cols > 0) memcpy(KortArrayData(h, QuarzTypeDouble, 2), values, sizeof(double) * (size_t)(rows * cols));
  return h;
}

static void print_matrix(const char* label, ArrayHandle h) {
  const int32_t rows = KortArrayDim(h, 0), cols = KortArrayDim(h, 1);
  const double* v = (const double*)KortArrayData(h, QuarzTypeDouble, 2);
  printf("%s (%d x %d):", label, rows, cols);
  for (int32_t i = 0; i < rows; ++i) {
    printf(i ? "; " : " [");
    for (int32_t j = 0; j < cols; ++j) printf(j ? " %g" : "%g", v[i * cols + j]);
  }
  printf("%s\n", rows ? "]" : " []");
}

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
  MulFn dMtrxMulH = (MulFn)dlsym(lib, "dMtrxMulH");
  SolveFn dLinEqH = (SolveFn)dlsym(lib, "dLinEqH");
  if (!dDotProdH || !zDotProdH || !dVectorNormH || !dMeanH || !dRMSH || !dMtrxMulH || !dLinEqH) {
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

  /* Outputs start empty; the library sizes them through the host's NumericArrayResize. */
  const double av[] = {4, 1, 0, 1, 3, 1, 0, 1, 2}, bv[] = {1, 2, 0, 1, 1, 0};
  const int32_t none[2] = {0, 0}, zero = 0;
  ArrayHandle A = matrix_d(3, 3, av), B = matrix_d(3, 2, bv);
  ArrayHandle R = KortArrayNew(QuarzTypeDouble, 2, none), sol = KortArrayNew(QuarzTypeDouble, 1, &zero);
  ArrayHandle work = KortArrayNew(QuarzTypeDouble, 1, &zero), pivots = KortArrayNew(QuarzTypeInt32, 1, &zero);
  s = dMtrxMulH(A, B, R);
  print_matrix("dMtrxMulH(A, B)", R);
  printf("  status %d\n", s);
  s = dLinEqH(A, y, 0, sol, work, pivots);
  const double* xs = (const double*)KortArrayData(sol, QuarzTypeDouble, 1);
  printf("dLinEqH(A, [4 -5 6])              = [%g %g %g] (status %d; work handles back to %d and %d elements)\n",
         xs[0], xs[1], xs[2], s, KortArrayDim(work, 0), KortArrayDim(pivots, 0));
  s = dMtrxMulH(B, B, R);
  print_matrix("dMtrxMulH(B, B)", R);
  printf("  status %d: inner sizes differ, the output is emptied\n", s);

  ArrayHandle handles[] = {A, B, R, sol, work, pivots};
  for (size_t i = 0; i < sizeof handles / sizeof handles[0]; ++i) KortArrayFree(handles[i]);
  KortArrayFree(x);
  KortArrayFree(y);
  KortArrayFree(empty);
  KortArrayFree(zi);
  printf("host handles still live: %lld\n", (long long)KortLiveHandles());
  dlclose(lib);
  return 0;
}
