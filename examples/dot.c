/* The smallest host program: it links the library and the reference host runtime and
 * calls one export. */
#include <stdio.h>

#include "kort.h"
#include "quarz_linalg.h"

int main(void) {
  int32_t n = 3;
  ArrayHandle x = KortArrayNew(QuarzTypeDouble, 1, &n), y = KortArrayNew(QuarzTypeDouble, 1, &n);
  double* xv = KortArrayData(x, QuarzTypeDouble, 1);
  double* yv = KortArrayData(y, QuarzTypeDouble, 1);
  for (int i = 0; i < n; ++i) {
    xv[i] = i + 1;
    yv[i] = 2 * i;
  }
  double dot;
  int32_t status = dDotProdH(x, y, &dot); /* 1*0 + 2*2 + 3*4 = 16 */
  printf("libquarz_linalg %d.%d.%d: x . y = %g (status %d)\n", QUARZ_LINALG_VERSION_MAJOR, QUARZ_LINALG_VERSION_MINOR,
         QUARZ_LINALG_VERSION_PATCH, dot, status);
  KortArrayFree(x);
  KortArrayFree(y);
  return status != 0 || dot != 16;
}
