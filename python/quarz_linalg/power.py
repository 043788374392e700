"""Whole-number matrix powers."""
import operator

from ._exports import invoke
from .svd import _mat


def matrix_power(a, n):
    """A raised to the whole power n, as numpy.linalg.matrix_power for one square 2-D A:
    n = 0 gives the identity, positive n repeated squaring. Negative n raise the
    Moore-Penrose pseudo-inverse (default cutoff max(N, N) * s_max * eps) to -n, so a
    singular A gives a result where numpy raises LinAlgError. n must fit an int32."""
    a, letter = _mat(a)
    n = operator.index(n)
    if not -2**31 <= n < 2**31:
        raise OverflowError(f"matrix_power: the power {n} does not fit an int32")
    return invoke(letter + "MtrxPowH", a, n)[1][0]
