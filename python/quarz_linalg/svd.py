"""numpy-style functions over the SVD family: svd, and the measures built on it."""
import numpy as np

from ._exports import OPTIONS, invoke, option_value
from ._host import letter_of
from ._stack import ndim, stacked


def _mat(a):
    a = np.asarray(a)
    if a.ndim != 2:
        raise ValueError(f"expected a 2-D array, got shape {a.shape}")
    return a, letter_of(a.dtype)


def svd(a, full_matrices=True, compute_uv=True):
    """Singular value decomposition as numpy.linalg.svd: (U, S, Vh) with
    A = U @ diag(S) @ Vh, or S alone with compute_uv=False. S is real and decreasing.
    The export itself returns V (its columns the right singular vectors); Vh is its
    conjugate transpose. Stacks (..., M, N) as numpy."""
    a, rank = ndim(a)
    vectors = OPTIONS["SVDVectors"]["full" if full_matrices else "economy"]
    if rank > 2:
        u, s, v = stacked(letter_of(a.dtype) + "SVDH", (a, 0 if compute_uv else 1, vectors), (2, None, None))
    else:
        a, letter = _mat(a)
        u, s, v = invoke(letter + "SVDH", a, 0 if compute_uv else 1, vectors)[1]
    return (u, s, v.conj().swapaxes(-1, -2)) if compute_uv else s


_NORM_KINDS = {2: "two", 1: "one", "fro": "frobenius", np.inf: "infinity"}


def _norm_kind(ord, default):
    ord = default if ord is None else ord
    try:
        return OPTIONS["MatrixNorm"][_NORM_KINDS[ord]]
    except (KeyError, TypeError):
        raise ValueError(f"unsupported norm order {ord!r}: use 2, 1, 'fro' or inf") from None


def matrix_norm(a, ord="fro"):
    """Matrix norm as numpy.linalg.matrix_norm for ord 2 (largest singular value), 1
    (largest column sum of moduli), 'fro' and inf (largest row sum); the negative orders
    and 'nuc' are not offered. The Frobenius norm is summed without scaling, so it
    overflows to inf where numpy's would not. Stacks (..., M, N) give one norm per matrix."""
    a, rank = ndim(a)
    if rank > 2:
        return stacked(letter_of(a.dtype) + "MtrxNormH", (a, _norm_kind(ord, "fro")), (2, None))[0]
    a, letter = _mat(a)
    return invoke(letter + "MtrxNormH", a, _norm_kind(ord, "fro"))[1][0]


def cond(a, p=None):
    """Condition number as numpy.linalg.cond for p None or 2 (s_max / s_min, any shape),
    1, 'fro' and inf (norm(A) * norm(inv(A)), square A). A singular matrix gives inf
    without a warning or an error. Stacks (..., M, N) as numpy."""
    a, rank = ndim(a)
    if rank > 2:
        return stacked(letter_of(a.dtype) + "CondNumberH", (a, _norm_kind(p, 2)), (2, None))[0]
    a, letter = _mat(a)
    return invoke(letter + "CondNumberH", a, _norm_kind(p, 2))[1][0]


def matrix_rank(a, tol=None):
    """Rank as numpy.linalg.matrix_rank: the number of singular values above tol, by
    default max(M, N) * s_max * eps of the element type. Stacks (..., M, N) as numpy; no
    hermitian or rtol arguments; the result is an int32."""
    a, rank = ndim(a)
    if rank > 2:
        return stacked(letter_of(a.dtype) + "RankH", (a, -1.0 if tol is None else tol), (2, None))[0]
    a, letter = _mat(a)
    return invoke(letter + "RankH", a, -1.0 if tol is None else tol)[1][0]


def inv(a, kind="general"):
    """Inverse as numpy.linalg.inv, by kind: a name of OPTIONS["LinEqMatrix"] or its
    number. general: LU. positive_definite: Cholesky, reads only the lower triangle and
    returns the full Hermitian inverse. lower / upper: only that triangle is inverted,
    the other one is returned as it was given. A singular matrix raises QuarzError (with
    its .index in a stack) where numpy raises LinAlgError. Stacks (..., N, N) as numpy."""
    a, rank = ndim(a)
    if rank > 2:
        return stacked(letter_of(a.dtype) + "InvMtrxH", (a, option_value("LinEqMatrix", kind)), (2, None))[0]
    a, letter = _mat(a)
    return invoke(letter + "InvMtrxH", a, option_value("LinEqMatrix", kind))[1][0]


def pinv(a, tol=None):
    """Moore-Penrose pseudo-inverse from the thin SVD. Unlike numpy.linalg.pinv's rcond
    (relative to the largest singular value) tol is absolute: singular values at or below
    it count as zero. The default, max(M, N) * s_max * eps, is numpy's default cutoff.
    Stacks (..., M, N) as numpy; the tolerance is the same for every matrix."""
    a, rank = ndim(a)
    if rank > 2:
        return stacked(letter_of(a.dtype) + "PseudoInvMtrxH", (a, -1.0 if tol is None else tol), (2, None))[0]
    a, letter = _mat(a)
    return invoke(letter + "PseudoInvMtrxH", a, -1.0 if tol is None else tol)[1][0]
