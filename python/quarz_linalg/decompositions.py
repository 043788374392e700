"""numpy-style functions over the QR, Schur and QZ decompositions, shaped like their
scipy.linalg namesakes: qr, schur, qz, ordqz."""
import numpy as np

from ._exports import OPTIONS, invoke, option_value
from ._host import letter_of


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
    non-increasing."""
    a, letter = _mat(a)
    if mode not in _QR_MODES:
        raise ValueError(f"mode must be one of {', '.join(_QR_MODES)}")
    size = OPTIONS["QRSize"][_QR_MODES[mode]]
    q, r, _, piv = invoke(letter + "QRH", a, 1 if pivoting else 0, size)[1]
    out = (r,) if mode == "r" else (q, r)
    return out + (piv,) if pivoting else out
