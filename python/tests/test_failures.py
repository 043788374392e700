"""The call frame seen from the host: outputs emptied and scalars NaN on errors, work
handles emptied on every return, refused host resizes reported as StatusOutOfMemory,
and no host memory left behind by any failing call."""
import contextlib
import ctypes

import numpy as np
import pytest

import quarz_linalg as ql
from quarz_linalg._exports import C_TYPES, HANDLE_KINDS, IN_KINDS, OUT_KINDS, WORK_KINDS
from oracle import DTYPES, DTYPE_IDS, random_array, random_hpd


def _cases(dtype, rng):
    """(export, inputs) for a valid call of every operation, in list order of inputs."""
    t = dtype
    a34, a43, a44 = (random_array(rng, s, t) for s in [(3, 4), (4, 3), (4, 4)])
    x3, x4 = random_array(rng, 3, t), random_array(rng, 4, t)
    hpd = random_hpd(rng, 4, t)
    cases = [("DotProdH", (x4, x4)), ("VectorNormH", (x4, 3.0)), ("MeanH", (x4,)),
             ("RMSH", (x4,)),
             ("MtrxMulH", (a34, a43)), ("MtrxVecMulH", (a34, x4)), ("VecMtrxMulH", (x3, a34)),
             ("OuterProdH", (x3, x4)), ("KronProdH", (a34, a43)), ("TransposeH", (a34,)),
             ("TraceH", (a34,))]
    cases += [("SpecialMtrxH", (kind, 3, x3, x4)) for kind in range(6)]
    cases += [("CholeskyH", (hpd, opt)) for opt in (0, 1)]
    cases += [("LUH", (a,)) for a in (a34, a43, a44)]
    cases += [("DeterminantH", args) for args in [(a44, 0), (a44, 2), (hpd, 0), (hpd, 1)]]
    cases += [("LinEqH", (hpd, x4, kind)) for kind in range(4)]
    cases += [("LinEqSetH", (hpd, a43, kind)) for kind in range(4)]
    return [(ql.letter_of(dtype) + name, args) for name, args in cases]


def _error_cases(dtype):
    t = dtype
    e2, e1 = np.zeros((0, 0), t), np.zeros(0, t)
    sing = np.array([[1, 2, 3], [1, 2, 3], [0, 1, 1]], t)
    indef = np.array([[1, 2, 0], [2, 1, 0], [0, 0, 1]], t)
    cases = [("DotProdH", (np.ones(3, t), e1)), ("VectorNormH", (np.ones(3, t), 0.0)),
             ("MeanH", (e1,)), ("RMSH", (e1,)),
             ("MtrxMulH", (np.ones((2, 3), t), np.ones((2, 3), t))),
             ("MtrxVecMulH", (np.ones((2, 3), t), np.ones(2, t))),
             ("VecMtrxMulH", (np.ones(3, t), np.ones((2, 3), t))),
             ("OuterProdH", (e1, np.ones(2, t))), ("KronProdH", (e2, np.ones((2, 2), t))),
             ("TransposeH", (np.zeros((0, 4), t),)), ("TraceH", (e2,)),
             ("SpecialMtrxH", (6, 2, e1, e1)), ("SpecialMtrxH", (4, 0, np.ones(1, t), e1)),
             ("CholeskyH", (indef, 0)), ("CholeskyH", (np.eye(3, dtype=t), 2)),
             ("LUH", (np.zeros((0, 3), t),)),
             ("DeterminantH", (indef, 1)), ("DeterminantH", (np.ones((2, 3), t), 0)),
             ("LinEqH", (sing, np.ones(3, t), 0)), ("LinEqH", (indef, np.ones(3, t), 1)),
             ("LinEqH", (np.eye(3, dtype=t), np.full(3, np.nan, t), 2)),
             ("LinEqSetH", (sing, np.ones((3, 2), t), 0)),
             ("LinEqSetH", (np.eye(3, dtype=t), np.ones((3, 2), t), 9))]
    return [(ql.letter_of(dtype) + name, args) for name, args in cases]


