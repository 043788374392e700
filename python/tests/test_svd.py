"""SVD and the measures on it against numpy/scipy: residual and orthogonality bounds from
eps and size, singular values to within the backward error's 2-norm."""
import numpy as np
import pytest

import quarz_linalg as ql
from oracle import dtypes, is_complex, random_array, random_hpd, wide

SHAPES = [(1, 1), (6, 6), (9, 4), (4, 9), (1, 5)]


def eps(dtype):
    return float(np.finfo(dtype).eps)


def with_singular_values(rng, m, n, s, dtype):
    """Q1 diag(s) Q2^H with random unitary factors: known singular values, any rank."""
    q1, _ = np.linalg.qr(random_array(rng, (m, m), wide(dtype)))
    q2, _ = np.linalg.qr(random_array(rng, (n, n), wide(dtype)))
    k = min(m, n)
    return ((q1[:, :k] * s) @ q2[:, :k].conj().T).astype(dtype)


def inputs(rng, m, n, dtype):
    k = min(m, n)
    yield "random", random_array(rng, (m, n), dtype)
    if k > 2:
        yield "rank-deficient", with_singular_values(rng, m, n, np.r_[np.ones(k - 2), 0, 0], dtype)
        yield "ill-conditioned", with_singular_values(rng, m, n, np.geomspace(1, 1e-30, k), dtype)


def check_svd(a, u, s, v, dtype):
    m, n = a.shape
    w = wide(dtype)
    e, mx = eps(dtype), max(m, n)
    norm_a = np.linalg.norm(a.astype(w), 2)
    k = min(m, n)
    residual = np.linalg.norm(a.astype(w) - (u[:, :k].astype(w) * s) @ v[:, :k].astype(w).conj().T, 2)
    assert residual <= 35 * mx * e * norm_a, "A - U diag(S) V^H"
    for q, size in ((u, m), (v, n)):
        q = q.astype(w)
        assert np.linalg.norm(np.eye(q.shape[1]) - q.conj().T @ q, 2) <= 35 * size * e, "orthogonality"
    # Weyl: each singular value moves by at most the 2-norm of the backward error.
    ref = np.linalg.svd(a.astype(w), compute_uv=False)
    assert np.all(np.abs(s - ref) <= 35 * mx * e * norm_a), "singular values"
    assert np.all(np.diff(s) <= 0)


# Faults: U and V swapped or V returned as V^H (residual), V not conjugated for complex
# types (residual), economy and full shapes mixed up, S not real or not sorted.
@dtypes
@pytest.mark.parametrize("m,n", SHAPES)
def test_svd_factors(dtype, m, n, rng):
    k = min(m, n)
    for what, a in inputs(rng, m, n, dtype):
        for full in (False, True):
            u, s, vh = ql.svd(a, full_matrices=full)
            assert u.shape == ((m, m) if full else (m, k)) and vh.shape == ((n, n) if full else (k, n)), what
            assert u.dtype == dtype and s.dtype == np.finfo(dtype).dtype and s.shape == (k,)
            check_svd(a, u, s, vh.conj().T, dtype)
        s_only = ql.svd(a, compute_uv=False)
        ref = np.linalg.svd(a.astype(wide(dtype)), compute_uv=False)
        assert np.all(np.abs(s_only - ref) <= 35 * max(m, n) * eps(dtype) * ref[0]), what


@dtypes
def test_svd_values_only_empties_vectors(dtype):
    _, (u, s, v) = ql.invoke(letter(dtype) + "SVDH", np.array([[3, 0], [0, 4], [0, 0]], dtype), 1, 1)
    assert u.shape == v.shape == (0, 0) and list(s) == [4, 3]
    u, s, vh = ql.svd(np.array([[-3]], dtype))
    assert s[0] == 3 and u[0, 0] * s[0] * vh[0, 0] == -3


def letter(dtype):
    return "sdcz"[[np.float32, np.float64, np.complex64, np.complex128].index(dtype)]


