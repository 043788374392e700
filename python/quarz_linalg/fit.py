"""numpy-style straight-line fit over sLinearFitH / dLinearFitH."""
import ctypes
from collections import namedtuple

import numpy as np

from ._exports import check_status, option_value, raw
from ._host import HostArray, letter_of, type_code

LinearFit = namedtuple("LinearFit", "slope intercept fit residue iterations")


def linear_fit(x, y, w=None, method="least_squares", tol=0.0, tol2=0.0, max_iter=100):
    """Fits the line f(x) = slope * x + intercept to the points (x[i], y[i]).

    Methods (option names of the LinearFitMethod table, or their numbers 0, 1, 2):
      "least_squares"   weighted least squares in closed form;
      "least_absolute"  least absolute residual: passes that turn the line about a point
                        and take the weighted median of the slope candidates, starting
                        from the least-squares line;
      "bisquare"        robust fit: iteratively reweighted least squares with bisquare
                        weights on leverage-adjusted residuals (tuning 4.685, scale from
                        the median absolute deviation).
    w: weights, one per point (None: unweighted); |w[i]| / max |w| is used and all zero
    counts as unweighted; at least two must be non-zero.
    tol: relative convergence tolerance of the iterative methods, tol2: the relative
    decrease of the sum of absolute residuals that ends "least_absolute"; values <= 0
    take the defaults (1e-12 and 1e-4 for "least_absolute", 1e-4 for "bisquare").
    max_iter: the most iterations of the iterative methods (at least one is made).

    Computes in float32 when the inputs are float32, else in float64 (no complex data).
    Returns LinearFit(slope, intercept, fit, residue, iterations): fit = slope * x +
    intercept; residue the mean weighted squared residual ("least_absolute": the mean
    weighted absolute residual); iterations made (0 for "least_squares" and for two
    points). Errors (fewer than two points, non-finite data, ...) raise QuarzError.
    """
    x, y = np.asarray(x), np.asarray(y)
    arrays = [x, y] + ([] if w is None else [np.asarray(w)])
    if any(a.ndim != 1 for a in arrays):
        raise ValueError("x, y and w must be 1-D")
    letter = letter_of(np.result_type(*arrays))
    if letter not in "sd":
        raise TypeError("the linear fit takes real data")
    code, real = type_code(letter), ctypes.c_float if letter == "s" else ctypes.c_double
    name = letter + "LinearFitH"
    slope, intercept, residue = real(), real(), real()
    iterations = ctypes.c_int32(max_iter)
    with HostArray.from_numpy(y, code, 1) as Y, HostArray.from_numpy(x, code, 1) as X, \
            HostArray.from_numpy(np.empty(0) if w is None else w, code, 1) as W, \
            HostArray.empty(code, 1) as scratch:
        status = getattr(raw, name)(Y, X, W, ctypes.byref(slope), ctypes.byref(intercept),
                                    ctypes.byref(residue), option_value("LinearFitMethod", method),
                                    tol, tol2, ctypes.byref(iterations), scratch)
        fit = Y.to_numpy()
    check_status(status, name)
    dtype = np.float32 if letter == "s" else np.float64
    return LinearFit(dtype(slope.value), dtype(intercept.value), fit, dtype(residue.value),
                     iterations.value)
