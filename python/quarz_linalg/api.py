"""numpy-style functions over the library's exports.

Each function picks the element type from the dtypes of its inputs (float32 s, float64 d,
complex64 c, complex128 z; integers compute in float64), copies the inputs into host
arrays, runs the export and hands the outputs back as numpy arrays.
A negative status raises QuarzError; a positive one issues a QuarzWarning.
The most used ones (dot, matmul, det, solve) go straight to the operation's callable.
"""
import numpy as np

from ._exports import OPTIONS, invoke, op, option_value
from ._host import letter_of
from ._stack import ndim, stacked


def _letter(*arrays):
    return letter_of(np.result_type(*[np.asarray(a) for a in arrays]))


def _vec(a):
    a = np.asarray(a)
    if a.ndim != 1:
        raise ValueError(f"expected a 1-D array, got shape {a.shape}")
    return a


def _mat(a):
    a = np.asarray(a)
    if a.ndim != 2:
        raise ValueError(f"expected a 2-D array, got shape {a.shape}")
    return a


def _run(name, letter, *args):
    return invoke(letter + name, *args)[1]


# ---- Vectors ---------------------------------------------------------------------

def _option(values, table, kind):
    code = values.get(kind) if kind.__class__ is str else None
    return option_value(table, kind) if code is None else code


_dot = op("DotProdH", first_only=True)
_mtrx_mul = op("MtrxMulH", first_only=True)
_det = op("DeterminantH", first_only=True)
_lin_eq = op("LinEqH", first_only=True)
_lin_eq_set = op("LinEqSetH", first_only=True)
_DET_KINDS = OPTIONS["DeterminantMatrix"]
_LIN_EQ_KINDS = OPTIONS["LinEqMatrix"]


def dot(x, y):
    """sum(x[i] * conj(y[i])): the second vector is conjugated (np.vdot(y, x)). 1-D
    inputs only (np.vdot flattens any shape)."""
    return _dot(x, y)


def norm(x, p=2):
    """p-norm of a vector for any real p except 0 and NaN, with p = +-inf the largest /
    smallest modulus. The result is real. A (..., N) stack gives the norms of its vectors
    (numpy.linalg.norm(x, p, axis=-1)); matrix norms are matrix_norm's."""
    x, rank = ndim(x)
    if rank > 1:
        return stacked(_letter(x) + "VectorNormH", (x, p), (1, None))[0]
    x = _vec(x)
    return _run("VectorNormH", _letter(x), x, p)[0]


def mean(x):
    """Mean of a 1-D array (no axis argument, unlike np.mean)."""
    x = _vec(x)
    return _run("MeanH", _letter(x), x)[0]


def rms(x):
    """sqrt(sum |x_i|^2 / n); real for complex vectors."""
    x = _vec(x)
    return _run("RMSH", _letter(x), x)[0]


# ---- Products ----------------------------------------------------------------------

def matmul(a, b):
    """Matrix product without conjugation. 2-D @ 2-D, 2-D @ 1-D (matvec) and
    1-D @ 2-D (vecmat) as in numpy; no stacks (np.matmul broadcasts (..., M, N) ones),
    and integer inputs give float64 (numpy keeps their integer type). numpy's own arrays
    are copied into host arrays first (a host array keeps its sizes right in front of its
    elements, where numpy's allocator keeps its own bookkeeping), which costs a little
    against np.matmul; arrays allocated inside host_layout() are read in place."""
    try:
        ranks = a.ndim, b.ndim
    except AttributeError:
        a, b = np.asarray(a), np.asarray(b)
        ranks = a.ndim, b.ndim
    if ranks == (2, 1):
        return matvec(a, b)
    if ranks == (1, 2):
        return vecmat(a, b)
    return _mtrx_mul(a, b)


def matvec(a, x):
    """A @ x (2-D A, 1-D x; no stacks)."""
    a, x = _mat(a), _vec(x)
    return _run("MtrxVecMulH", _letter(a, x), a, x)[0]


def vecmat(x, a):
    """x @ A (plain transpose, no conjugation; 1-D x, 2-D A, no stacks)."""
    x, a = _vec(x), _mat(a)
    return _run("VecMtrxMulH", _letter(x, a), x, a)[0]


def outer(x, y):
    """M[i, j] = x[i] * y[j] (no conjugation)."""
    x, y = _vec(x), _vec(y)
    return _run("OuterProdH", _letter(x, y), x, y)[0]


def kron(a, b):
    """Kronecker product of two matrices; 1-D inputs count as single rows, and two 1-D
    inputs give a 1-D result, as in numpy."""
    a, b = np.asarray(a), np.asarray(b)
    both_1d = a.ndim == 1 and b.ndim == 1
    a2 = a.reshape(1, -1) if a.ndim == 1 else _mat(a)
    b2 = b.reshape(1, -1) if b.ndim == 1 else _mat(b)
    m = _run("KronProdH", _letter(a2, b2), a2, b2)[0]
    return m.reshape(-1) if both_1d else m


