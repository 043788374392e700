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

/* R = A B (m x k times k x n), complex factors not conjugated. k = 0 with m, n > 0
 * gives an m x n matrix of NaN; m = 0 or n = 0 an empty m x n result.
 * -20039 inner sizes differ (checked first), -20004 a negative size, -20001 R too
 * large (ceil(log2 m) + ceil(log2 n) >= 31) or refused by the host. */
QUARZ_API int32_t sMtrxMulH(ArrayHandle A, ArrayHandle B, ArrayHandle R);
QUARZ_API int32_t dMtrxMulH(ArrayHandle A, ArrayHandle B, ArrayHandle R);
QUARZ_API int32_t cMtrxMulH(ArrayHandle A, ArrayHandle B, ArrayHandle R);
QUARZ_API int32_t zMtrxMulH(ArrayHandle A, ArrayHandle B, ArrayHandle R);

/* y = A x (x of n elements, y of m) and y = x A (x of m elements, y of n, plain
 * transpose) for an m x n matrix A. m = 0 or n = 0 gives an empty y.
 * -20039 length of x does not match (checked first), -20004 a negative size of A,
 * -20001 y refused by the host. */
QUARZ_API int32_t sMtrxVecMulH(ArrayHandle A, ArrayHandle x, ArrayHandle y);
QUARZ_API int32_t dMtrxVecMulH(ArrayHandle A, ArrayHandle x, ArrayHandle y);
QUARZ_API int32_t cMtrxVecMulH(ArrayHandle A, ArrayHandle x, ArrayHandle y);
QUARZ_API int32_t zMtrxVecMulH(ArrayHandle A, ArrayHandle x, ArrayHandle y);
QUARZ_API int32_t sVecMtrxMulH(ArrayHandle x, ArrayHandle A, ArrayHandle y);
QUARZ_API int32_t dVecMtrxMulH(ArrayHandle x, ArrayHandle A, ArrayHandle y);
QUARZ_API int32_t cVecMtrxMulH(ArrayHandle x, ArrayHandle A, ArrayHandle y);
QUARZ_API int32_t zVecMtrxMulH(ArrayHandle x, ArrayHandle A, ArrayHandle y);

/* Outer product M[i][j] = x[i] y[j] and Kronecker product
 * M[i r + k][j s + l] = A[i][j] B[k][l] (A p x q, B r x s); no conjugation.
 * -20003 an empty input, -20001 M too large (including p r or q s beyond int32) or
 * refused by the host. */
QUARZ_API int32_t sOuterProdH(ArrayHandle x, ArrayHandle y, ArrayHandle M);
QUARZ_API int32_t dOuterProdH(ArrayHandle x, ArrayHandle y, ArrayHandle M);
QUARZ_API int32_t cOuterProdH(ArrayHandle x, ArrayHandle y, ArrayHandle M);
QUARZ_API int32_t zOuterProdH(ArrayHandle x, ArrayHandle y, ArrayHandle M);
QUARZ_API int32_t sKronProdH(ArrayHandle A, ArrayHandle B, ArrayHandle M);
QUARZ_API int32_t dKronProdH(ArrayHandle A, ArrayHandle B, ArrayHandle M);
QUARZ_API int32_t cKronProdH(ArrayHandle A, ArrayHandle B, ArrayHandle M);
QUARZ_API int32_t zKronProdH(ArrayHandle A, ArrayHandle B, ArrayHandle M);

/* At = transpose of A (n x m for an m x n A); the conjugate transpose for complex
 * elements, whose imaginary parts become -0.0 - im. At is sized before A is found
 * empty. -20001 At too large or refused, -20003 A has no rows or no columns. */
QUARZ_API int32_t sTransposeH(ArrayHandle A, ArrayHandle At);
QUARZ_API int32_t dTransposeH(ArrayHandle A, ArrayHandle At);
QUARZ_API int32_t cTransposeH(ArrayHandle A, ArrayHandle At);
QUARZ_API int32_t zTransposeH(ArrayHandle A, ArrayHandle At);

/* Sum of the main diagonal, A[0][0] + ... + A[k-1][k-1] with k = min(rows, cols).
 * -20003 A has no rows or no columns (trace NaN). */
QUARZ_API int32_t sTraceH(ArrayHandle A, float* trace);
QUARZ_API int32_t dTraceH(ArrayHandle A, double* trace);
QUARZ_API int32_t cTraceH(ArrayHandle A, QuarzComplexFloat* trace);
QUARZ_API int32_t zTraceH(ArrayHandle A, QuarzComplexDouble* trace);

/* Special matrix M by type: 0 identity of order `size`; 1 diagonal of x; 2 Toeplitz
 * with first column x and first row x[0], y[1..]; 3 Vandermonde of x (decreasing
 * powers, last column ones); 4 companion of the polynomial x (first row -x[j+1]/x[0],
 * ones below the diagonal, no test of x[0]); 5 Hankel with first column x and last row
 * x[nx-1], y[1..]. y[0] is never read. -20003 an empty result (-20006 for type 4 with
 * fewer than two coefficients), -20001 M too large or refused, -20061 type outside
 * 0..5 (after M was sized; M is then emptied). */
QUARZ_API int32_t sSpecialMtrxH(int32_t type, int32_t size, ArrayHandle x, ArrayHandle y, ArrayHandle M);
QUARZ_API int32_t dSpecialMtrxH(int32_t type, int32_t size, ArrayHandle x, ArrayHandle y, ArrayHandle M);
QUARZ_API int32_t cSpecialMtrxH(int32_t type, int32_t size, ArrayHandle x, ArrayHandle y, ArrayHandle M);
QUARZ_API int32_t zSpecialMtrxH(int32_t type, int32_t size, ArrayHandle x, ArrayHandle y, ArrayHandle M);

