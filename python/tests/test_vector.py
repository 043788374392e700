"""Dot product, vector norm, mean and RMS against numpy in extended precision.
Complex data with distinct elements: a missing conjugation, a dropped or shifted element
(1-D element offset 4 instead of 8 for d/z) or a wrong accumulation shows at once."""
import numpy as np
import pytest

import quarz_linalg as ql
from oracle import assert_within, dtypes, gamma, hi, is_complex, random_array

NORM_PS = [1, 2, 3, 0.5, -1, -2.5, np.inf, -np.inf]


@dtypes
@pytest.mark.parametrize("n", [1, 2, 5, 64, 1001])
def test_vector_ops_match_numpy(dtype, n, rng):
    x, y = random_array(rng, n, dtype), random_array(rng, n, dtype)
    X, Y = hi(x), hi(y)
    real = np.finfo(dtype).dtype
    # Sums of n terms, moduli, powers, a root and a division: gamma_{n+4} relative to the
    # sum of the moduli of the terms.
    g = gamma(n + 4, dtype)
    d = ql.dot(x, y)          # sum x[i] conj(y[i]) = numpy's vdot(y, x)
    assert d.dtype == dtype
    assert_within(d, np.vdot(Y, X), g * np.sum(np.abs(X) * np.abs(Y)), "dot")
    m = ql.mean(x)
    assert m.dtype == dtype
    assert_within(m, np.mean(X), g * np.mean(np.abs(X)), "mean")
    r, ref = ql.rms(x), np.sqrt(np.mean(np.abs(X) ** 2))
    assert r.dtype == real
    assert_within(r, ref, g * ref, "rms")
    for p in NORM_PS:
        got, ref = ql.norm(x, p), np.linalg.norm(X, p) if np.isinf(p) else \
            np.sum(np.abs(X) ** p) ** (1 / np.longdouble(p))
        assert got.dtype == real
        # The 1/p-th root scales the relative error of the sum by 1/|p|.
        assert_within(got, ref, (1 + 1 / abs(p)) * g * ref, f"norm p={p}")


@dtypes
def test_vector_closed_forms(dtype):
    one_i = np.array([1j if is_complex(dtype) else 1], dtype)
    assert ql.dot(one_i, one_i) == 1
    if is_complex(dtype):
        assert ql.dot(np.array([1], dtype), one_i) == -1j    # the second input conjugated
    x = np.array([3, -1, 2], dtype)
    assert (ql.norm(x, -np.inf), ql.norm(x, np.inf)) == (1, 3)
    assert ql.norm(np.array([0, 2, 3], dtype), -2) == 0      # infinity^(1/p) for p < 0
    assert ql.norm(np.array([1e200, 1.0]), 2) == np.inf      # no rescaling
