"""Shared oracle helpers: element types, rounding-error bounds, high-precision references
and random inputs."""
import numpy as np
import pytest

import quarz_linalg as ql

DTYPES = [np.float32, np.float64, np.complex64, np.complex128]
DTYPE_IDS = ["s", "d", "c", "z"]
REAL_DTYPES = [np.float32, np.float64]
COMPLEX_DTYPES = [np.complex64, np.complex128]

dtypes = pytest.mark.parametrize("dtype", DTYPES, ids=DTYPE_IDS)


def letter(dtype):
    return ql.letter_of(dtype)


def is_complex(dtype):
    return np.dtype(dtype).kind == "c"


def real_dtype(dtype):
    return np.finfo(dtype).dtype


def eps(dtype):
    """Machine epsilon of the element's real type (2^-23 for s/c, 2^-52 for d/z)."""
    return float(np.finfo(dtype).eps)


def unit_roundoff(dtype):
    return eps(dtype) / 2


def gamma(k, dtype):
    """Higham's gamma_k = k u / (1 - k u): the bound of k successive roundings."""
    ku = max(k, 1) * unit_roundoff(dtype)
    assert ku < 1
    return ku / (1 - ku)


def gamma_dot(k, dtype):
    """Componentwise bound of an inner product of length k relative to sum |x_i||y_i|:
    gamma_k for real data; sqrt(2) gamma_{k+2} for complex (complex multiply)."""
    if is_complex(dtype):
        return np.sqrt(2) * gamma(k + 2, dtype)
    return gamma(k, dtype)


def gamma_mul(dtype):
    """Relative bound of one multiplication."""
    return np.sqrt(2) * gamma(2, dtype) if is_complex(dtype) else unit_roundoff(dtype)


# Extended precision for references: long double carries 64 mantissa bits on x86-64.
_HI_EPS = float(np.finfo(np.longdouble).eps)


def hi(a):
    """The same values in extended precision, for references computed with ~no error."""
    a = np.asarray(a)
    return a.astype(np.clongdouble if a.dtype.kind == "c" else np.longdouble)


def ref_factor(dtype):
    """1 when the extended-precision reference is far more accurate than the element
    type, else 2 (reference and result may each carry the full error bound)."""
    return 1.0 if _HI_EPS < eps(dtype) / 1000 else 2.0


def random_array(rng, shape, dtype, scale=1.0):
    """Uniform in [-scale, scale] (both parts for complex)."""
    a = rng.uniform(-scale, scale, size=shape)
    if is_complex(dtype):
        a = a + 1j * rng.uniform(-scale, scale, size=shape)
    return a.astype(dtype)


def random_hpd(rng, n, dtype, cond=None):
    """Symmetric / Hermitian positive definite matrix, exactly representable in dtype
    and exactly symmetric / Hermitian. With cond: eigenvalues spread geometrically
    from 1 to 1/cond."""
    b = random_array(rng, (n, n), np.complex128 if is_complex(dtype) else np.float64)
    if cond is None:
        a = b @ b.conj().T + n * np.eye(n)
    else:
        q, _ = np.linalg.qr(b)
        ev = np.geomspace(1.0, 1.0 / cond, n)
        a = (q * ev) @ q.conj().T
    a = a.astype(dtype)
    lower = np.tril(a, -1)
    diag = np.diag(np.diag(a).real).astype(dtype)
    return lower + diag + lower.conj().T


def well_conditioned(rng, n, dtype):
    """A random square matrix with a dominant diagonal (cond(A) small)."""
    return (random_array(rng, (n, n), dtype) + 2 * n * np.eye(n)).astype(dtype)


def needs(op):
    """Skips while the operation's exports are missing from the loaded library."""
    return pytest.mark.skipif(not ql.available("d" + op),
                              reason=f"{op} not exported by the loaded library")


def assert_within(actual, expected, bound, what=""):
    """|actual - expected| <= bound elementwise (all in extended precision)."""
    actual, expected = hi(actual), hi(expected)
    bound = np.broadcast_to(np.asarray(bound, dtype=np.longdouble), np.shape(expected))
    assert np.shape(actual) == np.shape(expected), f"{what}: shape {np.shape(actual)} != {np.shape(expected)}"
    err = np.abs(actual - expected)
    bad = ~(err <= bound)
    if np.any(bad):
        idx = np.argwhere(bad)[:5] if np.ndim(bad) else []
        ratio = float(np.max(np.where(bound > 0, err / np.where(bound > 0, bound, 1), np.inf)))
        raise AssertionError(f"{what}: error exceeds bound (max err/bound {ratio:.3g}) at {idx.tolist() if len(idx) else 'scalar'}")
