"""The koblas_ BLAS entry points against numpy on sub-matrices and sub-vectors of larger
host arrays: every layout, side, triangle, transposition and diagonal kind, negative
increments, the sizing of an empty result and the unchecked mode that trusts the caller.
Host elements outside an input's walk are NaN (reading one shows), the unread triangle
and a unit diagonal too; those outside the result's walk must come back unchanged.
Bounds are componentwise: gamma_{k+2} (|alpha| |op(A)| |op(B)| + |beta| |C|)."""
import itertools

import numpy as np
import pytest

import quarz_linalg as ql
from oracle import DTYPES, assert_within, gamma, hi, is_complex, random_array

OPT = ql.OPTIONS
ROW, COL = OPT["CblasOrder"]["row_major"], OPT["CblasOrder"]["col_major"]
NO, TR, CT = (OPT["CblasTranspose"][k] for k in ("no_trans", "trans", "conj_trans"))
UP, LO = OPT["CblasUplo"]["upper"], OPT["CblasUplo"]["lower"]
NONUNIT, UNIT = OPT["CblasDiag"]["non_unit"], OPT["CblasDiag"]["unit"]
LEFT, RIGHT = OPT["CblasSide"]["left"], OPT["CblasSide"]["right"]
SENTINEL = 7.0  # the result array's elements outside its walk


def run(op, dtype, *args, check=1):
    """Runs koblas_<letter><op>; returns its in-place outputs."""
    return ql.invoke(f"koblas_{ql.letter_of(dtype)}{op}", *args, check)[1]


def scalars(dtype):
    alpha, beta = 1.5 - 0.5j, -0.75 + 0.25j
    return (alpha, beta) if is_complex(dtype) else (alpha.real, beta.real)


def op(a, trans):
    return a if trans == NO else a.T if trans == TR else a.conj().T


def mat_index(host_cols, row, col, ld, shape, layout):
    """Flat host indices of a sub-matrix at (row, col) walked with ld in the layout."""
    i, j = np.indices(shape)
    return row * host_cols + col + (i * ld + j if layout == ROW else j * ld + i)


