"""Matrix functions against 50-digit mpmath references of the very input passed (after its
rounding to the element type). Each relative error (Frobenius) is bounded by the unit
roundoff u of the element type, the order n and the relative condition number kappa of
the function at that input: the 2-norm of its Frechet derivative's Kronecker form times
||A|| / ||f(A)||, computed here in double from the reference. 10 n kappa u for sqrtm and
logm; 10 kappa max(1e-8, n u) for expm, whose Pade degree aims at a relative truncation
error of 1e-8. Error and condition are taken in balanced coordinates (D^-1 A D with
scipy's diagonal balancing D, under which f commutes): the functions balance before they
approximate, so their backward error is small relative to the balanced matrix, and a badly
scaled input such as Moler's then keeps a condition number that makes the bound mean
something (about 1e2 balanced, 1e17 as given). Powers have their own 50-digit table (test_matrix_power.py); here they
only close the round trips. Fractional powers A^p ("pow<p>") against exp(p log A) at 50
digits, with the bound of sqrtm and logm."""
import functools
import warnings

import mpmath as mp
import numpy as np
import pytest
import scipy.linalg as sl

import quarz_linalg as ql
from oracle import dtypes, from_mp, is_complex, random_array, to_mp, wide

mp.mp.dps = 50
# Moler's badly scaled 3 x 3 example; its eigenvalues are about -63.4, -6.2 and -0.11, so
# the logarithm and the square root take its negative.
MOLER = np.array([[0, 1e-8, 0], [-(2e10 + 4e8 / 6), -3, 2e10], [200 / 3, 0, -200 / 3]])
KINDS = ["random", "normal", "nonnormal", "moler", "jordan", "nearly_singular"]


def u(dtype):
    return float(np.finfo(dtype).eps) / 2


def make(kind, dtype):
    """The input of a kind in the element type: eigenvalues in the open right half-plane
    (principal logarithm and root defined and smooth), complex ones for c and z."""
    rng = np.random.default_rng(sum(map(ord, kind)))
    n, cplx = 5, is_complex(dtype)

    def rand(*shape):
        return rng.standard_normal(shape) + (1j * rng.standard_normal(shape) if cplx else 0)

    q, _ = np.linalg.qr(rand(n, n))
    eig = np.linspace(0.5, 4, n) + (1j * np.linspace(-1, 1, n) if cplx else 0)
    a = {"random": lambda: rand(n, n) + 4 * np.eye(n),
         "normal": lambda: (q * eig) @ q.conj().T,
         "nonnormal": lambda: q @ (np.diag(eig) + 3 * np.triu(rand(n, n), 1)) @ q.conj().T,
         "moler": lambda: -MOLER,
         "jordan": lambda: np.diag(np.full(4, 2 + (1j if cplx else 0))) + np.diag(np.ones(3), 1),
         "nearly_singular": lambda: (lambda v: v @ np.diag([1e-4, 1, 2, 3]) @ np.linalg.inv(v))(rand(4, 4) + 2 * np.eye(4)),
         }[kind]()
    return np.asarray(a).astype(dtype)


@functools.lru_cache(maxsize=None)
def reference(fname, kind, dtype):
    """(input in double, f(input) from 50 digits, rounded to complex128)."""
    a = make(kind, dtype)
    power = lambda m: mp.expm(mp.mpf(fname[3:]) * mp.logm(m))
    x = {"expm": mp.expm, "sqrtm": mp.sqrtm, "logm": mp.logm}.get(fname, power)(to_mp(a))
    return a.astype(wide(dtype)), from_mp(x)


def kron_form(frechet, n):
    """The n^2 x n^2 matrix K with vec(L(E)) = K vec(E), vec stacking columns."""
    k = np.empty((n * n, n * n), complex)
    for j in range(n * n):
        e = np.zeros(n * n, complex)
        e[j] = 1
        k[:, j] = frechet(e.reshape(n, n, order="F")).reshape(-1, order="F")
    return k


def expm_kron(a):
    n = len(a)
    z = np.zeros((n, n))
    return kron_form(lambda e: sl.expm(np.block([[a, e], [z, a]]))[:n, n:], n)


def kappa(fname, a, x):
    """Relative condition number of f at a (Frobenius), x = f(a)."""
    a, x, eye = a.astype(complex), x.astype(complex), np.eye(len(a))
    # A^p = exp(p log A): the chain rule through the exponential's and logarithm's forms.
    power = lambda: (lambda lg: float(fname[3:]) * expm_kron(float(fname[3:]) * lg) @ np.linalg.inv(expm_kron(lg)))(
        sl.logm(a))
    k = {"expm": lambda: expm_kron(a),
         "sqrtm": lambda: np.linalg.inv(np.kron(eye, x) + np.kron(x.T, eye)),
         "logm": lambda: np.linalg.inv(expm_kron(x))}.get(fname, power)()
    return np.linalg.norm(k, 2) * np.linalg.norm(a) / np.linalg.norm(x)


