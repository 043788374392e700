/* Reference host runtime: relocatable array handles on a pooling memory manager. */
#define _GNU_SOURCE
#include "kort.h"

#include <pthread.h>
#include <stddef.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) && !defined(__SANITIZE_ADDRESS__)
#define __SANITIZE_ADDRESS__ 1
#endif
#endif
/* Under AddressSanitizer the capacity a block keeps beyond what it holds, and every cached
 * free block, is poisoned: reading past an array or through a stale block pointer is
 * still reported although the memory stays ours. */
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#define POISON(p, n) ASAN_POISON_MEMORY_REGION((p), (size_t)(n))
#define UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION((p), (size_t)(n))
#else
#define POISON(p, n) ((void)(p), (void)(n))
#define UNPOISON(p, n) ((void)(p), (void)(n))
#endif

/* Each block carries a hidden prefix with what it holds and what it can hold, so
 * accounting needs no table. The prefix is 16 bytes to keep the block 16-byte aligned. */
typedef struct {
  int64_t bytes;     /* held: what the last resize asked for */
  int64_t capacity;  /* usable bytes behind the prefix */
} BlockPrefix;

enum { kRefused = 2, kPrefix = (int)sizeof(BlockPrefix) };

#define HUGE_PAGE_BYTES ((int64_t)2 << 20)
/* Beyond any address space a process gets; keeps the size-class arithmetic in range. */
#define MAX_BLOCK_BYTES (((int64_t)1 << 46) - kPrefix)

/* Both runtime copies export this marker, and a host may load one into the global scope
 * and the other beside it. AddressSanitizer would report the pair as one variable defined
 * twice; a variable in a section of its own is not instrumented. */
__attribute__((section(".rodata.kort_version"))) const int32_t gKORTVersion = 0x13000000;

static atomic_llong live_handles;
static atomic_llong live_bytes;
static atomic_llong kept_bytes;
static atomic_llong cached_bytes;
static atomic_llong resize_calls;
/* 0 disarmed; k > 0 refuses the k-th call from now; -k refuses the k-th and all later
 * ones (-1: every call). */
static atomic_llong fail_state;

static void* block_of(BlockPrefix* p) { return p ? (void*)(p + 1) : NULL; }
static BlockPrefix* prefix_of(void* block) { return block ? (BlockPrefix*)block - 1 : NULL; }

/* ---- Large blocks: mapped in size classes -------------------------------------------- */

/* Spans (prefix included) of large blocks: KORT_LARGE_BLOCK_BYTES, then four classes per
 * doubling. The smallest span of a class that holds `need` bytes. */
static int64_t class_span(int64_t need) {
  if (need <= KORT_LARGE_BLOCK_BYTES) return KORT_LARGE_BLOCK_BYTES;
  int octave = 63 - __builtin_clzll((unsigned long long)(need - 1));
  int64_t step = (int64_t)1 << (octave - 2);
  return (need + step - 1) / step * step;
}

static int class_index(int64_t span) {
  int octave = 63 - __builtin_clzll((unsigned long long)span);
  return 4 * (octave - 16) + (int)(span >> (octave - 2)) - 4;
}

static int is_large(const BlockPrefix* p) { return p->capacity + kPrefix >= KORT_LARGE_BLOCK_BYTES; }
static int64_t span_of(const BlockPrefix* p) { return p->capacity + kPrefix; }

static BlockPrefix* map_block(int64_t span) {
  const int prot = PROT_READ | PROT_WRITE, flags = MAP_PRIVATE | MAP_ANONYMOUS;
  if (span < HUGE_PAGE_BYTES) {
    void* p = mmap(NULL, (size_t)span, prot, flags, -1, 0);
    return p == MAP_FAILED ? NULL : (BlockPrefix*)p;
  }
  /* Map a huge page more and cut both ends, so that the block starts on a huge-page
   * boundary and every whole huge page inside it can be one. */
  char* raw = (char*)mmap(NULL, (size_t)(span + HUGE_PAGE_BYTES), prot, flags, -1, 0);
  if (raw == MAP_FAILED) return NULL;
  char* start = (char*)(((uintptr_t)raw + HUGE_PAGE_BYTES - 1) & ~(uintptr_t)(HUGE_PAGE_BYTES - 1));
  size_t head = (size_t)(start - raw), tail = (size_t)HUGE_PAGE_BYTES - head;
  if (head) munmap(raw, head);
  if (tail) munmap(start + span, tail);
#ifdef MADV_HUGEPAGE
  madvise(start, (size_t)span, MADV_HUGEPAGE); /* advice only: refused advice costs nothing */
#endif
  return (BlockPrefix*)start;
}

