"""Host arrays, the host binding, the generated raw layer and the status table."""
import ctypes
import os
import re
import struct
import subprocess
import sys
import textwrap
import warnings

import numpy as np
import pytest

import quarz_linalg as ql
from oracle import DTYPES, DTYPE_IDS, assert_within, gamma, hi, random_array

# type code: (numpy dtype, struct format of one element's parts, parts per element,
# documented first-element byte of a 1-D block)
LAYOUT = {
    3: (np.int32, "i", 1, 4),
    9: (np.float32, "f", 1, 4),
    10: (np.float64, "d", 1, 8),
    12: (np.complex64, "f", 2, 4),
    13: (np.complex128, "d", 2, 8),
}


def _sample(code, shape, rng):
    dt = LAYOUT[code][0]
    if code == 3:
        return rng.integers(-2**31, 2**31, size=shape, dtype=np.int64).astype(np.int32)
    return random_array(rng, shape, dt, scale=1e3)


@pytest.mark.parametrize("code", sorted(LAYOUT), ids=["i32", "s", "d", "c", "z"])
@pytest.mark.parametrize("shape", [(0,), (1,), (5,), (0, 0), (0, 3), (3, 0), (1, 1), (2, 3), (4, 1)])
def test_round_trip_and_raw_bytes(code, shape, rng):
    dt, fmt, parts, offset_1d = LAYOUT[code]
    a = _sample(code, shape, rng)
    with ql.HostArray.from_numpy(a, code) as h:
        back = h.to_numpy()
        assert back.dtype == np.dtype(dt) and back.shape == a.shape
        assert np.array_equal(back, a)
        # Read the block byte by byte: the sizes, the padding and the elements must sit
        # where the host layout puts them.
        rank = len(shape)
        offset = offset_1d if rank == 1 else 8
        count = int(np.prod(shape))
        size = struct.calcsize(fmt) * parts
        blob = h.raw_bytes(offset + count * size)
        assert struct.unpack_from(f"<{rank}i", blob, 0) == tuple(shape)
        if rank == 1 and offset == 8:
            assert blob[4:8] == b"\0\0\0\0"          # padding of 1-D d and z blocks
        flat = struct.unpack_from(f"<{count * parts}{fmt}", blob, offset)
        expected = a.reshape(-1)
        if parts == 2:
            expected = np.column_stack([expected.real, expected.imag]).reshape(-1)
        assert np.array_equal(np.array(flat, dtype=expected.dtype), expected)
        # The host runtime agrees on every offset.
        assert ql.kort.KortElementOffset(code, rank) == offset == ql.element_offset(code, rank)
        assert ql.kort.KortArrayData(h.handle, code, rank) == h.data_address()
        assert ql.kort.KortElementSize(code) == np.dtype(dt).itemsize


def test_rank_other_than_one_or_two_is_refused():
    with pytest.raises(ValueError):
        ql.HostArray.from_numpy(np.zeros((2, 2, 2)), 10)
    with pytest.raises(ValueError):
        ql.HostArray.from_numpy(np.float64(1), 10)


@pytest.mark.parametrize("dtype", DTYPES, ids=DTYPE_IDS)
def test_library_reads_the_same_1d_layout(dtype, rng):
    # An element-wise sum through the library: fails at once if the library and this
    # package disagree on the 4/8-byte offset of 1-D blocks (the first element would
    # become the padding or vanish).
    x = random_array(rng, 9, dtype)
    x[0] = 1e6
    L = ql.letter_of(dtype)
    status, (m,) = ql.invoke(L + "MeanH", x)
    assert status == 0
    ref = np.sum(hi(x)) / 9
    assert_within(m, ref, gamma(10, dtype) * np.sum(np.abs(hi(x))) * 2 / 9, "mean")


@pytest.mark.parametrize("dtype", DTYPES, ids=DTYPE_IDS)
def test_library_writes_the_same_layout(dtype, rng):
    if not ql.available("dOuterProdH"):
        pytest.skip("outer product not exported yet")
    x, y = random_array(rng, 3, dtype), random_array(rng, 2, dtype)
    assert np.array_equal(ql.outer(x, y), (x[:, None] * y[None, :]).astype(dtype)) or \
        np.allclose(ql.outer(x, y), np.outer(x, y), rtol=4 * np.finfo(dtype).eps, atol=0)


def test_dtype_to_letter():
    assert [ql.letter_of(t) for t in DTYPES] == ["s", "d", "c", "z"]
    assert ql.letter_of(np.int64) == "d" and ql.letter_of(np.float16) == "s"
    with pytest.raises(TypeError):
        ql.letter_of(np.dtype("U3"))


# ---- binding -----------------------------------------------------------------------

def _resizing_call():
    """An export that resizes an output, or None while none is exported."""
    for name, args in [("dOuterProdH", (np.ones(2), np.ones(3))),
                       ("dMtrxMulH", (np.ones((2, 2)), np.ones((2, 2)))),
                       ("dTransposeH", (np.ones((2, 3)),))]:
        if ql.available(name):
            return name, args
    return None