def host_matrix(logical, row, col, ld, layout, host_cols, fill=np.nan):
    """A host matrix holding `logical` at (row, col), every other element `fill`, with a
    spare row beyond the longer of the two walks (the row-major bounds of gemm and gemv
    apply in both layouts)."""
    r, c = logical.shape
    span = max((r - 1) * ld + c, (c - 1) * ld + r)
    rows = -(-(row * host_cols + col + span) // host_cols) + 1
    flat = np.full(rows * host_cols, fill, logical.dtype)
    idx = mat_index(host_cols, row, col, ld, logical.shape, layout)
    flat[idx] = logical
    return flat.reshape(rows, host_cols), idx


def vec_index(off, inc, n):
    """Element i of a BLAS vector: forwards from off, or backwards to off for inc < 0."""
    i = np.arange(n)
    return off + (i * inc if inc > 0 else (n - 1 - i) * -inc)


def host_vector(logical, off, inc, fill=np.nan):
    idx = vec_index(off, inc, len(logical))
    flat = np.full(idx.max() + 2, fill, logical.dtype)
    flat[idx] = logical
    return flat, idx


def check_result(got, before, idx, ref, bound, what):
    """The walk holds ref within bound; everything else is as it was."""
    got, before = got.ravel(), before.ravel()
    assert_within(got[idx], ref, bound, what)
    rest = np.ones(got.size, bool)
    rest[idx.ravel()] = False
    assert np.array_equal(got[rest], before[rest]), f"{what}: elements outside the result changed"


def triangle(rng, n, dtype, uplo, hermitian=None, unit=False):
    """A random n x n matrix and its copy for the host with NaN in the unread triangle
    (and diagonal when unit); hermitian True/False makes it Hermitian/symmetric from the
    read triangle."""
    a = random_array(rng, (n, n), dtype)
    keep = np.triu(np.ones((n, n), bool)) if uplo == UP else np.tril(np.ones((n, n), bool))
    if hermitian is not None:
        t = np.where(keep, a, 0)
        if hermitian:
            t[np.diag_indices(n)] = t.diagonal().real
        mirrored = t.conj().T if hermitian else t.T
        full = t + mirrored - np.diag(np.diag(t))
    else:
        full = np.where(keep, a, 0)
        if unit:
            full[np.diag_indices(n)] = 1
    stored = np.where(keep, a if hermitian is None else full, np.nan).astype(dtype)
    if unit:
        stored[np.diag_indices(n)] = np.nan
    return full.astype(dtype), stored


@pytest.mark.parametrize("dtype,layout,ta,tb", itertools.product(DTYPES, (ROW, COL), (NO, TR, CT), (NO, TR, CT)))
def test_gemm(dtype, layout, ta, tb, rng):
    m, n, k = 3, 4, 5
    alpha, beta = scalars(dtype)
    a = random_array(rng, (m, k) if ta == NO else (k, m), dtype)
    b = random_array(rng, (k, n) if tb == NO else (n, k), dtype)
    c = random_array(rng, (m, n), dtype)
    lda, ldb, ldc = (max(s.shape) + 1 for s in (a, b, c))
    A, _ = host_matrix(a, 1, 2, lda, layout, host_cols=4)  # runs cross host rows
    B, _ = host_matrix(b, 0, 3, ldb, layout, host_cols=9)
    C, idx = host_matrix(c, 2, 1, ldc, layout, host_cols=3, fill=SENTINEL)
    (out,) = run("gemm", dtype, A, B, C, alpha, beta, m, n, k, ta, tb, 1, 2, 0, 3, 2, 1, lda, ldb, ldc, layout)
    pa, pb = op(hi(a), ta), op(hi(b), tb)
    bound = gamma(k + 2, dtype) * (abs(alpha) * np.abs(pa) @ np.abs(pb) + abs(beta) * np.abs(hi(c)))
    check_result(out, C, idx, alpha * pa @ pb + beta * hi(c), bound, "gemm")


@pytest.mark.parametrize("dtype", DTYPES, ids=list("sdcz"))
def test_gemm_sizes_an_empty_result_and_trusts_unchecked_calls(dtype, rng):
    alpha, beta = scalars(dtype)
    a, b = random_array(rng, (2, 4), dtype), random_array(rng, (4, 3), dtype)
    ref = alpha * hi(a) @ hi(b)
    bound = gamma(6, dtype) * abs(alpha) * np.abs(hi(a)) @ np.abs(hi(b))
    # ldc < 1: C becomes (m + cRow) x (n + cCol); beta is not applied to what it held.
    # An offset into an empty C must lie inside its non-zero size (or be 0).
    (out,) = run("gemm", dtype, a, b, np.zeros((2, 0), dtype), alpha, np.nan, 2, 3, 4, NO, NO, 0, 0, 0, 0, 1, 0, 4,
                 3, 0, ROW)
    assert out.shape == (3, 3)
    assert_within(out[1:], ref, bound, "sized C")
    (out,) = run("gemm", dtype, a, b, np.zeros((0, 4), dtype), alpha, beta, 2, 3, 4, NO, NO, 0, 0, 0, 0, 0, 2, 4, 3,
                 0, ROW)
    assert out.shape == (2, 5)
    assert_within(out[:, 2:], ref, bound, "sized C, column offset")
    (out,) = run("gemm", dtype, a, b, np.zeros((0, 0), dtype), alpha, beta, 2, 3, 4, NO, NO, 0, 0, 0, 0, 0, 0, 4, 3,
                 6, ROW)
    assert out.shape == (2, 6)
    assert_within(out[:, :3], ref, bound, "sized C, ldc given")
    # k = 0: the checking mode leaves C as it is; the unchecked call runs the kernel,
    # which scales C by beta.
    c = random_array(rng, (2, 3), dtype)
    (out,) = run("gemm", dtype, a, b, c, alpha, beta, 2, 3, 0, NO, NO, 0, 0, 0, 0, 0, 0, 4, 3, 3, ROW)
    assert np.array_equal(out, c)
    (out,) = run("gemm", dtype, a, b, c, alpha, beta, 2, 3, 0, NO, NO, 0, 0, 0, 0, 0, 0, 4, 3, 3, ROW, check=0)
    assert_within(out, beta * hi(c), gamma(1, dtype) * abs(beta) * np.abs(hi(c)), "k = 0 unchecked")
    # A's sub-matrix starting one element before host row 1 (column offset -1): refused
    # when checking, computed as addressed when trusted.
    A, _ = host_matrix(a, 1, -1, 4, ROW, host_cols=5)
    args = (A, b, np.zeros((2, 3), dtype), alpha, 0, 2, 3, 4, NO, NO, 1, -1, 0, 0, 0, 0, 4, 3, 3, ROW)
    with pytest.raises(ql.QuarzError) as err:
        run("gemm", dtype, *args)
    assert err.value.status == -20017
    assert_within(run("gemm", dtype, *args, check=0)[0], ref, bound, "trusted offset")


INCS = [(1, 1), (2, -3), (-1, 2)]


@pytest.mark.parametrize("dtype,layout,trans,incs", itertools.product(DTYPES, (ROW, COL), (NO, TR, CT), INCS))
def test_gemv(dtype, layout, trans, incs, rng):
    m, n = 4, 3
    (incx, incy), (alpha, beta) = incs, scalars(dtype)
    lx, ly = (n, m) if trans == NO else (m, n)
    a, x, y = random_array(rng, (m, n), dtype), random_array(rng, lx, dtype), random_array(rng, ly, dtype)
    A, _ = host_matrix(a, 1, 1, 5, layout, host_cols=3)
    X, _ = host_vector(x, 2, incx)
    Y, idx = host_vector(y, 1, incy, fill=SENTINEL)
    (out,) = run("gemv", dtype, A, X, Y, alpha, beta, trans, incx, incy, m, n, 1, 1, 2, 1, 5, layout)
    pa = op(hi(a), trans)
    bound = gamma(lx + 2, dtype) * (abs(alpha) * np.abs(pa) @ np.abs(hi(x)) + abs(beta) * np.abs(hi(y)))
    check_result(out, Y, idx, alpha * pa @ hi(x) + beta * hi(y), bound, "gemv")


@pytest.mark.parametrize("dtype", DTYPES, ids=list("sdcz"))
def test_gemv_sizes_an_empty_result_and_trusts_unchecked_calls(dtype, rng):
    alpha, _ = scalars(dtype)
    a, x = random_array(rng, (3, 2), dtype), random_array(rng, 2, dtype)
    ref = alpha * hi(a) @ hi(x)
    bound = gamma(4, dtype) * abs(alpha) * np.abs(hi(a)) @ np.abs(hi(x))
    # y of |incy| (m - 1) + 1 + yOff elements, the product at 1, 3, 5, beta not applied.
    (out,) = run("gemv", dtype, a, x, np.zeros(0, dtype), alpha, np.nan, NO, 1, 2, 3, 2, 0, 0, 0, 1, 2, ROW)
    assert out.shape == (6,)
    assert_within(out[1::2], ref, bound, "sized y")
    # A's sub-matrix at column offset 2 = A's width (the start of host row 1).
    A = np.vstack([np.full((1, 2), np.nan, dtype), a])
    args = (A, x, np.zeros(3, dtype), alpha, 0, NO, 1, 1, 3, 2, 0, 2, 0, 0, 2, ROW)
    with pytest.raises(ql.QuarzError) as err:
        run("gemv", dtype, *args)
    assert err.value.status == -20017
    assert_within(run("gemv", dtype, *args, check=0)[0], ref, bound, "trusted offset")


SYMM = [(d, "symm") for d in DTYPES] + [(d, "hemm") for d in DTYPES if is_complex(d)]


@pytest.mark.parametrize("dtype,name,side,uplo,layout",
                         [(d, o, s, u, l) for (d, o), s, u, l in itertools.product(SYMM, (LEFT, RIGHT), (UP, LO), (ROW, COL))])
def test_symm_hemm(dtype, name, side, uplo, layout, rng):
    m, n = 3, 4
    ka = m if side == LEFT else n
    alpha, beta = scalars(dtype)
    full, stored = triangle(rng, ka, dtype, uplo, hermitian=name == "hemm")
    b, c = random_array(rng, (m, n), dtype), random_array(rng, (m, n), dtype)
    run_len = n if layout == ROW else m
    A, _ = host_matrix(stored, 1, 0, ka, layout, host_cols=ka + 2)
    B, _ = host_matrix(b, 0, 1, run_len + 1, layout, host_cols=6)
    C, idx = host_matrix(c, 1, 1, run_len, layout, host_cols=2, fill=SENTINEL)
    (out,) = run(name, dtype, A, B, C, alpha, beta, m, n, side, uplo, 1, 0, 0, 1, 1, 1, ka, run_len + 1, run_len,
                 layout)
    fa, hb = hi(full), hi(b)
    prod, mag = (fa @ hb, np.abs(fa) @ np.abs(hb)) if side == LEFT else (hb @ fa, np.abs(hb) @ np.abs(fa))
    bound = gamma(ka + 2, dtype) * (abs(alpha) * mag + abs(beta) * np.abs(hi(c)))
    check_result(out, C, idx, alpha * prod + beta * hi(c), bound, name)


@pytest.mark.parametrize("dtype,side,uplo,trans,diag,layout",
                         itertools.product(DTYPES, (LEFT, RIGHT), (UP, LO), (NO, TR, CT), (NONUNIT, UNIT), (ROW, COL)))
def test_trmm(dtype, side, uplo, trans, diag, layout, rng):
    m, n = 4, 3
    ka = m if side == LEFT else n
    alpha, _ = scalars(dtype)
    full, stored = triangle(rng, ka, dtype, uplo, unit=diag == UNIT)
    b = random_array(rng, (m, n), dtype)
    run_len = n if layout == ROW else m
    A, _ = host_matrix(stored, 0, 1, ka + 1, layout, host_cols=ka + 1)
    B, idx = host_matrix(b, 1, 0, run_len, layout, host_cols=run_len + 3, fill=SENTINEL)
    (out,) = run("trmm", dtype, A, B, alpha, m, n, side, uplo, trans, diag, 0, 1, 1, 0, ka + 1, run_len, layout)
    pa, hb = op(hi(full), trans), hi(b)
    prod, mag = (pa @ hb, np.abs(pa) @ np.abs(hb)) if side == LEFT else (hb @ pa, np.abs(hb) @ np.abs(pa))
    check_result(out, B, idx, alpha * prod, gamma(ka + 2, dtype) * abs(alpha) * mag, "trmm")


SYMV = [(d, "symv" if not is_complex(d) else "hemv") for d in DTYPES]


@pytest.mark.parametrize("dtype,name,uplo,layout,incs",
                         [(d, o, u, l, i) for (d, o), u, l, i in itertools.product(SYMV, (UP, LO), (ROW, COL), INCS)])
def test_symv_hemv(dtype, name, uplo, layout, incs, rng):
    n = 5
    (incx, incy), (alpha, beta) = incs, scalars(dtype)
    full, stored = triangle(rng, n, dtype, uplo, hermitian=name == "hemv")
    x, y = random_array(rng, n, dtype), random_array(rng, n, dtype)
    A, _ = host_matrix(stored, 2, 1, n + 1, layout, host_cols=4)
    X, _ = host_vector(x, 1, incx)
    Y, idx = host_vector(y, 3, incy, fill=SENTINEL)
    (out,) = run(name, dtype, A, X, Y, alpha, beta, uplo, incx, incy, n, 2, 1, 1, 3, n + 1, layout)
    fa = hi(full)
    bound = gamma(n + 2, dtype) * (abs(alpha) * np.abs(fa) @ np.abs(hi(x)) + abs(beta) * np.abs(hi(y)))
    check_result(out, Y, idx, alpha * fa @ hi(x) + beta * hi(y), bound, name)


@pytest.mark.parametrize("dtype,uplo,trans,diag,layout,incx",
                         itertools.product(DTYPES, (UP, LO), (NO, TR, CT), (NONUNIT, UNIT), (ROW, COL), (1, -2)))
def test_trmv(dtype, uplo, trans, diag, layout, incx, rng):
    n = 4
    full, stored = triangle(rng, n, dtype, uplo, unit=diag == UNIT)
    x = random_array(rng, n, dtype)
    A, _ = host_matrix(stored, 1, 2, n, layout, host_cols=3)
    X, idx = host_vector(x, 2, incx, fill=SENTINEL)
    (out,) = run("trmv", dtype, A, X, uplo, trans, diag, incx, n, 1, 2, 2, n, layout)
    pa = op(hi(full), trans)
    check_result(out, X, idx, pa @ hi(x), gamma(n + 2, dtype) * np.abs(pa) @ np.abs(hi(x)), "trmv")
