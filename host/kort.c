/* Reference host runtime: relocatable array handles on the C heap. */
#include "kort.h"

#include <stdatomic.h>
#include <stdlib.h>
#include <string.h>

/* Each block carries a hidden prefix with its size, so accounting needs no table.
 * The prefix is 16 bytes to keep the block 16-byte aligned. */
typedef struct {
  int64_t bytes;
  int64_t pad;
} BlockPrefix;

enum { kRefused = 2 };

/* Both runtime copies export this marker, and a host may load one into the global scope
 * and the other beside it. AddressSanitizer would report the pair as one variable defined
 * twice; a variable in a section of its own is not instrumented. */
__attribute__((section(".rodata.kort_version"))) const int32_t gKORTVersion = 0x13000000;

static atomic_llong live_handles;
static atomic_llong live_bytes;
static atomic_llong resize_calls;
static atomic_llong fail_countdown;

static void* block_of(BlockPrefix* p) { return p ? (void*)(p + 1) : NULL; }
static BlockPrefix* prefix_of(void* block) { return block ? (BlockPrefix*)block - 1 : NULL; }

/* Whether a block of `bytes` (plus its prefix) can be asked of the allocator at all. Where
 * size_t is 64 bits wide only negative sizes fail here. */
static int block_fits(int64_t bytes) {
  return bytes >= 0 && (uint64_t)bytes <= (uint64_t)(SIZE_MAX - sizeof(BlockPrefix));
}

/* Grows or shrinks a block to `bytes`; zero-fills only what a new block gets. */
static int resize_block(struct QuarzArrayBlock** master, int64_t bytes) {
  if (!block_fits(bytes)) return kRefused;
  BlockPrefix* old = prefix_of(*master);
  BlockPrefix* p = (BlockPrefix*)realloc(old, sizeof(BlockPrefix) + (size_t)bytes);
  if (!p) return kRefused;
  int64_t before = old ? p->bytes : 0;
  if (!old) memset(p + 1, 0, (size_t)bytes);
  p->bytes = bytes;
  atomic_fetch_add(&live_bytes, bytes - before);
  *master = (struct QuarzArrayBlock*)block_of(p);
  return 0;
}

/* Internal calls go to these static versions, so a host program that exports functions
 * of the same names cannot interpose on the runtime's own allocation. */
static ArrayHandle new_handle(int64_t size) {
  if (size < 0) return NULL;
  ArrayHandle h = (ArrayHandle)malloc(sizeof *h);
  if (!h) return NULL;
  *h = NULL;
  if (resize_block(h, size) != 0) {
    free(h);
    return NULL;
  }
  atomic_fetch_add(&live_handles, 1);
  return h;
}

static void dispose_handle(ArrayHandle handle) {
  if (!handle) return;
  BlockPrefix* p = prefix_of(*handle);
  if (p) {
    atomic_fetch_sub(&live_bytes, p->bytes);
    free(p);
  }
  free(handle);
  atomic_fetch_sub(&live_handles, 1);
}

ArrayHandle AZNewHandle(int64_t size) { return new_handle(size); }
void AZDisposeHandle(ArrayHandle handle) { dispose_handle(handle); }

static int32_t element_size(int32_t typeCode) {
  switch (typeCode) {
    case QuarzTypeInt32: case QuarzTypeFloat: return 4;
    case QuarzTypeDouble: case QuarzTypeComplexFloat: return 8;
    case QuarzTypeComplexDouble: return 16;
    default: return -1;
  }
}

static int32_t element_offset(int32_t typeCode, int32_t numDims) {
  if (element_size(typeCode) < 0) return -1;
  if (numDims == 2) return 8;
  if (numDims != 1) return -1;
  /* 8-byte scalars (double, and the parts of complex double) start 8-aligned. */
  return (typeCode == QuarzTypeDouble || typeCode == QuarzTypeComplexDouble) ? 8 : 4;
}

int32_t KortElementSize(int32_t typeCode) { return element_size(typeCode); }
int32_t KortElementOffset(int32_t typeCode, int32_t numDims) { return element_offset(typeCode, numDims); }

int32_t NumericArrayResize(int32_t typeCode, int32_t numDims, ArrayHandle* handle, int32_t count) {
  atomic_fetch_add(&resize_calls, 1);
  long long armed = atomic_load(&fail_countdown);
  while (armed > 0 && !atomic_compare_exchange_weak(&fail_countdown, &armed, armed - 1)) {
  }
  if (armed == 1) return kRefused;

  int32_t offset = element_offset(typeCode, numDims);
  int32_t size = element_size(typeCode);
  if (!handle || offset < 0 || count < 0) return kRefused;
  /* At most 8 + (2^31 - 1) * 16 bytes: no overflow in 64 bits. */
  int64_t bytes = offset + (int64_t)count * size;
  if (!*handle) {
    ArrayHandle h = new_handle(bytes);
    if (!h) return kRefused;
    *handle = h;
    return 0;
  }
  return resize_block(*handle, bytes);
}

void QSort(void* base, int32_t count, int32_t elemSize, int (*compare)(const void*, const void*)) {
  if (base && count > 1 && elemSize > 0 && compare) qsort(base, (size_t)count, (size_t)elemSize, compare);
}

ArrayHandle KortArrayNew(int32_t typeCode, int32_t numDims, const int32_t* dims) {
  int32_t offset = element_offset(typeCode, numDims);
  if (offset < 0 || !dims) return NULL;
  int64_t count = 1;
  for (int32_t i = 0; i < numDims; ++i) {
    if (dims[i] < 0) return NULL;
    count *= dims[i];
  }
  /* Two int32 sizes multiply to less than 2^62; the byte size could still overflow. */
  if (count > (INT64_MAX - offset) / element_size(typeCode)) return NULL;
  ArrayHandle h = new_handle(offset + count * element_size(typeCode));
  if (!h) return NULL;
  memcpy(*h, dims, sizeof(int32_t) * (size_t)numDims);
  return h;
}

void KortArrayFree(ArrayHandle handle) { dispose_handle(handle); }

int32_t KortArrayDim(ArrayHandle handle, int32_t i) {
  if (!handle || !*handle || i < 0 || i > 1) return 0;
  return ((const int32_t*)*handle)[i];
}

void* KortArrayData(ArrayHandle handle, int32_t typeCode, int32_t numDims) {
  int32_t offset = element_offset(typeCode, numDims);
  if (!handle || !*handle || offset < 0) return NULL;
  return (char*)*handle + offset;
}

int64_t KortLiveHandles(void) { return atomic_load(&live_handles); }
int64_t KortLiveBytes(void) { return atomic_load(&live_bytes); }
int64_t KortResizeCount(void) { return atomic_load(&resize_calls); }
void KortFailResizeAt(int64_t k) { atomic_store(&fail_countdown, k > 0 ? k : 0); }
