"""The Python host itself: host arrays and their layout, element types, status reports,
clean-up when a call fails, and the runtime binding."""
import struct
import subprocess
import sys

import numpy as np
import pytest

import quarz_linalg as ql
from oracle import DTYPES, random_array

# type code: (dtype, struct format of one part, parts per element, first byte of 1-D data)
LAYOUT = {3: (np.int32, "i", 1, 4), 9: (np.float32, "f", 1, 4), 10: (np.float64, "d", 1, 8),
          12: (np.complex64, "f", 2, 4), 13: (np.complex128, "d", 2, 8)}


@pytest.mark.parametrize("code", sorted(LAYOUT), ids=["i", "s", "d", "c", "z"])
@pytest.mark.parametrize("shape", [(0,), (5,), (0, 3), (2, 3)])
def test_host_array_layout_and_round_trip(code, shape, rng):
    dt, fmt, parts, first = LAYOUT[code]
    a = (rng.integers(-2**31, 2**31, shape).astype(dt) if code == 3 else
         random_array(rng, shape, dt, scale=1e3))
    with ql.HostArray.from_numpy(a, code) as h:
        back = h.to_numpy()
        assert back.dtype == dt and np.array_equal(back, a)
        # The block byte by byte: the sizes, then the elements from byte 4 or 8.
        offset, count = first if len(shape) == 1 else 8, a.size
        blob = h.raw_bytes(offset + count * parts * struct.calcsize(fmt))
        assert struct.unpack_from(f"<{len(shape)}i", blob) == shape
        flat = a.reshape(-1).view(np.dtype(fmt).newbyteorder("<"))
        assert struct.unpack_from(f"<{count * parts}{fmt}", blob, offset) == tuple(flat.tolist())


def test_element_types_from_dtypes():
    assert [ql.letter_of(t) for t in DTYPES] == ["s", "d", "c", "z"]
    assert ql.letter_of(np.int64) == "d" and ql.letter_of(np.float16) == "s"
    f32, c64 = np.ones(2, np.float32), np.ones(2, np.complex64)
    assert ql.dot(f32, c64).dtype == np.complex64 and ql.dot(f32, np.ones(2)).dtype == np.float64
    assert ql.dot(c64, np.ones(2)).dtype == np.complex128 and ql.norm(c64).dtype == np.float32
    assert ql.dot(np.arange(3), np.arange(3)) == 5


def test_status_reports_carry_code_name_and_export():
    with pytest.raises(ql.QuarzError) as e:
        ql.solve(np.ones((2, 2)), np.ones(2))
    assert (e.value.status, e.value.name, e.value.export) == (-20041, "StatusSingular", "dLinEqH")
    with pytest.warns(ql.QuarzWarning) as w:
        L, U, P, piv = ql.lu(np.zeros((1, 1), np.complex64))
    assert (w[0].message.status, w[0].message.name) == (20003, "WarnSingular")
    assert (L.tolist(), U.tolist(), P.tolist(), piv.tolist()) == ([[1]], [[0]], [[1]], [0])


def test_unknown_option_names_are_refused():
    # Not silently mapped to some value (such as 0, the general matrix).
    with pytest.raises(ValueError):
        ql.det(np.eye(2), "posdef")
    # Refused in Python after the first input's handle was made: that one is freed too.
    with pytest.raises(ValueError):
        ql.invoke("dMtrxMulH", np.ones((2, 2)), np.ones((2, 2, 2)))


def test_fresh_process_resizes_through_the_runtime_it_loaded():
    code = ("import numpy as np, quarz_linalg as ql; n = ql.resize_count(); "
            "ql.outer(np.ones(2), np.ones(3)); print(ql.resize_count() - n)")
    out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                         cwd=str(ql._library.REPO_DIR / "python"), timeout=60)
    assert out.returncode == 0 and int(out.stdout) >= 1, out.stderr


# ---- The compiled bridge (the layout test above runs on both paths) ---------------------

bridge_only = pytest.mark.skipif(ql.BRIDGE_PATH is None, reason="calls go through ctypes")


def test_inputs_of_any_layout_and_element_type_arrive_as_their_values(rng):
    # Strided, Fortran-ordered, byte-swapped, integer and nested-list inputs: each must
    # reach the export as the values it holds, not as the raw bytes behind it.
    a = rng.standard_normal((6, 9))
    for given in (a[::2, ::3], np.asfortranarray(a), a.astype(">f8"), a.astype(np.float32),
                  (10 * a).astype(np.int32), a.tolist(), a.T):
        expected = np.asarray(given, np.float64).T
        assert np.array_equal(ql.invoke("dTransposeH", given)[1][0], expected)
    assert np.array_equal(ql.invoke("zTransposeH", a[::2, ::3])[1][0], a[::2, ::3].T)


@bridge_only
def test_large_outputs_keep_the_block_the_export_wrote(rng):
    a = rng.standard_normal((64, 64))
    ql.matmul(a, a)
    before = ql.live_handles()
    r = ql.matmul(a, a)
    view = r[:2]
    # Handed over, not copied: the host block is the array's memory, and it stays
    # alive (and unchanged) as long as a view of it does.
    assert not isinstance(r.base, np.ndarray) and ql.live_handles() == before + 1
    del r
    ql.matmul(-a, a)
    assert np.array_equal(view, (a @ a)[:2])
    del view
    assert ql.live_handles() == before


