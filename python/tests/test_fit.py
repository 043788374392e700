"""Straight-line fit against references computed here: weighted least squares by
numpy's lstsq, least absolute residual by brute force over the lines through two data
points (an optimum passes through two of them), and the bisquare reweighting written
out step by step, in double precision."""
import numpy as np
import pytest

import quarz_linalg as ql

REALS = pytest.mark.parametrize("dtype", [np.float32, np.float64], ids="sd")


def points(rng, n, dtype, outlier=None):
    """y = 1.5 x - 0.5 plus noise; an outlier in y, or a leverage point far out in x."""
    x = rng.uniform(-2, 3, n)
    y = 1.5 * x - 0.5 + rng.normal(0, 0.3, n)
    if outlier == "y":
        y[n // 2] += 25
    if outlier == "x":
        x[-1], y[-1] = 40.0, -3.0
    return x.astype(dtype), y.astype(dtype)


def weights(rng, n, kind, dtype):
    """None; positive; or signed with two zeros (|w| counts, zero drops a point)."""
    if kind is None:
        return None
    w = rng.uniform(0.5, 2, n) if kind == "positive" else rng.uniform(-2, 2, n)
    if kind == "signed":
        w[[0, n // 2]] = 0
    return w.astype(dtype)


def normalised(w, n):
    return np.ones(n) if w is None else np.abs(w.astype(float)) / np.abs(w.astype(float)).max()


def wls(x, y, wn):
    """Weighted least-squares line by lstsq on the row-scaled design."""
    s = np.sqrt(wn)
    design = np.stack([x, np.ones_like(x)], 1) * s[:, None]
    b, a = np.linalg.lstsq(design, y * s, rcond=None)[0]
    return b, a


def sums_line(x, y, wn):
    """The weighted line from the plain sums, as the reweighting steps compute it."""
    s, sx, sxx, sy, sxy = wn.sum(), (wn * x).sum(), (wn * x * x).sum(), (wn * y).sum(), (wn * x * y).sum()
    b = (sy * sx - s * sxy) / (sx * sx - s * sxx)
    return b, (sy - b * sx) / s


def ls_bound(x, y, wn, b, a, eps):
    """First-order rounding bounds of slope and intercept computed from the plain sums
    S, Sx, Sxx, Sy, Sxy: each sum of n terms of up to three factors errs by at most
    (n + 3) eps times the sum of the moduli; the factor 2 covers the products of sums."""
    x, y = x.astype(float), y.astype(float)
    g = 2 * (len(x) + 3) * eps
    s, ax, axx, ay, axy = wn.sum(), (wn * abs(x)).sum(), (wn * x * x).sum(), (wn * abs(y)).sum(), (wn * abs(x * y)).sum()
    den = abs((wn * x).sum() ** 2 - s * axx)
    big = ax * ax + s * axx
    db = g * (ay * ax + s * axy + abs(b) * big) / den
    da = max(g * (ay + abs(b) * ax) / s + ax / s * db, g * (axy * ax + ay * axx + abs(a) * big) / den)
    return db, da


def abs_sum(x, y, wn, b, a):
    return np.sum(wn * np.abs(y.astype(float) - b * x.astype(float) - a))


def bisquare(x, y, w, tol, max_iter):
    """The documented reweighting: leverage-adjusted residuals, MAD scale, bisquare
    weights at 4.685, a weighted least-squares line per step. Returns the line, the count
    and the last weights."""
    x, y = x.astype(float), y.astype(float)
    n, wn = len(x), normalised(w, len(x))
    xm = (wn * x).sum() / wn.sum()
    h = wn * (1 / wn.sum() + (x - xm) ** 2 / (wn * (x - xm) ** 2).sum())
    adjust = np.sqrt((1 if w is None else np.abs(w.astype(float))) / np.where(h > 0.999, 1e-3, 1 - h))
    b, a = sums_line(x, y, wn)
    k, rw = 0, wn
    while True:
        k += 1
        r = (y - b * x - a) * adjust
        m = np.median(r)
        d = np.abs(r - m) if abs(m) < np.abs(r - m).max() else np.abs(r)
        scale = np.median(d) or d.mean()
        if scale == 0:
            break
        u = r * 0.6745 / (4.685 * scale)
        new = np.where(np.abs(u) < 1, (1 - u * u) ** 2, 0) * (1 if w is None else np.abs(w.astype(float)))
        if np.sum(new == 0) >= n - 1:
            break
        (pb, pa), rw = (b, a), new / new.max()
        b, a = sums_line(x, y, rw)
        if k >= max_iter or abs(b - pb) <= tol * abs(pb) or abs(a - pa) <= tol * abs(pa):
            break
    return b, a, k, rw


def check_line(fit, b, a, db, da, x, dtype):
    eps = float(np.finfo(dtype).eps)
    assert abs(fit.slope - b) <= db, (fit.slope, b, db)
    assert abs(fit.intercept - a) <= da, (fit.intercept, a, da)
    f = fit.slope.astype(float) * x + fit.intercept
    assert fit.fit.dtype == dtype
    assert np.all(np.abs(fit.fit - f) <= 2 * eps * (np.abs(fit.slope * x) + abs(fit.intercept)))


@REALS
@pytest.mark.parametrize("n", [2, 3, 10, 200])
@pytest.mark.parametrize("wkind", [None, "positive", "signed"])
def test_least_squares_is_the_weighted_closed_form(dtype, n, wkind, rng):
    x, y = points(rng, n, dtype, "y" if n > 3 else None)
    w = weights(rng, n, wkind if n > 3 or wkind != "signed" else "positive", dtype)
    fit = ql.linear_fit(x, y, w)
    wn, eps = normalised(w, n), float(np.finfo(dtype).eps)
    b, a = wls(x.astype(float), y.astype(float), wn)
    db, da = ls_bound(x, y, wn, b, a, eps)
    check_line(fit, b, a, db, da, x.astype(float), dtype)
    r = y.astype(float) - (b * x + a)
    spread = np.abs(x) * db + da
    assert abs(fit.residue - np.sum(wn * r * r) / n) <= np.sum(wn * (2 * np.abs(r) + spread) * spread) / n \
        + 4 * n * eps * np.sum(wn * r * r) / n
    assert fit.iterations == 0


@REALS
@pytest.mark.parametrize("n,outlier", [(3, None), (8, "y"), (12, "x"), (30, "y")])
@pytest.mark.parametrize("wkind", [None, "positive", "signed"])
def test_least_absolute_reaches_the_brute_force_optimum(dtype, n, outlier, wkind, rng):
    x, y = points(rng, n, dtype, outlier)
    w = weights(rng, n, wkind if n > 3 or wkind != "signed" else "positive", dtype)
    fit = ql.linear_fit(x, y, w, "least_absolute")
    wn, eps = normalised(w, n), float(np.finfo(dtype).eps)
    xf, yf = x.astype(float), y.astype(float)
    best, through = np.inf, None
    for i in range(n):
        for j in range(i + 1, n):
            b = (yf[j] - yf[i]) / (xf[j] - xf[i])
            value = abs_sum(x, y, wn, b, yf[i] - b * xf[i])
            if value < best:
                best, through = value, (i, j, b)
    # Our line is that of two points computed in the element type: slope and intercept
    # err by a few roundings of the difference quotient.
    i, j, b = through
    db = 4 * eps * (abs(yf[i]) + abs(yf[j]) + abs(b) * (abs(xf[i]) + abs(xf[j]))) / abs(xf[j] - xf[i])
    da = 4 * eps * (abs(yf[i]) + abs(b * xf[i])) + abs(xf[i]) * db
    ours = abs_sum(x, y, wn, float(fit.slope), float(fit.intercept))
    assert best - 1e-12 * best <= ours <= best + np.sum(wn * (np.abs(xf) * db + da)), (ours, best)
    assert abs(fit.residue - ours / n) <= 4 * n * eps * ours / n + np.sum(wn * (np.abs(xf) * db + da)) / n
    assert 1 <= fit.iterations <= 100


@REALS
@pytest.mark.parametrize("n,outlier", [(6, "y"), (12, "x"), (40, "y")])
@pytest.mark.parametrize("wkind", [None, "positive", "signed"])
def test_bisquare_follows_the_documented_reweighting(dtype, n, outlier, wkind, rng):
    x, y = points(rng, n, dtype, outlier)
    w = weights(rng, n, wkind, dtype)
    eps = float(np.finfo(dtype).eps)
    if dtype == np.float64:
        # The default tolerance: the same steps, so the same count.
        fit = ql.linear_fit(x, y, w, "bisquare", max_iter=50)
        b, a, k, rw = bisquare(x, y, w, 1e-4, 50)
        assert fit.iterations == k
    else:
        # Single precision stops where its rounding settles; the reference runs to the
        # fixed point.
        fit = ql.linear_fit(x, y, w, "bisquare", tol=1e-6, max_iter=200)
        b, a, k, rw = bisquare(x, y, w, 1e-13, 500)
        assert k < 500 and fit.iterations < 200
    # Rounding of each least-squares step, carried through later steps whose weights
    # depend on it: a tenfold margin allows contraction factors up to 0.9.
    db, da = ls_bound(x, y, rw, b, a, eps)
    check_line(fit, b, a, 10 * db, 10 * da, x.astype(float), dtype)


@REALS
def test_iteration_limits(dtype, rng):
    x, y = points(rng, 15, dtype, "y")
    eps = float(np.finfo(dtype).eps)
    fit = ql.linear_fit(x, y, None, "bisquare", max_iter=1)
    b, a, k, rw = bisquare(x, y, None, 1e-4, 1)
    assert fit.iterations == k == 1
    db, da = ls_bound(x, y, rw, b, a, eps)
    check_line(fit, b, a, 10 * db, 10 * da, x.astype(float), dtype)
    # In double precision these points make the reweighting alternate between two lines
    # for good (exact zero residuals switch the scale to the mean): the limit decides
    # which one is returned.
    x6, y6 = np.arange(6, dtype=dtype), np.array([0, 1, 2, 3, 4, 30], dtype)
    for limit in (11, 12, 1001) if dtype == np.float64 else ():
        fit = ql.linear_fit(x6, y6, None, "bisquare", max_iter=limit)
        b, a, k, rw = bisquare(x6, y6, None, 1e-4, limit)
        assert fit.iterations == k == limit
        db, da = ls_bound(x6, y6, rw, b, a, eps)
        check_line(fit, b, a, 10 * db, 10 * da, x6.astype(float), dtype)
    # One least-absolute pass turns the least-squares line about its point at x = 0.
    one = ql.linear_fit(x, y, None, "least_absolute", max_iter=1)
    ls = ql.linear_fit(x, y)
    assert one.iterations == 1
    assert one.intercept == ls.intercept
    assert abs_sum(x, y, 1, one.slope, one.intercept) <= abs_sum(x, y, 1, ls.slope, ls.intercept)


@REALS
@pytest.mark.parametrize("method", ["least_squares", "least_absolute", "bisquare"])
def test_edge_cases(dtype, method):
    two = ql.linear_fit(np.array([1, 3], dtype), np.array([1, 5], dtype), None, method)
    assert (two.slope, two.intercept, two.iterations, list(two.fit)) == (2, -1, 0, [1, 5])
    # Points on an exact line (sums exact): the line itself; bisquare stops in its first
    # step, its scale being zero.
    x = np.arange(6, dtype=dtype)
    exact = ql.linear_fit(x, 2 * x + 1, None, method)
    assert (exact.slope, exact.intercept, exact.residue) == (2, 1, 0)
    assert exact.iterations == {"least_squares": 0, "bisquare": 1}.get(method, exact.iterations)
    # Weights all zero are no weights; signs do not count.
    x, y = np.array([0.5, 1, 2, 4], dtype), np.array([1, 3, 2, 7], dtype)
    w = np.array([1, -2, 0.5, -1], dtype)
    same_fit = lambda f, g: str(f) == str(g)  # noqa: E731 (every field, arrays too)
    assert same_fit(ql.linear_fit(x, y, np.zeros(4, dtype), method), ql.linear_fit(x, y, None, method))
    assert same_fit(ql.linear_fit(x, y, -w, method), ql.linear_fit(x, y, w, method))
    # Equal x: no test of the zero denominator, the coefficients are not finite.
    same = ql.linear_fit(np.full(3, 2, dtype), np.array([1, 2, 3], dtype), None, method)
    assert not np.isfinite(same.slope)
