"""Linear equations against numpy.linalg.solve and scipy.linalg.solve_triangular, judged
by backward error (componentwise residual bounds) and condition-scaled forward error."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import (assert_within, dtypes, gamma, gamma_dot, hi, is_complex, needs,
                    random_array, random_hpd, well_conditioned)

pytestmark = needs("LinEqH")


def _status(fn, *args, **kw):
    with pytest.raises(ql.QuarzError) as e:
        fn(*args, **kw)
    return e.value.status


def _cond_inf(a):
    a = a.astype(np.complex128)
    return np.linalg.norm(a, np.inf) * np.linalg.norm(np.linalg.inv(a), np.inf)


RHS = [None, 1, 3]      # None: a 1-D right-hand side (LinEqH); else columns (LinEqSetH)


def _rhs(rng, n, k, dtype):
    return random_array(rng, n if k is None else (n, k), dtype)


def _cols(v):
    return v.reshape(v.shape[0], -1)


@dtypes
@pytest.mark.parametrize("n", [1, 2, 3, 10, 50])
@pytest.mark.parametrize("k", RHS, ids=["vec", "set1", "set3"])
@pytest.mark.parametrize("conditioning", ["random", "dominant"])
def test_general_solve(dtype, n, k, conditioning, rng):
    a = random_array(rng, (n, n), dtype) if conditioning == "random" else well_conditioned(rng, n, dtype)
    y = _rhs(rng, n, k, dtype)
    x = ql.solve(a, y)
    assert x.dtype == np.dtype(dtype) and x.shape == y.shape
    # Backward error of Gaussian elimination with partial pivoting (same pivots as
    # scipy's lu): |y - A x| <= gamma_{3n} P^T |L||U| |x|.
    p, l, u = sla.lu(a.astype(np.complex128 if is_complex(dtype) else np.float64))
    lu_abs = np.abs(p) @ np.abs(l) @ np.abs(u)
    bound = gamma_dot(3 * n, dtype) * (hi(lu_abs) @ np.abs(hi(_cols(x))))
    assert_within(hi(a) @ hi(_cols(x)), hi(_cols(y)), bound, "residual")
    # Forward error against numpy, first order: |x - x*| <= |A^-1| |dA| |x| with the
    # backward error above, for our result and (in double) for numpy's.
    wide = np.complex128 if is_complex(dtype) else np.float64
    ref = np.linalg.solve(a.astype(wide), y.astype(wide))
    amp = np.abs(np.linalg.inv(a.astype(wide))) @ lu_abs
    fwd = (gamma_dot(3 * n, dtype) + gamma_dot(3 * n, wide)) * (amp @ np.abs(_cols(ref)))
    assert np.max(fwd / np.max(np.abs(ref))) < 0.5, "test matrix too ill-conditioned for this precision"
    assert_within(_cols(x), _cols(ref), 2 * fwd, "x vs numpy")


def _hermitian_from_lower(a):
    lower = np.tril(a, -1)
    return lower + np.diag(np.diag(a)) + lower.conj().T


@dtypes
@pytest.mark.parametrize("n", [1, 2, 3, 12, 40])
@pytest.mark.parametrize("k", RHS, ids=["vec", "set1", "set3"])
def test_positive_definite_solve(dtype, n, k, rng):
    a = random_hpd(rng, n, dtype, cond=1e2)
    y = _rhs(rng, n, k, dtype)
    x = ql.solve(a, y, kind="positive_definite")
    # The kernel works on the plain transpose of the lower triangle's Hermitian matrix:
    # A^T, which is A for real data and conj(A) for complex data.
    kmat = _hermitian_from_lower(a).T
    # Cholesky backward error: |y - K x| <= gamma_{3n+1} |R^H||R| |x|, with
    # || |R^H||R| ||_2 <= n ||K||_2.
    knorm = np.linalg.norm(kmat.astype(np.complex128), 2)
    resid = np.abs(hi(kmat) @ hi(_cols(x)) - hi(_cols(y)))
    xnorm = np.linalg.norm(_cols(x).astype(np.complex128), 2, axis=0)
    rnorm = np.sqrt(np.sum(resid.astype(np.float64) ** 2, axis=0))
    assert np.all(rnorm <= gamma(3 * n + 1, dtype) * n * knorm * xnorm)
    wide = np.complex128 if is_complex(dtype) else np.float64
    ref = np.linalg.solve(kmat.astype(wide), y.astype(wide))
    eta = gamma(3 * n + 1, dtype) * n
    kappa = np.linalg.cond(kmat.astype(wide))
    assert kappa * eta < 0.5
    assert_within(x, ref, 2 * kappa * eta / (1 - kappa * eta) * np.max(np.abs(ref)), "x vs numpy")
    # Only the lower triangle is read: junk above it changes nothing.
    junk = a + np.triu(random_array(rng, (n, n), dtype) * 1e3, 1)
    assert np.array_equal(ql.solve(junk, y, kind="positive_definite"), x)


@dtypes
@pytest.mark.parametrize("n", [1, 2, 3, 12, 40])
@pytest.mark.parametrize("k", RHS, ids=["vec", "set1", "set3"])
@pytest.mark.parametrize("kind", ["lower", "upper"])
def test_triangular_solve(dtype, n, k, kind, rng):
    a = random_array(rng, (n, n), dtype)
    a[np.diag_indices(n)] += np.where(np.real(np.diagonal(a)) >= 0, 2, -2).astype(dtype)
    y = _rhs(rng, n, k, dtype)
    lower = kind == "lower"
    t = np.tril(a) if lower else np.triu(a)
    # The other triangle is neither tested nor used: NaN there is harmless.
    full = a.copy()
    full[np.triu_indices(n, 1) if lower else np.tril_indices(n, -1)] = np.nan
    x = ql.solve(full, y, kind=kind)
    assert x.dtype == np.dtype(dtype)
    # Componentwise backward error of substitution: |y - T x| <= gamma_{n+1} |T||x|
    # (gamma_n with divisions; the kernel multiplies by reciprocals of the diagonal,
    # one more rounding per row).
    bound = gamma_dot(n + 1, dtype) * (np.abs(hi(t)) @ np.abs(hi(_cols(x))))
    assert_within(hi(t) @ hi(_cols(x)), hi(_cols(y)), bound, "residual")
    wide = np.complex128 if is_complex(dtype) else np.float64
    ref = sla.solve_triangular(t.astype(wide), y.astype(wide), lower=lower)
    # Forward error: cond(T, x) gamma_n for each solution (Skeel condition number).
    tinv = np.abs(np.linalg.inv(t.astype(wide)))
    skeel = np.max(tinv @ np.abs(t) @ np.abs(_cols(ref)), axis=0) / np.max(np.abs(_cols(ref)), axis=0)
    g = gamma_dot(n + 1, dtype) + gamma_dot(n + 1, wide)
    assert_within(_cols(x), _cols(ref), 2 * g * skeel * np.max(np.abs(_cols(ref)), axis=0), "x vs scipy")


@dtypes
def test_one_by_one_every_kind(dtype):
    a = np.array([[2]], dtype)
    for kind in (0, 2, 3):
        assert ql.solve(a, np.array([4], dtype), kind=kind).tolist() == [2]
        assert ql.solve(a, np.array([[4, 6]], dtype), kind=kind).tolist() == [[2, 3]]
    # The Cholesky route goes through sqrt(2): a few roundings.
    x = ql.solve(a, np.array([[4, 6]], dtype), kind="positive_definite")
    assert_within(x, [[2, 3]], gamma(4, dtype) * np.array([[2, 3]]), "1x1 posdef")


@dtypes
def test_solve_errors(dtype):
    big = np.finfo(dtype).max
    n3 = np.eye(3, dtype=dtype)
    y3 = np.ones(3, dtype)
    assert _status(ql.solve, np.zeros((0, 0), dtype), np.zeros(0, dtype)) == -20003
    assert _status(ql.solve, n3, np.zeros((3, 0), dtype)) == -20003
    assert _status(ql.solve, np.ones((2, 3), dtype), np.full(2, np.nan, dtype)) == -20040
    assert _status(ql.solve, n3, np.ones(2, dtype)) == -20002
    assert _status(ql.solve, n3, np.ones((2, 2), dtype)) == -20002
    singular = np.array([[1, 2, 3], [1, 2, 3], [0, 1, 1]], dtype)
    assert _status(ql.solve, singular, y3) == -20041
    assert _status(ql.solve, singular, np.ones((3, 2), dtype)) == -20041
    indefinite = np.array([[1, 2, 0], [2, 1, 0], [0, 0, 1]], dtype)
    assert _status(ql.solve, indefinite, y3, kind="positive_definite") == -20071
    for kind in (4, -1):
        assert _status(ql.solve, n3, y3, kind=kind) == -20061
    # Non-finite or extreme elements, in A or in the right-hand side.
    for value in (np.nan, np.inf, -np.inf, big, -big):
        bad = n3.copy()
        bad[1, 0] = value
        for kind in range(4):
            if kind == 3:
                assert ql.solve(bad, y3, kind=kind).shape == (3,)   # lower part unused
            else:
                assert _status(ql.solve, bad, y3, kind=kind) == -20068
        rhs = y3.copy()
        rhs[2] = value
        assert _status(ql.solve, n3, rhs) == -20068
    if is_complex(dtype):
        bad = n3.copy()
        bad[2, 2] = complex(1, np.inf)
        assert _status(ql.solve, bad, y3) == -20068
    zero_diag = np.diag([1, 0, 1]).astype(dtype)
    assert _status(ql.solve, zero_diag, y3, kind="lower") == -20041
    assert _status(ql.solve, zero_diag, y3, kind="upper") == -20041
