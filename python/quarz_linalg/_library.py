"""Loading of the reference host runtime and of libquarz_linalg.

The two shared libraries are looked for, in this order, in the directory named by the
QUARZ_LINALG_LIBDIR environment variable, in the repository's default build directory
(<repo>/build), and finally on the system loader path. The host runtime is loaded first
and announced to the library with SetKORTModule, so that every NumericArrayResize the
library makes goes to the very copy of libkort.so whose accounting this package reads.
"""
import ctypes
import os
from pathlib import Path

KORT_NAME = "libkort.so"
LIB_NAME = "libquarz_linalg.so"
EXPORTS_NAME = "quarz_linalg.exports"
HEADER_NAME = "quarz_linalg.h"

_PACKAGE_DIR = Path(__file__).resolve().parent
REPO_DIR = _PACKAGE_DIR.parent.parent


class LibraryNotFound(OSError):
    pass


def _candidate_dirs():
    env = os.environ.get("QUARZ_LINALG_LIBDIR")
    if env:
        # An explicit directory is taken as the only place to look: a stale library
        # found elsewhere would silently test the wrong build.
        return [Path(env)]
    return [REPO_DIR / "build", None]


def _load_pair():
    tried = []
    for d in _candidate_dirs():
        if d is None:
            try:
                kort = ctypes.CDLL(KORT_NAME)
                lib = ctypes.CDLL(LIB_NAME)
            except OSError as e:
                tried.append(f"system loader path ({e})")
                continue
            return kort, lib, None
        kort_path, lib_path = d / KORT_NAME, d / LIB_NAME
        if kort_path.is_file() and lib_path.is_file():
            # RTLD_LOCAL (ctypes' default) keeps the host runtime's symbols out of the
            # global scope; the library reaches them through SetKORTModule below.
            kort = ctypes.CDLL(str(kort_path))
            lib = ctypes.CDLL(str(lib_path))
            return kort, lib, d
        tried.append(str(d))
    raise LibraryNotFound(
        f"{LIB_NAME} and {KORT_NAME} not found; looked in: {', '.join(tried)}. "
        "Set QUARZ_LINALG_LIBDIR to the build directory.")


class _DlInfo(ctypes.Structure):
    _fields_ = [("dli_fname", ctypes.c_char_p), ("dli_fbase", ctypes.c_void_p),
                ("dli_sname", ctypes.c_char_p), ("dli_saddr", ctypes.c_void_p)]


def loaded_path(cdll, symbol):
    """File name of the shared object that defines `symbol` of `cdll` (via dladdr)."""
    libc = ctypes.CDLL(None)
    dladdr = libc.dladdr
    dladdr.argtypes = [ctypes.c_void_p, ctypes.POINTER(_DlInfo)]
    dladdr.restype = ctypes.c_int
    addr = ctypes.cast(getattr(cdll, symbol), ctypes.c_void_p)
    info = _DlInfo()
    if not dladdr(addr, ctypes.byref(info)) or not info.dli_fname:
        return None
    return Path(os.fsdecode(info.dli_fname)).resolve()


def _beside_or_repo(lib_dir, beside_name, repo_relative):
    if lib_dir is not None and (lib_dir / beside_name).is_file():
        return lib_dir / beside_name
    repo_file = REPO_DIR / repo_relative
    if repo_file.is_file():
        return repo_file
    raise LibraryNotFound(f"neither {beside_name} beside the library nor {repo_file} exists")


kort, lib, _dir = _load_pair()
LIB_DIR = _dir
if LIB_DIR is None:
    found = loaded_path(lib, "SetKORTModule")
    LIB_DIR = found.parent if found else None

LIB_PATH = loaded_path(lib, "SetKORTModule")
KORT_PATH = loaded_path(kort, "KortArrayNew")
EXPORTS_PATH = _beside_or_repo(LIB_DIR, EXPORTS_NAME, "src/exports.list")
HEADER_PATH = _beside_or_repo(LIB_DIR, HEADER_NAME, "include/quarz_linalg.h")

# ---- The host runtime's C API ------------------------------------------------------
_c = ctypes
kort.KortArrayNew.argtypes = [_c.c_int32, _c.c_int32, _c.POINTER(_c.c_int32)]
kort.KortArrayNew.restype = _c.c_void_p
kort.KortArrayFree.argtypes = [_c.c_void_p]
kort.KortArrayFree.restype = None
kort.KortArrayDim.argtypes = [_c.c_void_p, _c.c_int32]
kort.KortArrayDim.restype = _c.c_int32
kort.KortArrayData.argtypes = [_c.c_void_p, _c.c_int32, _c.c_int32]
kort.KortArrayData.restype = _c.c_void_p
kort.KortElementOffset.argtypes = [_c.c_int32, _c.c_int32]
kort.KortElementOffset.restype = _c.c_int32
kort.KortElementSize.argtypes = [_c.c_int32]
kort.KortElementSize.restype = _c.c_int32
kort.NumericArrayResize.argtypes = [_c.c_int32, _c.c_int32, _c.POINTER(_c.c_void_p), _c.c_int64]
kort.NumericArrayResize.restype = _c.c_int32
for _name in ("KortLiveHandles", "KortLiveBytes", "KortResizeCount"):
    getattr(kort, _name).argtypes = []
    getattr(kort, _name).restype = _c.c_int64
kort.KortFailResizeAt.argtypes = [_c.c_int64]
kort.KortFailResizeAt.restype = None

# Announce the host runtime: the library's search then stops at the module we loaded,
# whatever else the process holds. ctypes' _handle is the dlopen handle.
lib.SetKORTModule.argtypes = [_c.c_void_p]
lib.SetKORTModule.restype = None
lib.SetKORTModule(kort._handle)
