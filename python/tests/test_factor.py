"""LU and Cholesky factorizations against scipy.linalg.lu / numpy.linalg.cholesky, with
backward-error bounds and first-order perturbation bounds for the factors."""
import warnings

import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import (assert_within, dtypes, gamma, gamma_dot, hi, is_complex, needs,
                    random_array, random_hpd)


def _status(fn, *args, **kw):
    with pytest.raises(ql.QuarzError) as e:
        fn(*args, **kw)
    return e.value.status


def _norm2(a):
    return np.linalg.norm(np.asarray(a, dtype=np.complex128), 2)


def _row_map(piv, m):
    """Row i of P A is row perm[i] of A, after the interchanges i <-> piv[i] in order."""
    perm = np.arange(m)
    for i, p in enumerate(piv):
        perm[i], perm[p] = perm[p], perm[i]
    return perm


LU_SHAPES = [(1, 1), (2, 2), (3, 3), (5, 5), (16, 16), (40, 40), (7, 3), (20, 5), (3, 7),
             (5, 20), (1, 4), (4, 1)]


@needs("LUH")
@dtypes
@pytest.mark.parametrize("shape", LU_SHAPES)
def test_lu_reconstructs_and_matches_scipy(dtype, shape, rng):
    m, n = shape
    k = min(m, n)
    a = random_array(rng, shape, dtype)
    L, U, P, piv = ql.lu(a)
    assert (L.shape, U.shape, P.shape, piv.shape) == ((m, k), (k, n), (m, m), (m,))
    assert L.dtype == U.dtype == np.dtype(dtype) and P.dtype == piv.dtype == np.int32
    # Shapes of the factors: unit lower trapezoidal L, upper trapezoidal U.
    assert np.all(np.diagonal(L) == 1) and not np.any(np.triu(L, 1))
    assert not np.any(np.tril(U, -1))
    # The pivot vector: interchanges with later rows, own index past k; P follows it.
    assert np.all(piv[:k] >= np.arange(k)) and np.all(piv[:k] < m)
    assert np.array_equal(piv[k:], np.arange(k, m))
    perm = _row_map(piv, m)
    expected_p = np.zeros((m, m), np.int32)
    expected_p[np.arange(m), perm] = 1
    assert np.array_equal(P, expected_p)
    # Backward error: P A = L U + dA with |dA| <= gamma_k |L||U| (one more rounding for
    # the division by the pivot).
    bound = gamma_dot(k + 1, dtype) * (np.abs(hi(L)) @ np.abs(hi(U)))
    assert_within(hi(L) @ hi(U), hi(P) @ hi(a), bound, "P A - L U")
    # Partial pivoting: |L| <= 1. For complex data the kernel's pivot search measures
    # |re| + |im|, which allows moduli up to sqrt(2).
    limit = np.sqrt(2) if is_complex(dtype) else 1
    assert np.all(np.abs(L) <= limit * (1 + gamma_dot(2, dtype)))
    # scipy runs the same partial pivoting (A = p l u): the same interchanges.
    p, l, u = sla.lu(a)
    assert np.array_equal(P, p.T.astype(np.int32))
    assert np.array_equal(piv[:k], sla.lu_factor(a)[1])
    if m == n:
        # First order: two backward-stable factorizations with the same pivots differ
        # in L by |L| |E| and in U by |E| |U|, ||E|| <= ||L^-1|| ||dA - dA'|| ||U^-1||.
        dA = 2 * gamma_dot(k + 1, dtype) * _norm2(np.abs(L) @ np.abs(U))
        e = _norm2(np.linalg.inv(L.astype(np.complex128))) * dA * _norm2(np.linalg.inv(U.astype(np.complex128)))
        assert_within(L, l, 2 * e * _norm2(L), "L vs scipy")
        assert_within(U, u, 2 * e * _norm2(U), "U vs scipy")


@needs("LUH")
@dtypes
def test_lu_integer_matrix_is_exact(dtype):
    # Pivots that are powers of two keep every step exact.
    a = np.array([[2, 1, 1], [4, -6, 0], [-2, 7, 2]], dtype)
    L, U, P, piv = ql.lu(a)
    assert np.array_equal(L @ U, P @ a)
    assert np.array_equal(piv, [1, 1, 2])   # the tie in column 1 keeps the first row


