"""Null space and range bases against scipy.linalg.null_space / orth: orthonormal, the
same subspace (equal projectors), and dimensions that add up with matrix_rank's."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import dtypes, gamma, hi, random_array, wide


def with_rank(rng, m, n, r, dtype):
    return (random_array(rng, (m, r), dtype) @ random_array(rng, (r, n), dtype)).astype(dtype)


# Faults: the wrong singular vectors (U for V, the kept ones for the dropped ones), the
# cutoff not the rank's (dimensions that do not add up), the thin SVD for the null space
# of a wide matrix (its trailing n - m vectors lost), a conjugation dropped, rcond not
# relative to s_max.
@dtypes
@pytest.mark.parametrize("m,n,r", [(4, 4, 4), (5, 5, 3), (3, 6, 3), (3, 6, 2), (7, 4, 4), (7, 4, 1), (3, 3, 0)])
def test_null_space_and_range(dtype, m, n, r, rng):
    a = with_rank(rng, m, n, r, dtype) if r else np.zeros((m, n), dtype)
    ns, rg = ql.null_space(a), ql.orth(a)
    assert ns.dtype == rg.dtype == dtype
    rank = ql.matrix_rank(a)
    assert rank == r and ns.shape == (n, n - r) and rg.shape == (m, r)
    w = wide(dtype)
    tol = gamma(30 * max(m, n), dtype)
    rcond = max(m, n) * float(np.finfo(dtype).eps)   # the element type's cutoff, in wide arithmetic
    for basis, ref in ((ns, sla.null_space(a.astype(w), rcond)), (rg, sla.orth(a.astype(w), rcond))):
        b = hi(basis)
        assert np.linalg.norm(b.conj().T @ b - np.eye(b.shape[1])) <= tol
        assert np.linalg.norm(b @ b.conj().T - ref @ ref.conj().T) <= 1e2 * tol
    assert np.linalg.norm(hi(a) @ hi(ns)) <= tol * max(np.linalg.norm(hi(a)), 1)
    # A relative rcond between the singular values: everything below it is null space.
    s = np.linalg.svd(a.astype(w), compute_uv=False)
    if r >= 2:
        cut = np.sqrt(s[0] * s[1]) / s[0]
        assert ql.null_space(a, cut).shape == (n, n - 1) and ql.orth(a, cut).shape == (m, 1)
