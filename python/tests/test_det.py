"""Determinants against numpy.linalg.det and closed forms, with error bounds scaled by
the matrix's condition."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import (assert_within, dtypes, gamma, gamma_dot, gamma_mul, hi, is_complex,
                    needs, random_array, random_hpd, well_conditioned)

pytestmark = needs("DeterminantH")


def _status(fn, *args, **kw):
    with pytest.raises(ql.QuarzError) as e:
        fn(*args, **kw)
    return e.value.status


def _wide(dtype):
    return np.complex128 if is_complex(dtype) else np.float64


def _product_rtol(n, dtype):
    """Relative error of a product of n factors: (1 + one multiplication's bound)^(n-1) - 1."""
    return float((1 + np.longdouble(gamma_mul(dtype))) ** max(n - 1, 0) - 1)


def _lu_det_rtol(a, dtype):
    """First order, d det / det = tr(A^-1 dA), bounded componentwise by
    sum_ij |A^-1|_ji |dA|_ij with the LU backward error |dA| <= gamma_3n P^T |L||U|;
    plus the rounding of the diagonal product."""
    n = a.shape[0]
    w = a.astype(_wide(dtype))
    p, l, u = sla.lu(w)
    dA = gamma_dot(3 * n, dtype) * (np.abs(p) @ np.abs(l) @ np.abs(u))
    return float(np.sum(np.abs(np.linalg.inv(w)).T * dA)) + _product_rtol(n, dtype)


@dtypes
@pytest.mark.parametrize("n", [3, 4, 7, 20, 45])
@pytest.mark.parametrize("conditioning", ["random", "dominant"])
def test_general_determinant(dtype, n, conditioning, rng):
    if conditioning == "random":
        a = random_array(rng, (n, n), dtype)
    else:
        # Scaled so that the determinant stays far inside the range of every type.
        a = (well_conditioned(rng, n, dtype) / (2 * n)).astype(dtype)
    d = ql.det(a)
    assert d.dtype == np.dtype(dtype)
    ref = np.linalg.det(a.astype(_wide(dtype)))
    rtol = _lu_det_rtol(a, dtype) + _lu_det_rtol(a, _wide(dtype))
    assert rtol < 0.5, "test matrix too ill-conditioned for this precision"
    assert_within(d, ref, rtol * abs(ref), "det")


@dtypes
def test_closed_forms_of_order_one_and_two(dtype, rng):
    for kind in range(4):
        a = random_array(rng, (1, 1), dtype)
        assert ql.det(a, kind) == a[0, 0]
    for kind in (0, 1):
        a = random_array(rng, (2, 2), dtype)
        ref = hi(a)[0, 0] * hi(a)[1, 1] - hi(a)[0, 1] * hi(a)[1, 0]
        # Two products and a difference.
        bound = (gamma_mul(dtype) + gamma(1, dtype)) * 2 * (abs(hi(a)[0, 0] * hi(a)[1, 1]) + abs(hi(a)[0, 1] * hi(a)[1, 0]))
        assert_within(ql.det(a, kind), ref, bound, "2x2")
    # Order 2 is not checked for definiteness.
    assert ql.det(np.array([[1, 2], [2, 1]], dtype), "positive_definite") == -3


@dtypes
@pytest.mark.parametrize("n", [3, 5, 16, 40])
def test_positive_definite_determinant(dtype, n, rng):
    a = random_hpd(rng, n, dtype, cond=1e2)
    d = ql.det(a, "positive_definite")
    assert d.dtype == np.dtype(dtype) and (not is_complex(dtype) or d.imag == 0)
    w = a.astype(_wide(dtype))
    ref = np.linalg.det(w).real
    # Cholesky backward error |dA| <= gamma_{n+1} |R^H||R|, propagated to first order
    # as sum_ij |A^-1|_ji |dA|_ij; the squared product of n diagonal entries adds 2n
    # roundings. numpy's reference (LU in double) carries its own bound.
    r = np.linalg.cholesky(w)
    spread = float(np.sum(np.abs(np.linalg.inv(w)).T * (np.abs(r) @ np.abs(r).T)))
    rtol = gamma(n + 1, dtype) * spread + float((1 + np.longdouble(gamma(1, dtype))) ** (2 * n) - 1) \
        + _lu_det_rtol(a, _wide(dtype))
    assert rtol < 0.5
    assert_within(d, ref, rtol * abs(ref), "det")


@dtypes
@pytest.mark.parametrize("n", [1, 3, 6, 30])
@pytest.mark.parametrize("kind", ["lower", "upper"])
def test_triangular_determinant_is_the_diagonal_product(dtype, n, kind, rng):
    a = random_array(rng, (n, n), dtype)       # full matrix: off-diagonal entries ignored
    d = ql.det(a, kind)
    ref = np.prod(np.diagonal(hi(a)))
    assert_within(d, ref, _product_rtol(n, dtype) * abs(ref), "diagonal product")


@dtypes
def test_exact_cases(dtype):
    # Elimination meets an exact zero pivot: exactly 0, status 0.
    assert ql.det(np.array([[1, 2, 3], [2, 4, 6], [1, 1, 1]], dtype)) == 0
    # One row interchange negates the diagonal product.
    assert ql.det(np.array([[0, 1, 0], [1, 0, 0], [0, 0, 1]], dtype)) == -1
    assert ql.det(np.array([[0, 2, 0], [3, 0, 0], [0, 0, 4]], dtype)) == -24
    # Perfect squares on the diagonal keep the Cholesky route exact.
    assert ql.det(np.diag([4, 9, 16]).astype(dtype), "positive_definite") == 576


@dtypes
def test_determinant_errors(dtype):
    assert _status(ql.det, np.zeros((0, 0), dtype)) == -20003
    assert _status(ql.det, np.zeros((0, 3), dtype)) == -20003
    assert _status(ql.det, np.ones((2, 3), dtype)) == -20040
    for kind in (4, -1):
        status, (d,) = ql.invoke(ql.letter_of(dtype) + "DeterminantH", np.eye(3, dtype=dtype),
                                 kind, check=False)
        assert status == -20061 and np.isnan(d.real)
    indefinite = np.array([[1, 2, 0], [2, 1, 0], [0, 0, 1]], dtype)
    assert _status(ql.det, indefinite, "positive_definite") == -20071
