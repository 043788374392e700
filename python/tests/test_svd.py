"""SVD and the measures on it against numpy: residual and orthogonality bounds from eps
and size, singular values within the backward error's 2-norm (Weyl), measures within
bounds scaled by the condition."""
import numpy as np
import pytest

import quarz_linalg as ql
from oracle import dtypes, eps, is_complex, random_array, random_hpd, wide, with_singular_values


def inputs(rng, m, n, dtype):
    k = min(m, n)
    yield "random", random_array(rng, (m, n), dtype)
    if k > 2:
        yield "rank-deficient", with_singular_values(rng, m, n, np.r_[np.ones(k - 2), 0, 0], dtype)
        yield "ill-conditioned", with_singular_values(rng, m, n, np.geomspace(1, 1e-30, k), dtype)


def close(x, ref, tol):
    return np.linalg.norm(np.atleast_2d(x - ref), 2) <= tol


# Faults: U and V swapped or V returned as V^H, V not conjugated for complex types (all
# in the residual), economy and full shapes mixed up, S not real or not decreasing.
@dtypes
@pytest.mark.parametrize("m,n", [(1, 1), (6, 6), (9, 4), (4, 9), (1, 5)])
def test_svd(dtype, m, n, rng):
    k, w, e = min(m, n), wide(dtype), eps(dtype)
    for what, a in inputs(rng, m, n, dtype):
        aw = a.astype(w)
        ref, bound = np.linalg.svd(aw, compute_uv=False), 35 * max(m, n) * e * np.linalg.norm(aw, 2)
        assert close(ql.svd(a, compute_uv=False), ref, bound), what
        for full in (False, True):
            u, s, vh = ql.svd(a, full_matrices=full)
            assert u.shape == ((m, m) if full else (m, k)) and vh.shape == ((n, n) if full else (k, n)), what
            assert u.dtype == dtype and s.dtype == np.finfo(dtype).dtype and np.all(np.diff(s) <= 0)
            assert close((u[:, :k] * s) @ vh[:k].astype(w), aw, bound) and close(s, ref, bound), what
            for q in (u.astype(w), vh.astype(w).conj().T):
                assert close(q.conj().T @ q, np.eye(q.shape[1]), 35 * q.shape[0] * e), what
    _, (u, s, v) = ql.invoke("sdcz"[[np.float32, np.float64, np.complex64, np.complex128].index(dtype)] + "SVDH",
                             np.array([[3, 0], [0, 4], [0, 0]], dtype), 1, 1)
    assert u.shape == v.shape == (0, 0) and list(s) == [4, 3]   # values only
    u, s, vh = ql.svd(np.array([[-3]], dtype))
    assert s[0] == 3 and u[0, 0] * s[0] * vh[0, 0] == -3


# Faults: column and row sums swapped, |re| + |im| summed instead of moduli, a NaN sum
# winning the maximum, the spectral norm not the largest singular value.
@dtypes
@pytest.mark.parametrize("m,n", [(5, 5), (7, 3), (1, 6)])
def test_matrix_norm(dtype, m, n, rng):
    a = random_array(rng, (m, n), dtype)
    for ord in (2, 1, "fro", np.inf):
        ref = np.linalg.norm(a.astype(wide(dtype)), ord)
        assert abs(ql.matrix_norm(a, ord) - ref) <= 35 * m * n * eps(dtype) * ref, ord
    b = np.array([[1, -2], [3, 4]], dtype)
    assert [ql.matrix_norm(b, o) for o in (1, np.inf, "fro")] == [6, 7, np.sqrt(np.finfo(dtype).dtype.type(30))]
    if is_complex(dtype):
        assert ql.matrix_norm(np.array([[3 + 4j]], dtype), 1) == 5
    assert ql.matrix_norm(np.array([[1, np.inf], [np.nan, 1]], dtype), 1) == np.inf


