"""The condition estimate against the exact condition number (numpy.linalg.cond of the
matrix the kind reads): never below the true reciprocal, and within the factor 3 it
promises on these cases."""
import numpy as np
import pytest

import quarz_linalg as ql
from oracle import dtypes, hi, random_array, wide


def matrix(kind, rng, n, dtype, spread):
    q, _ = np.linalg.qr(random_array(rng, (n, n), wide(dtype)))
    s = np.geomspace(1, spread, n)
    if kind == "positive_definite":
        a = (q * s) @ q.conj().T
        return np.tril(a).astype(dtype)          # only the lower triangle is read
    a = (q * s) @ np.linalg.qr(random_array(rng, (n, n), wide(dtype)))[0]
    r = np.linalg.qr(a)[1]                     # a triangle as well conditioned as a
    return {"general": a, "lower": r.conj().T, "upper": r}[kind].astype(dtype)


def full(kind, a):
    if kind == "positive_definite":
        return np.tril(a) + np.tril(a, -1).conj().T
    return {"general": a, "lower": np.tril(a), "upper": np.triu(a)}[kind]


# Faults: the norm letters not swapped for the transposed factor (1 for inf), the
# triangle letter not swapped, the Hermitian norm from one triangle only, anorm of the
# factor instead of A, a singular LU reported as an error.
@dtypes
@pytest.mark.parametrize("kind", ["general", "positive_definite", "lower", "upper"])
@pytest.mark.parametrize("ord", [1, np.inf])
@pytest.mark.parametrize("n,spread", [(1, 1), (5, 1e-3), (30, 1e-4)])
def test_rcond(dtype, kind, ord, n, spread, rng):
    a = matrix(kind, rng, n, dtype, spread)
    est = ql.rcond(a, ord, kind)
    true = 1 / np.linalg.cond(hi(full(kind, a)).astype(complex), ord)
    assert type(est) is not np.ndarray and true * (1 - 1e-3) <= est <= 3 * true * (1 + 1e-3), (est, true)


def test_rcond_edges():
    # An arrow whose heaviest column is the last: its norm needs the upper triangle too.
    n = 50
    a = np.eye(n)
    a[-1, :-1] = a[:-1, -1] = 0.3
    a[-1, -1] = 4.5
    true = 1 / np.linalg.cond(a, 1)
    assert true <= ql.rcond(np.tril(a), 1, "positive_definite") <= 3 * true
    assert ql.rcond(np.ones((3, 3))) == 0.0 and ql.rcond(np.diag([1.0, 0.0, 2.0]), 1, "upper") == 0.0
    with pytest.raises(ql.QuarzError):
        ql.rcond(-np.eye(3), 1, "positive_definite")
