"""numpy-style least squares: lstsq."""
import numpy as np

from ._exports import check_status, invoke
from ._host import letter_of


def _tolerance(rcond, m, n, real):
    """The export's tolerance for numpy's rcond: the export counts singular values at or
    below max(M, N) * tolerance * s_max as zero, numpy at or below rcond * s_max."""
    if rcond is None or rcond < 0:
        return -1.0                        # max(M, N) * eps
    if rcond == 0:
        return float(np.finfo(real).tiny)  # only exact zeros: the export's 0 selects a solver
    return rcond / max(m, n)


def lstsq(a, b, rcond=None, *, refine=False):
    """Least-squares solution of a @ x = b as numpy.linalg.lstsq: returns (x, residuals,
    rank, s) with numpy's shapes. x is the minimum-norm solution ((N,) for a 1-D b,
    (N, K) for a 2-D one); residuals the squared 2-norms of the columns of b - a @ x when
    rank == N < M, else empty; s the singular values of a, decreasing.

    rcond as numpy's: singular values at or below rcond * s_max count as zero; None gives
    numpy's default max(M, N) * eps. Differences from numpy:
    - a negative rcond means the default max(M, N) * eps (numpy: eps alone);
    - a rank below min(M, N) also issues a QuarzWarning (status 20001); x stays valid;
    - refine=True solves through the SVD with one step of iterative refinement and the
      default cutoff (rcond is then not used). A 2-D b with more than max(M, N) / 4
      columns always takes the SVD solver (one pass, rcond's cutoff) instead of the
      divide-and-conquer driver;
    - s and rank come from a separate values-only SVD of a; rank is min(M, N) unless the
      solver reported a deficiency, else the count of s above the cutoff;
    - only 2-D a and 1-D or 2-D b (no stacks); an empty a or b raises QuarzError
      (-20003, or -20002 for a 1-D b whose length is not M); b is converted to a's
      element type.
    """
    a = np.asarray(a)
    if a.ndim != 2:
        raise ValueError(f"expected a 2-D array, got shape {a.shape}")
    letter = letter_of(a.dtype)
    b = np.asarray(b, dtype=a.dtype)
    if b.ndim not in (1, 2):
        raise ValueError(f"b must be 1-D or 2-D, got shape {b.shape}")
    m, n = a.shape
    real = np.finfo(a.dtype).dtype
    tolerance = 0.0 if refine else _tolerance(rcond, m, n, real)
    name = letter + ("LSEqH" if b.ndim == 1 else "LSEqSetH")
    status, (x,) = invoke(name, a, b, tolerance, check=False)
    check_status(status, name)
    s = invoke(letter + "SVDH", a, 1, 0)[1][1]
    k = min(m, n)
    if status > 0:
        eps = np.finfo(real).eps
        relative = max(m, n) * (eps if tolerance <= 0 else tolerance)
        driver = not refine and (b.ndim == 1 or 4 * b.shape[1] <= max(m, n))
        if driver and relative >= 1:
            relative = eps                 # as LAPACK's gelsd reads such a bound
        rank = min(int(np.sum(s > relative * s[0])), k - 1)
    else:
        rank = k
    if rank == n < m:
        r = b - a @ x
        residuals = np.sum((r * r.conj()).real, axis=0).astype(real)
        residuals = np.atleast_1d(residuals)
    else:
        residuals = np.empty(0, real)
    return x, residuals, rank, s