# Faults: column and row sums swapped (1 vs inf), |re| + |im| summed instead of moduli,
# a NaN sum winning the maximum, the spectral norm not the largest singular value.
@dtypes
@pytest.mark.parametrize("m,n", [(5, 5), (7, 3), (1, 6)])
def test_matrix_norms(dtype, m, n, rng):
    a = random_array(rng, (m, n), dtype)
    ref = a.astype(wide(dtype))
    for ord in (2, 1, "fro", np.inf):
        r = ql.matrix_norm(a, ord)
        assert r.dtype == np.finfo(dtype).dtype
        assert abs(r - np.linalg.norm(ref, ord)) <= 35 * m * n * eps(dtype) * np.linalg.norm(ref, ord), ord
    b = np.array([[1, -2], [3, 4]], dtype)
    assert [ql.matrix_norm(b, o) for o in (1, np.inf)] == [6, 7]
    assert ql.matrix_norm(b) == np.sqrt(np.finfo(dtype).dtype.type(30))
    if is_complex(dtype):
        assert ql.matrix_norm(np.array([[3 + 4j]], dtype), 1) == ql.matrix_norm(np.array([[3 + 4j]], dtype), np.inf) == 5
    inf = np.array([[1, np.inf], [np.nan, 1]], dtype)
    assert ql.matrix_norm(inf[:1], 1) == ql.matrix_norm(inf[:1], np.inf) == ql.matrix_norm(inf[:1]) == np.inf
    assert ql.matrix_norm(inf, 1) == np.inf   # the NaN column never wins


# Faults: s_max / s_min inverted, the inverse's norm taken of A^T or A^H (the kernel
# inverts the transpose in place), a singular matrix reported as an error.
@pytest.mark.skipif(not ql.available("dCondNumberH"), reason="CondNumberH is not in the export list")
@dtypes
@pytest.mark.parametrize("n", [1, 4, 12])
def test_condition_numbers(dtype, n, rng):
    a = random_array(rng, (n, n), dtype) + 2 * np.eye(n, dtype=dtype)   # well conditioned
    a[0, -1] += 5                                 # not symmetric: the 1- and inf-norms differ
    ref = a.astype(wide(dtype))
    for p in (None, 1, "fro", np.inf):
        c, c_ref = ql.cond(a, p), np.linalg.cond(ref, p)
        assert abs(c - c_ref) <= 35 * n * n * eps(dtype) * c_ref ** 2, p
    tall = random_array(rng, (n + 3, n), dtype)
    c_ref = np.linalg.cond(tall.astype(wide(dtype)))
    assert abs(ql.cond(tall) - c_ref) <= 35 * (n + 3) * eps(dtype) * c_ref ** 2
    assert [ql.cond(np.eye(n, dtype=dtype), p) for p in (2, 1, np.inf)] == [1, 1, 1]
    assert abs(ql.cond(np.eye(n, dtype=dtype), "fro") - n) <= n * eps(dtype) * n
    singular = np.ones((3, 3), dtype)
    assert all(ql.cond(singular, p) == np.inf for p in (1, "fro", np.inf))
    assert ql.cond(np.zeros((2, 3), dtype)) == np.inf


# Faults: the default tolerance not scaled by max(m, n) or s_max, a tolerance of 0
# replaced by the default, >= instead of >, NaN tolerance counting.
@dtypes
@pytest.mark.parametrize("m,n", [(6, 6), (8, 5), (3, 7)])
def test_matrix_rank(dtype, m, n, rng):
    k = min(m, n)
    for r in range(k + 1):
        s = np.r_[np.geomspace(1, 1e-2, r), np.zeros(k - r)]
        a = with_singular_values(rng, m, n, s, dtype)
        assert ql.matrix_rank(a) == np.linalg.matrix_rank(a) == r
        # Explicit tolerances between the 2nd-smallest and smallest nonzero values.
        if r:
            assert ql.matrix_rank(a, 0.5 * s[r - 1]) == r and ql.matrix_rank(a, 2.0) == 0
    assert ql.matrix_rank(np.zeros((m, n), dtype)) == ql.matrix_rank(np.zeros((m, n), dtype), 0) == 0
    assert ql.matrix_rank(np.eye(m, n, dtype=dtype), np.nan) == 0
    tiny = np.diag([1, 1e-20 if np.finfo(dtype).eps < 1e-10 else 1e-30]).astype(dtype)
    assert (ql.matrix_rank(tiny), ql.matrix_rank(tiny, 0)) == (1, 2)


