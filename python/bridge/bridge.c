/* The compiled Python host of libquarz_linalg.
 *
 * Calls the library's exports on numpy arrays. A read-only input is read where it lies
 * when its memory has a host block's layout (the output of an earlier call, or an array
 * numpy allocated through the host-layout handler below); any other input is copied once
 * into a host handle. The export runs, and each output comes back as a numpy array that
 * keeps the export's own host block alive (tiny outputs are copied instead: one copy of a
 * few hundred bytes costs less than a fresh host handle for the next call). Handles are
 * reused: each Python thread keeps the empty handles of its finished calls (inputs
 * emptied again, outputs copied out, work handles as the export leaves them, empty) and
 * takes them for its next call, so the host's pool keeps their capacity and a repeated
 * call neither allocates a handle nor faults its workspace in again.
 *
 * The export table (argument kinds and one call stub per export, checked against the
 * public header) is generated from the kind table by tools/gen_pybridge.py. The library
 * and the host runtime are the ones the package loaded with ctypes: bind() receives their
 * dlopen handles and looks every export up by name.
 */
#define PY_SSIZE_T_CLEAN
#include <Python.h>
#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#include <numpy/arrayobject.h>

#include <dlfcn.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "quarz_linalg.h"

enum {
  QB_IN, QB_OUT, QB_INOUT, QB_WORK, QB_IGNORED, QB_INT, QB_UINT, QB_REAL, QB_ELEM, QB_MODULE,
  QB_ELEM_IN, QB_REAL_IN, QB_ELEM_OUT, QB_REAL_OUT, QB_INT_OUT
};

typedef struct {
  unsigned char role, code, rank;  /* code: host type code (3 int32, 9 s, 10 d, 12 c, 13 z) */
} QbKind;

typedef union {
  ArrayHandle h;
  int32_t i;
  uint32_t u;
  float s;
  double d;
  QuarzComplexFloat c;
  QuarzComplexDouble z;
  void* p;
} QbArg;

typedef int32_t (*QbStub)(void* fn, QbArg* a);

typedef struct {
  const char* name;
  const char* op;      /* the name without its element letter */
  const char* letter;  /* "" for an export written by hand */
  int has_status;
  int nargs;
  const QbKind* args;
  QbStub call;
} QbRow;

#include "pybridge_table.inc"

enum { kMaxArgs = 48, kCacheDepth = 8, kCodes = 5 };
/* Outputs up to this many bytes are copied into a new numpy array and their handle kept. */
enum { kCopyBelow = 256 };
/* Calls whose inputs hold this many bytes release the GIL while the export runs. */
enum { kReleaseGilFrom = 16384 };

/* ---- The host runtime ---------------------------------------------------------------- */

typedef int32_t (*ResizeFn)(int32_t, int32_t, ArrayHandle*, int32_t);
typedef ArrayHandle (*NewFn)(int32_t, int32_t, const int32_t*);
typedef void (*FreeFn)(ArrayHandle);
static ResizeFn host_resize;
static NewFn host_new;
static FreeFn host_free;

static int code_index(int code) {
  switch (code) {
    case 3: return 0;
    case 9: return 1;
    case 10: return 2;
    case 12: return 3;
    default: return 4;
  }
}
static const int kCode[kCodes] = {3, 9, 10, 12, 13};
static const int kElemSize[kCodes] = {4, 4, 8, 8, 16};
static const int kNpyType[kCodes] = {NPY_INT32, NPY_FLOAT32, NPY_FLOAT64, NPY_COMPLEX64, NPY_COMPLEX128};
static int elem_offset(int code, int rank) { return rank == 2 || code == 10 || code == 13 ? 8 : 4; }

static int32_t* sizes_of(ArrayHandle h) { return (int32_t*)*h; }

/* Elements the block's sizes describe (negative sizes count as 0). */
static int64_t count_of(ArrayHandle h, int rank) {
  const int32_t* s = sizes_of(h);
  int64_t n = s[0] > 0 ? s[0] : 0;
  if (rank == 2) n *= s[1] > 0 ? s[1] : 0;
  return n;
}

/* ---- Per-thread handle cache --------------------------------------------------------- */

/* A kept handle holds the elements of its last use while they take at most this many
 * bytes (a repeated call then resizes nothing); larger blocks are emptied when kept. */
enum { kKeepHeldBelow = 65536 };

/* Handles kept by all caches, and the bytes their blocks hold; changed under the GIL
 * only. The package subtracts them from the host's live counts. */
static Py_ssize_t cached_handles, cached_bytes;

typedef struct {
  ArrayHandle h;
  int32_t held;  /* elements its block holds */
} Kept;

typedef struct {
  PyObject_HEAD
  int count[kCodes][2];
  Kept kept[kCodes][2][kCacheDepth];
} Cache;

static Py_ssize_t held_bytes(int code, int rank, int32_t held) {
  return elem_offset(code, rank) + (Py_ssize_t)held * kElemSize[code_index(code)];
}

static void cache_dealloc(Cache* c) {
  for (int k = 0; k < kCodes; ++k) {
    for (int r = 0; r < 2; ++r) {
      for (int i = 0; i < c->count[k][r]; ++i) {
        host_free(c->kept[k][r][i].h);
        cached_handles -= 1;
        cached_bytes -= held_bytes(kCode[k], r + 1, c->kept[k][r][i].held);
      }
    }
  }
  Py_TYPE(c)->tp_free((PyObject*)c);
}

static PyTypeObject CacheType = {
    PyVarObject_HEAD_INIT(NULL, 0).tp_name = "_quarz_bridge.HandleCache",
    .tp_basicsize = sizeof(Cache),
    .tp_dealloc = (destructor)cache_dealloc,
    .tp_flags = Py_TPFLAGS_DEFAULT,
};

static PyObject* cache_key;

/* This thread's cache, kept in the thread state's dictionary so that it goes (and frees
 * its handles) with the thread. Borrowed reference. */
static Cache* thread_cache(void) {
  PyObject* d = PyThreadState_GetDict();
  if (!d) {
    PyErr_SetString(PyExc_RuntimeError, "no thread state dictionary");
    return NULL;
  }
  PyObject* c = PyDict_GetItemWithError(d, cache_key);
  if (c || PyErr_Occurred()) return (Cache*)c;
  c = CacheType.tp_alloc(&CacheType, 0);
  if (!c) return NULL;
  int failed = PyDict_SetItem(d, cache_key, c);
  Py_DECREF(c);
  return failed ? NULL : (Cache*)c;
}

/* A handle of this type and rank with sizes 0: from the cache (*held: the elements its
 * block still holds), else new (*held = 0). */
static ArrayHandle take(Cache* c, int code, int rank, int32_t* held) {
  const int k = code_index(code), r = rank - 1;
  if (c->count[k][r] > 0) {
    const Kept e = c->kept[k][r][--c->count[k][r]];
    cached_handles -= 1;
    cached_bytes -= held_bytes(code, rank, e.held);
    *held = e.held;
    return e.h;
  }
  const int32_t zero[2] = {0, 0};
  ArrayHandle h = host_new(code, rank, zero);
  if (!h) PyErr_NoMemory();
  *held = 0;
  return h;
}

/* Takes back a handle whose block holds `held` elements, or an unknown number (-1):
 * after an export ran, the sizes of a handle it emptied read 0 even when the host
 * refused the resize, so such a handle is emptied again. A handle the host refuses to
 * empty is freed instead. */
