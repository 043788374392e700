"""Hessenberg form and balancing against scipy.linalg.hessenberg / matrix_balance: the
same kernel reductions, so the factors agree to rounding; and the identities they
promise (A = Q H Q^H, B = inv(T) A T) hold within backward-error bounds."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import dtypes, gamma, hi, random_array, wide


def badly_scaled(rng, n, dtype):
    a = random_array(rng, (n, n), dtype)
    if n > 2:
        a[1, :] = 0            # a row that isolates an eigenvalue
        a[1, 1] = 3
        a[:, -1] *= 1e3        # a column and a row far out of scale
        a[-2, :] /= 1e3
    return a


# Faults: the transpose reduced (row-major data handed over as it lies), H not zeroed
# below the subdiagonal, Q not generated from the reflectors, a complex Q not conjugated
# on the way back; the balancing's permutation applied in the wrong order or not turned
# into perm, the scaling read from outside ilo..ihi, the job letters mapped wrongly.
@dtypes
@pytest.mark.parametrize("n", [1, 2, 5, 9])
def test_hessenberg(dtype, n, rng):
    a = badly_scaled(rng, n, dtype)
    h, q = ql.hessenberg(a, calc_q=True)
    hs, qs = sla.hessenberg(a, calc_q=True)
    assert h.dtype == q.dtype == dtype and not np.any(np.tril(h, -2))
    tol = gamma(30 * n, dtype) * max(np.linalg.norm(hi(a)), 1)
    assert np.linalg.norm(hi(q) @ hi(h) @ hi(q).conj().T - hi(a)) <= tol
    assert np.linalg.norm(hi(q).conj().T @ hi(q) - np.eye(n)) <= gamma(30 * n, dtype)
    if n > 2:   # scipy returns a 2 x 2 as it is; the kernel makes a complex subdiagonal real
        assert np.linalg.norm(hi(h) - hs) <= tol and np.linalg.norm(hi(q) - qs) <= gamma(30 * n, dtype) * n
    assert np.array_equal(ql.hessenberg(a), h)


@dtypes
@pytest.mark.parametrize("n", [1, 3, 6])
@pytest.mark.parametrize("permute,scale", [(0, 0), (1, 0), (0, 1), (1, 1)])
def test_matrix_balance(dtype, n, permute, scale, rng):
    a = badly_scaled(rng, n, dtype)
    b, (s, perm) = ql.matrix_balance(a, permute=permute, scale=scale, separate=True)
    bs, (ss, ps) = sla.matrix_balance(a, permute=permute, scale=scale, separate=True)
    # Powers of two: the balanced matrix is exact, the same as scipy's bit for bit.
    assert b.dtype == dtype and np.array_equal(b, bs) and np.array_equal(s, ss) and np.array_equal(perm, ps)
    _, t = ql.matrix_balance(a, permute=permute, scale=scale)
    tw = t.astype(wide(dtype))
    assert np.array_equal(np.linalg.solve(tw, a.astype(wide(dtype)) @ tw), b.astype(wide(dtype)))
