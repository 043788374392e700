"""Element types, rounding-error bounds, extended-precision references and inputs."""
import numpy as np
import pytest

DTYPES = [np.float32, np.float64, np.complex64, np.complex128]
dtypes = pytest.mark.parametrize("dtype", DTYPES, ids=list("sdcz"))


def is_complex(dtype):
    return np.dtype(dtype).kind == "c"


def wide(dtype):
    """The double-precision type of the same kind, for numpy/scipy references."""
    return np.complex128 if is_complex(dtype) else np.float64


def gamma(k, dtype):
    """Higham's gamma_k = k u / (1 - k u), the bound of k successive roundings in the
    element's precision; for complex data sqrt(2) gamma_{k+2}, which also covers the
    complex multiplications of an inner product."""
    k = max(k, 1) + (2 if is_complex(dtype) else 0)
    ku = k * float(np.finfo(dtype).eps) / 2
    return ku / (1 - ku) * (np.sqrt(2) if is_complex(dtype) else 1)


def hi(a):
    """The same values in extended precision (64-bit mantissa on x86-64): references
    computed from them carry errors far below those of any element type under test."""
    a = np.asarray(a)
    return a.astype(np.clongdouble if a.dtype.kind == "c" else np.longdouble)


def random_array(rng, shape, dtype, scale=1.0):
    """Uniform in [-scale, scale] (both parts for complex)."""
    a = rng.uniform(-scale, scale, size=shape)
    if is_complex(dtype):
        a = a + 1j * rng.uniform(-scale, scale, size=shape)
    return a.astype(dtype)


def random_hpd(rng, n, dtype, cond=1e2):
    """Exactly symmetric / Hermitian positive definite, eigenvalues from 1 to 1/cond."""
    q, _ = np.linalg.qr(random_array(rng, (n, n), wide(dtype)))
    a = ((q * np.geomspace(1.0, 1.0 / cond, n)) @ q.conj().T).astype(dtype)
    lower = np.tril(a, -1)
    return lower + np.diag(np.diag(a).real).astype(dtype) + lower.conj().T


def eps(dtype):
    return float(np.finfo(dtype).eps)


def with_singular_values(rng, m, n, s, dtype):
    """Q1 diag(s) Q2^H with random unitary factors: known singular values, any rank."""
    q1, _ = np.linalg.qr(random_array(rng, (m, m), wide(dtype)))
    q2, _ = np.linalg.qr(random_array(rng, (n, n), wide(dtype)))
    k = min(m, n)
    return ((q1[:, :k] * s) @ q2[:, :k].conj().T).astype(dtype)


def to_mp(a):
    import mpmath
    return mpmath.matrix([[mpmath.mpc(complex(x)) for x in row] for row in a])


def from_mp(m):
    return np.array([[complex(m[i, j]) for j in range(m.cols)] for i in range(m.rows)])


def norm2(a):
    return np.linalg.norm(np.asarray(a, dtype=np.complex128), 2)


def assert_within(actual, expected, bound, what=""):
    """|actual - expected| <= bound elementwise, in extended precision."""
    actual, expected = hi(actual), hi(expected)
    assert actual.shape == expected.shape, f"{what}: shape {actual.shape} != {expected.shape}"
    err, bound = np.abs(actual - expected), np.broadcast_to(hi(bound), expected.shape)
    bad = ~(err <= bound)
    if np.any(bad):
        ratio = np.max(err[bad] / np.where(bound[bad] > 0, bound[bad], np.finfo(float).tiny))
        raise AssertionError(f"{what}: error exceeds bound by {float(ratio):.3g} at "
                             f"{np.argwhere(bad)[:5].tolist()}")