static void give(Cache* c, int code, int rank, ArrayHandle h, int64_t held) {
  if (!h) return;
  if (!*h) {
    host_free(h);
    return;
  }
  if (held < 0 || held * kElemSize[code_index(code)] >= kKeepHeldBelow) {
    if (held != 0 && host_resize(code, rank, &h, 0) != 0) {
      host_free(h);
      return;
    }
    held = 0;
  }
  int32_t* s = sizes_of(h);
  s[0] = 0;
  if (rank == 2) s[1] = 0;
  const int k = code_index(code), r = rank - 1;
  if (c->count[k][r] == kCacheDepth) {
    host_free(h);
    return;
  }
  c->kept[k][r][c->count[k][r]++] = (Kept){h, (int32_t)held};
  cached_handles += 1;
  cached_bytes += held_bytes(code, rank, (int32_t)held);
}

/* ---- Outputs handed to numpy --------------------------------------------------------- */

/* Owns a host handle whose block is the data of a numpy array. */
typedef struct {
  PyObject_HEAD
  ArrayHandle h;
  int code, rank;  /* the handle's element type and rank */
} HostBlock;

static void host_block_dealloc(HostBlock* b) {
  if (b->h) host_free(b->h);
  Py_TYPE(b)->tp_free((PyObject*)b);
}

static PyTypeObject HostBlockType = {
    PyVarObject_HEAD_INIT(NULL, 0).tp_name = "_quarz_bridge.HostBlock",
    .tp_basicsize = sizeof(HostBlock),
    .tp_dealloc = (destructor)host_block_dealloc,
    .tp_flags = Py_TPFLAGS_DEFAULT,
    .tp_doc = "A host array handle whose block holds a numpy array's elements.",
};

/* The output behind *hp as a numpy array. A large block is handed over (*hp becomes null);
 * a small one is copied and its handle stays with the caller. */
static PyObject* output_array(const QbKind* kd, ArrayHandle* hp) {
  const int k = code_index(kd->code);
  const int32_t* s = sizes_of(*hp);
  npy_intp shape[2] = {s[0] > 0 ? s[0] : 0, kd->rank == 2 && s[1] > 0 ? s[1] : 0};
  const int64_t count = kd->rank == 2 ? (int64_t)shape[0] * shape[1] : shape[0];
  const int64_t bytes = count * kElemSize[k];
  char* data = (char*)**hp + elem_offset(kd->code, kd->rank);
  if (bytes <= kCopyBelow) {
    PyObject* a = PyArray_SimpleNew(kd->rank, shape, kNpyType[k]);
    if (a && bytes) memcpy(PyArray_DATA((PyArrayObject*)a), data, (size_t)bytes);
    return a;
  }
  HostBlock* owner = PyObject_New(HostBlock, &HostBlockType);
  if (!owner) return NULL;
  owner->h = NULL;
  PyObject* a = PyArray_New(&PyArray_Type, kd->rank, shape, kNpyType[k], NULL, data, 0,
                            NPY_ARRAY_CARRAY, NULL);
  if (!a) {
    Py_DECREF(owner);
    return NULL;
  }
  owner->h = *hp;
  owner->code = kd->code;
  owner->rank = kd->rank;
  *hp = NULL;
  if (PyArray_SetBaseObject((PyArrayObject*)a, (PyObject*)owner) < 0) {
    Py_DECREF(a);  /* the owner was stolen either way and frees the handle */
    return NULL;
  }
  return a;
}

/* ---- Exports ------------------------------------------------------------------------- */

static PyObject* check_status_fn;  /* the package's check_status(status, name) */
static PyObject* quarz_error;      /* the package's QuarzError(status, name) */

typedef struct {
  PyObject_HEAD
  vectorcallfunc vectorcall;
  const QbRow* row;
  void* fn;
  PyObject* name;
  int n_inputs, n_outputs;
} Export;

static void export_dealloc(Export* e) {
  Py_XDECREF(e->name);
  Py_TYPE(e)->tp_free((PyObject*)e);
}

static void raise_status(int32_t status, PyObject* name) {
  PyObject* err = PyObject_CallFunction(quarz_error, "iO", (int)status, name);
  if (err) {
    PyErr_SetObject((PyObject*)Py_TYPE(err), err);
    Py_DECREF(err);
  }
}

/* A by-value or pointed-to scalar of host type `code`. */
static int scalar_value(PyObject* v, int code, QbArg* out) {
  if (code == 12 || code == 13) {
    Py_complex z = PyComplex_AsCComplex(v);
    if (z.real == -1.0 && PyErr_Occurred()) return -1;
    if (code == 12) {
      out->c.re = (float)z.real;
      out->c.im = (float)z.imag;
    } else {
      out->z.re = z.real;
      out->z.im = z.imag;
    }
    return 0;
  }
  const double d = PyFloat_AsDouble(v);
  if (d == -1.0 && PyErr_Occurred()) return -1;
  if (code == 9) out->s = (float)d;
  else out->d = d;
  return 0;
}

static int int_value(PyObject* v, uint32_t* out) {
  PyObject* l = PyNumber_Long(v);
  if (!l) return -1;
  /* The low 32 bits, as ctypes passes an int32 */
  const unsigned long long m = PyLong_AsUnsignedLongLongMask(l);
  Py_DECREF(l);
  if (m == (unsigned long long)-1 && PyErr_Occurred()) return -1;
  *out = (uint32_t)m;
  return 0;
}

/* A native C-ordered array of the argument's element type and rank: its elements can be
 * read as a host block's. */
static int plain_of_kind(PyArrayObject* arr, const QbKind* kd) {
  return PyArray_NDIM(arr) == kd->rank && PyArray_TYPE(arr) == kNpyType[code_index(kd->code)] &&
         PyArray_ISNOTSWAPPED(arr) && PyArray_IS_C_CONTIGUOUS(arr);
}

/* An output of an earlier call that still is the whole host block it came back in (a
 * plain native array of the block's type, rank and sizes at the block's first element):
 * that block's handle, which a read-only input can take as it is. Null otherwise. */
static ArrayHandle own_block(PyObject* v, const QbKind* kd) {
  if (!PyArray_CheckExact(v)) return NULL;
  PyArrayObject* arr = (PyArrayObject*)v;
  PyObject* base = PyArray_BASE(arr);
  if (!base || Py_TYPE(base) != &HostBlockType) return NULL;
  const HostBlock* b = (const HostBlock*)base;
  if (!b->h || !*b->h || b->code != kd->code || b->rank != kd->rank || !plain_of_kind(arr, kd) ||
      PyArray_DATA(arr) != (char*)*b->h + elem_offset(kd->code, kd->rank))
    return NULL;
  const int32_t* s = sizes_of(b->h);
  if (PyArray_DIM(arr, 0) != s[0] || (kd->rank == 2 && PyArray_DIM(arr, 1) != s[1])) return NULL;
  return b->h;
}

/* ---- numpy arrays laid out as host blocks -------------------------------------------- */

/* numpy allocates every array's memory through a handler of the current context. Ours
 * wraps numpy's default one and puts a small header in front of each allocation, whose
 * last 8 bytes are where a host block keeps its sizes: an array that starts at its
 * allocation can then be read by an export in place, through a handle whose block is
 * (sizes slot, elements), instead of being copied into a host block first. The data stays
 * 16-byte aligned, as numpy's default gives it. */
typedef struct {
  uint32_t magic;
  int32_t lent;      /* calls reading the block now; changed under the GIL only */
  int32_t sizes[2];  /* the block's sizes, where elem_offset puts them before the data */
} LayoutHeader;

enum { kLayoutMagic = 0x4C48514Bu };
#define LAYOUT_HEADER_BYTES ((size_t)sizeof(LayoutHeader))

static PyDataMem_Handler* default_handler;
static PyObject* layout_capsule;

