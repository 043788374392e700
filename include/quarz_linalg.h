/* libquarz_linalg: dense linear algebra over host array handles.
 *
 * Every operation exists for up to four element types, told apart by the first letter
 * of its name: s (float), d (double), c (complex float), z (complex double). Each takes
 * host array handles, sizes its outputs through the host's NumericArrayResize and
 * returns an int32 status: 0 success, negative error (array outputs emptied, scalar
 * outputs NaN), positive warning (outputs valid).
 *
 * Array handle layout: a handle points to a pointer to one block that starts with one
 * int32 size per dimension, followed by the elements in row-major order. The first
 * element sits at byte 4 of a 1-D int32, float or complex-float block, at byte 8 of a
 * 1-D double or complex-double block, and at byte 8 of every 2-D block.
 */
#ifndef QUARZ_LINALG_H
#define QUARZ_LINALG_H

#include <stdint.h>

#if defined(_WIN32)
#  if defined(QUARZ_BUILDING_LIBRARY)
#    define QUARZ_API __declspec(dllexport)
#  else
#    define QUARZ_API __declspec(dllimport)
#  endif
#else
#  define QUARZ_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Host array handle: pointer to the host's pointer to the array block. */
typedef struct QuarzArrayBlock** ArrayHandle;

/* Complex elements, stored as (real, imaginary). */
typedef struct { float re, im; } QuarzComplexFloat;
typedef struct { double re, im; } QuarzComplexDouble;

/* Host type codes passed to NumericArrayResize. */
enum QuarzTypeCode {
  QuarzTypeInt32 = 3,
  QuarzTypeFloat = 9,
  QuarzTypeDouble = 10,
  QuarzTypeComplexFloat = 12,
  QuarzTypeComplexDouble = 13
};

/* Status codes returned by every operation. */
enum QuarzStatus {
  StatusOk = 0,
  StatusOutOfMemory = -20001,
  StatusSizeMismatch = -20002,
  StatusEmptyInput = -20003,
  StatusBadDimension = -20004,
  StatusParameterTooSmall = -20006,
  StatusBlasArgument = -20017,
  StatusInnerDimMismatch = -20039,
  StatusNotSquare = -20040,
  StatusSingular = -20041,
  StatusFitData = -20055,
  StatusArrayTooSmall = -20058,
  StatusBlasShape = -20059,
  StatusBadOption = -20061,
  StatusNoConvergence = -20062,
  StatusNotFinite = -20068,
  StatusPairSizeMismatch = -20070,
  StatusNotPositiveDefinite = -20071,
  StatusReorderFailed = -20073,
  StatusReorderInexact = -20074,
  StatusNormParamNaN = -20104,
  StatusZeroParameter = -20141,
  StatusKernelError = -20999,
  WarnRankDeficient = 20001,
  WarnSingular = 20003,
  WarnZeroPencil = 20005,
  WarnSqrtInexact = 20006,
  WarnComplexLogarithm = 359501
};

/* ---- Host binding ----------------------------------------------------------------
 * The library finds the host's NumericArrayResize and QSort at run time. Search order:
 * the module stored in the thread-local slot named by SetKORTTLSIndex (a pthread key on
 * Linux), the module given to SetKORTModule (a dlopen handle), the main program when it
 * exports gKORTVersion or AZNewHandle, then an already loaded libkort.so, then
 * libkoffrt.so. When none is found the process ends with a message on stderr. */
QUARZ_API void SetKORTModule(void* module);
QUARZ_API void SetKORTTLSIndex(uint32_t index);
QUARZ_API void SetKORTModuleHook(void);
QUARZ_API void SetKORTTLSIndexHook(void);

/* ---- Vector operations ------------------------------------------------------------ */

/* result = sum of x[i] * conj(y[i]). -20002 lengths differ, -20003 empty. */
QUARZ_API int32_t sDotProdH(ArrayHandle x, ArrayHandle y, float* result);
QUARZ_API int32_t dDotProdH(ArrayHandle x, ArrayHandle y, double* result);
QUARZ_API int32_t cDotProdH(ArrayHandle x, ArrayHandle y, QuarzComplexFloat* result);
QUARZ_API int32_t zDotProdH(ArrayHandle x, ArrayHandle y, QuarzComplexDouble* result);

/* p-norm for any p except 0 and NaN (p = +-inf: largest / smallest modulus).
 * -20003 empty, -20104 p is NaN, -20141 p = 0. */
QUARZ_API int32_t sVectorNormH(ArrayHandle x, float p, float* result);
QUARZ_API int32_t dVectorNormH(ArrayHandle x, double p, double* result);
QUARZ_API int32_t cVectorNormH(ArrayHandle x, float p, float* result);
QUARZ_API int32_t zVectorNormH(ArrayHandle x, double p, double* result);

/* Arithmetic mean and root mean square. -20003 empty. */
QUARZ_API int32_t sMeanH(ArrayHandle x, float* result);
QUARZ_API int32_t dMeanH(ArrayHandle x, double* result);
QUARZ_API int32_t cMeanH(ArrayHandle x, QuarzComplexFloat* result);
QUARZ_API int32_t zMeanH(ArrayHandle x, QuarzComplexDouble* result);
QUARZ_API int32_t sRMSH(ArrayHandle x, float* result);
QUARZ_API int32_t dRMSH(ArrayHandle x, double* result);
QUARZ_API int32_t cRMSH(ArrayHandle x, float* result);
QUARZ_API int32_t zRMSH(ArrayHandle x, double* result);


/* ---- Matrix products ------------------------------------------------------------ */

/* ---- Square systems: LU, Cholesky, linear equations, determinant -------------------- */

#ifdef __cplusplus
}  /* extern "C" */
#endif

#endif /* QUARZ_LINALG_H */