def run(fname, a):
    with warnings.catch_warnings():
        warnings.simplefilter("error", ql.QuarzWarning)   # none expected on these inputs
        if fname.startswith("pow"):
            return ql.fractional_matrix_power(a, float(fname[3:]))
        return getattr(ql, fname)(a)


def rel_err(x, ref):
    return np.linalg.norm(x.astype(complex) - ref) / np.linalg.norm(ref)


def bound(fname, dtype, n, k):
    return 10 * k * (max(1e-8, n * u(dtype)) if fname == "expm" else n * u(dtype))


def within_bound(fname, dtype, a, x, ref):
    """Whether x = f(a) is within the bound of ref, in a's balanced coordinates."""
    s = sl.matrix_balance(a, permute=False, separate=True)[1][0]
    bal = lambda m: m / s[:, None] * s[None, :]
    k = kappa(fname, bal(a), bal(ref))
    return rel_err(bal(x), bal(ref)) <= bound(fname, dtype, len(a), k)


# Faults: a wrong Pade coefficient or sign, a squaring too few or too many, the balancing
# undone the wrong way round (D F D^-1 for D^-1 F D), Parlett's sum with the wrong sign,
# the triangular root or logarithm reading the strict lower part, the inverse scaling and
# squaring series or its 2^k factor off, the diagonal not restored; for A^p a wrong
# continued-fraction coefficient, too few roots for the Pade degree, a squaring missed, the
# exact bands at the wrong stage's power (close and equal eigenvalues: the Jordan block),
# the whole part of a negative p off by one or not inverted.
@dtypes
@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("fname", ["expm", "sqrtm", "logm", "pow0.3", "pow-1.7"])
def test_against_50_digits(dtype, kind, fname):
    a, ref = reference(fname, kind, dtype)
    x = run(fname, a.astype(dtype))
    assert x.dtype == (dtype if fname == "expm" else np.complex64 if dtype in (np.float32, np.complex64)
                       else np.complex128)
    assert within_bound(fname, dtype, a, x, ref)


# Faults: the real-arithmetic logarithm of mode 1 with Q^T on the wrong side or a lost
# balancing; a false warning on a matrix that has a real logarithm.
@dtypes
@pytest.mark.parametrize("kind", ["normal", "nonnormal", "jordan"])
def test_real_logarithm(dtype, kind):
    if is_complex(dtype):
        pytest.skip("mode 1 is for real input")
    a, ref = reference("logm", kind, dtype)
    status, (x,) = ql.invoke(ql.letter_of(dtype) + "MtrxLnH", a.astype(dtype), 1)
    assert status == 0 and not np.any(x.imag)
    assert within_bound("logm", dtype, a, x, ref)


# Round trips on a well-conditioned normal matrix, bounded through the condition numbers
# of both functions (the root's residual by Higham's alpha = ||X||^2 / ||A||); the root's
# residual again at an order spanning several of the triangular root's blocks (a block
# product over the wrong rows or columns, blocks solved out of order), and there the
# logarithm's commutation with its argument (the same faults in the blocked Parlett
# recurrence leave A L - L A of the order of the dropped terms).
@dtypes
def test_round_trips(dtype, rng):
    big = random_array(rng, (130, 130), dtype)
    x = ql.sqrtm(big).astype(complex)
    assert rel_err(x @ x, big) <= 10 * 130 * u(dtype) * np.linalg.norm(x) ** 2 / np.linalg.norm(big)
    shifted = big + 8 * np.eye(130, dtype=dtype)   # eigenvalues right of 1
    lg, c = ql.logm(shifted).astype(complex), shifted.astype(complex)
    assert np.linalg.norm(c @ lg - lg @ c) <= 10 * 130 * u(dtype) * np.linalg.norm(c) * np.linalg.norm(lg)
    a, lg = reference("logm", "normal", dtype)
    n, e = len(a), u(dtype)
    ke, kl = kappa("expm", lg, sl.expm(lg)), kappa("logm", a, lg)
    back = ql.expm(ql.logm(a.astype(dtype)))
    assert rel_err(back, a) <= 10 * ke * (max(1e-8, n * e) + n * e * kl)
    x = ql.sqrtm(a.astype(dtype)).astype(complex)
    assert rel_err(x @ x, a) <= 10 * n * e * np.linalg.norm(x) ** 2 / np.linalg.norm(a)
    for p in (2, 3, 7):
        prod = ql.matrix_power(a.astype(dtype), -p).astype(complex) @ ql.matrix_power(a.astype(dtype), p)
        assert np.linalg.norm(prod - np.eye(n)) <= 10 * n * e * p * np.linalg.cond(a) ** p


