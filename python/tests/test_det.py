"""Determinants against numpy.linalg.det, with error bounds scaled by the condition."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import assert_within, dtypes, gamma, hi, random_array, random_hpd, wide


def _det_rtol(a, dtype):
    """First order, d det / det = tr(A^-1 dA), bounded by sum |A^-1|^T |dA| with the LU
    backward error |dA| <= gamma_3n |P^T L||U|; plus n roundings of the diagonal product."""
    n, w = a.shape[0], a.astype(wide(dtype))
    p, l, u = sla.lu(w)
    dA = gamma(3 * n, dtype) * (np.abs(p) @ np.abs(l) @ np.abs(u))
    return float(np.sum(np.abs(np.linalg.inv(w)).T * dA)) + gamma(n, dtype)


@dtypes
@pytest.mark.parametrize("n", [1, 2, 3, 7, 20])
def test_determinant_matches_numpy(dtype, n, rng):
    # Random matrices pivot in random patterns: a wrong sign of the interchange count
    # shows in about half of them, and always in the fixed permutation below.
    for kind, a in (("general", random_array(rng, (n, n), dtype)),
                    ("positive_definite", random_hpd(rng, n, dtype))):
        d = ql.det(a, kind)
        assert d.dtype == dtype
        ref = np.linalg.det(a.astype(wide(dtype)))
        rtol = _det_rtol(a, dtype) + _det_rtol(a, wide(dtype))    # ours and numpy's
        assert rtol < 0.5, "test matrix too ill-conditioned for this precision"
        assert_within(d, ref, rtol * abs(ref), f"det {kind}")
    # Triangular kinds: the determinant of the named triangle (exactly its diagonal
    # product, formed in extended precision); the other triangle holds garbage.
    t = random_array(rng, (n, n), dtype)
    for kind, clean in (("lower", np.tril(t)), ("upper", np.triu(t))):
        ref = np.prod(np.diagonal(hi(clean)))
        garbage = clean + (np.triu(t, 1) if kind == "lower" else np.tril(t, -1)) * 1e3
        assert_within(ql.det(garbage, kind), ref, gamma(n, dtype) * abs(ref), f"det {kind}")


@dtypes
def test_determinant_exact_cases(dtype):
    assert ql.det(np.array([[0, 2, 0], [3, 0, 0], [0, 0, 4]], dtype)) == -24   # one swap
    assert ql.det(np.array([[0, 0, 1], [1, 0, 0], [0, 1, 0]], dtype)) == 1      # two swaps
    assert ql.det(np.array([[1, 2, 3], [2, 4, 6], [1, 1, 1]], dtype)) == 0      # exact zero pivot
    assert ql.det(np.diag([4, 9, 16]).astype(dtype), "positive_definite") == 576
    # Order 2 takes the closed form for both kinds, without a definiteness test.
    assert ql.det(np.array([[1, 2], [2, 1]], dtype), "positive_definite") == -3