def transpose(a):
    """Transpose; for complex matrices the conjugate (Hermitian) transpose."""
    a = _mat(a)
    return _run("TransposeH", _letter(a), a)[0]


def trace(a):
    """Sum of the main diagonal (rectangular matrices allowed)."""
    a = _mat(a)
    return _run("TraceH", _letter(a), a)[0]


def special(kind, x=None, y=None, size=0, dtype=None):
    """Structured matrix: kind is a name of OPTIONS["SpecialMatrix"] or its number.

    identity: size x size. diagonal: diag(x). toeplitz: first column x, first row
    x[0], y[1:]. vandermonde: decreasing powers of x. companion: of the polynomial with
    coefficients x (highest first). hankel: first column x, last row x[-1], y[1:].
    The element type comes from x and y, else from dtype (default float64)."""
    code = option_value("SpecialMatrix", kind)
    given = [np.asarray(v) for v in (x, y) if v is not None]
    if dtype is not None:
        letter = letter_of(dtype)
    elif given:
        letter = _letter(*given)
    else:
        letter = "d"
    x = _vec(x) if x is not None else np.zeros(0)
    y = _vec(y) if y is not None else np.zeros(0)
    return _run("SpecialMtrxH", letter, code, size, x, y)[0]


# ---- Factorizations, determinant, linear equations ------------------------------------

def lu(a):
    """LU with partial pivoting: (L, U, P, piv) with P @ A = L @ U (scipy.linalg.lu
    returns (P, L, U) with A = P @ L @ U, its P the transpose of this one). P is an int32
    0/1 matrix, piv the 0-based row interchanges (row i swapped with piv[i], in order).
    An exact zero pivot issues a QuarzWarning (WarnSingular); the factors are kept."""
    a = _mat(a)
    L, U, P, piv = _run("LUH", _letter(a), a)
    return L, U, P, piv


def cholesky(a, lower=True):
    """Cholesky factor of a symmetric / Hermitian positive definite matrix: L with
    A = L L^H (lower=True, reads the lower triangle) or U with A = U^H U (reads the upper
    triangle). Unlike numpy (which reads the lower triangle only) `lower` picks the
    triangle read and returned. Stacks (..., N, N) as numpy; a matrix that is not
    positive definite raises QuarzError (its .index in the stack) where numpy raises
    LinAlgError."""
    a, rank = ndim(a)
    triangle = OPTIONS["CholeskyTriangle"]["lower" if lower else "upper"]
    if rank > 2:
        return stacked(_letter(a) + "CholeskyH", (a, triangle), (2, None))[0]
    a = _mat(a)
    return _run("CholeskyH", _letter(a), a, triangle)[0]


def det(a, kind="general"):
    """Determinant; kind: a name of OPTIONS["DeterminantMatrix"] (general: LU,
    positive_definite: Cholesky, upper / lower: product of the diagonal) or its number.
    Stacks (..., N, N) as numpy. An exact zero pivot gives 0 as in numpy; kind
    "positive_definite" on a matrix that is not raises QuarzError."""
    a, rank = ndim(a)
    code = _option(_DET_KINDS, "DeterminantMatrix", kind)
    if rank > 2:
        return stacked(_letter(a) + "DeterminantH", (a, code), (2, None))[0]
    return _det(a, code)


def solve(a, y, kind="general"):
    """Solves A x = y for a 1-D y, or A X = Y for a 2-D Y (one right-hand side per
    column). kind: a name of OPTIONS["LinEqMatrix"] (general, positive_definite: only the
    lower triangle of A is read and for complex A the kernel works with its plain
    transpose; lower, upper: only that triangle is read) or its number.
    Stacks as numpy 1.x (Debian 12's 1.24): A is (..., M, M); y is a stack of vectors
    (..., M) when it has exactly one dimension less than A, else of matrices (..., M, K);
    the leading dimensions broadcast. A singular matrix raises QuarzError (with its .index
    in a stack) where numpy raises LinAlgError, and so does non-finite input."""
    code = _option(_LIN_EQ_KINDS, "LinEqMatrix", kind)
    a, rank_a = ndim(a)
    y, rank_y = ndim(y)
    if rank_a > 2 or rank_y > 2:
        vector = rank_y == rank_a - 1
        name = _letter(a, y) + ("LinEqH" if vector else "LinEqSetH")
        return stacked(name, (a, y, code), (2, 1 if vector else 2, None))[0]
    vector = rank_y == 1
    return (_lin_eq if vector else _lin_eq_set)(a, y, code)
