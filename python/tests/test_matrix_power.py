"""Whole-number matrix powers against 50-digit references (mpmath), with error bounds
from the number of products and the conditioning of the base."""
import math

import mpmath
import numpy as np
import pytest

import quarz_linalg as ql
from oracle import dtypes, from_mp, random_array, to_mp, wide

DIGITS = 50
# The pseudo-inverse behind negative powers cuts at n s1 times the double epsilon in
# every element type.
CUTOFF_EPS = 2.220446049250313e-16


def mp_pinv(a, dtype):
    """The pseudo-inverse with the negative powers' cutoff n s1 CUTOFF_EPS."""
    u, s, vh = mpmath.svd_c(to_mp(a))
    n = a.shape[0]
    cut = n * s[0] * CUTOFF_EPS
    d = mpmath.matrix(n, n)
    for i in range(n):
        d[i, i] = 1 / s[i] if s[i] > cut else 0
    return vh.H * d * u.H


def kept_cond(a, dtype):
    """s1 / s_r over the singular values the pseudo-inverse keeps."""
    s = np.linalg.svd(a.astype(wide(dtype)), compute_uv=False)
    kept = s[s > a.shape[0] * s[0] * CUTOFF_EPS]
    return kept[0] / kept[-1] if len(kept) else 0.0


def fro(x):
    return float(np.linalg.norm(np.asarray(x, dtype=np.complex128)))


def inputs(rng, n, dtype):
    yield "random", random_array(rng, (n, n), dtype)
    q, _ = np.linalg.qr(random_array(rng, (n, n), wide(dtype)))
    yield "normal", (q * np.linspace(0.5, 1.5, n)) @ q.conj().T
    yield "jordan", np.eye(n) * 0.9 + np.eye(n, k=1)
    near = random_array(rng, (n, n), dtype)
    near[-1] = near[0] + 1e-5 * near[-1]
    yield "nearly singular", near
    sing = random_array(rng, (n, n), dtype)
    sing[-1] = 2 * sing[0]
    yield "singular", sing


# Faults: a squaring skipped or repeated, R multiplied in on the wrong bits, the
# pseudo-inverse not used as the base of negative powers, p = 2 not written back, p = 0
# not the identity.
@dtypes
@pytest.mark.parametrize("n", [1, 4, 6])
@pytest.mark.parametrize("p", [0, 1, 2, 3, 6, 7, -1, -2, -3, -6])
def test_matrix_power_against_50_digits(dtype, n, p, rng):
    u = float(np.finfo(dtype).eps) / 2
    for kind, a in inputs(rng, n, dtype):
        if kind == "singular" and p < 0 and float(np.finfo(dtype).eps) > CUTOFF_EPS:
            continue  # single precision's rounding-level singular value is above the cutoff
        a = np.asarray(a).astype(dtype)
        x = ql.matrix_power(a, p)
        assert x.dtype == dtype and x.shape == (n, n), kind
        with mpmath.workdps(DIGITS):
            base = mp_pinv(a, dtype) if p < 0 else to_mp(a)
            ref = from_mp(base ** abs(p)) if p else np.eye(n)
            base = from_mp(base)
        # Each product rounds to gamma_n times the product of its factors' norms, and
        # every partial power is bounded by ||B||^k: the error is at most (products) n u
        # ||B||^|p|; a negative power adds |p| times the base's own error, cond(A) u.
        products = 2 * max(1, abs(p).bit_length())
        cond = kept_cond(a, dtype) if p < 0 else 0.0
        scale = max(fro(ref), np.finfo(float).tiny)
        kappa = (products + abs(p) * cond) * fro(base) ** abs(p) / scale
        err = fro(x - ref) / scale
        assert err <= 10 * n * kappa * u, f"{kind}: relative error {err:.3g}"


# Faults: the type's own epsilon in the cutoff of single precision, which drops a
# singular value between the two cutoffs (1e-8 s1) that the double one keeps.
@dtypes
@pytest.mark.parametrize("p", [-1, -2])
def test_negative_power_cutoff(dtype, p):
    x = ql.matrix_power(np.diag([1, 1e-8]).astype(dtype), p)
    ref = np.diag([1.0, 1e-8 ** p])
    assert fro(x - ref) <= 10 * float(np.finfo(dtype).eps) * fro(ref)


def test_matrix_power_arguments():
    # An out-of-range power is refused before the call; 0 on the zero matrix is the
    # identity; the most negative int32 power is taken without overflow.
    with pytest.raises(OverflowError):
        ql.matrix_power(np.eye(2), 2**31)
    assert np.array_equal(ql.matrix_power(np.zeros((3, 3), np.complex64), 0), np.eye(3))
    assert math.isclose(ql.matrix_power(np.array([[2.0]]), -2**31)[0, 0], 0.0)
