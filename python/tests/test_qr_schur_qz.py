"""QR, Schur and QZ decompositions against scipy.linalg: backward errors and
orthogonality within rounding bounds, the factors' shapes and structure, the orderings,
and agreement with scipy's factors and eigenvalues."""
import warnings

import numpy as np
import pytest
import scipy.linalg as sla

import quarz_linalg as ql
from oracle import assert_within, dtypes, gamma, hi, is_complex, norm2, random_array, wide
from quarz_linalg.decompositions import ordqz, qr, schur

pytestmark = pytest.mark.skipif(not ql.available("dQZH"), reason="the decompositions are not in the export list")


def fro(a):
    return float(np.linalg.norm(hi(a).astype(np.complex128)))


def assert_unitary(q, dtype, what):
    # Householder products are orthonormal to about gamma of their order.
    k = q.shape[1]
    assert fro(hi(q).conj().T @ hi(q) - np.eye(k)) <= gamma(10 * max(q.shape), dtype) * np.sqrt(k), what


def assert_factors(a, left, mid, right, dtype, what):
    """|A - left mid right^H|_F within a backward-stable bound of ||A||_F."""
    n = max(a.shape)
    res = fro(hi(left) @ hi(mid) @ hi(right).conj().T - hi(a))
    assert res <= gamma(20 * n, dtype) * max(fro(a), np.finfo(dtype).tiny), f"{what}: residual {res:.3g}"


# ---- QR ----------------------------------------------------------------------------

SHAPES = [(1, 1), (5, 5), (9, 4), (4, 9), (40, 13)]


@dtypes
@pytest.mark.parametrize("m,n", SHAPES)
@pytest.mark.parametrize("mode", ["full", "economic", "r"])
@pytest.mark.parametrize("pivoting", [False, True])
def test_qr(dtype, m, n, mode, pivoting, rng):
    # Catches: wrong transposes of the LQ route, a lost reflector, R rows in the wrong
    # place, shapes per size option, pivots off by one or not a permutation.
    a = random_array(rng, (m, n), dtype)
    a[:, -1] *= 10                     # the last column has the largest norm
    k = min(m, n)
    out = qr(a, mode=mode, pivoting=pivoting)
    r = out[0] if mode == "r" else out[1]
    assert r.dtype == dtype and r.shape == ((m if mode == "full" else k), n)
    assert not np.any(np.tril(r, -1)), "R not upper trapezoidal"
    perm = out[-1] if pivoting else np.arange(n)
    if pivoting:
        assert perm.dtype == np.int32 and sorted(perm) == list(range(n)) and perm[0] == n - 1
        d = np.abs(np.diagonal(r)).astype(np.float64)
        assert np.all(d[1:] <= d[:-1] * (1 + gamma(4 * m, dtype))), "pivoted diagonal increases"
        # Same algorithm, same column choices as scipy's geqp3 on generic data.
        assert np.array_equal(perm, sla.qr(a.astype(wide(dtype)), mode="r", pivoting=True)[1])
    if mode == "r":
        ref_r = sla.qr(a.astype(wide(dtype))[:, perm], mode="economic")[1]
    else:
        q = out[0]
        assert q.dtype == dtype and q.shape == (m, m if mode == "full" else k)
        assert_unitary(q, dtype, "Q^H Q - I")
        assert_factors(a[:, perm], q, r, np.eye(n), dtype, "A P - Q R")
        ref_r = sla.qr(a.astype(wide(dtype))[:, perm], mode="economic")[1]
    # R is unique up to a unit factor per row when the leading k columns are
    # independent: compare moduli within a first-order perturbation bound.
    kappa = np.linalg.cond(a.astype(np.complex128)[:, perm][:, :k])
    assert_within(np.abs(r[:k]), np.abs(ref_r[:k]), 4 * kappa * gamma(20 * max(m, n), dtype) * norm2(a), "|R| vs scipy")


# ---- Schur ---------------------------------------------------------------------------

ORDERINGS = ["none", "real_increasing", "real_decreasing", "modulus_increasing", "modulus_decreasing"]


