/* Reference host runtime for libquarz_linalg.
 *
 * A small stand-in for the host application's runtime: it owns array memory, offers
 * NumericArrayResize and QSort under the names the library binds to, and adds a C API
 * for programs (and tests) that act as the host. Every array lives in a relocatable
 * handle: the handle stays put, the block it points to may move on a resize.
 */
#ifndef QUARZ_KORT_H
#define QUARZ_KORT_H

#include <stdint.h>
#include "quarz_linalg.h"

#define KORT_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* Resizes the block behind *handle to hold `count` elements of the type code's element
 * type in a block of `numDims` dimensions (1 or 2); allocates a new handle when *handle
 * is null. Keeps the existing dimension sizes and elements (as far as they fit); the
 * caller writes the new sizes. Returns 0, or non-zero when refused (negative count,
 * unknown type or rank, a block too large for the address space, no memory). */
KORT_API int32_t NumericArrayResize(int32_t typeCode, int32_t numDims, ArrayHandle* handle,
                                    int32_t count);

/* Sorts `count` elements of `elemSize` bytes in place, ascending by `compare`, which
 * returns a positive value, a negative value or 0 when its first argument is greater
 * than, smaller than or equal to its second (the C library's qsort convention). Fewer
 * than two elements, a null base or a null comparison: nothing is done. */
KORT_API void QSort(void* base, int32_t count, int32_t elemSize,
                    int (*compare)(const void*, const void*));

/* Marks this module as a host runtime. */
KORT_API extern const int32_t gKORTVersion;

/* A handle to a zero-filled block of `size` bytes (NULL when size < 0 or out of memory),
 * and its release. */
KORT_API ArrayHandle AZNewHandle(int64_t size);
KORT_API void AZDisposeHandle(ArrayHandle handle);

/* ---- Arrays ---------------------------------------------------------------------- */

/* Byte offset of the first element and element size for a type code (-1 if unknown). */
KORT_API int32_t KortElementOffset(int32_t typeCode, int32_t numDims);
KORT_API int32_t KortElementSize(int32_t typeCode);

/* New array with the given sizes, elements zero; NULL on a bad type code, rank or size. */
KORT_API ArrayHandle KortArrayNew(int32_t typeCode, int32_t numDims, const int32_t* dims);
KORT_API void KortArrayFree(ArrayHandle handle);
/* Size of dimension i (0 for a null handle or block). */
KORT_API int32_t KortArrayDim(ArrayHandle handle, int32_t i);
/* Address of the first element for the given type code and rank (NULL for a null block). */
KORT_API void* KortArrayData(ArrayHandle handle, int32_t typeCode, int32_t numDims);

/* ---- Memory pool --------------------------------------------------------------------
 *
 * Blocks are pooled, so that a program that empties and regrows the same arrays (every
 * export does so with its work handles, on every call) neither hands memory back to the
 * system nor faults it in again each time:
 *
 * - A handle keeps its block's capacity when it shrinks: emptying a handle and growing it
 *   again up to its former size neither moves the block nor asks the system for memory.
 *   The capacity that all live handles together keep beyond what they hold is limited to
 *   KORT_KEEP_CAP_BYTES; a shrink that would pass the limit moves the contents into a
 *   block of the new size and releases the old block.
 * - Blocks of KORT_LARGE_BLOCK_BYTES and more are mapped from the system in size classes,
 *   four per doubling (a block holds at most a quarter more than asked for); blocks of
 *   2 MiB and more start on a 2 MiB boundary and are advised for transparent huge pages.
 *   Smaller blocks live on the C heap, whose own free lists serve them.
 * - A large block that its handle releases (on disposal, or when the contents move) goes
 *   to a cache of free blocks by size class; the next block of that class is taken from
 *   there, most recently released first. The cache holds at most KORT_CACHE_CAP_BYTES: a
 *   release that would pass the cap first returns the least recently released blocks to
 *   the system, and a block larger than the cap goes back at once. KortTrimPool returns
 *   the whole cache.
 *
 * So a process holds at most KORT_KEEP_CAP_BYTES + KORT_CACHE_CAP_BYTES beyond what its
 * handles hold (plus the size-class rounding of the blocks they hold), and gets all of it
 * back by disposing of its handles and calling KortTrimPool. Every entry may be called
 * from any thread. The resize calls and the bytes that small blocks move in place
 * between held and kept are counted by each thread on its own, without a locked
 * instruction (an export empties and regrows its work handles on every call); kept
 * capacity is reserved from the cap a little ahead, and the counters below add up every
 * thread's share when read (a thread that ends hands its share on). One mutex guards the
 * cache's lists, another the list of the threads' counts.
 * Handles are reachable only from their owners, so a leak checker reports a handle that
 * is never disposed of. */
#define KORT_LARGE_BLOCK_BYTES ((int64_t)64 << 10)
#define KORT_KEEP_CAP_BYTES ((int64_t)128 << 20)
#define KORT_CACHE_CAP_BYTES ((int64_t)128 << 20)

/* Returns every cached free block to the system. */
KORT_API void KortTrimPool(void);

/* ---- Accounting and failure injection --------------------------------------------- */

KORT_API int64_t KortLiveHandles(void);   /* handles allocated and not yet freed */
KORT_API int64_t KortLiveBytes(void);     /* bytes held in blocks (what handles hold) */
KORT_API int64_t KortKeptBytes(void);     /* capacity kept by live handles beyond that */
KORT_API int64_t KortCachedBytes(void);   /* bytes of free blocks in the cache */
KORT_API int64_t KortResizeCount(void);   /* NumericArrayResize calls so far */
/* Makes the k-th NumericArrayResize call from now (1 = the next) fail; 0 disarms. */
KORT_API void KortFailResizeAt(int64_t k);
/* Makes the k-th NumericArrayResize call from now and every later one fail, until
 * disarmed with 0 (here or in KortFailResizeAt). Each call replaces the other's setting. */
KORT_API void KortFailResizeFrom(int64_t k);
/* KORT_MOVE_ON_RESIZE=1 in the environment makes every resize move its block to new
 * memory, as a host that does not pool may; the test suite's sanitizer run sets it so
 * that an element pointer kept across a resize reads freed memory and is reported. */

#ifdef __cplusplus
}
#endif

#endif /* QUARZ_KORT_H */
