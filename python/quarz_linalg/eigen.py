"""Eigenproblems, shaped like numpy.linalg.eig / eigh and scipy.linalg.eig(a, b).

Differences from numpy: eigenvalues of general problems are always complex (also for
real input whose eigenvalues happen to be real); eigh reads only the lower triangle
(numpy's UPLO="L"). Generalized eigenvalues alpha / beta with beta = 0 come as the
kernel gives them: +-inf + 0j (or NaN when alpha is 0 too) for real input, NaN + NaN j
for complex input, where scipy gives inf.
"""
import numpy as np

from ._exports import OPTIONS, invoke
from ._host import letter_of
from ._stack import ndim, stacked
from .api import _mat




def _config(vectors):
    return OPTIONS["EigenOutput"]["vectors" if vectors else "values"]


def eig(a, b=None, vectors=True):
    """Eigenvalues w and right eigenvectors v (columns, unit norm) of A, A v = v diag(w);
    with b, of the pencil: A v = w B v. vectors=False returns w alone. w is complex even
    when every eigenvalue is real (numpy returns a real array then); the order is the
    kernel's, as numpy's. Stacks (..., N, N), and for the pencil stacks of A and B that
    broadcast, are taken one matrix at a time."""
    a, rank = ndim(a)
    if rank > 2 or (b is not None and np.ndim(b) > 2):
        if b is None:
            w, v = stacked(letter_of(a.dtype) + "EigenVH", (a, _config(vectors)), (2, None))
        else:
            w, v = stacked(letter_of(np.result_type(a, b)) + "GenEigenVH", (a, b, _config(vectors)),
                           (2, 2, None))
        return (w, v) if vectors else w
    a = _mat(a)
    if b is None:
        w, v = invoke(letter_of(a.dtype) + "EigenVH", a, _config(vectors))[1]
    else:
        b = _mat(b)
        w, v = invoke(letter_of(np.result_type(a, b)) + "GenEigenVH", a, b, _config(vectors))[1]
    return (w, v) if vectors else w


def eigvals(a, b=None):
    """Eigenvalues alone, always complex (see eig); stacks as eig."""
    return eig(a, b, vectors=False)


def eigh(a, vectors=True):
    """Ascending real eigenvalues w and orthonormal eigenvectors v of the symmetric
    (Hermitian) matrix whose lower triangle `a` holds (numpy's UPLO="L"; no UPLO
    argument). vectors=False returns w alone. Stacks (..., N, N) as numpy; eigenvector
    signs (phases) may differ from numpy's."""
    a, rank = ndim(a)
    letter = letter_of(a.dtype)
    name = letter + ("HermEigenVH" if letter in "cz" else "SymEigenVH")
    if rank > 2:
        w, v = stacked(name, (a, _config(vectors)), (2, None))
    else:
        w, v = invoke(name, _mat(a), _config(vectors))[1]
    return (w, v) if vectors else w


def eigvalsh(a):
    """Ascending real eigenvalues of the lower triangle (see eigh); stacks as eigh."""
    return eigh(a, vectors=False)