def blocks(w):
    """Index ranges of the diagonal blocks behind a list of eigenvalues: a complex pair of
    a real Schur form is one block."""
    out, i = [], 0
    while i < len(w):
        size = 2 if w[i].imag != 0 and i + 1 < len(w) and w[i + 1] == np.conj(w[i]) else 1
        out.append(slice(i, i + size))
        i += size
    return out


def sorted_blocks(w, ordering, complex_data):
    """The documented order: a stable sort of the blocks (pairs whole) by the key of their
    first eigenvalue, computed in the eigenvalues' own precision."""
    if ordering == "none":
        return w
    parts = [w[s] for s in (blocks(w) if not complex_data else [slice(i, i + 1) for i in range(len(w))])]
    by_real = ordering.startswith("real")
    sign = -1 if ordering.endswith("decreasing") else 1
    # sorted() is stable: equal keys keep the kernel's order in both directions.
    parts.sort(key=lambda b: sign * (b[0].real if by_real else b[0].real * b[0].real + b[0].imag * b[0].imag))
    return np.concatenate(parts)


def assert_schur_structure(t, w, dtype):
    n = t.shape[0]
    if is_complex(dtype):
        assert not np.any(np.tril(t, -1)), "T not triangular"
        return
    assert not np.any(np.tril(t, -2)), "T not quasi-triangular"
    sub = np.diagonal(t, -1) != 0
    assert not np.any(sub[1:] & sub[:-1]), "overlapping 2 x 2 blocks"
    for s in blocks(w):
        # Each 2 x 2 block holds a complex pair, each 1 x 1 block a real eigenvalue.
        assert (s.stop - s.start == 2) == (s.start + 1 < n and sub[s.start]), "blocks and values disagree"


@dtypes
@pytest.mark.parametrize("n", [1, 2, 7, 20])
@pytest.mark.parametrize("ordering", ORDERINGS)
def test_schur(dtype, n, ordering, rng):
    # Catches: T or U not transposed back, a wrong block exchanged, a pair split, keys of
    # the wrong kind or direction, ties reordered, values out of step with T.
    a = random_array(rng, (n, n), dtype)
    t, u, w = schur(a, sort=None if ordering == "none" else ordering, values=True)
    assert t.dtype == u.dtype == dtype and t.shape == u.shape == (n, n) and w.shape == (n,)
    assert_unitary(u, dtype, "U^H U - I")
    assert_factors(a, u, t, u, dtype, "A - U T U^H")
    assert_schur_structure(t, w, dtype)
    # Eigenvalues against numpy: a perturbation of rounding size moves each by at most
    # its condition number times it; random matrices of these orders stay below 1e3.
    ref = np.linalg.eigvals(a.astype(wide(dtype)))
    tol = 1e3 * gamma(20 * n, dtype) * norm2(a)
    assert all(np.min(np.abs(ref - v)) <= tol for v in w) and all(np.min(np.abs(w - v)) <= tol for v in ref)
    # The order: the kernel's values (same computation) sorted stably by block.
    w0 = schur(a, values=True)[2]
    assert np.array_equal(w, sorted_blocks(w0, ordering, is_complex(dtype)))


@dtypes
@pytest.mark.parametrize("ordering", ORDERINGS[1:])
def test_schur_ties_keep_kernel_order(dtype, ordering, rng):
    # A triangular input has exact eigenvalues on its diagonal: 2, -2 and 2 tie in
    # modulus, 1 and 1 (and 2, 2) in real part.
    d = np.array([2, -2, 1, 2, -1, 0.5, 1])
    a = (np.diag(d) + np.triu(random_array(rng, (7, 7), dtype), 1)).astype(dtype)
    t, u, w = schur(a, sort=ordering, values=True)
    w0 = schur(a, values=True)[2]
    assert np.array_equal(w, sorted_blocks(w0, ordering, is_complex(dtype)))
    assert_factors(a, u, t, u, dtype, "A - U T U^H")
    assert_within(np.diagonal(t), w, gamma(100, dtype) * norm2(a), "diag(T) vs values")


# ---- QZ ------------------------------------------------------------------------------