def test_library_resizes_through_the_loaded_host_runtime():
    call = _resizing_call()
    if call is None:
        pytest.skip("no resizing export yet")
    before = ql.resize_count()
    ql.invoke(*call[:1], *call[1])
    # The resize went to the libkort.so instance this package loaded and counts.
    assert ql.resize_count() > before


_PROBE = textwrap.dedent("""
    import ctypes, sys
    libdir, mode, announce = sys.argv[1], sys.argv[2], sys.argv[3] == "1"
    kort = ctypes.CDLL(libdir + "/libkort.so",
                       mode=ctypes.RTLD_GLOBAL if mode == "global" else ctypes.RTLD_LOCAL)
    lib = ctypes.CDLL(libdir + "/libquarz_linalg.so")
    if announce:
        lib.SetKORTModule.argtypes = [ctypes.c_void_p]
        lib.SetKORTModule(kort._handle)
    kort.KortArrayNew.restype = ctypes.c_void_p
    kort.KortArrayNew.argtypes = [ctypes.c_int32, ctypes.c_int32, ctypes.POINTER(ctypes.c_int32)]
    kort.KortResizeCount.restype = ctypes.c_int64
    kort.KortArrayData.restype = ctypes.c_void_p
    kort.KortArrayData.argtypes = [ctypes.c_void_p, ctypes.c_int32, ctypes.c_int32]
    two = (ctypes.c_int32 * 1)(2)
    x = kort.KortArrayNew(10, 1, two)
    y = kort.KortArrayNew(10, 1, two)
    zero = (ctypes.c_int32 * 2)(0, 0)
    m = kort.KortArrayNew(10, 2, zero)
    fn = getattr(lib, sys.argv[4])
    fn.argtypes = [ctypes.c_void_p] * 3
    status = fn(x, y, m)
    print(status, kort.KortResizeCount())
""")


@pytest.mark.parametrize("mode,announce", [("local", "1"), ("local", "0"), ("global", "0")],
                         ids=["SetKORTModule", "by-soname", "global-scope"])
def test_binding_paths_in_a_fresh_process(mode, announce):
    """The package relies on SetKORTModule; the two fall-backs a Python host meets
    (libkort.so loaded RTLD_LOCAL: found by its soname; RTLD_GLOBAL: found through the
    main program's global scope) must reach the same runtime."""
    name = "dOuterProdH" if ql.available("dOuterProdH") else None
    if name is None:
        pytest.skip("no resizing export with three handle arguments yet")
    out = subprocess.run([sys.executable, "-c", _PROBE, str(ql.LIB_DIR), mode, announce, name],
                         capture_output=True, text=True, timeout=60)
    assert out.returncode == 0, out.stderr
    status, count = map(int, out.stdout.split())
    assert status == 0 and count >= 1


# ---- the raw layer --------------------------------------------------------------------

def test_every_listed_export_is_in_the_library():
    assert ql.MISSING == []
    for name in ql.EXPORTS:
        assert callable(getattr(ql.raw, name))


_C_OF_KIND = {"in1": "ArrayHandle", "in2": "ArrayHandle", "inout2": "ArrayHandle",
              "out1": "ArrayHandle", "out2": "ArrayHandle", "iout1": "ArrayHandle",
              "iout2": "ArrayHandle", "work1": "ArrayHandle", "iwork1": "ArrayHandle",
              "int": "int32_t", "uint": "uint32_t", "module": "void*"}
_ELEM = {"s": "float", "d": "double", "c": "QuarzComplexFloat", "z": "QuarzComplexDouble"}
_REAL = {"s": "float", "d": "double", "c": "float", "z": "double"}


def _header_prototypes():
    text = re.sub(r"/\*.*?\*/", "", ql.HEADER_PATH.read_text(), flags=re.S)
    protos = {}
    for m in re.finditer(r"QUARZ_API\s+(\w+)\s+(\w+)\s*\(([^)]*)\)\s*;", text):
        params = [p.strip() for p in m.group(3).split(",") if p.strip() and p.strip() != "void"]
        types = [re.sub(r"\s*\*\s*", "*", re.sub(r"\s+\w+$", "", p)).strip() for p in params]
        protos[m.group(2)] = (m.group(1), types)
    return protos


def test_raw_signatures_agree_with_the_public_header():
    protos = _header_prototypes()
    for name, (row, letter) in ql.EXPORTS.items():
        assert name in protos, f"{name} not declared in the header"
        result, types = protos[name]
        assert result == ("int32_t" if row.result == "status" else "void"), name
        want = []
        for _, kind in row.args:
            if kind == "real":
                want.append(_REAL[letter])
            elif kind == "elem_out":
                want.append(_ELEM[letter] + "*")
            elif kind == "real_out":
                want.append(_REAL[letter] + "*")
            else:
                want.append(_C_OF_KIND[kind])
        assert types == want, name
        fn = getattr(ql.raw, name)
        assert len(fn.argtypes) == len(row.args)