static LayoutHeader* header_of(void* data) { return (LayoutHeader*)((char*)data - LAYOUT_HEADER_BYTES); }

static void* layout_data(void* raw) {
  if (!raw) return NULL;
  LayoutHeader* h = (LayoutHeader*)raw;
  h->magic = kLayoutMagic;
  h->lent = 0;
  h->sizes[0] = h->sizes[1] = 0;
  return (char*)raw + LAYOUT_HEADER_BYTES;
}

static void* layout_malloc(void* ctx, size_t size) {
  (void)ctx;
  if (size > SIZE_MAX - LAYOUT_HEADER_BYTES) return NULL;
  const PyDataMemAllocator* a = &default_handler->allocator;
  return layout_data(a->malloc(a->ctx, size + LAYOUT_HEADER_BYTES));
}

static void* layout_calloc(void* ctx, size_t nelem, size_t elsize) {
  (void)ctx;
  if (elsize && nelem > (SIZE_MAX - LAYOUT_HEADER_BYTES) / elsize) return NULL;
  const PyDataMemAllocator* a = &default_handler->allocator;
  return layout_data(a->calloc(a->ctx, 1, nelem * elsize + LAYOUT_HEADER_BYTES));
}

/* The header moves with the data and keeps what it holds. */
static void* layout_realloc(void* ctx, void* ptr, size_t size) {
  if (!ptr) return layout_malloc(ctx, size);
  if (size > SIZE_MAX - LAYOUT_HEADER_BYTES) return NULL;
  const PyDataMemAllocator* a = &default_handler->allocator;
  char* raw = (char*)a->realloc(a->ctx, header_of(ptr), size + LAYOUT_HEADER_BYTES);
  return raw ? raw + LAYOUT_HEADER_BYTES : NULL;
}

static void layout_free(void* ctx, void* ptr, size_t size) {
  (void)ctx;
  if (!ptr) return;
  const PyDataMemAllocator* a = &default_handler->allocator;
  a->free(a->ctx, header_of(ptr), size + LAYOUT_HEADER_BYTES);
}

static PyDataMem_Handler layout_handler = {
    "quarz_linalg_host_layout", 1,
    {NULL, layout_malloc, layout_calloc, layout_realloc, layout_free},
};

/* host_layout(enable=None) -> whether arrays allocated from now on in this context (this
 * thread, or a task that copied its context) get the header; enable switches it. Only
 * numpy's default handler is replaced, and only by ours: a handler someone else set stays. */
static PyObject* host_layout(PyObject* module, PyObject* const* args, Py_ssize_t nargs) {
  (void)module;
  if (nargs > 1) {
    PyErr_SetString(PyExc_TypeError, "host_layout(enable=None)");
    return NULL;
  }
  PyObject* current = PyDataMem_GetHandler();
  if (!current) return NULL;
  int on = current == layout_capsule;
  if (nargs == 1 && args[0] != Py_None) {
    const int want = PyObject_IsTrue(args[0]);
    PyObject* old = NULL;
    if (want < 0) {
      Py_DECREF(current);
      return NULL;
    }
    if (want && !on && current == PyDataMem_DefaultHandler) {
      old = PyDataMem_SetHandler(layout_capsule);
      on = old != NULL;
    } else if (!want && on) {
      old = PyDataMem_SetHandler(PyDataMem_DefaultHandler);
      on = old == NULL;
    } else {
      old = Py_None;
      Py_INCREF(old);
    }
    if (!old) {
      Py_DECREF(current);
      return NULL;
    }
    Py_DECREF(old);
  }
  Py_DECREF(current);
  return PyBool_FromLong(on);
}

/* The sizes slot as a block of this kind reads it: (rows, cols) for a matrix; a vector's
 * length in the first word when its elements start 8 bytes into the block (double and
 * complex double), in the second when they start 4 bytes in. */
static void sizes_slot(const QbKind* kd, const npy_intp* dims, int32_t out[2]) {
  if (kd->rank == 2) {
    out[0] = (int32_t)dims[0];
    out[1] = (int32_t)dims[1];
  } else if (elem_offset(kd->code, 1) == 8) {
    out[0] = (int32_t)dims[0];
    out[1] = 0;
  } else {
    out[0] = 0;
    out[1] = (int32_t)dims[0];
  }
}

/* A read-only input that can be read where it lies: a native C-ordered array of the
 * argument's type, not empty, that starts where a host-layout allocation starts. Its
 * header takes the array's sizes and counts one more reader (undone by unlend); *master
 * becomes the block pointer the returned handle points to. Null when the array is not
 * such, or when another call reads the same memory as an array of other sizes. */
static ArrayHandle lend_block(PyObject* v, const QbKind* kd, void** master) {
  if (!layout_capsule || !PyArray_Check(v)) return NULL;
  PyArrayObject* arr = (PyArrayObject*)v;
  if (!plain_of_kind(arr, kd) || PyArray_SIZE(arr) == 0) return NULL;
  PyArrayObject* owner = arr;
  while (!PyArray_CHKFLAGS(owner, NPY_ARRAY_OWNDATA)) {
    PyObject* base = PyArray_BASE(owner);
    if (!base || !PyArray_Check(base)) return NULL;
    owner = (PyArrayObject*)base;
  }
  if (PyArray_HANDLER(owner) != layout_capsule || PyArray_DATA(owner) != PyArray_DATA(arr)) return NULL;
  const npy_intp* dims = PyArray_DIMS(arr);
  for (int r = 0; r < kd->rank; ++r) {
    if (dims[r] > INT32_MAX) return NULL;
  }
  if (PyArray_SIZE(arr) > INT32_MAX) return NULL;
  LayoutHeader* h = header_of(PyArray_DATA(arr));
  if (h->magic != kLayoutMagic) return NULL;
  int32_t sizes[2];
  sizes_slot(kd, dims, sizes);
  /* Written only while no export reads them; a running reader of other sizes keeps them. */
  if (h->lent == 0) {
    h->sizes[0] = sizes[0];
    h->sizes[1] = sizes[1];
  } else if (h->sizes[0] != sizes[0] || h->sizes[1] != sizes[1]) {
    return NULL;
  }
  h->lent += 1;
  *master = (char*)PyArray_DATA(arr) - elem_offset(kd->code, kd->rank);
  return (ArrayHandle)master;
}

static void unlend(ArrayHandle h, const QbKind* kd) {
  header_of((char*)*h + elem_offset(kd->code, kd->rank))->lent -= 1;
}

/* Copies an array-like into a handle of the argument's type and rank, converting the
 * element type and gathering strided data in the same pass. */
