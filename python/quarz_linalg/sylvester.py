"""Sylvester and Lyapunov equations, as scipy.linalg.solve_sylvester,
solve_continuous_lyapunov and solve_discrete_lyapunov (on the library's Schur forms)."""
import numpy as np

from ._exports import invoke
from ._host import letter_of


def _common(*arrays):
    arrays = [np.asarray(x) for x in arrays]
    if any(x.ndim != 2 for x in arrays):
        raise ValueError("expected 2-D arrays")
    dtype = np.result_type(*arrays)
    if not np.issubdtype(dtype, np.inexact):
        dtype = np.float64
    return [x.astype(dtype, copy=False) for x in arrays], letter_of(dtype)


def solve_sylvester(a, b, q):
    """X with A X + X B = Q, as scipy.linalg.solve_sylvester. Nearly cancelling
    eigenvalues of A and B give X with a QuarzWarning (status 20003), exactly cancelling
    ones raise QuarzError (-20041, the equation is singular) where scipy returns an
    inaccurate result."""
    (a, b, q), letter = _common(a, b, q)
    return invoke(letter + "SylvesterH", a, b, q)[1][0]


def solve_continuous_lyapunov(a, q):
    """X with A X + X A^H = Q, as scipy.linalg.solve_continuous_lyapunov; statuses as
    solve_sylvester."""
    (a, q), letter = _common(a, q)
    return invoke(letter + "ContLyapunovH", a, q)[1][0]


def solve_discrete_lyapunov(a, q, method=None):
    """X with A X A^H - X + Q = 0, as scipy.linalg.solve_discrete_lyapunov. Every method
    scipy names (None, "direct", "bilinear") runs the same Schur method (complex Schur
    form of A, the triangular equation column by column), which costs O(n^3) like
    "bilinear" and is as accurate as "direct". An eigenvalue times the conjugate of another
    within rounding of 1 gives X with a QuarzWarning (20003), exactly 1 raises QuarzError
    (-20041, the equation is singular)."""
    if method not in (None, "direct", "bilinear"):
        raise ValueError(f"Unknown solver {method}")
    (a, q), letter = _common(a, q)
    return invoke(letter + "DiscLyapunovH", a, q)[1][0]