static void unmap_block(BlockPrefix* p) {
  int64_t span = span_of(p);
  /* The shadow of a poisoned range outlives the mapping; the next mapping there is not ours. */
  UNPOISON(p, span);
  munmap(p, (size_t)span);
}

/* ---- The cache of free large blocks ---------------------------------------------------- */

/* Lives in a cached block's own memory, right behind its prefix. */
typedef struct FreeBlock FreeBlock;
struct FreeBlock {
  FreeBlock *class_newer, *class_older; /* blocks of the same class */
  FreeBlock *newer, *older;             /* all cached blocks, in release order */
};

enum { kClasses = 4 * (46 - 16) + 4 };

static pthread_mutex_t cache_lock = PTHREAD_MUTEX_INITIALIZER;
static FreeBlock* class_newest[kClasses];
static FreeBlock *cache_newest, *cache_oldest;

static BlockPrefix* prefix_of_free(FreeBlock* f) { return (BlockPrefix*)f - 1; }

/* Under cache_lock. */
static void unlink_free(FreeBlock* f, int index) {
  if (f->class_newer) f->class_newer->class_older = f->class_older;
  else class_newest[index] = f->class_older;
  if (f->class_older) f->class_older->class_newer = f->class_newer;
  if (f->newer) f->newer->older = f->older;
  else cache_newest = f->older;
  if (f->older) f->older->newer = f->newer;
  else cache_oldest = f->newer;
  atomic_fetch_sub(&cached_bytes, span_of(prefix_of_free(f)));
}

static BlockPrefix* cache_take(int64_t span) {
  if (span > KORT_CACHE_CAP_BYTES) return NULL;
  int index = class_index(span);
  pthread_mutex_lock(&cache_lock);
  FreeBlock* f = class_newest[index];
  if (f) unlink_free(f, index);
  pthread_mutex_unlock(&cache_lock);
  return f ? prefix_of_free(f) : NULL;
}

/* Caches a large block that no handle holds any more, returning the least recently cached
 * blocks to the system while the cache would exceed its cap. */
static void cache_put(BlockPrefix* p) {
  int64_t span = span_of(p);
  if (span > KORT_CACHE_CAP_BYTES) {
    unmap_block(p);
    return;
  }
  FreeBlock* f = (FreeBlock*)(p + 1);
  UNPOISON(f, sizeof *f);
  POISON(f + 1, p->capacity - (int64_t)sizeof *f);
  FreeBlock* evicted = NULL; /* chained through class_older once unlinked */
  int index = class_index(span);
  pthread_mutex_lock(&cache_lock);
  f->class_newer = NULL;
  f->class_older = class_newest[index];
  if (f->class_older) f->class_older->class_newer = f;
  class_newest[index] = f;
  f->newer = NULL;
  f->older = cache_newest;
  if (cache_newest) cache_newest->newer = f;
  else cache_oldest = f;
  cache_newest = f;
  atomic_fetch_add(&cached_bytes, span);
  while (atomic_load(&cached_bytes) > KORT_CACHE_CAP_BYTES) {
    FreeBlock* old = cache_oldest;
    unlink_free(old, class_index(span_of(prefix_of_free(old))));
    old->class_older = evicted;
    evicted = old;
  }
  pthread_mutex_unlock(&cache_lock);
  while (evicted) {
    FreeBlock* next = evicted->class_older;
    unmap_block(prefix_of_free(evicted));
    evicted = next;
  }
}

void KortTrimPool(void) {
  pthread_mutex_lock(&cache_lock);
  FreeBlock* all = cache_newest;
  for (int i = 0; i < kClasses; ++i) class_newest[i] = NULL;
  cache_newest = cache_oldest = NULL;
  atomic_store(&cached_bytes, 0);
  pthread_mutex_unlock(&cache_lock);
  while (all) {
    FreeBlock* next = all->older;
    unmap_block(prefix_of_free(all));
    all = next;
  }
}

/* ---- Blocks of handles ------------------------------------------------------------------ */

/* A block with room for `bytes`, its capacity set; *zeroed tells whether its memory is
 * known to be zero (fresh from the system). Held and kept bytes are the caller's to count. */
static BlockPrefix* acquire_block(int64_t bytes, int* zeroed) {
  int64_t need = bytes + kPrefix;
  BlockPrefix* p;
  *zeroed = 0;
  if (need < KORT_LARGE_BLOCK_BYTES) {
    p = (BlockPrefix*)malloc((size_t)need);
    if (p) p->capacity = bytes;
    return p;
  }
  int64_t span = class_span(need);
  p = cache_take(span);
  if (!p) {
    p = map_block(span);
    *zeroed = 1;
  }
  if (p) p->capacity = span - kPrefix;
  return p;
}

