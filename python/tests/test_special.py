"""Special matrices against scipy.linalg and numpy constructors."""
import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import (assert_within, dtypes, gamma, gamma_mul, hi, is_complex, needs,
                    random_array, unit_roundoff)

pytestmark = needs("SpecialMtrxH")


def _status(fn, *args, **kw):
    with pytest.raises(ql.QuarzError) as e:
        fn(*args, **kw)
    return e.value.status


@dtypes
@pytest.mark.parametrize("size", [1, 2, 3, 10])
def test_identity(dtype, size, rng):
    m = ql.special("identity", random_array(rng, 4, dtype), random_array(rng, 2, dtype), size=size)
    assert m.dtype == np.dtype(dtype)
    assert np.array_equal(m, np.eye(size))
    assert np.array_equal(ql.special(0, size=size, dtype=dtype), np.eye(size, dtype=dtype))


@dtypes
@pytest.mark.parametrize("n", [1, 2, 5, 16])
def test_diagonal_toeplitz_hankel_exact(dtype, n, rng):
    x, y = random_array(rng, n, dtype), random_array(rng, n + 2, dtype)
    assert np.array_equal(ql.special("diagonal", x), np.diag(x))
    # scipy's toeplitz(c, r) and hankel(c, r) also ignore r[0].
    assert np.array_equal(ql.special("toeplitz", x, y), sla.toeplitz(x, y))
    assert np.array_equal(ql.special("hankel", x, y), sla.hankel(x, y))
    assert np.array_equal(ql.special("toeplitz", y, x), sla.toeplitz(y, x))
    assert np.array_equal(ql.special("hankel", y, x), sla.hankel(y, x))


@dtypes
def test_documented_small_cases(dtype):
    x, y = np.array([1, 2, 3], dtype), np.array([9, 4, 5], dtype)
    assert np.array_equal(ql.special("toeplitz", x, y), [[1, 4, 5], [2, 1, 4], [3, 2, 1]])
    assert np.array_equal(ql.special("hankel", x, y), [[1, 2, 3], [2, 3, 4], [3, 4, 5]])
    assert np.array_equal(ql.special("vandermonde", np.array([2, 3], dtype)), [[2, 1], [3, 1]])
    assert np.array_equal(ql.special("companion", np.array([1, -3, 2], dtype)), [[3, -2], [1, 0]])


@dtypes
@pytest.mark.parametrize("n", [1, 2, 4, 9])
def test_vandermonde_matches_numpy(dtype, n, rng):
    x = random_array(rng, n, dtype, scale=2.0)
    m = ql.special("vandermonde", x)
    ref = np.vander(hi(x))                         # decreasing powers, n columns
    # x^k by k - 1 successive multiplications.
    powers = np.arange(n - 1, -1, -1)
    steps = np.maximum(powers - 1, 0).astype(np.longdouble)
    bound = ((1 + np.longdouble(gamma_mul(dtype))) ** steps - 1) * np.abs(ref)
    assert_within(m, ref, bound, "vander")
    assert np.all(m[:, -1] == 1)


@dtypes
@pytest.mark.parametrize("n", [2, 3, 6, 12])
def test_companion_matches_scipy(dtype, n, rng):
    x = random_array(rng, n, dtype)
    x[0] = x[0] + (1.5 if x[0].real >= 0 else -1.5)     # leading coefficient away from 0
    m = ql.special("companion", x)
    ref = sla.companion(hi(x).astype(np.complex128 if is_complex(dtype) else np.float64))
    assert m.shape == (n - 1, n - 1)
    # Row 0 is -x[1:] scaled by -1/x[0]: reciprocal and product, a handful of roundings
    # (gamma_6 covers a complex reciprocal and a complex multiply).
    # scipy's reference, one (complex) division in double, carries its own share.
    wide = np.complex128 if is_complex(dtype) else np.float64
    rtol = (gamma(6, dtype) + gamma(6, wide)) if is_complex(dtype) else (gamma(2, dtype) + gamma(1, wide))
    assert_within(m[0], ref[0], rtol * np.abs(ref[0]), "row 0")
    assert np.array_equal(m[1:], ref[1:])
    if n >= 3 and dtype in (np.float64, np.complex128):
        # Its eigenvalues are the roots of the polynomial.
        ev = np.sort_complex(np.linalg.eigvals(m))
        roots = np.sort_complex(np.roots(x))
        assert np.allclose(ev, roots, rtol=1e-8, atol=1e-8)


@dtypes
def test_special_errors(dtype):
    one = np.ones(1, dtype)
    assert _status(ql.special, "companion", np.array([5], dtype)) == -20006
    assert _status(ql.special, "companion", np.zeros(0, dtype)) == -20006
    for kind in ["diagonal", "toeplitz", "vandermonde", "hankel"]:
        assert _status(ql.special, kind, np.zeros(0, dtype), one) == -20003
    assert _status(ql.special, "toeplitz", one, np.zeros(0, dtype)) == -20003
    assert _status(ql.special, "identity", size=0, dtype=dtype) == -20003
    assert _status(ql.special, 6, size=2, dtype=dtype) == -20061
    assert _status(ql.special, -1, size=2, dtype=dtype) == -20061
