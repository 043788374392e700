/* The Windows marker kernel: every entry the library binds is exported (marker_kernel.def,
 * made from src/kernel/entries.inc), all but ddot as one empty stub; ddot gives 1000 + n,
 * and the per-thread buffer releases are counted. */
static volatile long released;

__declspec(dllexport) double marker_ddot(int n, const double* x, int incx, const double* y, int incy) {
  (void)x, (void)incx, (void)y, (void)incy;
  return 1000.0 + n;
}
__declspec(dllexport) void marker_stub(void) {}
__declspec(dllexport) void MKL_Thread_Free_Buffers(void) { __atomic_fetch_add(&released, 1, __ATOMIC_SEQ_CST); }
__declspec(dllexport) int MarkerBuffersReleased(void) { return (int)__atomic_load_n(&released, __ATOMIC_SEQ_CST); }