def status_of(export, *args):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", ql.QuarzWarning)
        return ql.invoke(export, *args, check=False)


# Faults: the complex logarithm returned without its warning, or the warning for a matrix
# with a real logarithm; the branch of log(-1); a zero root's warning lost, or a NaN root
# returned with status 0.
@dtypes
def test_documented_cases(dtype):
    l, e = ql.letter_of(dtype), u(dtype)
    real = not is_complex(dtype)
    if real:
        rot = np.array([[0, 1], [-1, 0]], dtype)
        status, (x,) = status_of(l + "MtrxLnH", rot, 1)
        ref = np.array([[0, np.pi / 2], [-np.pi / 2, 0]])
        assert status == 359501 and within_bound("logm", dtype, rot, x, ref)
        for mode, want in ((1, 359501), (0, 0)):
            status, (x,) = status_of(l + "MtrxLnH", np.diag([-1, 1]).astype(dtype), mode)
            assert status == want and np.array_equal(x, np.diag([np.pi * 1j, 0]).astype(x.dtype))
    assert np.array_equal(ql.logm(np.diag([0, 1]).astype(dtype)), np.diag([-np.inf, 0]))
    status, (x,) = status_of(l + "MtrxSqrtH", np.zeros((2, 2), dtype))
    assert status == 20006 and not np.any(x)
    # [[0, 1], [0, 0]] has no square root: 1 / (0 + 0) in the recurrence, under the warning.
    status, (x,) = status_of(l + "MtrxSqrtH", np.array([[0, 1], [0, 0]], dtype))
    assert status == 20006 and np.isnan(x[0, 1])
    status, (x,) = status_of(l + "MtrxSqrtH", np.array([[0, 1], [0, 4]], dtype))
    assert status == 0 and np.allclose(x, [[0, 0.5], [0, 2]], rtol=0, atol=10 * e)
    assert np.array_equal(ql.sqrtm(np.array([[-4]], dtype)), [[2j]])
    assert np.array_equal(ql.expm(np.zeros((3, 3), dtype)), np.eye(3))
    assert np.allclose(ql.expm(np.array([[0, 1], [0, 0]], dtype)), [[1, 1], [0, 1]], rtol=0, atol=10 * e)


# Faults: p = 1/2 or a whole p not taken by the square root's or the whole power's code;
# the Schur-Pade path disagreeing with them (A^(1/4) squared against the root, A^2.5
# against A^2 times the root); a real input's negative eigenvalue given the wrong branch
# (scipy's principal power of Moler's matrix, whose eigenvalues are negative).
@dtypes
def test_fractional_power_paths(dtype):
    a, _ = reference("sqrtm", "normal", dtype)
    low, n, e = a.astype(dtype), len(a), u(dtype)
    c = np.linalg.cond(a)
    assert np.array_equal(ql.fractional_matrix_power(low, 0.5), ql.sqrtm(low))
    root = ql.sqrtm(low).astype(complex)
    for p in (3, -2):
        whole = ql.matrix_power(low, p).astype(complex)
        assert rel_err(ql.fractional_matrix_power(low, p), whole) <= 10 * n * e
    quarter = ql.fractional_matrix_power(low, 0.25).astype(complex)
    assert rel_err(quarter @ quarter, root) <= 100 * n * e * c
    two_and_half = ql.fractional_matrix_power(low, 2.5)
    assert rel_err(two_and_half, ql.matrix_power(low, 2).astype(complex) @ root) <= 100 * n * e * c ** 2
    ref = sl.fractional_matrix_power(a, 0.3)
    assert within_bound("pow0.3", dtype, a, ql.fractional_matrix_power(low, 0.3), ref)
    if is_complex(dtype):
        return  # a complex input's eigenvalues on the cut take the side rounding puts them
    # Balanced, scipy agrees only to about 1e-6 here, so it bounds the branch (a wrong one
    # is off by O(1)), and (A^0.3)^10 = A^3 the accuracy.
    d = sl.matrix_balance(MOLER, permute=False, separate=True)[1][0]
    bal = lambda m: m / d[:, None] * d[None, :]
    x = ql.fractional_matrix_power(MOLER.astype(dtype), 0.3).astype(complex)
    ref = sl.fractional_matrix_power(MOLER, 0.3)
    assert rel_err(bal(x), bal(ref)) <= 1e-3
    cube = bal(np.linalg.matrix_power(MOLER.astype(complex), 3))
    assert rel_err(bal(np.linalg.matrix_power(x, 10)), cube) <= 100 * 3 * e * kappa("pow0.3", bal(MOLER), bal(ref))
