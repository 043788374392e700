"""Sylvester and Lyapunov equations against scipy and their residuals: the backward error
of Bartels-Stewart is a small multiple of eps (||A|| + ||B||) ||X||, that of the discrete
equation's Schur method of eps (||A||^2 + 1) ||X||."""
import warnings

import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import dtypes, gamma, hi, random_array, wide


# Faults: the equation solved for the transposes' roles swapped (X B + A X), a Schur
# factor not conjugated on the way back, the kernel's scale not divided out, B = A^H
# built without the conjugation, near and exact cancellation not told apart.
@dtypes
@pytest.mark.parametrize("m,n", [(1, 1), (3, 5), (6, 2), (12, 12)])
def test_sylvester(dtype, m, n, rng):
    a = random_array(rng, (m, m), dtype) + 3 * np.eye(m, dtype=dtype)
    b = random_array(rng, (n, n), dtype) + 3 * np.eye(n, dtype=dtype)
    c = random_array(rng, (m, n), dtype)
    x = ql.solve_sylvester(a, b, c)
    assert x.dtype == dtype and x.shape == (m, n)
    scale = (np.linalg.norm(hi(a)) + np.linalg.norm(hi(b))) * np.linalg.norm(hi(x)) + np.linalg.norm(hi(c))
    assert np.linalg.norm(hi(a) @ hi(x) + hi(x) @ hi(b) - hi(c)) <= gamma(20 * (m + n), dtype) * scale
    ref = sla.solve_sylvester(a.astype(wide(dtype)), b.astype(wide(dtype)), c.astype(wide(dtype)))
    assert np.linalg.norm(hi(x) - ref) <= 1e3 * gamma(20 * (m + n), dtype) * np.linalg.norm(ref)


@dtypes
@pytest.mark.parametrize("n", [1, 4, 9])
def test_continuous_lyapunov(dtype, n, rng):
    a = random_array(rng, (n, n), dtype) - 3 * np.eye(n, dtype=dtype)
    q = random_array(rng, (n, n), dtype)
    x = ql.solve_continuous_lyapunov(a, q)
    ha, hx = hi(a), hi(x)
    scale = 2 * np.linalg.norm(ha) * np.linalg.norm(hx) + np.linalg.norm(hi(q))
    assert np.linalg.norm(ha @ hx + hx @ ha.conj().T - hi(q)) <= gamma(40 * n, dtype) * scale
    ref = sla.solve_continuous_lyapunov(a.astype(wide(dtype)), q.astype(wide(dtype)))
    assert np.linalg.norm(hx - ref) <= 1e3 * gamma(40 * n, dtype) * np.linalg.norm(ref)


# Faults: the column recurrence taking the wrong triangle (S for S^H) or summing the
# columns not yet solved, the shift conj(s_jj) for s_jj, the real part of a complex
# solution dropped in the wrong place, Q or X transposed; a spectrum outside the unit
# circle (|lambda| near 2) as well as inside.
@dtypes
@pytest.mark.parametrize("n,radius", [(1, 0.5), (4, 0.9), (9, 0.7), (16, 2.0)])
def test_discrete_lyapunov(dtype, n, radius, rng):
    a = random_array(rng, (n, n), wide(dtype))
    a = (a * radius / max(abs(np.linalg.eigvals(a)))).astype(dtype)
    q = random_array(rng, (n, n), dtype)
    x = ql.solve_discrete_lyapunov(a, q)
    assert x.dtype == dtype and x.shape == (n, n)
    ha, hx = hi(a), hi(x)
    scale = (np.linalg.norm(ha) ** 2 + 1) * np.linalg.norm(hx) + np.linalg.norm(hi(q))
    assert np.linalg.norm(ha @ hx @ ha.conj().T - hx + hi(q)) <= gamma(40 * n, dtype) * scale
    ref = sla.solve_discrete_lyapunov(a.astype(wide(dtype)), q.astype(wide(dtype)))
    assert np.linalg.norm(hx - ref) <= 1e3 * gamma(40 * n, dtype) * np.linalg.norm(ref)


def test_sylvester_singular_and_nearly_singular():
    with pytest.raises(ql.QuarzError) as e:
        ql.solve_sylvester(np.array([[1.0]]), np.array([[-1.0]]), np.array([[1.0]]))
    assert e.value.status == -20041
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        ql.solve_sylvester(np.array([[1.0]]), np.array([[-1.0 + 2.0 ** -52]]), np.array([[1.0]]))
    assert [w.message.status for w in caught] == [20003]
    # The discrete equation: 1 * conj(1) is exactly 1; (1 - 2^-53)^2 rounds to 1 - 2^-52,
    # one epsilon from 1, where the pivot is replaced.
    with pytest.raises(ql.QuarzError) as e:
        ql.solve_discrete_lyapunov(np.array([[1.0]]), np.array([[1.0]]))
    assert e.value.status == -20041
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        ql.solve_discrete_lyapunov(np.array([[1.0 - 2.0 ** -53]]), np.array([[1.0]]))
    assert [w.message.status for w in caught] == [20003]