# Faults: the inverse of A^T returned (the kernel works on the transposed block), the
# wrong triangle read or inverted, the positive definite mirror not conjugated.
@dtypes
@pytest.mark.parametrize("n", [1, 3, 10])
def test_inverse(dtype, n, rng):
    w = wide(dtype)
    general = random_array(rng, (n, n), dtype) + 3 * np.eye(n, dtype=dtype)
    general[0, -1] += 2
    hpd = random_hpd(rng, n, dtype)
    lower = np.tril(random_array(rng, (n, n), dtype)) + 3 * np.eye(n, dtype=dtype)
    garbage = np.triu(random_array(rng, (n, n), dtype), 1)
    for kind, a, given, expect in (("general", general, general, general),
                                   ("positive_definite", hpd, np.tril(hpd) + garbage, hpd),
                                   ("lower", lower, lower + garbage, lower),
                                   ("upper", lower.T, (lower + garbage).T, lower.T)):
        x = ql.inv(given, kind)
        ref = np.linalg.inv(expect.astype(w))
        kappa = np.linalg.cond(expect.astype(w))
        tri = {"lower": np.tril, "upper": np.triu}.get(kind)
        got = tri(x) if tri else x
        assert np.linalg.norm(got - ref, 2) <= 35 * n * eps(dtype) * kappa * np.linalg.norm(ref, 2), kind
        if tri:   # the other triangle as given
            assert np.array_equal(x - tri(x), given - tri(given)), kind
    assert all(ql.inv(np.array([[4]], dtype), k) == 0.25 for k in range(4))


# Faults: U and V exchanged (wrong shape or A^+ of A^T), columns divided by the wrong
# values, the cutoff not applied, sizes not swapped.
@dtypes
@pytest.mark.parametrize("m,n", [(5, 5), (7, 4), (3, 6)])
def test_pseudo_inverse(dtype, m, n, rng):
    w = wide(dtype)
    k = min(m, n)
    for what, a in inputs(rng, m, n, dtype):
        if what == "ill-conditioned":
            continue   # the default cutoff sits inside the spectrum: rank is not stable
        x = ql.pinv(a)
        assert x.shape == (n, m) and x.dtype == dtype
        s = np.linalg.svd(a.astype(w), compute_uv=False)
        r = int(np.sum(s > max(m, n) * s[0] * eps(dtype)))
        ref = np.linalg.pinv(a.astype(w), rcond=max(m, n) * eps(dtype))
        bound = 35 * max(m, n) * eps(dtype) * (s[0] / s[r - 1]) / s[r - 1]
        assert np.linalg.norm(x - ref, 2) <= bound, what
    known = np.geomspace(4, 1, k)
    a = with_singular_values(rng, m, n, known, dtype)
    assert not np.any(ql.pinv(a, 5.0))
    tol = np.sqrt(known[0] * known[1])   # keeps the largest singular value only
    cut = ql.pinv(a, tol).astype(w)
    u, s, vh = np.linalg.svd(a.astype(w), full_matrices=False)
    keep = s > tol
    expect = (vh[keep].conj().T / s[keep]) @ u[:, keep].conj().T
    assert np.linalg.norm(cut - expect, 2) <= 35 * max(m, n) * eps(dtype)