static int input_handle(Cache* c, PyObject* v, const QbKind* kd, const Export* e, ArrayHandle* out,
                        int64_t* out_held, Py_ssize_t* bytes_in) {
  PyArrayObject* arr;
  if (PyArray_Check(v)) {
    arr = (PyArrayObject*)v;
    Py_INCREF(arr);
  } else {
    arr = (PyArrayObject*)PyArray_FROM_O(v);
    if (!arr) return -1;
  }
  int rc = -1;
  const int rank = kd->rank, k = code_index(kd->code);
  if (PyArray_NDIM(arr) != rank) {
    PyObject* shape = PyObject_GetAttrString((PyObject*)arr, "shape");
    if (shape) {
      PyErr_Format(PyExc_ValueError, "expected a %d-D array, got shape %R", rank, shape);
      Py_DECREF(shape);
    }
    goto done;
  }
  const npy_intp* dims = PyArray_DIMS(arr);
  int64_t count = 1;
  for (int r = 0; r < rank; ++r) {
    if (dims[r] > INT32_MAX) {
      PyErr_Format(PyExc_MemoryError, "%U: a host array dimension holds at most 2**31 - 1 elements", e->name);
      goto done;
    }
    count *= dims[r];
  }
  if (count > INT32_MAX) {
    PyErr_Format(PyExc_MemoryError, "%U: a host array holds at most 2**31 - 1 elements", e->name);
    goto done;
  }
  int32_t held;
  ArrayHandle h = take(c, kd->code, rank, &held);
  if (!h) goto done;
  if (held != count && host_resize(kd->code, rank, &h, (int32_t)count) != 0) {
    give(c, kd->code, rank, h, held);
    raise_status(StatusOutOfMemory, e->name);
    goto done;
  }
  int32_t* s = sizes_of(h);
  s[0] = (int32_t)dims[0];
  if (rank == 2) s[1] = (int32_t)dims[1];
  *out = h;
  *out_held = count;
  if (count > 0) {
    char* data = (char*)*h + elem_offset(kd->code, rank);
    const size_t nbytes = (size_t)count * kElemSize[k];
    *bytes_in += (Py_ssize_t)nbytes;
    if (plain_of_kind(arr, kd) && PyArray_ISALIGNED(arr)) {
      memcpy(data, PyArray_DATA(arr), nbytes);
    } else {
      PyObject* view = PyArray_New(&PyArray_Type, rank, (npy_intp*)dims, kNpyType[k], NULL, data, 0,
                                   NPY_ARRAY_CARRAY, NULL);
      if (!view || PyArray_CopyInto((PyArrayObject*)view, arr) < 0) {
        Py_XDECREF(view);
        give(c, kd->code, rank, h, count);
        *out = NULL;
        goto done;
      }
      Py_DECREF(view);
    }
  }
  rc = 0;
done:
  Py_DECREF(arr);
  return rc;
}

/* Prepares argument i of any role but in / inout: a handle taken for an output or work
 * array, null for an ignored one, the value of a by-value or pointed-to scalar input (v),
 * a zeroed slot for a scalar result. */
static int plain_arg(Cache* c, const QbKind* kd, PyObject* v, QbArg* a, QbArg* store, int64_t* held) {
  switch (kd->role) {
    case QB_OUT:
    case QB_WORK: {
      int32_t kept;
      if (!(a->h = take(c, kd->code, kd->rank, &kept))) return -1;
      *held = kept;
      return 0;
    }
    case QB_IGNORED:
      a->h = NULL;
      return 0;
    case QB_INT:
    case QB_UINT:
      return int_value(v, &a->u);
    case QB_REAL:
    case QB_ELEM:
      return scalar_value(v, kd->code, a);
    case QB_MODULE:
      a->p = v == Py_None ? NULL : PyLong_AsVoidPtr(v);
      return !a->p && PyErr_Occurred() ? -1 : 0;
    case QB_ELEM_IN:
    case QB_REAL_IN:
      a->p = NULL;
      if (v != Py_None) {
        if (scalar_value(v, kd->code, store) < 0) return -1;
        a->p = store;
      }
      return 0;
    default: /* scalar results */
      memset(store, 0, sizeof *store);
      a->p = store;
      return 0;
  }
}

static int takes_input(int role) { return role >= QB_INT && role <= QB_REAL_IN; }

/* Runs the export on `inputs`. Returns the list of outputs and stores the status, or
 * returns null with an exception set (with check, for a negative status as well). */
static PyObject* run_export(Export* e, PyObject* const* inputs, Py_ssize_t n_inputs, int check,
                            int32_t* status_out) {
  const QbRow* row = e->row;
  if (n_inputs != e->n_inputs) {
    PyErr_Format(PyExc_TypeError, "%U takes %d inputs, got %zd", e->name, e->n_inputs, n_inputs);
    return NULL;
  }
  Cache* c = thread_cache();
  if (!c) return NULL;
  Py_INCREF(c);
  QbArg a[kMaxArgs], store[kMaxArgs];
  int64_t held[kMaxArgs];  /* elements each handle's block holds, -1 unknown */
  PyObject* source[kMaxArgs] = {NULL};  /* the object each input handle was copied from */
  char shared[kMaxArgs];                /* the handle is not ours: an earlier argument's, or
                                           the block of an array passed in */
  char lent[kMaxArgs] = {0};            /* the array passed in is read in place */
  void* master[kMaxArgs];               /* the block pointers of those handles */
  PyObject* result = NULL;
  Py_ssize_t bytes_in = 0;
  int prepared = 0, k = 0, called = 0;
  for (int i = 0; i < row->nargs; ++i, prepared = i) {
    const QbKind* kd = &row->args[i];
    switch (kd->role) {
      case QB_IN:
      case QB_INOUT: {
        PyObject* v = inputs[k++];
        a[i].h = NULL;
        shared[i] = 0;
        if (v == Py_None) break;
        /* One array passed for two read-only inputs of one kind is copied once. */
        if (kd->role == QB_IN) {
          for (int j = 0; j < i && !a[i].h; ++j) {
            if (source[j] == v && row->args[j].role == QB_IN && row->args[j].code == kd->code &&
                row->args[j].rank == kd->rank && a[j].h) {
              a[i].h = a[j].h;
              shared[i] = 1;
            }
          }
        }
        source[i] = v;
        if (!a[i].h && kd->role == QB_IN &&
            ((a[i].h = own_block(v, kd)) || (lent[i] = (a[i].h = lend_block(v, kd, &master[i])) != NULL))) {
          shared[i] = 1;
          bytes_in += PyArray_NBYTES((PyArrayObject*)v);
        }
        if (!a[i].h && input_handle(c, v, kd, e, &a[i].h, &held[i], &bytes_in) < 0) goto cleanup;
        break;
      }
      default:
        if (plain_arg(c, kd, takes_input(kd->role) ? inputs[k++] : NULL, &a[i], &store[i], &held[i]) < 0)
          goto cleanup;
        break;
    }
  }

  int32_t status;
  if (bytes_in >= kReleaseGilFrom) {
    Py_BEGIN_ALLOW_THREADS
    status = row->call(e->fn, a);
    Py_END_ALLOW_THREADS
  } else {
    status = row->call(e->fn, a);
  }
  *status_out = status;
  called = 1;
  for (int i = 0; i < row->nargs; ++i) {
    if (row->args[i].role == QB_OUT || row->args[i].role == QB_INOUT) held[i] = -1;
  }

  PyObject* list = PyList_New(e->n_outputs);
  if (!list) goto cleanup;
  Py_ssize_t o = 0;
  for (int i = 0; i < row->nargs; ++i) {
    const QbKind* kd = &row->args[i];
    PyObject* item;
    switch (kd->role) {
      case QB_OUT:
      case QB_INOUT:
        if (!a[i].h) {
          Py_INCREF(Py_None);
          item = Py_None;
        } else {
          /* Sizes written by the export describe what its resize asked for; sizes 0
           * may hide a refused emptying. */
          const int64_t n = count_of(a[i].h, kd->rank);
          held[i] = n > 0 ? n : -1;
          item = output_array(kd, &a[i].h);
        }
        break;
      case QB_ELEM_OUT:
      case QB_REAL_OUT:
      case QB_INT_OUT: {
        PyArray_Descr* d = PyArray_DescrFromType(kNpyType[code_index(kd->role == QB_INT_OUT ? 3 : kd->code)]);
        item = PyArray_Scalar(&store[i], d, NULL);
        Py_DECREF(d);
        break;
      }
      default:
        continue;
    }
    if (!item) {
      Py_DECREF(list);
      goto cleanup;
    }
    PyList_SET_ITEM(list, o++, item);
  }
  result = list;

cleanup:
  for (int i = 0; i < prepared; ++i) {
    const QbKind* kd = &row->args[i];
    if (lent[i]) unlend(a[i].h, kd);
    if (kd->role > QB_WORK || kd->role == QB_IGNORED || (kd->role == QB_IN && shared[i])) continue;
    /* Work handles come back with sizes 0 and an unknown content (see give). */
    if (called && kd->role == QB_WORK) held[i] = -1;
    give(c, kd->code, kd->rank, a[i].h, held[i]);
  }
  Py_DECREF(c);
  if (result && check && row->has_status && *status_out != 0) {
    if (*status_out < 0) {
      raise_status(*status_out, e->name);
      Py_CLEAR(result);
    } else {
      PyObject* r = PyObject_CallFunction(check_status_fn, "iO", (int)*status_out, e->name);
      if (!r) Py_CLEAR(result);
      Py_XDECREF(r);
    }
  }
  return result;
}

