"""Eigenproblems against numpy.linalg.eig / eigvalsh and scipy.linalg.eig: residuals
scaled by n eps ||A||, eigenvalues as multisets within first-order perturbation bounds
(eigenvalue condition numbers from scipy's left and right eigenvectors)."""
import numpy as np
import pytest
import scipy.linalg as sla
from scipy.optimize import linear_sum_assignment

import quarz_linalg as ql
from oracle import dtypes, eps, is_complex, norm2, random_array, wide

pytestmark = pytest.mark.skipif(not ql.available("dEigenVH"), reason="the eigen exports are not in the export list")


def assert_same_multiset(ours, ref, tol, what):
    """Pairs each of our values with one reference value (optimal assignment) and
    requires |ours - ref| <= tol for the reference value's own tolerance."""
    ours, ref = np.asarray(ours, np.complex128), np.asarray(ref, np.complex128)
    assert ours.shape == ref.shape, what
    rows, cols = linear_sum_assignment(np.abs(ours[:, None] - ref[None, :]))
    err = np.abs(ours[rows] - ref[cols])
    bound = np.broadcast_to(tol, ref.shape)[cols]
    assert np.all(err <= bound), f"{what}: worst error / bound {np.max(err / bound):.3g}"


def eigen_condition(a, b=None):
    """Reference eigenvalues of (A, B) in double precision and their condition numbers
    ||x|| ||y|| / |y^H B x| (B = I for the standard problem)."""
    a = a.astype(wide(a.dtype))
    b = np.eye(len(a)) if b is None else b.astype(wide(b.dtype))
    w, vl, vr = sla.eig(a, b, left=True, right=True)
    den = np.abs(np.einsum("ij,ik,kj->j", vl.conj(), b, vr))
    with np.errstate(divide="ignore"):      # infinite eigenvalues: y^H B x = 0
        return w, np.linalg.norm(vl, axis=0) * np.linalg.norm(vr, axis=0) / den


@dtypes
@pytest.mark.parametrize("n", [1, 2, 7, 30])
def test_eig_residual_and_values(dtype, n, rng):
    a = random_array(rng, (n, n), dtype)
    w, v = ql.eig(a)
    cdt = np.complex64 if np.dtype(dtype) in (np.float32, np.complex64) else np.complex128
    assert w.dtype == v.dtype == cdt and w.shape == (n,) and v.shape == (n, n)
    unit = n * eps(dtype) * norm2(a)
    # A wrong conjugate pair, a swapped column or a transposed problem breaks A V = V W.
    res = norm2(a.astype(np.complex128) @ v - v * w)
    assert res <= 20 * unit, f"residual {res / unit:.3g} n eps ||A||"
    assert np.allclose(np.linalg.norm(v.astype(np.complex128), axis=0), 1, atol=10 * n * eps(dtype))
    ref, kappa = eigen_condition(a)
    assert_same_multiset(w, np.linalg.eigvals(a.astype(wide(dtype))), 20 * unit * kappa, "eig vs numpy")
    # Values only: the other workspace layout, same eigenvalues.
    assert_same_multiset(ql.eigvals(a), ref, 20 * unit * kappa, "eigvals vs scipy")


@dtypes
def test_eig_documented_cases(dtype):
    w, v = ql.eig(np.array([[0, -1], [1, 0]], dtype))
    assert np.allclose(w, [1j, -1j], atol=4 * eps(dtype)) or np.allclose(w, [-1j, 1j], atol=4 * eps(dtype))
    if not is_complex(dtype):
        # The two columns of a real matrix's complex pair are each other's conjugates.
        assert np.array_equal(v[:, 1], v[:, 0].conj())
    w, v = ql.eig(np.array([[5]], dtype))
    assert w.tolist() == [5] and v.tolist() == [[1]]
    _, (values, vectors) = ql.invoke(ql.letter_of(dtype) + "EigenVH", np.eye(3, dtype=dtype), 0)
    assert values.tolist() == [1, 1, 1] and vectors.shape == (0, 0)