def test_raw_call_with_ctypes_arguments(rng):
    x = random_array(rng, 4, np.complex128)
    y = random_array(rng, 4, np.complex128)
    res = ql.ComplexDouble()
    with ql.HostArray.from_numpy(x, 13) as hx, ql.HostArray.from_numpy(y, 13) as hy:
        assert ql.raw.zDotProdH(hx, hy, ctypes.byref(res)) == 0
    assert abs(complex(res.re, res.im) - np.vdot(y, x)) < 1e-14
    r = ctypes.c_float()
    with ql.HostArray.from_numpy(np.array([3, 4], np.float32), 9) as hx:
        assert ql.raw.sVectorNormH(hx, 2.0, ctypes.byref(r)) == 0
    assert r.value == 5


def test_export_list_parser_rejects_bad_rows():
    ok = ql.parse_export_list("@family a.h\nFooH sd status x:in1 r:elem_out\n")
    assert ok[0].export_names() == ["sFooH", "dFooH"]
    assert ok[0].args == (("x", "in1"), ("r", "elem_out"))
    for bad in ["FooH sd status x:in1\n",                       # before any family
                "@family a.h\nFooH sq status x:in1\n",           # bad letter
                "@family a.h\nFooH sd status x:bogus\n",         # unknown kind
                "@family a.h\nFooH sd int32 x:in1\n"]:           # bad result
        with pytest.raises(ValueError):
            ql.parse_export_list(bad)


# ---- statuses --------------------------------------------------------------------------

def test_status_table_parsed_from_the_header():
    from quarz_linalg._status import parse_status_enum
    text = ql.HEADER_PATH.read_text()
    # Every enumerator of the header is in the table, with its value.
    body = re.search(r"enum\s+QuarzStatus\s*\{(.*?)\}", text, re.S).group(1)
    pairs = re.findall(r"(\w+)\s*=\s*(-?\d+)", body)
    assert len(pairs) == len(ql.STATUS_NAMES) >= 20
    for name, value in pairs:
        assert ql.STATUS_NAMES[int(value)] == name
    assert parse_status_enum("enum QuarzStatus { A = 0, /* c */ B = -7, C = 0x10 };") == \
        {0: "A", -7: "B", 16: "C"}


def test_error_and_warning_carry_code_and_name():
    e = ql.QuarzError(-20041, "dLinEqH")
    assert (e.status, e.name, e.export) == (-20041, "StatusSingular", "dLinEqH")
    assert "StatusSingular" in str(e) and "-20041" in str(e)
    w = ql.QuarzWarning(20003)
    assert isinstance(w, UserWarning) and w.name == "WarnSingular"
    with pytest.warns(ql.QuarzWarning) as rec:
        ql.check_status(20003, "dLUH")
    assert rec[0].message.status == 20003
    with pytest.raises(ql.QuarzError):
        ql.check_status(-20001, "x")
    with warnings.catch_warnings():
        warnings.simplefilter("error")
        assert ql.check_status(0, "x") == 0


def test_numpy_layer_picks_the_element_type_from_the_dtypes():
    f32, c64 = np.ones(2, np.float32), np.ones(2, np.complex64)
    assert ql.dot(f32, f32).dtype == np.float32
    assert ql.dot(f32, c64).dtype == np.complex64
    assert ql.dot(f32, np.ones(2)).dtype == np.float64
    assert ql.dot(c64, np.ones(2)).dtype == np.complex128
    assert ql.dot(np.arange(3), np.arange(3)).dtype == np.float64 and ql.dot(np.arange(3), np.arange(3)) == 5
    assert ql.norm(c64).dtype == np.float32 and ql.rms(np.ones(2, np.complex128)).dtype == np.float64
    with pytest.raises(ValueError):
        ql.dot(np.ones((2, 2)), np.ones(2))


def test_default_library_directory_is_the_repository_build(tmp_path):
    # Without QUARZ_LINALG_LIBDIR the package takes <repo>/build, else the loader path.
    env = {k: v for k, v in os.environ.items() if k != "QUARZ_LINALG_LIBDIR"}
    env["PYTHONDONTWRITEBYTECODE"] = "1"
    code = "import quarz_linalg as ql; print(ql.LIB_DIR)"
    out = subprocess.run([sys.executable, "-c", code], cwd=str(ql._library.REPO_DIR / "python"),
                         env=env, capture_output=True, text=True, timeout=60)
    repo_build = ql._library.REPO_DIR / "build"
    if (repo_build / "libquarz_linalg.so").is_file() and (repo_build / "libkort.so").is_file():
        assert out.returncode == 0, out.stderr
        assert out.stdout.strip() == str(repo_build)
    else:
        assert out.returncode != 0 or out.stdout.strip() != "None"
    # A directory given explicitly is the only place looked at.
    env["QUARZ_LINALG_LIBDIR"] = str(tmp_path)
    out = subprocess.run([sys.executable, "-c", code], cwd=str(ql._library.REPO_DIR / "python"),
                         env=env, capture_output=True, text=True, timeout=60)
    assert out.returncode != 0 and "LibraryNotFound" in out.stderr
