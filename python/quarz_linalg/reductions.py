"""The reductions eigenvalue methods start from, as scipy.linalg.hessenberg and
matrix_balance."""
import numpy as np

from ._exports import OPTIONS, invoke
from .svd import _mat


def hessenberg(a, calc_q=False):
    """Hessenberg form as scipy.linalg.hessenberg: H, or (H, Q) with A = Q @ H @ Q^H. The
    same kernel reduction as scipy's (no balancing); a non-finite A raises QuarzError."""
    a, letter = _mat(a)
    h, q = invoke(letter + "HessenbergH", a, 1 if calc_q else 0)[1]
    return (h, q) if calc_q else h


def matrix_balance(A, permute=True, scale=True, separate=False):
    """Balancing as scipy.linalg.matrix_balance: (B, T) with B = inv(T) @ A @ T, or with
    separate=True (B, (scale, perm)), T[perm[j], j] = scale[j]. A non-finite A raises
    QuarzError."""
    a, letter = _mat(A)
    job = OPTIONS["Balance"][{(0, 0): "none", (1, 0): "permute", (0, 1): "scale", (1, 1): "both"}[bool(permute), bool(scale)]]
    b, s, perm = invoke(letter + "BalanceH", a, job)[1]
    if separate:
        return b, (s, perm)
    t = np.zeros((a.shape[0], a.shape[0]), s.dtype)
    t[perm, np.arange(a.shape[0])] = s
    return b, t
