"""LU and Cholesky against scipy.linalg.lu / numpy.linalg.cholesky: backward-error bounds,
the factors' structure, and first-order perturbation bounds against the references."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import (assert_within, dtypes, gamma, hi, norm2, random_array, random_hpd)


@dtypes
# (130, 130) and (150, 67): the factors are assembled in bands of 64 rows, the last one short.
# (256, 40) and (128, 200): the factor's column stride is padded when m elements make a
# multiple of 1 KB (m = 256 for every type, m = 128 for all but float).
@pytest.mark.parametrize("m,n", [(1, 1), (3, 3), (16, 16), (7, 3), (3, 7), (1, 4), (130, 130), (150, 67), (67, 150),
                                 (256, 40), (128, 200)])
def test_lu_matches_scipy(dtype, m, n, rng):
    k, a = min(m, n), random_array(rng, (m, n), dtype)
    L, U, P, piv = ql.lu(a)
    assert (L.shape, U.shape, P.shape, piv.shape) == ((m, k), (k, n), (m, m), (m,))
    assert L.dtype == U.dtype == dtype and P.dtype == piv.dtype == np.int32
    assert np.all(np.diagonal(L) == 1) and not np.any(np.triu(L, 1)) and not np.any(np.tril(U, -1))
    # piv: the interchanges row i <-> piv[i] in order, as scipy's lu_factor gives them
    # (same partial pivoting); own index past k. P is their product, P A = L U.
    assert np.array_equal(piv, np.r_[sla.lu_factor(a)[1], np.arange(k, m)])
    p, l, u = sla.lu(a)
    assert np.array_equal(P, p.T)
    # Backward error |P A - L U| <= gamma_{k+1} |L||U| (one more rounding: the pivot division).
    assert_within(hi(L) @ hi(U), hi(P) @ hi(a), gamma(k + 1, dtype) * (np.abs(hi(L)) @ np.abs(hi(U))), "PA - LU")
    if m == n:
        # Two backward-stable factorizations with the same pivots differ, to first order,
        # by |L||E| and |E||U| with ||E|| <= ||L^-1|| (twice the backward error) ||U^-1||.
        inv = lambda t: np.linalg.inv(t.astype(np.complex128))  # noqa: E731
        e = norm2(inv(L)) * 2 * gamma(k + 1, dtype) * norm2(np.abs(L) @ np.abs(U)) * norm2(inv(U))
        assert_within(L, l, 2 * e * norm2(L), "L vs scipy")
        assert_within(U, u, 2 * e * norm2(U), "U vs scipy")


@dtypes
def test_lu_exact_and_singular(dtype, rng):
    a = np.array([[2, 1, 1], [4, -6, 0], [-2, 7, 2]], dtype)    # power-of-two pivots: exact
    L, U, P, piv = ql.lu(a)
    assert np.array_equal(L @ U, P @ a) and np.array_equal(piv, [1, 1, 2])
    a = random_array(rng, (4, 4), dtype)
    a[:, 0] = 0                                     # exact zero pivot: factors still returned
    with pytest.warns(ql.QuarzWarning):
        L, U, P, piv = ql.lu(a)
    assert U[0, 0] == 0
    assert_within(hi(L) @ hi(U), hi(P) @ hi(a), gamma(5, dtype) * (np.abs(hi(L)) @ np.abs(hi(U))), "PA - LU")


@dtypes
@pytest.mark.parametrize("n", [1, 3, 8, 33])
def test_cholesky_matches_numpy(dtype, n, rng):
    a = random_hpd(rng, n, dtype, cond=1e3)
    # Each option reads only its own triangle: NaN in the other must not matter.
    junk = np.triu(np.full((n, n), np.nan, dtype), 1)
    L = ql.cholesky(np.tril(a) + junk)
    U = ql.cholesky(np.triu(a) + junk.T, lower=False)
    assert L.dtype == U.dtype == dtype
    assert not np.any(np.triu(L, 1)) and not np.any(np.tril(U, -1))
    assert np.all(np.diagonal(L).real > 0) and np.all(np.diagonal(L).imag == 0)
    # Backward error |A - L L^H| <= gamma_{n+1} |L||L^H|; likewise U^H U.
    for f in (hi(L), hi(U).conj().T):
        assert_within(f @ f.conj().T, a, gamma(n + 1, dtype) * (np.abs(f) @ np.abs(f).T), "A - L L^H")
    # Forward error, first order: kappa(A) ||dA|| / ||A|| ||L||.
    ref = np.linalg.cholesky(a.astype(np.complex128))
    tol = 2 * np.linalg.cond(a.astype(np.complex128)) * gamma(n + 1, dtype) * \
        norm2(np.abs(L) @ np.abs(L).T) / norm2(a) * norm2(L)
    assert_within(L, ref, tol, "L vs numpy")
    assert_within(U, ref.conj().T, tol, "U vs numpy")