/* export(*inputs, check=True) -> (status, [outputs]); status None for an export without. */
static PyObject* export_vectorcall(PyObject* self, PyObject* const* args, size_t nargsf, PyObject* kwnames) {
  Export* e = (Export*)self;
  int check = 1;
  Py_ssize_t n = PyVectorcall_NARGS(nargsf);
  if (kwnames) {
    const Py_ssize_t nk = PyTuple_GET_SIZE(kwnames);
    for (Py_ssize_t i = 0; i < nk; ++i) {
      PyObject* key = PyTuple_GET_ITEM(kwnames, i);
      if (!PyUnicode_Check(key) || PyUnicode_CompareWithASCIIString(key, "check") != 0) {
        PyErr_Format(PyExc_TypeError, "%U got an unexpected keyword argument %R", e->name, key);
        return NULL;
      }
      if ((check = PyObject_IsTrue(args[n + i])) < 0) return NULL;
    }
  }
  int32_t status = 0;
  PyObject* outputs = run_export(e, args, n, check, &status);
  if (!outputs) return NULL;
  PyObject* s = e->row->has_status ? PyLong_FromLong(status) : (Py_INCREF(Py_None), Py_None);
  if (!s) {
    Py_DECREF(outputs);
    return NULL;
  }
  PyObject* t = PyTuple_Pack(2, s, outputs);
  Py_DECREF(s);
  Py_DECREF(outputs);
  return t;
}

static PyObject* export_get_name(Export* e, void* closure) {
  (void)closure;
  Py_INCREF(e->name);
  return e->name;
}

static PyGetSetDef export_getset[] = {
    {"__name__", (getter)export_get_name, NULL, NULL, NULL},
    {NULL, NULL, NULL, NULL, NULL},
};

static PyTypeObject ExportType = {
    PyVarObject_HEAD_INIT(NULL, 0).tp_name = "_quarz_bridge.Export",
    .tp_basicsize = sizeof(Export),
    .tp_dealloc = (destructor)export_dealloc,
    .tp_vectorcall_offset = offsetof(Export, vectorcall),
    .tp_call = PyVectorcall_Call,
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_VECTORCALL,
    .tp_getset = export_getset,
    .tp_doc = "One export: export(*inputs, check=True) -> (status, [outputs]).",
};

/* ---- Operations over the four element types ------------------------------------------ */

typedef struct {
  PyObject_HEAD
  vectorcallfunc vectorcall;
  PyObject* name;
  Export* by_letter[4];  /* s d c z, null where the library lacks one */
  int first_only;        /* return the first output alone */
} Op;

static void op_dealloc(Op* op) {
  Py_XDECREF(op->name);
  for (int i = 0; i < 4; ++i) Py_XDECREF(op->by_letter[i]);
  Py_TYPE(op)->tp_free((PyObject*)op);
}

/* Letter index (s d c z) of a numpy element type: integers and booleans compute in d. */
static int letter_of_descr(const PyArray_Descr* d) {
  switch (d->kind) {
    case 'c': return d->elsize <= 8 ? 2 : 3;
    case 'f': return d->elsize <= 4 ? 0 : 1;
    case 'b':
    case 'i':
    case 'u': return 1;
    default: return -1;
  }
}

/* op(*inputs) -> [outputs]: the element type is numpy's result type of the arrays passed
 * for the handle inputs, as the numpy-style layer picks it. */
static PyObject* op_vectorcall(PyObject* self, PyObject* const* args, size_t nargsf, PyObject* kwnames) {
  Op* op = (Op*)self;
  const Py_ssize_t n = PyVectorcall_NARGS(nargsf);
  if (kwnames && PyTuple_GET_SIZE(kwnames)) {
    PyErr_Format(PyExc_TypeError, "%U takes no keyword arguments", op->name);
    return NULL;
  }
  /* The handle inputs' positions, from any variant (they agree). */
  const Export* any = NULL;
  for (int i = 0; i < 4 && !any; ++i) any = op->by_letter[i];
  const QbRow* row = any->row;
  PyArrayObject* arrays[kMaxArgs];
  int n_arrays = 0, same = 1, type = -1;
  PyObject* converted[kMaxArgs];
  PyObject* const* inputs = args;
  PyObject* result = NULL;
  int k = 0;
  if (n != any->n_inputs) {
    PyErr_Format(PyExc_TypeError, "%U takes %d inputs, got %zd", op->name, any->n_inputs, n);
    return NULL;
  }
  for (int i = 0; i < row->nargs; ++i) {
    const int role = row->args[i].role;
    if (role == QB_OUT || role == QB_WORK || role == QB_IGNORED || role >= QB_ELEM_OUT) continue;
    PyObject* v = args[k++];
    if ((role != QB_IN && role != QB_INOUT) || v == Py_None) continue;
    if (!PyArray_Check(v)) {
      /* Array-likes are converted once here and passed on converted. */
      if (inputs == args) {
        memcpy(converted, args, sizeof(PyObject*) * (size_t)n);
        inputs = converted;
      }
      v = PyArray_FROM_O(v);
      if (!v) goto done;
      converted[k - 1] = v;
    }
    arrays[n_arrays++] = (PyArrayObject*)v;
    const int t = PyArray_TYPE((PyArrayObject*)v);
    if (type >= 0 && t != type) same = 0;
    type = t;
  }
  int letter;
  if (n_arrays == 0) {
    letter = 1;
  } else if (same) {
    letter = letter_of_descr(PyArray_DESCR(arrays[0]));
  } else {
    PyArray_Descr* d = PyArray_ResultType(n_arrays, arrays, 0, NULL);
    if (!d) goto done;
    letter = letter_of_descr(d);
    Py_DECREF(d);
  }
  if (letter < 0) {
    PyErr_Format(PyExc_TypeError, "no element type for dtype %R", (PyObject*)PyArray_DESCR(arrays[0]));
    goto done;
  }
  Export* e = op->by_letter[letter];
  if (!e) {
    PyErr_Format(PyExc_KeyError, "%c%U", "sdcz"[letter], op->name);
    goto done;
  }
  int32_t status;
  result = run_export(e, inputs, n, 1, &status);
  if (result && op->first_only) {
    PyObject* first = PyList_GET_ITEM(result, 0);
    Py_INCREF(first);
    Py_DECREF(result);
    result = first;
  }
done:
  if (inputs != args) {
    for (Py_ssize_t i = 0; i < n; ++i) {
      if (converted[i] != args[i]) Py_XDECREF(converted[i]);
    }
  }
  return result;
}

static PyObject* op_get_name(Op* op, void* closure) {
  (void)closure;
  Py_INCREF(op->name);
  return op->name;
}

