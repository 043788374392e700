"""Reciprocal condition estimate from a factorization, as LAPACK's gecon / pocon /
trcon (scipy.linalg.lapack exposes those routines; there is no higher-level scipy name)."""
import numpy as np

from ._exports import OPTIONS, invoke, option_value
from .svd import _mat


def rcond(a, ord=1, kind="general"):
    """Estimate of 1 / cond(A, ord) for ord 1 or inf, from an LU (kind general), a
    Cholesky factor of the lower triangle (positive_definite) or the named triangle
    (lower, upper): O(n^2) after the factorization, where cond is an SVD or an inverse.
    The estimate is at least the true value and usually within a small factor of it; an
    exactly singular matrix gives 0.0."""
    a, letter = _mat(a)
    if ord not in (1, np.inf):
        raise ValueError(f"unsupported norm order {ord!r}: use 1 or inf")
    norm = OPTIONS["MatrixNorm"]["one" if ord == 1 else "infinity"]
    return invoke(letter + "CondEstimateH", a, norm, option_value("LinEqMatrix", kind))[1][0]
