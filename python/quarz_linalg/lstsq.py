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
    - a 1-D b is solved as the single column of a 2-D one;
    - a rank below min(M, N) also issues a QuarzWarning (status 20001); x stays valid;
    - refine=True solves through the SVD with one step of iterative refinement and the
      default cutoff (rcond is then not used). A b with more than max(M, N) / 4
      columns always takes the SVD solver (one pass, rcond's cutoff) instead of the
      divide-and-conquer driver;
    - s and rank come from the solver's own run (one kernel pass): rank is the count of
      singular values the solver kept (the divide-and-conquer driver reads a relative
      cutoff max(M, N) * rcond of 1 or more as eps);
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
    name = letter + "LSEqSVH"
    if b.ndim == 1 and b.shape[0] != m and a.size:
        check_status(-20002, name)  # the length of a 1-D b, as LSEqH reports it
    y = b if b.ndim == 2 else b.reshape(-1, 1)
    status, (x, s, rank) = invoke(name, a, y, tolerance, check=False)
    check_status(status, name)
    rank = int(rank)
    if b.ndim == 1:
        x = x.reshape(n)
    if rank == n < m:
        r = b - a @ x
        residuals = np.sum((r * r.conj()).real, axis=0).astype(real)
        residuals = np.atleast_1d(residuals)
    else:
        residuals = np.empty(0, real)
    return x, residuals, rank, s
