"""Host arrays: numpy arrays copied into handles of the reference host runtime and back.

A handle points to a pointer to one block: one int32 size per dimension, then the
elements row-major. The first element sits at byte 4 of a 1-D int32, float or
complex-float block, at byte 8 of a 1-D double or complex-double block (the length is
followed by 4 bytes of padding) and at byte 8 of every 2-D block.
"""
import ctypes

import numpy as np

from ._library import bridge, kort

# The compiled bridge keeps empty handles of finished calls for reuse (per thread); they
# are not the callers' and are left out of the live counts.
_held = bridge.held if bridge is not None else (lambda: (0, 0))

# letter: (host type code, numpy element type)
LETTERS = {
    "s": (9, np.dtype(np.float32)),
    "d": (10, np.dtype(np.float64)),
    "c": (12, np.dtype(np.complex64)),
    "z": (13, np.dtype(np.complex128)),
}
INT32_CODE = 3
TYPE_DTYPES = {code: dt for code, dt in LETTERS.values()}
TYPE_DTYPES[INT32_CODE] = np.dtype(np.int32)


def type_code(letter):
    """Host type code of an element letter: s d c z, or i for int32."""
    return INT32_CODE if letter == "i" else LETTERS[letter][0]


def element_offset(type_code, rank):
    """Byte offset of the first element in a block of this type and rank."""
    if rank == 2:
        return 8
    if rank != 1:
        raise ValueError(f"rank must be 1 or 2, not {rank}")
    # 1-D: elements of 8-byte reals (double and the parts of complex double) start
    # 8-aligned behind the length; 4-byte ones right behind it.
    return 8 if TYPE_DTYPES[type_code].alignment >= 8 else 4


def letter_of(dtype):
    """Element type letter for a numpy dtype: float32 s, float64 d, complex64 c,
    complex128 z; integers and booleans compute in d, float16 in s."""
    dt = np.dtype(dtype)
    if dt.kind == "c":
        return "c" if dt.itemsize <= 8 else "z"
    if dt.kind == "f":
        return "s" if dt.itemsize <= 4 else "d"
    if dt.kind in "biu":
        return "d"
    raise TypeError(f"no element type for dtype {dt}")


class HostArray:
    """One host array handle owned by Python. Use as a context manager, or call free()."""

    def __init__(self, type_code, shape):
        shape = tuple(int(s) for s in shape)
        if len(shape) not in (1, 2):
            raise ValueError(f"host arrays have rank 1 or 2, not {len(shape)}")
        self.type_code = type_code
        self.rank = len(shape)
        dims = (ctypes.c_int32 * self.rank)(*shape)
        handle = kort.KortArrayNew(type_code, self.rank, dims)
        if not handle:
            raise MemoryError(f"KortArrayNew refused type {type_code} shape {shape}")
        self.handle = ctypes.c_void_p(handle)

    # ctypes passes the handle itself when a HostArray is an argument.
    @property
    def _as_parameter_(self):
        if self.handle is None:
            raise ValueError("host array already freed")
        return self.handle

    @classmethod
    def empty(cls, type_code, rank):
        return cls(type_code, (0,) * rank)

    @classmethod
    def from_numpy(cls, array, type_code, rank=None):
        dt = TYPE_DTYPES[type_code]
        a = np.asarray(array)
        if rank is not None and a.ndim != rank:
            raise ValueError(f"expected a {rank}-D array, got shape {a.shape}")
        if a.ndim not in (1, 2):
            raise ValueError(f"host arrays have rank 1 or 2, not {a.ndim}")
        a = np.ascontiguousarray(a, dtype=dt)
        h = cls(type_code, a.shape)
        try:
            if a.size:
                ctypes.memmove(h.data_address(), a.ctypes.data, a.nbytes)
        except BaseException:
            h.free()
            raise
        return h

    def block_address(self):
        """Address of the block (the host's pointer behind the handle)."""
        return ctypes.c_void_p.from_address(self.handle.value).value

    def data_address(self):
        block = self.block_address()
        return None if block is None else block + element_offset(self.type_code, self.rank)

    @property
    def shape(self):
        return tuple(kort.KortArrayDim(self.handle, i) for i in range(self.rank))

    def to_numpy(self):
        """A copy of the elements, shaped by the dimension sizes in the block."""
        dt = TYPE_DTYPES[self.type_code]
        shape = self.shape
        out = np.empty(shape, dtype=dt)
        if out.size:
            ctypes.memmove(out.ctypes.data, self.data_address(), out.nbytes)
        return out

    def raw_bytes(self, count):
        """The first `count` bytes of the block, header included."""
        return ctypes.string_at(self.block_address(), count)

    def free(self):
        if self.handle is not None:
            kort.KortArrayFree(self.handle)
            self.handle = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.free()
        return False

    def __del__(self):
        # Last resort only; the package frees every handle explicitly.
        try:
            self.free()
        except Exception:
            pass


def live_handles():
    """Host handles alive, less those the package keeps for reuse."""
    return kort.KortLiveHandles() - _held()[0]


def live_bytes():
    """Bytes that live host handles hold, less those of the handles kept for reuse."""
    return kort.KortLiveBytes() - _held()[1]


def resize_count():
    return kort.KortResizeCount()


def fail_resize_at(k):
    """Makes the k-th host resize from now fail (1 = the next); 0 disarms."""
    kort.KortFailResizeAt(k)