@needs("LUH")
@dtypes
def test_lu_singular_warns_and_keeps_factors(dtype, rng):
    a = random_array(rng, (4, 4), dtype)
    a[:, 0] = 0
    with pytest.warns(ql.QuarzWarning) as rec:
        L, U, P, piv = ql.lu(a)
    assert rec[0].message.status == 20003 and rec[0].message.name == "WarnSingular"
    assert U[0, 0] == 0 and L.shape == (4, 4)
    bound = gamma_dot(5, dtype) * (np.abs(hi(L)) @ np.abs(hi(U)))
    assert_within(hi(L) @ hi(U), hi(P) @ hi(a), bound, "P A - L U")
    with pytest.warns(ql.QuarzWarning):
        L, U, P, piv = ql.lu(np.zeros((1, 1), dtype))
    assert (L.tolist(), U.tolist(), P.tolist(), piv.tolist()) == ([[1]], [[0]], [[1]], [0])


@needs("LUH")
@dtypes
def test_lu_errors(dtype):
    for shape in [(0, 0), (0, 3), (3, 0)]:
        assert _status(ql.lu, np.zeros(shape, dtype)) == -20003


# ---- Cholesky -------------------------------------------------------------------------

def _cholesky_forward_bound(a, factor, dtype, n):
    """First-order bound on ||dL||: kappa_2(A) ||dA|| / ||A|| ||L||, with the backward
    error ||dA|| <= gamma_{n+1} || |L||L^H| ||."""
    dA = gamma(n + 1, dtype) * _norm2(np.abs(factor) @ np.abs(factor).T)
    return np.linalg.cond(a.astype(np.complex128)) * dA / _norm2(a) * _norm2(factor)


@needs("CholeskyH")
@dtypes
@pytest.mark.parametrize("n", [1, 2, 3, 8, 33])
@pytest.mark.parametrize("cond", [None, 1e3], ids=["benign", "cond1e3"])
def test_cholesky_matches_numpy(dtype, n, cond, rng):
    a = random_hpd(rng, n, dtype, cond)
    L = ql.cholesky(a)
    assert L.dtype == np.dtype(dtype) and L.shape == (n, n)
    assert not np.any(np.triu(L, 1))
    assert np.all(np.diagonal(L).real > 0) and not np.any(np.diagonal(L).imag)
    # Backward error: |A - L L^H| <= gamma_{n+1} |L||L^H|.
    bound = gamma(n + 1, dtype) * (np.abs(hi(L)) @ np.abs(hi(L)).T)
    assert_within(hi(L) @ hi(L).conj().T, a, bound, "A - L L^H")
    ref = np.linalg.cholesky(a)
    tol = 2 * _cholesky_forward_bound(a, L, dtype, n)
    assert_within(L, ref, tol, "L vs numpy")
    # The upper factor is the conjugate transpose of the same factorization.
    U = ql.cholesky(a, lower=False)
    assert not np.any(np.tril(U, -1))
    assert_within(hi(U).conj().T @ hi(U), a, gamma(n + 1, dtype) * (np.abs(hi(U)).T @ np.abs(hi(U))), "A - U^H U")
    assert_within(U, L.conj().T, tol, "U vs L^H")


@needs("CholeskyH")
@dtypes
def test_cholesky_reads_only_its_triangle(dtype, rng):
    a = random_hpd(rng, 5, dtype)
    junk = np.triu(np.full((5, 5), np.nan, dtype), 1)
    lower_in = np.tril(a) + junk
    upper_in = np.triu(a) + junk.T
    assert np.array_equal(ql.cholesky(lower_in), ql.cholesky(a))
    assert np.array_equal(ql.cholesky(upper_in, lower=False), ql.cholesky(a, lower=False))


@needs("CholeskyH")
@dtypes
def test_cholesky_small_cases_and_errors(dtype):
    assert ql.cholesky(np.array([[4]], dtype)).tolist() == [[2]]
    assert ql.cholesky(np.array([[4]], dtype), lower=False).tolist() == [[2]]
    for bad in ([[0]], [[-1]], [[1, 2, 0], [2, 1, 0], [0, 0, 1]]):
        assert _status(ql.cholesky, np.array(bad, dtype)) == -20071
    assert _status(ql.cholesky, np.zeros((2, 3), dtype)) == -20040
    assert _status(ql.cholesky, np.zeros((0, 3), dtype)) == -20040
    assert _status(ql.cholesky, np.zeros((0, 0), dtype)) == -20003
    # An option outside 0/1: the status, and the matrix handed back emptied.
    status, (out,) = ql.invoke(ql.letter_of(dtype) + "CholeskyH", np.eye(3, dtype=dtype), 2,
                               check=False)
    assert status == -20061 and out.shape == (0, 0)
