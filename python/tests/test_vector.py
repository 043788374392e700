"""Dot product, vector norm, mean and RMS against numpy in extended precision."""
import warnings

import numpy as np
import pytest

import quarz_linalg as ql
from oracle import (DTYPES, DTYPE_IDS, assert_within, dtypes, gamma, gamma_dot, hi,
                    is_complex, random_array, real_dtype, ref_factor, unit_roundoff)

SIZES = [1, 2, 3, 4, 5, 7, 64, 1001]


@dtypes
@pytest.mark.parametrize("n", SIZES)
def test_dot_matches_conjugated_sum(dtype, n, rng):
    x, y = random_array(rng, n, dtype), random_array(rng, n, dtype)
    got = ql.dot(x, y)
    assert got.dtype == np.dtype(dtype)
    ref = np.sum(hi(x) * np.conj(hi(y)))
    bound = ref_factor(dtype) * gamma_dot(n, dtype) * np.sum(np.abs(hi(x)) * np.abs(hi(y)))
    assert_within(got, ref, bound, "dot")
    # numpy's own spelling of the same product: vdot conjugates its first argument.
    # (numpy's result carries its own double-precision bound).
    npbound = gamma_dot(n, np.complex128) * np.sum(np.abs(hi(x)) * np.abs(hi(y)))
    assert_within(got, np.vdot(y.astype(np.complex128), x.astype(np.complex128)),
                  bound + npbound, "vdot")


@pytest.mark.parametrize("dtype", [np.complex64, np.complex128], ids=["c", "z"])
def test_dot_conjugates_second_vector(dtype):
    assert ql.dot(np.array([1j], dtype), np.array([1j], dtype)) == 1
    assert ql.dot(np.array([1], dtype), np.array([1j], dtype)) == -1j


@dtypes
def test_dot_structured_integers_exact(dtype):
    # Small integers: every partial sum is exact in every type, so must be the result.
    x = np.arange(1, 41).astype(dtype)
    y = (np.arange(40) % 7 - 3).astype(dtype)
    if is_complex(dtype):
        x = x + 1j * np.arange(40)[::-1]
        y = y - 2j
    assert ql.dot(x, y) == np.vdot(y.astype(np.complex128), x.astype(np.complex128))


NORM_PS = [1, 2, 3, 0.5, -1, -2.5, np.inf, -np.inf, 7.25]


def _norm_bound(n, p, dtype):
    # moduli (gamma_3), powers, an n-term sum of positive terms, the 1/p-th root and the
    # final rounding: relative error gamma_{n+4} scaled by 1/|p| through the root.
    return (1 + 1 / abs(p)) * gamma(n + 4, dtype)


@dtypes
@pytest.mark.parametrize("p", NORM_PS)
@pytest.mark.parametrize("n", [1, 2, 5, 8, 333])
def test_norm_matches_numpy(dtype, p, n, rng):
    x = random_array(rng, n, dtype)
    x[np.abs(x) == 0] = 0.5          # negative p wants non-zero moduli here
    got = ql.norm(x, p)
    assert got.dtype == real_dtype(dtype)
    mod = np.abs(hi(x))
    if np.isinf(p):
        ref = mod.max() if p > 0 else mod.min()
        rtol = 2 * unit_roundoff(dtype) if is_complex(dtype) else 0   # one modulus
    else:
        ref = np.sum(mod ** p) ** (1 / np.longdouble(p))
        rtol = _norm_bound(n, p, dtype)
    assert_within(got, ref, rtol * ref, f"norm p={p}")
    # And against numpy's own norm of the same data in double precision.
    wide = np.complex128 if is_complex(dtype) else np.float64
    npref = np.linalg.norm(x.astype(wide), p)
    nprtol = 2 * unit_roundoff(wide) if np.isinf(p) else _norm_bound(n, p, wide)
    assert_within(got, npref, (rtol + nprtol) * npref, "np.linalg.norm")


@pytest.mark.parametrize("dtype", [np.float32, np.float64], ids=["s", "d"])
def test_norm_closed_forms(dtype):
    assert ql.norm(np.array([1, 2], dtype), -1) == pytest.approx(2 / 3, rel=4 * np.finfo(dtype).eps)
    x = np.array([3, -1, 2], dtype)
    assert ql.norm(x, -np.inf) == 1 and ql.norm(x, np.inf) == 3
    # A zero element with a negative finite p: infinity^(1/p) = 0.
    assert ql.norm(np.array([0, 2, 3], dtype), -2) == 0


def test_norm_two_is_not_rescaled():
    # No rescaling against overflow: the square of 1e200 overflows.
    assert ql.norm(np.array([1e200, 1.0]), 2) == np.inf


@dtypes
@pytest.mark.parametrize("n", SIZES)
def test_mean_matches_numpy(dtype, n, rng):
    x = random_array(rng, n, dtype)
    got = ql.mean(x)
    assert got.dtype == np.dtype(dtype)
    ref = np.sum(hi(x)) / n
    # n-1 additions and one division, relative to sum |x_i| / n.
    bound = ref_factor(dtype) * gamma(n + 1, dtype) * np.sum(np.abs(hi(x))) / n
    if is_complex(dtype):
        bound = bound * np.sqrt(2)
    assert_within(got, ref, bound, "mean")


def test_mean_overflows_without_rescaling():
    assert ql.mean(np.array([1e308, 1e308])) == np.inf


@dtypes
@pytest.mark.parametrize("n", SIZES)
def test_rms_matches_numpy(dtype, n, rng):
    x = random_array(rng, n, dtype)
    got = ql.rms(x)
    assert got.dtype == real_dtype(dtype)
    ref = np.sqrt(np.sum(np.abs(hi(x)) ** 2) / n)
    assert_within(got, ref, gamma(n + 4, dtype) * ref, "rms")


def test_rms_closed_forms():
    assert ql.rms(np.array([3.0, 4.0])) == pytest.approx(5 / np.sqrt(2), rel=4e-16)
    assert ql.rms(np.array([3 + 4j])) == 5
    assert ql.rms(np.array([3 + 4j], np.complex64)) == 5


# ---- statuses ------------------------------------------------------------------------

def _status(fn, *args):
    with pytest.raises(ql.QuarzError) as e:
        fn(*args)
    return e.value.status, e.value.name


@dtypes
def test_vector_errors(dtype):
    empty, three = np.zeros(0, dtype), np.ones(3, dtype)
    assert _status(ql.dot, three, empty) == (-20002, "StatusSizeMismatch")
    assert _status(ql.dot, empty, empty) == (-20003, "StatusEmptyInput")
    assert _status(ql.norm, empty, np.nan) == (-20003, "StatusEmptyInput")
    assert _status(ql.norm, three, np.nan) == (-20104, "StatusNormParamNaN")
    assert _status(ql.norm, three, 0) == (-20141, "StatusZeroParameter")
    assert _status(ql.mean, empty) == (-20003, "StatusEmptyInput")
    assert _status(ql.rms, empty) == (-20003, "StatusEmptyInput")


@dtypes
def test_scalar_outputs_are_nan_after_errors(dtype):
    # Unchecked calls return the status and the scalars as written by the library.
    L = ql.letter_of(dtype)
    empty = np.zeros(0, dtype)
    for name, args in [("DotProdH", (np.ones(3, dtype), empty)), ("VectorNormH", (empty, 2.0)),
                       ("MeanH", (empty,)), ("RMSH", (empty,))]:
        status, (value,) = ql.invoke(L + name, *args, check=False)
        assert status < 0
        assert np.isnan(value.real) and np.isnan(value.imag if np.iscomplexobj(value) else np.nan)