static PyGetSetDef op_getset[] = {
    {"__name__", (getter)op_get_name, NULL, NULL, NULL},
    {NULL, NULL, NULL, NULL, NULL},
};

static PyTypeObject OpType = {
    PyVarObject_HEAD_INIT(NULL, 0).tp_name = "_quarz_bridge.Op",
    .tp_basicsize = sizeof(Op),
    .tp_dealloc = (destructor)op_dealloc,
    .tp_vectorcall_offset = offsetof(Op, vectorcall),
    .tp_call = PyVectorcall_Call,
    .tp_flags = Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_VECTORCALL,
    .tp_getset = op_getset,
    .tp_doc = "One operation in every element type: op(*inputs) -> [outputs].",
};

/* ---- Module -------------------------------------------------------------------------- */

/* ---- Stacks ---------------------------------------------------------------------------- */

/* One export over a stack of matrices, the same handles for every matrix. */
typedef struct {
  const QbRow* row;
  void* fn;
  QbArg* a;
  QbArg* store;
  const char** src;  /* array inputs: the stack's elements */
  char** dst;        /* outputs: the stacked result's elements */
  size_t* step;      /* bytes per matrix of each array input */
  size_t* out_step;  /* bytes per matrix of each output */
  int32_t (*in_shape)[2];
  int32_t (*shape)[2];  /* each output's sizes for the first matrix */
  /* The arguments each matrix moves, so that the per-matrix loops skip the others
   * without looking at their roles: array inputs, then outputs with a stacked result. */
  int moved_in[kMaxArgs], n_in;
  int moved_out[kMaxArgs], n_out;
} StackRun;

/* Copies matrix m's inputs into their handles; an in-place argument gets its sizes (and
 * elements) back first. 0 when the host refuses that resize. */
static int stack_in(const StackRun* r, Py_ssize_t m) {
  for (int x = 0; x < r->n_in; ++x) {
    const int i = r->moved_in[x];
    const QbKind* kd = &r->row->args[i];
    if (kd->role == QB_INOUT) {
      const int64_t n = (int64_t)r->in_shape[i][0] * (kd->rank == 2 ? r->in_shape[i][1] : 1);
      if (count_of(r->a[i].h, kd->rank) != n && host_resize(kd->code, kd->rank, &r->a[i].h, (int32_t)n) != 0)
        return 0;
      int32_t* s = sizes_of(r->a[i].h);
      s[0] = r->in_shape[i][0];
      if (kd->rank == 2) s[1] = r->in_shape[i][1];
    }
    if (r->step[i])
      memcpy((char*)*r->a[i].h + elem_offset(kd->code, kd->rank), r->src[i] + m * r->step[i], r->step[i]);
  }
  return 1;
}

/* Copies matrix m's outputs into the stacked results; 0 when an output's sizes differ
 * from the first matrix's. */
static int stack_out(const StackRun* r, Py_ssize_t m) {
  for (int x = 0; x < r->n_out; ++x) {
    const int i = r->moved_out[x];
    const QbKind* kd = &r->row->args[i];
    if (kd->role == QB_OUT || kd->role == QB_INOUT) {
      const int32_t* s = sizes_of(r->a[i].h);
      if (s[0] != r->shape[i][0] || (kd->rank == 2 && s[1] != r->shape[i][1])) return 0;
      if (r->out_step[i])
        memcpy(r->dst[i] + m * r->out_step[i], (char*)*r->a[i].h + elem_offset(kd->code, kd->rank),
               r->out_step[i]);
    } else if (kd->role >= QB_ELEM_OUT) {
      memcpy(r->dst[i] + m * r->out_step[i], &r->store[i], r->out_step[i]);
    }
  }
  return 1;
}

/* Runs matrices m, m + 1, ... up to `end` or the first nonzero status (*status) or
 * changed output sizes (*bad). Returns the next matrix to run: the failing one for a
 * negative status or changed sizes, the one after for a positive status. */
static Py_ssize_t stack_range(const StackRun* r, Py_ssize_t m, Py_ssize_t end, int32_t* status, int* bad) {
  for (; m < end; ++m) {
    const int32_t st = stack_in(r, m) ? r->row->call(r->fn, r->a) : StatusOutOfMemory;
    if (st < 0) {
      *status = st;
      return m;
    }
    if (!stack_out(r, m)) {
      *bad = 1;
      return m;
    }
    if (st > 0) {
      *status = st;
      return m + 1;
    }
  }
  return m;
}

/* The stacked results, shaped (count, *the first matrix's output shape). */
static int stack_results(StackRun* r, Py_ssize_t count, PyObject** outs) {
  for (int i = 0; i < r->row->nargs; ++i) {
    const QbKind* kd = &r->row->args[i];
    npy_intp dims[3] = {count, 0, 0};
    int nd = 1, code = kd->code;
    if (kd->role == QB_OUT || (kd->role == QB_INOUT && r->a[i].h)) {
      const int32_t* s = sizes_of(r->a[i].h);
      r->shape[i][0] = s[0] > 0 ? s[0] : 0;
      r->shape[i][1] = kd->rank == 2 && s[1] > 0 ? s[1] : 0;
      dims[1] = r->shape[i][0];
      dims[2] = r->shape[i][1];
      nd += kd->rank;
    } else if (kd->role >= QB_ELEM_OUT) {
      if (kd->role == QB_INT_OUT) code = 3;
    } else {
      continue;
    }
    outs[i] = PyArray_SimpleNew(nd, dims, kNpyType[code_index(code)]);
    if (!outs[i]) return -1;
    r->moved_out[r->n_out++] = i;
    r->dst[i] = PyArray_DATA((PyArrayObject*)outs[i]);
    r->out_step[i] = (size_t)kElemSize[code_index(code)] * (nd == 1 ? 1 : (size_t)dims[1] * (nd == 3 ? dims[2] : 1));
  }
  return 0;
}

static int stack_warned(PyObject* warned, Py_ssize_t m, int32_t status) {
  PyObject* t = Py_BuildValue("(ni)", m, (int)status);
  if (!t) return -1;
  const int rc = PyList_Append(warned, t);
  Py_DECREF(t);
  return rc;
}

/* stack(export, count, inputs) -> (outputs, warned): the export run on each of `count`
 * matrices with the same handles. An array input is a C-contiguous native array of the
 * export's element type shaped (count, *one call's shape); every other input goes to each
 * call as it is. Each output comes back shaped (count, *its shape for the first matrix),
 * which every later matrix must keep; scalar results as (count,) arrays. warned lists
 * (matrix, status) of the positive statuses; the first negative one raises
 * QuarzError(status, name, matrix). The GIL is released after the first matrix when the
 * stack's inputs are large. */
