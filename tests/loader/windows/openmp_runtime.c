/* Stands in for the OpenMP runtime: attach only needs it to load. */
__declspec(dllexport) int omp_get_max_threads(void) { return 1; }
