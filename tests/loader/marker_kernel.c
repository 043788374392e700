/* A kernel that can be told apart: its ddot returns 1000 + n instead of the product, and
 * it counts the per-thread buffer releases. Every other entry comes from the BLAS it
 * links, which a lookup in this module reaches through its dependencies. */
#include <stdatomic.h>

__attribute__((visibility("default"))) double cblas_ddot(const int n, const double* x, const int incx,
                                                         const double* y, const int incy) {
  (void)x, (void)incx, (void)y, (void)incy;
  return 1000.0 + n;
}

static atomic_int released;
__attribute__((visibility("default"))) void MKL_Thread_Free_Buffers(void) { atomic_fetch_add(&released, 1); }
__attribute__((visibility("default"))) int MarkerBuffersReleased(void) { return atomic_load(&released); }
