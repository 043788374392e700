"""Matrix products, matrix-vector products, outer and Kronecker products, transpose and
trace against numpy in extended precision, with componentwise rounding-error bounds."""
import numpy as np
import pytest

import quarz_linalg as ql
from oracle import (assert_within, dtypes, gamma, gamma_dot, gamma_mul, hi, is_complex,
                    needs, random_array, ref_factor)


def _status(fn, *args):
    with pytest.raises(ql.QuarzError) as e:
        fn(*args)
    return e.value.status


def _product_bound(a, b, dtype):
    """|fl(AB) - AB| <= gamma_k |A||B| componentwise (sqrt(2) gamma_{k+2} complex)."""
    k = a.shape[-1]
    return ref_factor(dtype) * gamma_dot(k, dtype) * (np.abs(hi(a)) @ np.abs(hi(b)))


MATMUL_SHAPES = [(1, 1, 1), (1, 5, 1), (5, 1, 4), (2, 3, 4), (7, 7, 7), (16, 9, 33),
                 (64, 64, 64), (1, 100, 3), (50, 2, 1)]


@needs("MtrxMulH")
@dtypes
@pytest.mark.parametrize("m,k,n", MATMUL_SHAPES)
def test_matmul_matches_numpy(dtype, m, k, n, rng):
    a, b = random_array(rng, (m, k), dtype), random_array(rng, (k, n), dtype)
    r = ql.matmul(a, b)
    assert r.dtype == np.dtype(dtype) and r.shape == (m, n)
    assert_within(r, hi(a) @ hi(b), _product_bound(a, b, dtype), "A @ B")


@needs("MtrxMulH")
@dtypes
def test_matmul_does_not_conjugate_and_handles_structure(dtype):
    a = np.array([[1 + 2j]] if is_complex(dtype) else [[3.0]], dtype)
    b = np.array([[3 + 4j]] if is_complex(dtype) else [[-2.0]], dtype)
    assert ql.matmul(a, b)[0, 0] == ((-5 + 10j) if is_complex(dtype) else -6)
    # Integer matrices: every sum is exact, so the product must be too.
    i = np.arange(12).reshape(3, 4).astype(dtype)
    assert np.array_equal(ql.matmul(i, i.T), (i @ i.T))


@needs("MtrxMulH")
@dtypes
def test_matmul_empty_dimensions(dtype):
    r = ql.matmul(np.zeros((3, 0), dtype), np.zeros((0, 2), dtype))
    assert r.shape == (3, 2) and np.all(np.isnan(r.real))
    if is_complex(dtype):
        assert np.all(np.isnan(r.imag))
    assert ql.matmul(np.zeros((0, 4), dtype), np.ones((4, 5), dtype)).shape == (0, 5)
    assert ql.matmul(np.ones((4, 2), dtype), np.ones((2, 0), dtype)).shape == (4, 0)
    assert _status(ql.matmul, np.ones((2, 3), dtype), np.ones((2, 3), dtype)) == -20039


@needs("MtrxVecMulH")
@dtypes
@pytest.mark.parametrize("m,n", [(1, 1), (1, 6), (6, 1), (3, 4), (33, 17), (200, 100)])
def test_matvec_and_vecmat_match_numpy(dtype, m, n, rng):
    a = random_array(rng, (m, n), dtype)
    x, w = random_array(rng, n, dtype), random_array(rng, m, dtype)
    y = ql.matvec(a, x)
    assert y.dtype == np.dtype(dtype) and y.shape == (m,)
    assert_within(y, hi(a) @ hi(x), _product_bound(a, x, dtype), "A @ x")
    z = ql.vecmat(w, a)
    assert z.shape == (n,)
    # Plain transpose: x @ A, no conjugation of A.
    assert_within(z, hi(w) @ hi(a), _product_bound(w, a, dtype), "x @ A")
    # matmul dispatches 1-D operands the way numpy does.
    assert np.array_equal(ql.matmul(a, x), y) and np.array_equal(ql.matmul(w, a), z)


@needs("MtrxVecMulH")
@dtypes
def test_matvec_edges(dtype):
    assert ql.matvec(np.zeros((3, 0), dtype), np.zeros(0, dtype)).shape == (0,)
    assert ql.vecmat(np.zeros(0, dtype), np.zeros((0, 3), dtype)).shape == (0,)
    a = np.ones((2, 3), dtype)
    assert _status(ql.matvec, a, np.ones(2, dtype)) == -20039
    assert ql.vecmat(np.ones(2, dtype), a).shape == (3,)
    assert _status(ql.vecmat, np.ones(3, dtype), a) == -20039
    if is_complex(dtype):
        assert ql.vecmat(np.array([1j], dtype), np.array([[1j]], dtype))[0] == -1


