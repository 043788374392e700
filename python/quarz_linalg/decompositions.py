"""numpy-style functions over the QR, Schur and QZ decompositions, shaped like their
scipy.linalg namesakes: qr, schur, qz, ordqz."""
import numpy as np

from ._exports import OPTIONS, invoke, option_value
from ._host import letter_of
from ._stack import ndim, stacked


def _mat(a):
    a = np.asarray(a)
    if a.ndim != 2:
        raise ValueError(f"expected a 2-D array, got shape {a.shape}")
    return a, letter_of(a.dtype)


_QR_MODES = {"full": "full", "economic": "economy", "r": "r_only"}


def qr(a, mode="full", pivoting=False):
    """QR factorization as scipy.linalg.qr: mode "full" (Q m x m, R m x n), "economic"
    (Q m x k, R k x n) or "r" (R alone, k x n; returned as the 1-tuple (R,)). With
    pivoting=True a last element P (int32) is added: A[:, P] = Q @ R, with |diag(R)|
    non-increasing. Stacks (..., M, N) are accepted (numpy.linalg.qr's stacking with
    scipy's modes); Q and R agree with scipy's up to the signs (phases) of R's rows."""
    a, rank = ndim(a)
    if mode not in _QR_MODES:
        raise ValueError(f"mode must be one of {', '.join(_QR_MODES)}")
    size = OPTIONS["QRSize"][_QR_MODES[mode]]
    if rank > 2:
        q, r, _, piv = stacked(letter_of(a.dtype) + "QRH", (a, 1 if pivoting else 0, size), (2, None, None))
    else:
        a, letter = _mat(a)
        q, r, _, piv = invoke(letter + "QRH", a, 1 if pivoting else 0, size)[1]
    out = (r,) if mode == "r" else (q, r)
    return out + (piv,) if pivoting else out


def _complex_input(a, letter, output):
    if output not in ("real", "complex"):
        raise ValueError('output must be "real" or "complex"')
    if output == "complex" and letter in "sd":
        return a.astype(np.complex64 if letter == "s" else np.complex128), "c" if letter == "s" else "z"
    return a, letter


def schur(a, output="real", sort=None, values=False):
    """Schur decomposition as scipy.linalg.schur: (T, Z) with A = Z @ T @ Z^H, T upper
    quasi-triangular (output "real" on real data) or triangular (output "complex", which
    computes in complex arithmetic). sort: None (the kernel's order) or a name of
    OPTIONS["SchurOrdering"] (real_increasing, real_decreasing, modulus_increasing,
    modulus_decreasing: a stable sort of the diagonal blocks by real part or squared
    modulus). values=True adds the eigenvalues in the order of T's diagonal."""
    a, letter = _complex_input(*_mat(a), output)
    ordering = option_value("SchurOrdering", "none" if sort is None else sort)
    t, z, w = invoke(letter + "SchurH", a, 1, ordering)[1]
    return (t, z, w) if values else (t, z)


def _qz(a, b, output, sort, vectors=True):
    common = np.result_type(_mat(a)[0], _mat(b)[0])
    a, letter = _complex_input(np.asarray(a, dtype=common), letter_of(common), output)
    b = np.asarray(b, dtype=a.dtype)
    ordering = option_value("SchurOrdering", "none" if sort is None else sort)
    return invoke(letter + "QZH", a, b, 1 if vectors else 0, ordering)[1]


def qz(a, b, output="real"):
    """QZ decomposition as scipy.linalg.qz: (AA, BB, Q, Z) with A = Q @ AA @ Z^H and
    B = Q @ BB @ Z^H; AA quasi-triangular (output "real" on real data) or triangular,
    BB triangular. A 0/0 eigenvalue pair (singular pencil) issues a QuarzWarning
    (WarnZeroPencil) and the factors are still returned."""
    aa, bb, q, z, _, _ = _qz(a, b, output, None)
    return aa, bb, q, z


def ordqz(a, b, sort="real_increasing", output="real"):
    """QZ decomposition with sorted generalized eigenvalues, returned as scipy.linalg.ordqz
    does: (AA, BB, alpha, beta, Q, Z). sort: a name of OPTIONS["SchurOrdering"] (a stable
    sort of the diagonal blocks by the real part or squared modulus of alpha/beta; an
    infinite eigenvalue counts as +infinity, 0/0 sorts last), not scipy's selection."""
    aa, bb, q, z, alpha, beta = _qz(a, b, output, sort)
    return aa, bb, alpha, beta, q, z