/* ---- Square systems: LU, Cholesky, linear equations, determinant -------------------- */
/* LU with partial pivoting of an m x n matrix: P·A = L·U with L m x min(m,n) unit lower
 * trapezoidal, U min(m,n) x n upper trapezoidal, P the m x m 0/1 permutation (int32) and
 * pivot the m 0-based row interchanges in order. work and iwork are scratch, emptied on
 * return. 20003 (warning) exact zero pivot, outputs valid; -20003 empty, -20001 resize
 * refused, -20999 work handle missing or kernel argument error. */
QUARZ_API int32_t sLUH(ArrayHandle A, ArrayHandle L, ArrayHandle U, ArrayHandle P, ArrayHandle pivot,
                          ArrayHandle work, ArrayHandle iwork);
QUARZ_API int32_t dLUH(ArrayHandle A, ArrayHandle L, ArrayHandle U, ArrayHandle P, ArrayHandle pivot,
                          ArrayHandle work, ArrayHandle iwork);
QUARZ_API int32_t cLUH(ArrayHandle A, ArrayHandle L, ArrayHandle U, ArrayHandle P, ArrayHandle pivot,
                          ArrayHandle work, ArrayHandle iwork);
QUARZ_API int32_t zLUH(ArrayHandle A, ArrayHandle L, ArrayHandle U, ArrayHandle P, ArrayHandle pivot,
                          ArrayHandle work, ArrayHandle iwork);

/* Cholesky factor in place: option 0 reads the lower triangle and leaves L (A = L·L^H),
 * option 1 reads the upper triangle and leaves U (A = U^H·U); the other triangle becomes
 * zero. -20040 not square, -20003 empty, -20061 bad option, -20071 not positive definite;
 * on error A is emptied. */
QUARZ_API int32_t sCholeskyH(ArrayHandle A, int32_t option);
QUARZ_API int32_t dCholeskyH(ArrayHandle A, int32_t option);
QUARZ_API int32_t cCholeskyH(ArrayHandle A, int32_t option);
QUARZ_API int32_t zCholeskyH(ArrayHandle A, int32_t option);

/* Solves A·x = y (LinEqH, y of n elements) or A·X = Y (LinEqSetH, Y n x k). matrixType:
 * 0 general, 1 positive definite (lower triangle read), 2 lower triangular, 3 upper
 * triangular (only that triangle read). valueScratch and pivotScratch are scratch,
 * emptied on return. -20003 empty, -20040 not square, -20002 y does not match, -20061
 * bad type, -20068 NaN, infinite or +-largest finite input, -20041 singular, -20071 not
 * positive definite, -20001 resize refused, -20999 scratch missing or kernel error. */
QUARZ_API int32_t sLinEqH(ArrayHandle A, ArrayHandle y, int32_t matrixType, ArrayHandle x,
                             ArrayHandle valueScratch, ArrayHandle pivotScratch);
QUARZ_API int32_t dLinEqH(ArrayHandle A, ArrayHandle y, int32_t matrixType, ArrayHandle x,
                             ArrayHandle valueScratch, ArrayHandle pivotScratch);
QUARZ_API int32_t cLinEqH(ArrayHandle A, ArrayHandle y, int32_t matrixType, ArrayHandle x,
                             ArrayHandle valueScratch, ArrayHandle pivotScratch);
QUARZ_API int32_t zLinEqH(ArrayHandle A, ArrayHandle y, int32_t matrixType, ArrayHandle x,
                             ArrayHandle valueScratch, ArrayHandle pivotScratch);
QUARZ_API int32_t sLinEqSetH(ArrayHandle A, ArrayHandle Y, int32_t matrixType, ArrayHandle X,
                                ArrayHandle valueScratch, ArrayHandle pivotScratch);
QUARZ_API int32_t dLinEqSetH(ArrayHandle A, ArrayHandle Y, int32_t matrixType, ArrayHandle X,
                                ArrayHandle valueScratch, ArrayHandle pivotScratch);
QUARZ_API int32_t cLinEqSetH(ArrayHandle A, ArrayHandle Y, int32_t matrixType, ArrayHandle X,
                                ArrayHandle valueScratch, ArrayHandle pivotScratch);
QUARZ_API int32_t zLinEqSetH(ArrayHandle A, ArrayHandle Y, int32_t matrixType, ArrayHandle X,
                                ArrayHandle valueScratch, ArrayHandle pivotScratch);

/* Determinant of a square matrix. matrixType: 0 general (LU), 1 positive definite
 * (Cholesky), 2 upper / 3 lower triangular (diagonal product). Orders 1 and 2 of types 0
 * and 1 use the closed forms without scratch. An exactly singular general matrix gives 0.
 * -20003 empty, -20040 not square, -20061 bad type, -20071 not positive definite (order
 * 3 and up), -20001 resize refused, -20999 work handle missing or kernel error. */
QUARZ_API int32_t sDeterminantH(ArrayHandle A, int32_t matrixType, float* result, ArrayHandle work,
                                   ArrayHandle iwork);
QUARZ_API int32_t dDeterminantH(ArrayHandle A, int32_t matrixType, double* result, ArrayHandle work,
                                   ArrayHandle iwork);
QUARZ_API int32_t cDeterminantH(ArrayHandle A, int32_t matrixType, QuarzComplexFloat* result, ArrayHandle work,
                                   ArrayHandle iwork);
QUARZ_API int32_t zDeterminantH(ArrayHandle A, int32_t matrixType, QuarzComplexDouble* result, ArrayHandle work,
                                   ArrayHandle iwork);

#ifdef __cplusplus
}  /* extern "C" */
#endif

#endif /* QUARZ_LINALG_H */
