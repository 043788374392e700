"""Orthonormal bases of the null space and the range, as scipy.linalg.null_space and
orth, from the library's SVD with the rank's cutoff."""
from ._exports import invoke
from .svd import _mat


def null_space(a, rcond=None):
    """Orthonormal basis of the null space of A (columns of an (N, K) array), as
    scipy.linalg.null_space. Singular values at or below rcond * s_max count as zero;
    rcond None: max(M, N) * eps, the cutoff of matrix_rank's default, so that
    matrix_rank(A) + K == N. Unlike scipy, a value exactly at the cutoff counts as zero,
    and a non-finite A or a NaN rcond raises QuarzError."""
    a, letter = _mat(a)
    return invoke(letter + "NullSpaceH", a, -1.0 if rcond is None else rcond)[1][0]


def orth(a, rcond=None):
    """Orthonormal basis of the range of A (columns of an (M, K) array, K the rank), as
    scipy.linalg.orth, with the cutoff of null_space."""
    a, letter = _mat(a)
    return invoke(letter + "RangeH", a, -1.0 if rcond is None else rcond)[1][0]
