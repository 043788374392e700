"""numpy-style matrix functions: expm, sqrtm, logm, fractional_matrix_power (matrix_power
is in power.py)."""
import numpy as np

from ._exports import invoke
from ._host import letter_of


def _square(a):
    a = np.asarray(a)
    if a.ndim != 2:
        raise ValueError(f"expected a 2-D array, got shape {a.shape}")
    return a, letter_of(a.dtype)


def expm(a):
    """Matrix exponential as scipy.linalg.expm, in the input's element type. The Pade
    degree is chosen for a relative truncation error of 1e-8 of the scaled matrix (scipy
    aims at the unit roundoff), so in double only about eight digits are assured for a
    well conditioned exponential, although far more are usual. Only 2-D inputs (no
    stacks)."""
    a, letter = _square(a)
    return invoke(letter + "MtrxExpH", a)[1][0]


def sqrtm(a):
    """Principal square root as scipy.linalg.sqrtm, by the complex Schur method, but the
    result is always complex (complex64 for float32 and complex64 input, complex128
    otherwise), also when the root is real, and there is no disp or blocksize argument.
    Two or more eigenvalues at rounding distance from zero give a QuarzWarning (the root
    may not exist; the result is a candidate). Only 2-D inputs (no stacks)."""
    a, letter = _square(a)
    return invoke(letter + "MtrxSqrtH", a)[1][0]


def logm(a, real=False):
    """Principal logarithm as scipy.linalg.logm, always complex (complex64 for float32
    and complex64 input, complex128 otherwise), without scipy's disp argument. For real
    input, real=True first tries real arithmetic (the export's mode 1); when the matrix
    has no real logarithm that way (a complex eigenvalue pair, or an eigenvalue that is
    not positive) the complex logarithm comes with a QuarzWarning. A singular matrix
    raises QuarzError, except a diagonal one (log 0 = -inf). Complex input ignores real.
    Only 2-D inputs (no stacks)."""
    a, letter = _square(a)
    if letter in "sd":
        return invoke(letter + "MtrxLnH", a, 1 if real else 0)[1][0]
    return invoke(letter + "MtrxLnH", a)[1][0]



def fractional_matrix_power(a, t):
    """A^t for a real t as scipy.linalg.fractional_matrix_power, but always complex
    (complex64 for float32 and complex64 input, complex128 otherwise). Whole t is
    matrix_power (negative t through the pseudo-inverse), t = 0.5 is sqrtm, any other t the
    Schur-Pade method; a singular A raises QuarzError there (-20041), and t must lie in
    [-2^31, 2^31)."""
    a, letter = _square(a)
    return invoke(letter + "MtrxFracPowH", a, float(t))[1][0]