# Faults: s_max / s_min inverted, the norm of the inverse of A^T or A^H taken (the
# kernel inverts the transpose in place), a singular matrix reported as an error.
@pytest.mark.skipif(not ql.available("dCondNumberH"), reason="CondNumberH is not in the export list")
@dtypes
@pytest.mark.parametrize("m,n", [(1, 1), (4, 4), (12, 12), (7, 4)])
def test_cond(dtype, m, n, rng):
    a = random_array(rng, (m, n), dtype) + 2 * np.eye(m, n, dtype=dtype)
    a[0, -1] += 5                        # not symmetric: the 1- and inf-norms differ
    for p in (None, 1, "fro", np.inf) if m == n else (None,):
        ref = np.linalg.cond(a.astype(wide(dtype)), p)
        assert abs(ql.cond(a, p) - ref) <= 35 * m * n * eps(dtype) * ref ** 2, p
    assert all(ql.cond(np.ones((3, 3), dtype), p) == np.inf for p in (1, "fro", np.inf))
    assert ql.cond(np.zeros((2, 3), dtype)) == np.inf
    # A NaN that the largest column or row sum would skip: NaN, as numpy gives, not 0.
    a[-1, -1] = np.nan
    for p in (1, "fro", np.inf) if m == n else ():
        assert np.isnan(ql.cond(a, p)) and np.isnan(np.linalg.cond(a.astype(wide(dtype)), p)), p


# Faults: the default tolerance not scaled by max(m, n) or s_max, a tolerance of 0
# replaced by the default, >= instead of >, a NaN tolerance counting.
@dtypes
@pytest.mark.parametrize("m,n", [(6, 6), (8, 5), (3, 7)])
def test_matrix_rank(dtype, m, n, rng):
    k = min(m, n)
    for r in range(k + 1):
        s = np.r_[np.geomspace(1, 1e-2, r), np.zeros(k - r)]
        a = with_singular_values(rng, m, n, s, dtype)
        assert ql.matrix_rank(a) == np.linalg.matrix_rank(a) == r
        assert r == 0 or (ql.matrix_rank(a, 0.5 * s[r - 1]) == r and ql.matrix_rank(a, 2.0) == 0)
    assert ql.matrix_rank(np.zeros((m, n), dtype)) == ql.matrix_rank(np.eye(m, n, dtype=dtype), np.nan) == 0
    tiny = np.diag([1, 1e-30]).astype(dtype)
    assert (ql.matrix_rank(tiny), ql.matrix_rank(tiny, 0)) == (1, 2)


# Faults: the inverse of A^T returned, the wrong triangle read or inverted, the positive
# definite mirror not conjugated.
@dtypes
@pytest.mark.parametrize("n", [1, 3, 10])
def test_inv(dtype, n, rng):
    general = random_array(rng, (n, n), dtype) + 3 * np.eye(n, dtype=dtype)
    general[0, -1] += 2
    hpd, lower = random_hpd(rng, n, dtype), np.tril(general)
    garbage = np.triu(random_array(rng, (n, n), dtype), 1)
    for kind, given, a in (("general", general, general), ("positive_definite", np.tril(hpd) + garbage, hpd),
                           ("lower", lower + garbage, lower), ("upper", (lower + garbage).T, lower.T)):
        x, ref = ql.inv(given, kind), np.linalg.inv(a.astype(wide(dtype)))
        if kind in ("lower", "upper"):
            tri = np.tril if kind == "lower" else np.triu
            assert np.array_equal(x - tri(x), given - tri(given)), kind   # the other triangle kept
            x = tri(x)
        assert close(x, ref, 35 * n * eps(dtype) * np.linalg.cond(a.astype(wide(dtype))) * np.linalg.norm(ref, 2)), kind


# Faults: U and V exchanged (A^+ of A^T), columns divided by the wrong values, the cutoff
# not applied or applied with >=, sizes not swapped.
@dtypes
@pytest.mark.parametrize("m,n", [(5, 5), (7, 4), (3, 6)])
def test_pinv(dtype, m, n, rng):
    w, e, k = wide(dtype), eps(dtype), min(m, n)
    for what, a in inputs(rng, m, n, dtype):
        if what != "ill-conditioned":    # there the default cutoff falls inside the spectrum
            s = np.linalg.svd(a.astype(w), compute_uv=False)
            r = np.sum(s > max(m, n) * s[0] * e)
            x = ql.pinv(a)
            assert x.shape == (n, m) and x.dtype == dtype
            ref = np.linalg.pinv(a.astype(w), rcond=max(m, n) * e)
            assert close(x, ref, 35 * max(m, n) * e * s[0] / s[r - 1] ** 2), what
    known = np.geomspace(4, 1, k)
    a = with_singular_values(rng, m, n, known, dtype)
    assert not np.any(ql.pinv(a, 5.0))
    assert np.all(np.isnan(ql.pinv(a, np.nan)))   # a NaN tolerance cuts nowhere
    u, s, vh = np.linalg.svd(a.astype(w), full_matrices=False)
    assert close(ql.pinv(a, np.sqrt(known[0] * known[1])), np.outer(vh[0].conj(), u[:, 0].conj()) / s[0], 35 * max(m, n) * e)