static PyObject* stack(PyObject* module, PyObject* args) {
  (void)module;
  PyObject *eobj, *inputs;
  Py_ssize_t count;
  if (!PyArg_ParseTuple(args, "O!nO!", &ExportType, &eobj, &count, &PyTuple_Type, &inputs)) return NULL;
  Export* e = (Export*)eobj;
  const QbRow* row = e->row;
  if (PyTuple_GET_SIZE(inputs) != e->n_inputs || count < 1) {
    PyErr_Format(PyExc_TypeError, "%U takes %d inputs and a stack of at least one matrix", e->name, e->n_inputs);
    return NULL;
  }
  Cache* c = thread_cache();
  if (!c) return NULL;
  Py_INCREF(c);
  QbArg a[kMaxArgs], store[kMaxArgs];
  const char* src[kMaxArgs];
  char* dst[kMaxArgs];
  size_t step[kMaxArgs], out_step[kMaxArgs];
  int32_t in_shape[kMaxArgs][2], shape[kMaxArgs][2];
  int64_t held[kMaxArgs];
  PyObject* outs[kMaxArgs] = {NULL};
  StackRun r = {.row = row, .fn = e->fn, .a = a, .store = store, .src = src, .dst = dst, .step = step,
                .out_step = out_step, .in_shape = in_shape, .shape = shape};
  PyObject *result = NULL, *warned = PyList_New(0);
  Py_ssize_t bytes_in = 0;
  int prepared = 0, k = 0;
  if (!warned) goto cleanup;
  for (int i = 0; i < row->nargs; ++i) {
    const QbKind* kd = &row->args[i];
    prepared = i + 1;
    a[i].h = NULL;
    held[i] = -1;
    step[i] = 0;
    switch (kd->role) {
      case QB_IN:
      case QB_INOUT: {
        PyObject* v = PyTuple_GET_ITEM(inputs, k++);
        if (v == Py_None) break;
        PyArrayObject* arr = (PyArrayObject*)v;
        if (!PyArray_Check(v) || PyArray_NDIM(arr) != kd->rank + 1 || PyArray_DIM(arr, 0) != count ||
            PyArray_TYPE(arr) != kNpyType[code_index(kd->code)] || !PyArray_ISNOTSWAPPED(arr) ||
            !PyArray_IS_C_CONTIGUOUS(arr) || !PyArray_ISALIGNED(arr)) {
          PyErr_Format(PyExc_ValueError, "%U: a stacked input is a C-contiguous (count, ...) array of the element type",
                       e->name);
          goto cleanup;
        }
        const npy_intp* dims = PyArray_DIMS(arr) + 1;
        const int64_t n = (int64_t)dims[0] * (kd->rank == 2 ? dims[1] : 1);
        if (dims[0] > INT32_MAX || (kd->rank == 2 && dims[1] > INT32_MAX) || n > INT32_MAX) {
          PyErr_Format(PyExc_MemoryError, "%U: a host array holds at most 2**31 - 1 elements", e->name);
          goto cleanup;
        }
        int32_t kept;
        if (!(a[i].h = take(c, kd->code, kd->rank, &kept))) goto cleanup;
        held[i] = kept;
        if (kept != n && host_resize(kd->code, kd->rank, &a[i].h, (int32_t)n) != 0) {
          raise_status(StatusOutOfMemory, e->name);
          goto cleanup;
        }
        held[i] = n;
        int32_t* s = sizes_of(a[i].h);
        s[0] = in_shape[i][0] = (int32_t)dims[0];
        in_shape[i][1] = kd->rank == 2 ? (int32_t)dims[1] : 1;
        if (kd->rank == 2) s[1] = in_shape[i][1];
        src[i] = PyArray_DATA(arr);
        step[i] = (size_t)n * kElemSize[code_index(kd->code)];
        r.moved_in[r.n_in++] = i;
        bytes_in += (Py_ssize_t)(step[i] * (size_t)count);
        break;
      }
      default:
        if (plain_arg(c, kd, takes_input(kd->role) ? PyTuple_GET_ITEM(inputs, k++) : NULL, &a[i], &store[i],
                      &held[i]) < 0)
          goto cleanup;
        break;
    }
  }

  /* The first matrix fixes the output shapes; the rest run without the GIL if large. */
  int32_t status = stack_in(&r, 0) ? row->call(e->fn, a) : StatusOutOfMemory;
  Py_ssize_t m = 0;
  int bad = 0;
  if (status >= 0) {
    if (stack_results(&r, count, outs) < 0) goto cleanup;
    stack_out(&r, 0);
    if (status > 0 && stack_warned(warned, 0, status) < 0) goto cleanup;
    m = 1;
  }
  while (status >= 0 && m < count) {
    status = 0;
    if (bytes_in >= kReleaseGilFrom) {
      Py_BEGIN_ALLOW_THREADS
      m = stack_range(&r, m, count, &status, &bad);
      Py_END_ALLOW_THREADS
    } else {
      m = stack_range(&r, m, count, &status, &bad);
    }
    if (bad) {
      PyErr_Format(PyExc_ValueError, "%U: the outputs of matrix %zd differ in shape from the first's", e->name, m);
      goto cleanup;
    }
    if (status > 0 && stack_warned(warned, m - 1, status) < 0) goto cleanup;
  }
  if (status < 0) {
    PyObject* err = PyObject_CallFunction(quarz_error, "iOn", (int)status, e->name, m);
    if (err) {
      PyErr_SetObject((PyObject*)Py_TYPE(err), err);
      Py_DECREF(err);
    }
    goto cleanup;
  }
  PyObject* list = PyList_New(e->n_outputs);
  if (!list) goto cleanup;
  for (int i = 0, o = 0; i < row->nargs; ++i) {
    if (!outs[i]) continue;
    PyList_SET_ITEM(list, o++, outs[i]);
    outs[i] = NULL;
  }
  result = Py_BuildValue("(NO)", list, warned);

cleanup:
  for (int i = 0; i < prepared; ++i) {
    const QbKind* kd = &row->args[i];
    Py_XDECREF(outs[i]);
    if (kd->role > QB_WORK || kd->role == QB_IGNORED || !a[i].h) continue;
    if (kd->role == QB_OUT || kd->role == QB_INOUT) held[i] = count_of(a[i].h, kd->rank) > 0 ? count_of(a[i].h, kd->rank) : -1;
    if (kd->role == QB_WORK) held[i] = -1;
    give(c, kd->code, kd->rank, a[i].h, held[i]);
  }
  Py_XDECREF(warned);
  Py_DECREF(c);
  return result;
}

static PyObject* exports_by_name; /* name -> Export, filled by bind() */

static int count_role(const QbRow* row, int inputs) {
  int n = 0;
  for (int i = 0; i < row->nargs; ++i) {
    const int r = row->args[i].role;
    const int is_input = r == QB_IN || r == QB_INOUT || (r >= QB_INT && r <= QB_REAL_IN);
    const int is_output = r == QB_OUT || r == QB_INOUT || r >= QB_ELEM_OUT;
    n += inputs ? is_input : is_output;
  }
  return n;
}

/* bind(library_handle, runtime_handle, check_status, QuarzError) -> {name: export}:
 * the exports found in the loaded library, called through the loaded host runtime. */
static PyObject* bind(PyObject* module, PyObject* args) {
  (void)module;
  PyObject *lib_obj, *kort_obj, *check, *error;
  if (!PyArg_ParseTuple(args, "OOOO", &lib_obj, &kort_obj, &check, &error)) return NULL;
  void* lib = PyLong_AsVoidPtr(lib_obj);
  void* kort = PyLong_AsVoidPtr(kort_obj);
  if (PyErr_Occurred()) return NULL;
  ResizeFn resize = (ResizeFn)dlsym(kort, "NumericArrayResize");
  NewFn create = (NewFn)dlsym(kort, "KortArrayNew");
  FreeFn release = (FreeFn)dlsym(kort, "KortArrayFree");
  if (!resize || !create || !release) {
    PyErr_SetString(PyExc_OSError, "the host runtime lacks NumericArrayResize, KortArrayNew or KortArrayFree");
    return NULL;
  }
  if (host_free && (host_resize != resize || host_new != create || host_free != release)) {
    PyErr_SetString(PyExc_RuntimeError, "the bridge is bound to another host runtime already");
    return NULL;
  }
  host_resize = resize;
  host_new = create;
  host_free = release;
  Py_INCREF(check);
  Py_XSETREF(check_status_fn, check);
  Py_INCREF(error);
  Py_XSETREF(quarz_error, error);
  PyObject* found = PyDict_New();
  if (!found) return NULL;
  for (int i = 0; i < kRowCount; ++i) {
    const QbRow* row = &kRows[i];
    void* fn = dlsym(lib, row->name);
    if (!fn) continue;
    if (row->nargs > kMaxArgs) {
      PyErr_Format(PyExc_RuntimeError, "%s has more than %d arguments", row->name, kMaxArgs);
      Py_DECREF(found);
      return NULL;
    }
    Export* e = PyObject_New(Export, &ExportType);
    if (!e) {
      Py_DECREF(found);
      return NULL;
    }
    e->vectorcall = export_vectorcall;
    e->row = row;
    e->fn = fn;
    e->n_inputs = count_role(row, 1);
    e->n_outputs = count_role(row, 0);
    e->name = PyUnicode_FromString(row->name);
    if (!e->name || PyDict_SetItem(found, e->name, (PyObject*)e) < 0) {
      Py_DECREF(e);
      Py_DECREF(found);
      return NULL;
    }
    Py_DECREF(e);
  }
  Py_XSETREF(exports_by_name, found);
  Py_INCREF(found);
  return found;
}