@bridge_only
def test_repeated_calls_reuse_their_handles(rng):
    a, y = rng.standard_normal((40, 40)) + 40 * np.eye(40), rng.standard_normal(40)
    ql.solve(a, y), ql.lu(a)
    counts = ql.kort.KortLiveHandles(), ql._library.bridge.held()
    for _ in range(3):
        ql.solve(a, y), ql.lu(a)
        assert (ql.kort.KortLiveHandles(), ql._library.bridge.held()) == counts


@bridge_only
def test_a_thread_frees_its_handles_when_it_ends(rng):
    import threading
    a = rng.standard_normal((8, 8)) + 8 * np.eye(8)
    before = ql.kort.KortLiveHandles(), ql._library.bridge.held()
    results = []
    worker = threading.Thread(target=lambda: results.append(ql.solve(a, np.ones(8))))
    worker.start()
    worker.join()
    assert np.allclose(a @ results[0], 1)
    del results
    assert (ql.kort.KortLiveHandles(), ql._library.bridge.held()) == before


@bridge_only
def test_a_bridge_built_from_another_kind_table_is_not_used(tmp_path):
    # Its call stubs would not match the library's exports: an error when the bridge is
    # asked for, else the calls go through ctypes, with a warning.
    import os
    import shutil
    for path, name in ((ql.LIB_PATH, ql._library.LIB_NAME), (ql.KORT_PATH, ql._library.KORT_NAME),
                       (ql.BRIDGE_PATH, ql.BRIDGE_PATH.name)):
        shutil.copy(path, tmp_path / name)
    for runtime in ("libiomp5.so", "libquarz_core_130000.so"):  # the kernel the library loads
        os.symlink(os.path.realpath(ql.LIB_PATH.parent / runtime), tmp_path / runtime)
    (tmp_path / ql.KIND_TABLE_PATH.name).write_bytes(ql.KIND_TABLE_PATH.read_bytes() + b" ")
    code = "import quarz_linalg as ql; print(ql.BRIDGE_PATH, ql.det([[2.0]]))"
    for setting, fails in (("1", True), ("", False)):
        env = dict(os.environ, QUARZ_LINALG_LIBDIR=str(tmp_path), QUARZ_LINALG_BRIDGE=setting)
        out = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                             cwd=str(ql._library.REPO_DIR / "python"), timeout=60, env=env)
        assert "was built from another quarz_linalg_exports.json" in out.stderr
        assert (out.returncode != 0) == fails and (fails or out.stdout.split() == ["None", "2.0"])


@bridge_only
def test_an_output_passed_back_in_is_read_in_place(rng):
    a = rng.standard_normal((64, 64))
    with ql.host_layout():
        r = ql.matmul(a, a)
        ql.transpose(np.ones((3, 3)))
    before = ql.resize_count()
    assert np.array_equal(ql.transpose(r), r.T)
    assert ql.resize_count() - before == 1  # the result's; the input was not copied
    # Views that are not the whole block as it came back are copied as their values.
    for view in (r[1:], r[:, 1:], r.T, r[::2], r.reshape(32, 128), r.view(np.int64)):
        assert np.array_equal(ql.invoke("dTransposeH", view)[1][0], view.T.astype(np.float64))


@bridge_only
def test_numpy_arrays_are_read_where_they_lie(rng):
    # Fault caught: the import installing the handler (it must be opt-in), or arrays
    # allocated under host_layout() copied anyway.
    assert np.core.multiarray.get_handler_name(np.ones(4)) != "quarz_linalg_host_layout"
    with ql.host_layout() as on:
        assert on is True
        a = rng.standard_normal((64, 256))
    assert ql.set_host_layout() is False
    # Allocated inside the block, an array has a host block's sizes slot in front of its
    # elements; an export reads it in place, with the sizes of the view passed. (A copy
    # this large costs two resizes: the bridge's handle grows, and is emptied after.)
    assert np.core.multiarray.get_handler_name(a) == "quarz_linalg_host_layout"
    for given, copies in ((a, 0), (a.reshape(256, 64), 0), (a[1:], 1), (a.T, 1)):
        before = ql.resize_count()
        assert np.array_equal(ql.transpose(given), given.T)
        assert ql.resize_count() - before == 1 + 2 * copies
    # One memory as two inputs of other sizes in one call: the second is copied, not
    # given sizes that the first one's reader would then see.
    before = ql.resize_count()
    assert np.array_equal(ql.matmul(a, a.reshape(256, 64)), a @ a.reshape(256, 64))
    assert ql.resize_count() - before == 3


@bridge_only
def test_host_layout_arrays_grow_and_shrink_with_their_contents():
    # numpy reallocates an array's memory in place of a copy (resize, fromiter); the
    # elements must move with it.
    with ql.host_layout():
        _grow_and_shrink()


def _grow_and_shrink():
    x = np.arange(5.0)
    x.resize(300000)
    assert np.array_equal(x[:5], np.arange(5.0)) and not x[5:].any()
    x.resize(3)
    assert np.array_equal(x, [0.0, 1.0, 2.0])
    y = np.fromiter((float(i) for i in range(100000)), np.float64)
    assert np.array_equal(y, np.arange(100000.0))