static void release_block(BlockPrefix* p) {
  if (is_large(p)) {
    cache_put(p);
  } else {
    UNPOISON(p + 1, p->capacity);
    free(p);
  }
}

/* Makes the first `bytes` of the block's capacity addressable, the rest poisoned. */
static void set_held(BlockPrefix* p, int64_t bytes) {
  p->bytes = bytes;
  UNPOISON(p + 1, bytes);
  POISON((char*)(p + 1) + bytes, p->capacity - bytes);
}

/* Adds `delta` to the kept capacity; an increase only while the total stays within its
 * cap. Returns whether it was added. */
static int add_kept(int64_t delta) {
  long long kept = atomic_load(&kept_bytes);
  do {
    if (delta > 0 && kept + delta > KORT_KEEP_CAP_BYTES) return 0;
  } while (!atomic_compare_exchange_weak(&kept_bytes, &kept, kept + delta));
  return 1;
}

/* ---- Per-thread tallies ------------------------------------------------------------------
 *
 * Every export empties its work handles on return and the next call grows them again, so
 * the in-place resize of a small block is the hot path; a locked instruction there costs
 * as much as the rest of the resize. Each thread therefore counts its resize calls and
 * the bytes its in-place resizes move between held and kept in a tally of its own (only
 * the owner writes it, plain loads and stores), and the readers add up all tallies. Kept
 * capacity is drawn from the global count in reservations: a thread may let its blocks
 * keep what it has reserved without asking, and kept_bytes, which includes the unused
 * reservations, stays within the cap. A finished thread's tally is folded into the
 * global counts. */
typedef struct Tally Tally;
struct Tally {
  atomic_llong resizes;
  atomic_llong live;     /* bytes held, as changed by this thread's in-place resizes */
  atomic_llong reserve;  /* kept capacity reserved in kept_bytes, not yet kept */
  Tally *prev, *next;
};

/* Reserved kept capacity a thread asks for beyond its need, and returns above twice that. */
enum { kReserveChunk = 256 << 10 };

static pthread_mutex_t tally_lock = PTHREAD_MUTEX_INITIALIZER;
static Tally* tallies;
static pthread_key_t tally_key;
static pthread_once_t tally_once = PTHREAD_ONCE_INIT;
static atomic_int tally_key_made; /* 1 made, -1 failed, 0 not yet */

static void bump(atomic_llong* v, long long d) {
  atomic_store_explicit(v, atomic_load_explicit(v, memory_order_relaxed) + d, memory_order_relaxed);
}

static void retire_tally(void* p) {
  Tally* t = (Tally*)p;
  pthread_mutex_lock(&tally_lock);
  atomic_fetch_add(&resize_calls, atomic_load(&t->resizes));
  atomic_fetch_add(&live_bytes, atomic_load(&t->live));
  atomic_fetch_sub(&kept_bytes, atomic_load(&t->reserve));
  if (t->prev) t->prev->next = t->next;
  else tallies = t->next;
  if (t->next) t->next->prev = t->prev;
  pthread_mutex_unlock(&tally_lock);
  free(t); /* the key's value is null by now: a later destructor that resizes makes a new one */
}

static void make_tally_key(void) {
  atomic_store(&tally_key_made, pthread_key_create(&tally_key, retire_tally) == 0 ? 1 : -1);
}

/* This thread's tally, or null when none can be made (the global counts serve then).
 * The key's value, not a thread-local variable: in a library loaded at run time that
 * would cost a call into the loader on every access. */
static Tally* tally(void) {
  int made = atomic_load_explicit(&tally_key_made, memory_order_acquire);
  if (made == 0) {
    pthread_once(&tally_once, make_tally_key);
    made = atomic_load(&tally_key_made);
  }
  if (made < 0) return NULL;
  Tally* t = (Tally*)pthread_getspecific(tally_key);
  if (t || !(t = (Tally*)calloc(1, sizeof *t))) return t;
  if (pthread_setspecific(tally_key, t) != 0) {
    free(t);
    return NULL;
  }
  pthread_mutex_lock(&tally_lock);
  t->next = tallies;
  if (tallies) tallies->prev = t;
  tallies = t;
  pthread_mutex_unlock(&tally_lock);
  return t;
}

/* A global count plus (sign 1) or less (sign -1) every live thread's share of it. */
static int64_t total(atomic_llong* global, size_t field, int sign) {
  pthread_mutex_lock(&tally_lock);
  int64_t sum = atomic_load(global);
  for (const Tally* t = tallies; t; t = t->next)
    sum += sign * atomic_load_explicit((atomic_llong*)((char*)t + field), memory_order_relaxed);
  pthread_mutex_unlock(&tally_lock);
  return sum;
}