/* op(name, first_only=False) -> the operation `name` (without its letter) over the bound
 * exports, returning all outputs or the first one alone. */
static PyObject* make_op(PyObject* module, PyObject* args) {
  (void)module;
  PyObject* name;
  int first_only = 0;
  if (!PyArg_ParseTuple(args, "U|p", &name, &first_only)) return NULL;
  if (!exports_by_name) {
    PyErr_SetString(PyExc_RuntimeError, "bind() first");
    return NULL;
  }
  Op* op = PyObject_New(Op, &OpType);
  if (!op) return NULL;
  op->vectorcall = op_vectorcall;
  op->first_only = first_only;
  Py_INCREF(name);
  op->name = name;
  int any = 0;
  for (int i = 0; i < 4; ++i) {
    PyObject* full = PyUnicode_FromFormat("%c%U", "sdcz"[i], name);
    if (!full) {
      op->by_letter[i] = NULL;
      continue;
    }
    PyObject* e = PyDict_GetItemWithError(exports_by_name, full);
    Py_DECREF(full);
    Py_XINCREF(e);
    op->by_letter[i] = (Export*)e;
    any |= e != NULL;
  }
  if (PyErr_Occurred() || !any) {
    if (!PyErr_Occurred()) PyErr_Format(PyExc_KeyError, "no export of the operation %R", name);
    Py_DECREF(op);
    return NULL;
  }
  return (PyObject*)op;
}

/* A stand-in export with one argument of each role that the generated stubs pass
 * differently (by-value elements, pointed-to inputs, ignored handles, int32 results), so
 * that tests can run the bridge's argument handling against a function of their own. */
typedef int32_t (*ProbeFn)(ArrayHandle x, QuarzComplexDouble s, const double* p, const QuarzComplexDouble* q,
                           ArrayHandle skip, ArrayHandle w, double* r, int32_t* k, ArrayHandle y);
static int32_t probe_call(void* fn, QbArg* a) {
  return ((ProbeFn)fn)(a[0].h, a[1].z, a[2].p, a[3].p, a[4].h, a[5].h, a[6].p, a[7].p, a[8].h);
}
static const QbKind kProbeArgs[] = {{QB_IN, 13, 1}, {QB_ELEM, 13, 0}, {QB_REAL_IN, 10, 0}, {QB_ELEM_IN, 13, 0},
                                    {QB_IGNORED, 13, 2}, {QB_WORK, 3, 1}, {QB_REAL_OUT, 10, 0},
                                    {QB_INT_OUT, 3, 0}, {QB_OUT, 12, 2}};
static const QbRow kProbeRow = {"zProbeH", "ProbeH", "z", 1, 9, kProbeArgs, probe_call};

/* probe(address) -> the stand-in export calling the function at `address`. */
static PyObject* probe(PyObject* module, PyObject* arg) {
  (void)module;
  void* fn = PyLong_AsVoidPtr(arg);
  if (!fn) {
    if (!PyErr_Occurred()) PyErr_SetString(PyExc_ValueError, "null function address");
    return NULL;
  }
  if (!host_free) {
    PyErr_SetString(PyExc_RuntimeError, "bind() first");
    return NULL;
  }
  Export* e = PyObject_New(Export, &ExportType);
  if (!e) return NULL;
  e->vectorcall = export_vectorcall;
  e->row = &kProbeRow;
  e->fn = fn;
  e->n_inputs = count_role(&kProbeRow, 1);
  e->n_outputs = count_role(&kProbeRow, 0);
  if (!(e->name = PyUnicode_FromString(kProbeRow.name))) {
    Py_DECREF(e);
    return NULL;
  }
  return (PyObject*)e;
}

/* held() -> (handles, bytes) that the threads' caches keep for reuse. */
static PyObject* held(PyObject* module, PyObject* unused) {
  (void)module;
  (void)unused;
  return Py_BuildValue("nn", cached_handles, cached_bytes);
}

/* release() frees this thread's cached handles. */
static PyObject* release(PyObject* module, PyObject* unused) {
  (void)module;
  (void)unused;
  PyObject* d = PyThreadState_GetDict();
  if (d && PyDict_GetItemWithError(d, cache_key) && PyDict_DelItem(d, cache_key) < 0) return NULL;
  if (PyErr_Occurred()) return NULL;
  Py_RETURN_NONE;
}

static PyMethodDef methods[] = {
    {"bind", bind, METH_VARARGS, "bind(library_handle, runtime_handle, check_status, QuarzError)"},
    {"op", make_op, METH_VARARGS, "op(name, first_only=False)"},
    {"probe", probe, METH_O, "probe(address): a stand-in export with every argument role, for tests"},
    {"stack", stack, METH_VARARGS, "stack(export, count, inputs) -> (outputs, [(matrix, status)])"},
    {"held", held, METH_NOARGS, "held() -> (handles, bytes) kept for reuse by all threads"},
    {"release", release, METH_NOARGS, "release(): frees this thread's kept handles"},
    {"host_layout", (PyCFunction)(void (*)(void))host_layout, METH_FASTCALL,
     "host_layout(enable=None) -> bool: numpy arrays allocated in this context are laid out "
     "as host blocks (read by the exports in place); enable switches it"},
    {NULL, NULL, 0, NULL},
};

static struct PyModuleDef module_def = {
    PyModuleDef_HEAD_INIT, "_quarz_bridge",
    "Compiled calls of libquarz_linalg's exports on numpy arrays.", -1, methods,
    NULL, NULL, NULL, NULL,
};

PyMODINIT_FUNC PyInit__quarz_bridge(void) {
  import_array();
  if (PyType_Ready(&CacheType) < 0 || PyType_Ready(&HostBlockType) < 0 || PyType_Ready(&ExportType) < 0 ||
      PyType_Ready(&OpType) < 0)
    return NULL;
  cache_key = PyUnicode_InternFromString("quarz_linalg.bridge_handle_cache");
  if (!cache_key) return NULL;
  default_handler = (PyDataMem_Handler*)PyCapsule_GetPointer(PyDataMem_DefaultHandler, "mem_handler");
  if (!default_handler) return NULL;
  layout_capsule = PyCapsule_New(&layout_handler, "mem_handler", NULL);
  if (!layout_capsule) return NULL;
  PyObject* m = PyModule_Create(&module_def);
  if (!m) return NULL;
  if (PyModule_AddStringConstant(m, "TABLE_DIGEST", kTableDigest) < 0) {
    Py_DECREF(m);
    return NULL;
  }
  return m;
}