def qz_blocks(alpha, complex_data):
    """A real pencil's complex pair (alpha.imag > 0 first) is one 2 x 2 block."""
    out, i = [], 0
    while i < len(alpha):
        size = 2 if not complex_data and alpha[i].imag > 0 else 1
        out.append(slice(i, i + size))
        i += size
    return out


def qz_key(alpha, beta, ordering):
    if beta == 0:
        return np.nan if alpha == 0 else np.inf
    lam = complex(alpha) / complex(beta)
    return lam.real if ordering.startswith("real") else abs(lam) ** 2


def assert_qz(a, b, aa, bb, q, z, alpha, beta, dtype):
    n = a.shape[0]
    assert aa.shape == bb.shape == q.shape == z.shape == (n, n) and alpha.shape == beta.shape == (n,)
    assert aa.dtype == bb.dtype == q.dtype == z.dtype == beta.dtype == dtype
    assert_unitary(q, dtype, "Q^H Q - I")
    assert_unitary(z, dtype, "Z^H Z - I")
    assert_factors(a, q @ aa.astype(wide(dtype)), np.eye(n), z, dtype, "A - Q AA Z^H")
    assert_factors(b, q @ bb.astype(wide(dtype)), np.eye(n), z, dtype, "B - Q BB Z^H")
    assert not np.any(np.tril(bb, -1)), "BB not triangular"
    # BB's diagonal real and non-negative, for real data (within 2 x 2 blocks too) and
    # complex data alike.
    d = np.diagonal(bb)
    assert np.all(d.real >= 0) and not np.any(d.imag), f"diag BB {d}"
    if is_complex(dtype):
        assert not np.any(np.tril(aa, -1)), "AA not triangular"
        # Eigenvalue j is alpha[j] / beta[j] of the diagonal itself.
        assert np.array_equal(alpha, np.diagonal(aa)) and np.array_equal(beta, d), "alpha, beta off the diagonal"
        return
    assert not np.any(np.tril(aa, -2)), "AA not quasi-triangular"
    for s in qz_blocks(alpha, False):
        assert (s.stop - s.start == 2) == (s.start + 1 < n and aa[s.start + 1, s.start] != 0)
        if s.stop - s.start == 1:
            assert alpha[s.start] == aa[s.start, s.start] and beta[s.start] == bb[s.start, s.start], "alpha, beta off the diagonal"
        else:
            # A pair: eigenvalues of its own 2 x 2 block pencil, det(beta A - alpha B) = 0
            # up to a backward error (a singular pencil's pairs are ill-conditioned).
            ab, bbk = hi(aa[s, s]).astype(complex), hi(bb[s, s]).astype(complex)
            for al, be in zip(alpha[s], beta[s]):
                scale = (abs(be) * np.linalg.norm(ab) + abs(al) * np.linalg.norm(bbk)) ** 2
                assert abs(np.linalg.det(be * ab - al * bbk)) <= gamma(100, dtype) * scale, "pair off its block"


def pencil(kind, rng, n, dtype):
    if kind == "upper":
        # Already triangular: sorting moves every block, each exchange can flip a sign.
        return (np.array([[3, 1, 1], [0, 1, 1], [0, 0, 2]], dtype), np.array([[1, .5, 0], [0, 2, .5], [0, 0, 1]], dtype))
    if kind == "near_real":
        # A complex pair 2 +- 1e-7i next to real eigenvalues: moving the 1 past it leaves
        # the kernel's 2 x 2 block with a negative b(k, k).
        a = np.array([[2, 1, .3, .2], [-1e-14, 2, .7, .1], [0, 0, 1, .4], [0, 0, 0, 3]], dtype)
        return a, np.eye(4, dtype=dtype) + np.triu(random_array(rng, (4, 4), dtype, .1), 1)
    a, b = random_array(rng, (n, n), dtype), random_array(rng, (n, n), dtype)
    if kind == "infinite":
        b[:, -1] = 0                   # B singular, A not: one infinite eigenvalue
    elif kind == "singular":
        a[-1], b[-1] = 0, 0            # a common zero row: det(A - lambda B) = 0 for all lambda
    return a, b