@contextlib.contextmanager
def raw_call(export, args, null=()):
    """Makes the handles for `export` (arguments named in `null` passed as null
    handles), calls it, and yields (status, {argument: HostArray or ctypes scalar})."""
    row, letter = ql.EXPORTS[export]
    fn = getattr(ql.raw, export)
    code = ql.LETTERS[letter][0]
    user = iter(args)
    with contextlib.ExitStack() as stack:
        call_args, named = [], {}
        for aname, kind in row.args:
            if aname in null:
                call_args.append(None)
                if kind in IN_KINDS or kind == "inout2":
                    next(user)
                continue
            if kind in IN_KINDS or kind == "inout2":
                h = stack.enter_context(ql.HostArray.from_numpy(next(user), code, HANDLE_KINDS[kind]))
            elif kind in OUT_KINDS or kind in WORK_KINDS:
                tc = ql.INT32_CODE if kind.startswith("i") else code
                # Outputs arrive holding stale data, as a host's arrays may.
                h = stack.enter_context(ql.HostArray(tc, (2,) * HANDLE_KINDS[kind]))
            elif kind in ("elem_out", "real_out"):
                h = C_TYPES[letter][0 if kind == "elem_out" else 1]()
                call_args.append(ctypes.byref(h))
                named[aname] = (kind, h)
                continue
            else:
                v = next(user)
                call_args.append(float(v) if kind == "real" else int(v))
                continue
            call_args.append(h)
            named[aname] = (kind, h)
        yield fn(*call_args), named


def _check_frame(export, status, named):
    for aname, (kind, h) in named.items():
        if kind in WORK_KINDS:
            assert h.shape == (0,), f"{export}: work handle {aname} not emptied (status {status})"
        if status < 0:
            if kind in OUT_KINDS:
                assert all(d == 0 for d in h.shape), f"{export}: output {aname} not emptied"
            elif kind == "elem_out":
                parts = (h.re, h.im) if hasattr(h, "re") else (h.value,)
                assert all(np.isnan(p) for p in parts), f"{export}: {aname} not NaN"
            elif kind == "real_out":
                assert np.isnan(h.value), f"{export}: {aname} not NaN"


def _landed(cases):
    return [(e, a) for e, a in cases if ql.available(e)]


@pytest.mark.parametrize("dtype", DTYPES, ids=DTYPE_IDS)
def test_frame_after_success_and_after_errors(dtype, rng):
    for export, args in _landed(_cases(dtype, rng)):
        with raw_call(export, args) as (status, named):
            assert status >= 0, export
            _check_frame(export, status, named)
    errors = _landed(_error_cases(dtype))
    for export, args in errors:
        with raw_call(export, args) as (status, named):
            assert status < 0, export
            _check_frame(export, status, named)


@pytest.mark.parametrize("dtype", DTYPES, ids=DTYPE_IDS)
def test_missing_work_handles_give_kernel_error(dtype, rng):
    t = dtype
    a = random_array(rng, (4, 4), t) + 4 * np.eye(4, dtype=t)
    cases = [("LUH", (a,)), ("DeterminantH", (a, 0)), ("DeterminantH", (random_hpd(rng, 4, t), 1)),
             ("LinEqH", (a, np.ones(4, t), 0)), ("LinEqH", (a, np.ones(4, t), 2)),
             ("LinEqSetH", (a, np.ones((4, 2), t), 0))]
    for export, args in _landed([(ql.letter_of(t) + n, x) for n, x in cases]):
        row, _ = ql.EXPORTS[export]
        works = [n for n, k in row.args if k in WORK_KINDS]
        for missing in works:
            if export.endswith("DeterminantH") and args[1] == 1 and missing == works[-1]:
                continue          # the positive definite path does not use the int32 work
            if export.endswith("LinEqH") and args[2] == 2 and missing == works[-1]:
                continue          # nor does the triangular solver
            with raw_call(export, args, null=(missing,)) as (status, named):
                assert status == -20999, (export, missing)
                _check_frame(export, status, named)
    # Orders 1 and 2 of the determinant need no work arrays at all.
    if ql.available(ql.letter_of(t) + "DeterminantH"):
        w = ql.EXPORTS[ql.letter_of(t) + "DeterminantH"][0]
        nulls = tuple(n for n, k in w.args if k in WORK_KINDS)
        with raw_call(ql.letter_of(t) + "DeterminantH", (np.array([[1, 2], [3, 4]], t), 0), null=nulls) as (status, named):
            assert status == 0
            v = named[[n for n, k in w.args if k == "elem_out"][0]][1]
            assert (v.re if hasattr(v, "re") else v.value) == -2


