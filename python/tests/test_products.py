"""Products, transpose, trace and special matrices against numpy/scipy: componentwise
bounds gamma_k |A||B| for the products, exact agreement where no arithmetic is done."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import assert_within, dtypes, gamma, hi, is_complex, random_array, wide


def _within_product(got, a, b, what):
    assert got.dtype == a.dtype
    A, B = hi(a), hi(b)
    assert_within(got, A @ B, gamma(a.shape[-1], a.dtype) * (np.abs(A) @ np.abs(B)), what)


@dtypes
@pytest.mark.parametrize("m,k,n", [(1, 1, 1), (2, 3, 4), (5, 1, 4), (16, 9, 33), (1, 40, 3)])
def test_products_match_numpy(dtype, m, k, n, rng):
    a, b = random_array(rng, (m, k), dtype), random_array(rng, (k, n), dtype)
    x, w, v = (random_array(rng, s, dtype) for s in (k, m, n))
    _within_product(ql.matmul(a, b), a, b, "A @ B")
    _within_product(ql.matvec(a, x), a, x, "A @ x")
    _within_product(ql.vecmat(w, a), w, a, "x @ A")       # plain transpose, no conjugation
    one_rounding = gamma(1, dtype)
    ref = np.outer(hi(w), hi(v))
    assert_within(ql.outer(w, v), ref, one_rounding * np.abs(ref), "outer")
    ref = np.kron(hi(a), hi(b[:3, :2]))
    assert_within(ql.kron(a, b[:3, :2]), ref, one_rounding * np.abs(ref), "kron")
    assert np.array_equal(ql.transpose(b), b.conj().T)
    if m == 16:  # the blocked copy's other regime: past 256 KB, tiles through a buffer
        big = random_array(rng, (300, 141), dtype)
        assert np.array_equal(ql.transpose(big), big.conj().T)
    d = np.diagonal(hi(b))
    assert_within(ql.trace(b), np.sum(d), gamma(len(d), dtype) * np.sum(np.abs(d)), "trace")


@dtypes
def test_product_edges(dtype):
    r = ql.matmul(np.zeros((3, 0), dtype), np.zeros((0, 2), dtype))
    assert r.shape == (3, 2) and np.all(np.isnan(r.real)) and (not is_complex(dtype) or np.all(np.isnan(r.imag)))
    assert ql.matmul(np.zeros((0, 4), dtype), np.ones((4, 5), dtype)).shape == (0, 5)
    assert ql.matvec(np.zeros((3, 0), dtype), np.zeros(0, dtype)).shape == (0,)
    if is_complex(dtype):
        t = ql.transpose(np.array([[3 + 0j]], dtype))
        assert t[0, 0] == 3 and np.signbit(t[0, 0].imag)


@dtypes
@pytest.mark.parametrize("n", [1, 2, 5, 12])
def test_special_matrices_match_scipy(dtype, n, rng):
    x, y = random_array(rng, n, dtype), random_array(rng, n + 2, dtype)
    assert np.array_equal(ql.special("identity", x, y, size=n), np.eye(n))
    assert ql.special("identity", size=n, dtype=dtype).dtype == dtype
    assert np.array_equal(ql.special("diagonal", x), np.diag(x))
    # scipy's toeplitz(c, r) and hankel(c, r) ignore r[0] as the library does.
    for c, r in ((x, y), (y, x)):
        assert np.array_equal(ql.special("toeplitz", c, r), sla.toeplitz(c, r))
        assert np.array_equal(ql.special("hankel", c, r), sla.hankel(c, r))
    # Power j of x[i] takes j - 1 multiplications.
    ref, steps = np.vander(hi(x)), np.maximum(np.arange(n - 1, -1, -1) - 1, 0)
    bound = ((1 + np.longdouble(gamma(1, dtype))) ** steps - 1) * np.abs(ref)
    assert_within(ql.special("vandermonde", x), ref, bound, "vander")
    if n >= 2:
        x[0] += 1.5 if x[0].real >= 0 else -1.5           # leading coefficient away from 0
        m, ref = ql.special("companion", x), sla.companion(x.astype(wide(dtype)))
        # Row 0: -x[j+1] scaled by -1/x[0], a complex reciprocal and product (plus the
        # one rounding of scipy's division in double).
        assert_within(m[0], ref[0], (gamma(6, dtype) + gamma(6, wide(dtype))) * np.abs(ref[0]), "companion")
        assert np.array_equal(m[1:], ref[1:])
