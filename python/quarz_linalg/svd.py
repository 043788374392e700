"""numpy-style functions over the SVD family: svd, and the measures built on it."""
import numpy as np

from ._exports import OPTIONS, invoke
from ._host import letter_of


def _mat(a):
    a = np.asarray(a)
    if a.ndim != 2:
        raise ValueError(f"expected a 2-D array, got shape {a.shape}")
    return a, letter_of(a.dtype)


def svd(a, full_matrices=True, compute_uv=True):
    """Singular value decomposition as numpy.linalg.svd: (U, S, Vh) with
    A = U @ diag(S) @ Vh, or S alone with compute_uv=False. S is real and decreasing.
    The export itself returns V (its columns the right singular vectors); Vh is its
    conjugate transpose. Only 2-D inputs (no stacks)."""
    a, letter = _mat(a)
    vectors = OPTIONS["SVDVectors"]["full" if full_matrices else "economy"]
    u, s, v = invoke(letter + "SVDH", a, 0 if compute_uv else 1, vectors)[1]
    return (u, s, v.conj().T) if compute_uv else s