@dtypes
@pytest.mark.parametrize("n", [1, 4, 30])
def test_eigh_lower_triangle_residual_orthogonality(dtype, n, rng):
    g = random_array(rng, (n, n), dtype)
    h = np.tril(g, -1) + np.tril(g, -1).conj().T + np.diag(np.diagonal(g).real).astype(dtype)
    # Only the lower triangle is read: large finite garbage above it must not matter.
    junk = np.tril(h) + np.triu(random_array(rng, (n, n), dtype, scale=1e3), 1)
    w, v = ql.eigh(junk)
    real = np.float32 if np.dtype(dtype) in (np.float32, np.complex64) else np.float64
    assert w.dtype == real and v.dtype == dtype and np.all(np.diff(w) >= 0)
    unit = n * eps(dtype)
    vv = v.astype(np.complex128)
    res = norm2(h.astype(np.complex128) @ vv - vv * w) / (norm2(h) * unit)
    assert res <= 60, f"residual {res:.3g} n eps ||A||"
    orth = norm2(np.eye(n) - vv.conj().T @ vv) / unit
    assert orth <= 60, f"orthogonality {orth:.3g} n eps"
    # Symmetric perturbations move eigenvalues by at most the perturbation's norm.
    ref = np.linalg.eigvalsh(h.astype(wide(dtype)))
    assert np.all(np.abs(w - ref) <= 60 * unit * norm2(h))
    assert np.all(np.abs(ql.eigvalsh(junk) - ref) <= 60 * unit * norm2(h))


@dtypes
@pytest.mark.parametrize("n", [1, 3, 8])
@pytest.mark.parametrize("bkind", ["rand", "eye", "singular"])
def test_generalized_matches_scipy(dtype, n, bkind, rng):
    a = random_array(rng, (n, n), dtype)
    b = {"rand": random_array(rng, (n, n), dtype), "eye": np.eye(n, dtype=dtype),
         "singular": random_array(rng, (n, n), dtype)}[bkind]
    if bkind == "singular":
        b[n // 2] = 0          # a zero row: beta = 0 exactly for one eigenvalue
    w, v = ql.eig(a, b)
    ref, kappa = eigen_condition(a, b)
    # Infinite on both sides alike (scipy: inf; ours: inf or NaN); the rest must agree.
    big = 1 / np.sqrt(eps(dtype))
    ours_inf, ref_inf = ~(np.abs(w) < big), ~(np.abs(ref) < big)
    assert ours_inf.sum() == ref_inf.sum() == (1 if bkind == "singular" else ref_inf.sum())
    fin = ~ref_inf
    unit = n * eps(dtype) * (norm2(a) + np.abs(ref[fin]) * norm2(b))
    assert_same_multiset(w[~ours_inf], ref[fin], 20 * unit * kappa[fin], "vs scipy")
    if bkind == "eye":
        assert_same_multiset(w, np.linalg.eigvals(a.astype(wide(dtype))), 20 * unit * kappa, "vs numpy eig")
    # A v = w B v for every finite eigenvalue, relative to the column's own size.
    for j in np.flatnonzero(~ours_inf):
        x = v[:, j].astype(np.complex128)
        r = np.linalg.norm(a @ x - w[j] * (b @ x))
        scale = n * eps(dtype) * (norm2(a) + abs(w[j]) * norm2(b)) * np.linalg.norm(x)
        assert r <= 20 * scale, f"column {j}: residual {r / scale:.3g}"
    assert_same_multiset(ql.eigvals(a, b)[~ours_inf], ref[fin], 20 * unit * kappa[fin], "values only")


@dtypes
def test_generalized_documented_infinite(dtype):
    w, v = ql.eig(np.eye(2, dtype=dtype), np.diag([1, 0]).astype(dtype))
    finite = np.isfinite(w)
    assert w[finite].tolist() == [1]
    inf = w[~finite][0]
    if is_complex(dtype):
        assert np.isnan(inf.real) and np.isnan(inf.imag)     # Smith's division of alpha / 0
    else:
        assert inf.real == np.inf and inf.imag == 0