@dtypes
@pytest.mark.parametrize("n,kind", [(1, "random"), (4, "random"), (12, "random"), (4, "infinite"),
                                    (12, "infinite"), (4, "singular"), (12, "singular"), (3, "upper"),
                                    (4, "near_real")])
@pytest.mark.parametrize("ordering", ORDERINGS)
def test_qz(dtype, n, kind, ordering, rng):
    # Catches: the pencil transposed, Q and Z swapped or not conjugated, AA/BB copied back
    # in the wrong layout, a pair's block split, BB's diagonal left negative (or complex)
    # by the exchanges, alpha/beta out of step with the diagonal, infinite and 0/0
    # eigenvalues keyed wrongly, the warning missed.
    a, b = pencil(kind, rng, n, dtype)
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        aa, bb, alpha, beta, q, z = ordqz(a, b, sort=ordering)
    zero_pairs = np.sum((alpha == 0) & (beta == 0))
    # The common zero row gives an exact 0/0 pair: the warning, with the factors kept.
    assert len(caught) == (zero_pairs > 0) == (kind == "singular")
    assert not caught or caught[0].message.status == 20005
    assert_qz(a, b, aa, bb, q, z, alpha, beta, dtype)
    # The finite eigenvalues against scipy's (same kernel family, independent driver
    # path); infinite ones show as |beta| at rounding level in both.
    ref = sla.eigvals(a.astype(wide(dtype)), b.astype(wide(dtype)))
    tiny = gamma(20 * n, dtype) * norm2(np.hstack([a, b]).astype(np.complex128))
    if kind == "infinite":
        assert np.sum(np.abs(beta) <= tiny) == 1
    elif kind == "singular":
        assert np.any((np.abs(alpha) <= tiny) & (np.abs(beta) <= tiny))
    else:
        lam = alpha.astype(np.complex128) / beta
        tol = 1e4 * gamma(20 * n, dtype) * (1 + np.abs(ref)) ** 2
        if kind == "near_real":
            tol = tol + np.sqrt(gamma(100, dtype))   # a nearly defective pair
        assert all(np.min(np.abs(ref - v)) <= t for v, t in zip(lam, np.sort(tol)[::-1]))
    # The order of the diagonal: the blocks' keys monotone, 0/0 last (exchanges and the
    # normalisation after them move a key by rounding only).
    if ordering != "none":
        keys = np.array([qz_key(alpha[s.start], beta[s.start], ordering) for s in qz_blocks(alpha, is_complex(dtype))])
        nan = np.isnan(keys)
        assert not np.any(nan[:-1] & ~nan[1:]), "0/0 not last"
        k = keys[~nan] * (-1 if ordering.endswith("decreasing") else 1)
        slack = 1e3 * gamma(20 * n, dtype) * (1 + np.abs(k[:-1]))
        if kind == "near_real":
            slack = slack + np.sqrt(gamma(100, dtype))
        with np.errstate(invalid="ignore"):
            assert np.all((k[1:] >= k[:-1]) | (np.abs(k[1:] - k[:-1]) <= slack)), f"keys out of order: {keys}"


@pytest.mark.parametrize("dtype", [np.float32, np.float64], ids=list("sd"))
@pytest.mark.parametrize("b,c", [(1, -1e-36), (1e-36, -1)])
def test_schur_negligible_pair_made_real(dtype, b, c, rng):
    # A pair with a rounding-level imaginary part becomes two real eigenvalues when
    # sorting; catches a pair left whole or a split that drops the large off-diagonal
    # entry (A no longer U T U^T).
    # Already in Schur form, so the kernel keeps the pair's tiny imaginary part exact.
    x, y = rng.standard_normal(2)
    a = np.array([[2, b, x], [c, 2, y], [0, 0, 1]], dtype)
    t, u, w = schur(a, sort="real_decreasing", values=True)
    assert np.all(w.imag == 0) and not np.any(np.tril(t, -1))
    assert_within(w.real, [2, 2, 1], gamma(100, dtype) * 4, "eigenvalues")
    assert_factors(a, u, t, u, dtype, "A - U T U^T")