@needs("OuterProdH")
@dtypes
@pytest.mark.parametrize("m,n", [(1, 1), (1, 7), (5, 1), (3, 4), (17, 9)])
def test_outer_matches_numpy(dtype, m, n, rng):
    x, y = random_array(rng, m, dtype), random_array(rng, n, dtype)
    r = ql.outer(x, y)
    assert r.dtype == np.dtype(dtype)
    ref = np.outer(hi(x), hi(y))
    assert_within(r, ref, gamma_mul(dtype) * np.abs(ref), "outer")


@needs("OuterProdH")
@dtypes
def test_outer_edges(dtype):
    assert np.array_equal(ql.outer(np.array([1, 2], dtype), np.array([3, 4, 5], dtype)),
                          [[3, 4, 5], [6, 8, 10]])
    if is_complex(dtype):
        assert ql.outer(np.array([1j], dtype), np.array([1j], dtype))[0, 0] == -1
    assert _status(ql.outer, np.zeros(0, dtype), np.ones(2, dtype)) == -20003
    assert _status(ql.outer, np.ones(2, dtype), np.zeros(0, dtype)) == -20003


@needs("KronProdH")
@dtypes
@pytest.mark.parametrize("sa,sb", [((1, 1), (3, 2)), ((2, 3), (1, 1)), ((1, 2), (2, 1)),
                                   ((2, 3), (4, 5)), ((5, 1), (1, 5)), ((3, 3), (3, 3))])
def test_kron_matches_numpy(dtype, sa, sb, rng):
    a, b = random_array(rng, sa, dtype), random_array(rng, sb, dtype)
    r = ql.kron(a, b)
    ref = np.kron(hi(a), hi(b))
    assert r.shape == ref.shape
    assert_within(r, ref, gamma_mul(dtype) * np.abs(ref), "kron")


@needs("KronProdH")
@dtypes
def test_kron_edges(dtype):
    assert np.array_equal(ql.kron(np.array([[1, 2]], dtype), np.array([[1], [10]], dtype)),
                          [[1, 2], [10, 20]])
    v = ql.kron(np.array([1, 2], dtype), np.array([3, 4], dtype))
    assert v.shape == (4,) and np.array_equal(v, np.kron([1, 2], [3, 4]))
    assert _status(ql.kron, np.zeros((0, 2), dtype), np.ones((2, 2), dtype)) == -20003
    assert _status(ql.kron, np.ones((2, 2), dtype), np.zeros((2, 0), dtype)) == -20003


@needs("TransposeH")
@dtypes
@pytest.mark.parametrize("shape", [(1, 1), (1, 5), (5, 1), (2, 3), (4, 4), (17, 6), (9, 31)])
def test_transpose_is_exact_conjugate_transpose(dtype, shape, rng):
    a = random_array(rng, shape, dtype)
    t = ql.transpose(a)
    assert t.dtype == np.dtype(dtype)
    assert np.array_equal(t, a.conj().T)


@needs("TransposeH")
@pytest.mark.parametrize("dtype", [np.complex64, np.complex128], ids=["c", "z"])
def test_transpose_negates_zero_imaginary_parts(dtype):
    t = ql.transpose(np.array([[3 + 0j, 1 + 2j]], dtype))
    assert t[0, 0] == 3 and np.signbit(t[0, 0].imag)
    assert t[1, 0] == 1 - 2j


@needs("TransposeH")
@dtypes
def test_transpose_edges(dtype):
    assert _status(ql.transpose, np.zeros((0, 4), dtype)) == -20003
    assert _status(ql.transpose, np.zeros((4, 0), dtype)) == -20003


@needs("TraceH")
@dtypes
@pytest.mark.parametrize("shape", [(1, 1), (2, 3), (3, 2), (4, 4), (9, 5), (50, 50)])
def test_trace_matches_numpy(dtype, shape, rng):
    a = random_array(rng, shape, dtype)
    t = ql.trace(a)
    assert t.dtype == np.dtype(dtype)
    d = np.diagonal(hi(a))
    assert_within(t, np.sum(d), gamma(len(d), dtype) * np.sum(np.abs(d)), "trace")


@needs("TraceH")
@dtypes
def test_trace_edges(dtype):
    assert ql.trace(np.array([[1, 2, 3], [4, 5, 6]], dtype)) == 6
    for shape in [(0, 0), (0, 3), (3, 0)]:
        status, (t,) = ql.invoke(ql.letter_of(dtype) + "TraceH", np.zeros(shape, dtype), check=False)
        assert status == -20003 and np.isnan(t.real)
        if is_complex(dtype):
            assert np.isnan(t.imag)
