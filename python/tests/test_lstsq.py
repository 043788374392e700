"""Least squares against numpy: minimum-norm solutions within the perturbation bound of
the least-squares problem, scaled by eps, size and the (effective) condition number."""
import warnings

import numpy as np
import pytest

import quarz_linalg as ql
from oracle import dtypes, random_array, wide, with_singular_values


def truncated(a, b, r):
    """The minimum-norm solution over the r largest singular values, in double."""
    u, s, vh = np.linalg.svd(a.astype(wide(a.dtype)), full_matrices=False)
    return vh[:r].conj().T @ ((u[:, :r].conj().T @ b.astype(u.dtype)).T / s[:r]).T


def check(x, a, b, r, what):
    """x against the rank-r minimum-norm solution: relative error within
    c u kappa (2 + (kappa + 1) |res| / (|A| |x|)), kappa = s1 / s_r (Higham, 20.1)."""
    w = wide(a.dtype)
    ref = truncated(a, b, r)
    s = np.linalg.svd(a.astype(w), compute_uv=False)
    kappa, xn = s[0] / s[r - 1], np.linalg.norm(ref)
    res = np.linalg.norm(b.astype(w) - a.astype(w) @ ref)
    u = float(np.finfo(a.dtype).eps)
    bound = 35 * max(a.shape) * u * kappa * (2 + (kappa + 1) * res / (s[0] * xn)) * xn
    assert x.shape == ref.shape and x.dtype == a.dtype, what
    assert np.linalg.norm(x - ref) <= bound, (what, np.linalg.norm(x - ref) / bound)


def solve(a, b, rcond=None, refine=False, deficient=False):
    """ql.lstsq, with the rank-deficiency warning required exactly when expected."""
    if deficient:
        with pytest.warns(ql.QuarzWarning, match="20001"):
            return ql.lstsq(a, b, rcond, refine=refine)
    with warnings.catch_warnings():
        warnings.simplefilter("error", ql.QuarzWarning)
        return ql.lstsq(a, b, rcond, refine=refine)


# Faults: X returned transposed or read with the wrong leading dimension, the complex
# factors not conjugated, the wide case's solution not the minimum-norm one, the
# refinement step's residual of the wrong sign, numpy's return shapes (residuals, rank,
# s) not kept, s not the singular values of a from either solver's run.
@dtypes
@pytest.mark.parametrize("m,n", [(9, 5), (5, 9), (6, 6), (1, 3)])
def test_full_rank(dtype, m, n, rng):
    k = min(m, n)
    cond = 1e2 if np.finfo(dtype).eps > 1e-10 else 1e8                    # ill-conditioned for the type
    ill = with_singular_values(rng, m, n, np.geomspace(1, 1 / cond, k), dtype)
    # An ill-conditioned problem is given a consistent right-hand side: with a residual
    # its solution is only determined to kappa^2 eps and the bound would say nothing.
    for what, a, rhs in (("random", random_array(rng, (m, n), dtype), lambda *s: random_array(rng, (m,) + s, dtype)),
                         ("ill-conditioned", ill, lambda *s: ill @ random_array(rng, (n,) + s, dtype))):
        y = rhs()
        ref_s = np.linalg.svd(a.astype(wide(dtype)), compute_uv=False)
        s_error = lambda s: np.max(np.abs(s - ref_s)) / (8 * max(m, n) * np.finfo(dtype).eps * ref_s[0])
        for refine in (False, True):
            x, res, rank, s = solve(a, y, refine=refine)
            check(x, a, y, k, (what, refine))
            ref = np.linalg.lstsq(a.astype(wide(dtype)), y.astype(wide(dtype)), rcond=None)
            assert rank == ref[2] == k and res.shape == ref[1].shape and s.shape == (k,)
            assert s_error(s) <= 1, (what, refine)
        for cols in (1, 2, 3, 12):                                          # both solvers when max(m, n) >= 8
            y = rhs(cols)
            x, res, rank, s = solve(a, y)
            check(x, a, y, k, (what, cols))
            assert s_error(s) <= 1, (what, cols)
            assert res.shape == ((cols,) if m > n else (0,))
            if m > n and what == "random":
                r = (y - a @ x).astype(wide(dtype))
                assert np.allclose(res, np.sum(np.abs(r) ** 2, axis=0), rtol=1e-3)


# Faults: rank deficiency not reported (or reported as an error), the cutoff not scaled
# by max(m, n) or s1 in one of the solvers, the refinement path ignoring the tolerance,
# columns beyond the rank not dropped.
@dtypes
@pytest.mark.parametrize("m,n", [(10, 6), (6, 10)])
def test_rank_deficient(dtype, m, n, rng):
    k = min(m, n)
    a = random_array(rng, (m, n), dtype)
    if m > n:
        a[:, 1] = a[:, 0]                                                  # two equal columns
    else:
        a[1] = a[0]                                                        # two equal rows
    for refine in (False, True):
        y = random_array(rng, m, dtype)
        x, res, rank, _ = solve(a, y, refine=refine, deficient=True)
        check(x, a, y, k - 1, refine)
        assert rank == k - 1 and res.shape == (0,)
    known = np.geomspace(1, 1e-3, k)
    a = with_singular_values(rng, m, n, known, dtype)
    rcond = np.sqrt(known[3] * known[4])                                   # keeps four
    for cols in (1, 3, 2 * max(m, n)):                                     # driver, driver, SVD solver
        y = random_array(rng, (m, cols), dtype)
        x, _, rank, _ = solve(a, y, rcond, deficient=True)
        check(x, a, y, 4, cols)
        assert rank == 4
    with pytest.warns(ql.QuarzWarning):
        x = ql.lstsq(np.zeros((m, n), dtype), np.ones(m, dtype))[0]
    assert not np.any(x)


def test_errors():
    with pytest.raises(ql.QuarzError, match="-20002"):
        ql.lstsq(np.ones((3, 2)), np.ones(4))
    with pytest.raises(ql.QuarzError, match="-20068"):
        ql.lstsq(np.array([[1.0, np.nan]]), np.ones(1), refine=True)
