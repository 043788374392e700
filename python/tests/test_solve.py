"""Linear equations against numpy.linalg.solve and scipy.linalg.solve_triangular, judged
by componentwise backward error and condition-scaled forward error."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import assert_within, dtypes, gamma, hi, random_array, random_hpd, wide


def _cols(v):
    return v.reshape(v.shape[0], -1)


def _check(x, t, y, reference, dA, what):
    """Residual |y - T x| <= |dA| |x| (the backward error |dA| of the method), then the
    forward error against the reference, to first order |T^-1| |dA| |x|, for our result
    and, with the same |dA| scaled to double, for the reference."""
    dtype = t.dtype
    assert x.dtype == dtype and x.shape == y.shape
    x, y = _cols(x), _cols(y)
    assert_within(hi(t) @ hi(x), hi(y), hi(dA) @ np.abs(hi(x)), f"{what} residual")
    ref = _cols(reference(t.astype(wide(dtype)), y.astype(wide(dtype))))
    scale = 1 + gamma(1, wide(dtype)) / gamma(1, dtype)
    fwd = scale * (np.abs(np.linalg.inv(t.astype(wide(dtype)))) @ dA @ np.abs(ref))
    assert np.max(fwd) < 0.5 * np.max(np.abs(ref)), "test matrix too ill-conditioned"
    assert_within(x, ref, 2 * fwd, f"{what} vs reference")


@dtypes
@pytest.mark.parametrize("n", [1, 3, 10, 40])
@pytest.mark.parametrize("k", [None, 3], ids=["vec", "set"])
def test_solve_matches_numpy(dtype, n, k, rng):
    y = random_array(rng, n if k is None else (n, k), dtype)
    # A random orthogonal (unitary) matrix with scaled columns: random row interchanges,
    # condition at most 10.
    q = np.linalg.qr(random_array(rng, (n, n), wide(dtype)))[0]
    a = (q * np.geomspace(1, 0.1, n)).astype(dtype)
    # Gaussian elimination with the same pivots as scipy's lu: |dA| <= gamma_3n P^T|L||U|.
    p, l, u = sla.lu(a.astype(wide(dtype)))
    dA = gamma(3 * n, dtype) * (np.abs(p) @ np.abs(l) @ np.abs(u))
    _check(ql.solve(a, y), a, y, np.linalg.solve, dA, "general")
    # Positive definite: only the lower triangle is read (junk above); the kernel solves
    # with the plain transpose of that Hermitian matrix, conj(A) for complex data.
    # Cholesky: |dA| <= gamma_{3n+1} |R^H||R|.
    h = random_hpd(rng, n, dtype)
    junk = h + np.triu(random_array(rng, (n, n), dtype) * 1e3, 1)
    r = np.abs(np.linalg.cholesky(h.T.astype(wide(dtype))))
    dA = gamma(3 * n + 1, dtype) * (r @ r.T)
    _check(ql.solve(junk, y, "positive_definite"), h.T, y, np.linalg.solve, dA, "posdef")
    # Triangular, diagonal moduli 2 to 3: the other triangle holds NaN, which is neither
    # tested nor used. Substitution: |dA| <= gamma_{n+1} |T|.
    g = random_array(rng, (n, n), dtype)
    g[np.diag_indices(n)] += np.where(np.diagonal(g).real >= 0, 2, -2).astype(dtype)
    for kind, tri in (("lower", np.tril), ("upper", np.triu)):
        t = tri(g)
        nan = np.where(t == 0, np.nan, 0).astype(dtype) + t
        x = ql.solve(nan, y, kind)
        solve_t = lambda tt, yy: sla.solve_triangular(tt, yy, lower=kind == "lower")  # noqa: E731
        _check(x, t, y, solve_t, gamma(n + 1, dtype) * np.abs(t), kind)