@pytest.mark.parametrize("dtype", DTYPES, ids=DTYPE_IDS)
def test_every_refused_resize_is_reported_and_leaks_nothing(dtype, rng):
    swept = 0
    for export, args in _landed(_cases(dtype, rng)):
        before = ql.resize_count()
        with raw_call(export, args) as (_, named):
            total = ql.resize_count() - before
            clean = [h.to_numpy() for kind, h in named.values() if kind in OUT_KINDS]
        for k in range(1, total + 1):
            handles, nbytes = ql.live_handles(), ql.live_bytes()
            ql.fail_resize_at(k)
            start = ql.resize_count()
            try:
                with raw_call(export, args) as (status, named):
                    reached = ql.resize_count() - start >= k
                    ql.fail_resize_at(0)
                    assert reached, f"{export}: resize {k} of {total} never happened"
                    # A refused resize is StatusOutOfMemory; a refused clean-up resize
                    # (result ignored) may leave the call successful.
                    assert status == -20001 or status >= 0, (export, k, status)
                    if status < 0:
                        for aname, (kind, h) in named.items():
                            if kind in OUT_KINDS:
                                assert all(d == 0 for d in h.shape), (export, k, aname)
                    else:
                        outs = [h.to_numpy() for kind, h in named.values() if kind in OUT_KINDS]
                        for got, want in zip(outs, clean):
                            assert np.array_equal(got, want, equal_nan=True), (export, k)
            finally:
                ql.fail_resize_at(0)
            assert (ql.live_handles(), ql.live_bytes()) == (handles, nbytes), (export, k)
            swept += 1
    if any(ql.available(ql.letter_of(dtype) + n) for n in ("MtrxMulH", "LUH", "LinEqH")):
        assert swept > 0


@pytest.mark.parametrize("dtype", DTYPES, ids=DTYPE_IDS)
def test_numpy_layer_frees_everything_when_refused(dtype, rng):
    # The same sweep through the numpy layer: QuarzError(-20001) or a result, and the
    # host's live handles and bytes back where they were after each call.
    for export, args in _landed(_cases(dtype, rng)):
        before = ql.resize_count()
        ql.invoke(export, *args, check=False)
        total = ql.resize_count() - before
        for k in range(1, total + 1):
            handles, nbytes = ql.live_handles(), ql.live_bytes()
            ql.fail_resize_at(k)
            try:
                ql.invoke(export, *args)
            except ql.QuarzError as e:
                assert (e.status, e.name) == (-20001, "StatusOutOfMemory")
            finally:
                ql.fail_resize_at(0)
            assert (ql.live_handles(), ql.live_bytes()) == (handles, nbytes), (export, k)


def test_oversized_products_are_refused_before_asking_the_host():
    if not ql.available("dOuterProdH"):
        pytest.skip("outer product not exported yet")
    # 65536 x 65536 (16 + 16 bits) and 32768 x 65536 (15 + 16) exceed the 2-D size
    # guard. The output arrives holding a 2 x 2 block, so the only host resize allowed
    # is the one that empties it. The first resize is refused in case the guard is
    # missing, so that no huge block is ever allocated.
    for m, n in [(65536, 65536), (32768, 65536)]:
        with raw_call("dOuterProdH", (np.ones(m), np.ones(n))) as _:
            pass
        ql.fail_resize_at(1)
        try:
            before = ql.resize_count()
            with raw_call("dOuterProdH", (np.ones(m), np.ones(n))) as (status, named):
                assert status == -20001
                assert ql.resize_count() - before == 1
        finally:
            ql.fail_resize_at(0)