/* Lets this thread's blocks keep `delta` more bytes (fewer when negative): from its
 * reservation, topped up within the cap. Returns whether they may. */
static int keep_more(Tally* t, int64_t delta) {
  int64_t reserve = atomic_load_explicit(&t->reserve, memory_order_relaxed);
  if (delta > reserve) {
    if (add_kept(delta - reserve + kReserveChunk)) reserve = delta + kReserveChunk;
    else if (add_kept(delta - reserve)) reserve = delta;
    else return 0;
  }
  reserve -= delta;
  if (reserve > 2 * kReserveChunk) {
    atomic_fetch_sub(&kept_bytes, reserve - kReserveChunk);
    reserve = kReserveChunk;
  }
  atomic_store_explicit(&t->reserve, reserve, memory_order_relaxed);
  return 1;
}

/* With KORT_MOVE_ON_RESIZE=1 in the environment every resize of a block moves it, as a
 * host whose memory manager does not pool may: under AddressSanitizer, code that keeps an
 * element pointer across a resize then reads freed memory and is reported. */
static int move_on_resize(void) {
  static atomic_int setting = -1;
  int v = atomic_load(&setting);
  if (v < 0) {
    const char* e = getenv("KORT_MOVE_ON_RESIZE");
    v = e && e[0] == '1';
    atomic_store(&setting, v);
  }
  return v;
}

/* Grows or shrinks a block to `bytes`: in place within its capacity, unless a shrink
 * would keep more than the cap allows; otherwise the contents move to another block.
 * Zero-fills only what a new block gets. */
static int resize_block(struct QuarzArrayBlock** master, int64_t bytes, Tally* t) {
  if (bytes < 0 || bytes > MAX_BLOCK_BYTES) return kRefused;
  BlockPrefix* old = prefix_of(*master);
  if (old && bytes <= old->capacity && !move_on_resize()) {
    /* A small block keeps capacity from its thread's reservation (t null: from the global
     * count); what a large block of the same size class would keep anyway is not kept by
     * choice. */
    int64_t need = bytes + kPrefix, delta = old->bytes - bytes;
    int mine = t && !is_large(old), kept;
    if (mine) kept = keep_more(t, delta);
    else if (is_large(old) && need >= KORT_LARGE_BLOCK_BYTES && class_span(need) == span_of(old))
      kept = (atomic_fetch_add(&kept_bytes, delta), 1);
    else kept = add_kept(delta);
    if (kept) {
      if (mine) bump(&t->live, -delta);
      else atomic_fetch_add(&live_bytes, -delta);
      set_held(old, bytes);
      return 0;
    }
  }
  int zeroed;
  BlockPrefix* p = acquire_block(bytes, &zeroed);
  if (!p) return kRefused;
  set_held(p, bytes);
  int64_t before = old ? old->bytes : 0;
  if (old) memcpy(p + 1, old + 1, (size_t)(before < bytes ? before : bytes));
  else if (!zeroed) memset(p + 1, 0, (size_t)bytes);
  atomic_fetch_add(&kept_bytes, (p->capacity - bytes) - (old ? old->capacity - before : 0));
  atomic_fetch_add(&live_bytes, bytes - before);
  if (old) release_block(old);
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
  if (resize_block(h, size, NULL) != 0) {
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
    atomic_fetch_sub(&kept_bytes, p->capacity - p->bytes);
    release_block(p);
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
  Tally* t = tally();
  if (t) bump(&t->resizes, 1);
  else atomic_fetch_add(&resize_calls, 1);
  long long armed = atomic_load(&fail_state);
  while (armed != 0 && armed != -1 &&
         !atomic_compare_exchange_weak(&fail_state, &armed, armed > 0 ? armed - 1 : armed + 1)) {
  }
  if (armed == 1 || armed == -1) return kRefused;

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
  return resize_block(*handle, bytes, t);
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
int64_t KortLiveBytes(void) { return total(&live_bytes, offsetof(Tally, live), 1); }
int64_t KortKeptBytes(void) { return total(&kept_bytes, offsetof(Tally, reserve), -1); }
int64_t KortCachedBytes(void) { return atomic_load(&cached_bytes); }
int64_t KortResizeCount(void) { return total(&resize_calls, offsetof(Tally, resizes), 1); }
void KortFailResizeAt(int64_t k) { atomic_store(&fail_state, k > 0 ? k : 0); }
void KortFailResizeFrom(int64_t k) { atomic_store(&fail_state, k > 0 ? -k : 0); }
