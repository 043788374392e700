"""Linear equations against numpy.linalg.solve and scipy.linalg.solve_triangular, judged
by componentwise backward error and condition-scaled forward error."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import assert_within, dtypes, gamma, hi, is_complex, random_array, random_hpd, wide


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


@dtypes
def test_solve_near_overflow(dtype, rng):
    """Elements and right-hand sides up to just below overflow, where LU with pivoting on
    A's rows (the order of numpy and scipy) and on its columns overflow on different
    systems. Fault caught: a general solve that overflows in its own order and returns inf
    or NaN, or finite zeros behind an infinite pivot, with status 0, where the kernel's
    getrf and getrs in the rows' order, in the same precision, give a sound answer."""
    big = float(np.finfo(dtype).max)
    top, decades = np.log10(big) - 1, 57 if big > 1e300 else 8

    def system(n):
        def part(shape):
            return 10 ** rng.uniform(top - decades, top, shape) * rng.standard_normal(shape)
        a, y = part((n, n)), part(n)
        if is_complex(dtype):
            a, y = a + 1j * part((n, n)), y + 1j * part(n)
        a[rng.random((n, n)) < 0.2] = 0
        return a.astype(dtype), y.astype(dtype)

    def sound(x, a, y):
        """Finite, and the residual within the backward error of LU with partial pivoting
        in either order: gamma_3n |L||U|, whose row sums are at most (1 + 2(n^2 - n) rho)
        ||A|| for a growth factor rho <= 2^(n-1) (complex: (1 + sqrt 2)^(n-1))."""
        n = len(y)
        rho = (1 + np.sqrt(2) if is_complex(dtype) else 2.0) ** (n - 1)
        norm_a = np.max(np.sum(np.abs(hi(a)), axis=1))
        bound = gamma(3 * n, dtype) * (1 + 2 * (n * n - n) * rho) * norm_a * np.max(np.abs(hi(x)))
        return np.all(np.isfinite(x)) and np.max(np.abs(hi(a) @ hi(x) - hi(y))) <= bound

    # Pivoting on A's columns leaves an infinite pivot here (and zeros behind it); on its
    # rows it does not.
    systems = [(big / 18 * np.array([[1, -1], [17, 10]]), np.full(2, big / 18))]
    systems = [(a.astype(dtype), y.astype(dtype)) for a, y in systems]
    systems += [system(n) for n in rng.integers(2, 6, 300)]
    getrf, getrs = sla.get_lapack_funcs(("getrf", "getrs"), dtype=dtype)
    for a, y in systems:
        with np.errstate(all="ignore"):
            lu, piv, info = getrf(a)
            if info != 0 or not sound(getrs(lu, piv, y)[0], a, y):
                continue
            x = ql.solve(a, y)
            assert sound(x, a, y), f"unsound solution {x} of A = {a.tolist()}, y = {y.tolist()}"
