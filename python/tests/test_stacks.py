"""Stacks of matrices against numpy / scipy on the same stack: broadcasting shapes, an
empty stack dimension and a failing matrix in the middle. Faults caught: a matrix of the
stack paired with the wrong one (broadcasting), outputs stacked in the wrong order or
shape, an empty stack failing or shaped wrongly, an error not naming its matrix."""
import numpy as np
import pytest

import quarz_linalg as ql


def _sym(a):
    return a + np.swapaxes(a, -1, -2)


def _spd(a):
    return a @ np.swapaxes(a, -1, -2) + 4 * np.eye(a.shape[-1])


def _srt(w):
    return np.sort_complex(w)


# name: (ours, numpy / scipy, input conditioning); vectors compared by modulus, which
# removes the sign (phase) freedom, eigenvalues of general matrices sorted.
CASES = {
    "solve": (ql.solve, np.linalg.solve, None),
    "det": (ql.det, np.linalg.det, None),
    "inv": (ql.inv, np.linalg.inv, None),
    "pinv": (ql.pinv, np.linalg.pinv, None),
    "cholesky": (ql.cholesky, np.linalg.cholesky, _spd),
    "eig": (lambda a: (_srt(ql.eig(a)[0]), _srt(ql.eigvals(a))),
            lambda a: (_srt(np.linalg.eigvals(a)),) * 2, None),
    "eigh": (lambda a: (ql.eigh(a)[0], abs(ql.eigh(a)[1]), ql.eigvalsh(a)),
             lambda a: (np.linalg.eigh(a)[0], abs(np.linalg.eigh(a)[1]), np.linalg.eigvalsh(a)), _sym),
    "svd": (lambda a: tuple(map(abs, ql.svd(a))) + (ql.svd(a, compute_uv=False),),
            lambda a: tuple(map(abs, np.linalg.svd(a))) + (np.linalg.svd(a, compute_uv=False),), None),
    "qr": (lambda a: tuple(map(abs, ql.qr(a, mode="economic"))),
           lambda a: tuple(map(abs, np.linalg.qr(a))), None),
    "matrix_rank": (ql.matrix_rank, np.linalg.matrix_rank, None),
    "cond": (ql.cond, np.linalg.cond, None),
    "matrix_norm": (ql.matrix_norm, lambda a: np.linalg.norm(a, axis=(-2, -1)), None),
    "norm": (lambda a: ql.norm(a[..., 0, :]), lambda a: np.linalg.norm(a[..., 0, :], axis=-1), None),
}
# stack shapes of A (and of solve's right-hand side: a vector stack when it has one
# dimension less than A, numpy 1.x's rule), including broadcasting and an empty stack.
SHAPES = [((2, 3, 4, 4), (2, 3, 4)), ((2, 1, 3, 3), (1, 4, 3, 2)), ((0, 3, 3), (0, 3)),
          ((3, 3), (2, 3, 3, 1))]


@pytest.mark.parametrize("name", CASES)
@pytest.mark.parametrize("shapes", SHAPES, ids=str)
def test_stack_matches_numpy(name, shapes, rng):
    ours, theirs, condition = CASES[name]
    a = np.eye(shapes[0][-1]) + rng.standard_normal(shapes[0]) / 4
    a = condition(a) if condition else a
    args = (a, rng.standard_normal(shapes[1])) if name == "solve" else (a,)
    if len(shapes[0]) == 2 and name != "solve":
        args = (np.broadcast_to(a, (2,) + a.shape),)
    got, want = ours(*args), theirs(*args)
    for g, w in zip(*((got, want) if isinstance(want, tuple) else ((got,), (want,)))):
        assert np.shape(g) == np.shape(w)
        np.testing.assert_allclose(g, w, rtol=1e-9, atol=1e-9)


@pytest.mark.parametrize("name", ["solve", "inv", "cholesky"])
def test_stack_error_names_the_matrix(name, rng):
    a = np.eye(3) + rng.standard_normal((2, 3, 3, 3)) / 4
    a[1, 2] = 0.0
    args = (a, np.ones((2, 3, 3))) if name == "solve" else (a,)
    with pytest.raises(ql.QuarzError) as e:
        getattr(ql, name)(*args)
    assert e.value.index == (1, 2) and "at matrix (1, 2)" in str(e.value)



def test_stack_warnings_come_as_one():
    # Fault caught: one warning per matrix, or the warned matrices not named. None of the
    # stacked functions warns, so the shared stack loop runs the LU export, which warns on
    # an exact zero pivot.
    a = np.broadcast_to(np.eye(2), (3, 2, 2)).copy()
    a[[0, 2], 1, 1] = 0.0
    with pytest.warns(ql.QuarzWarning) as record:
        upper = ql._stack.stacked("dLUH", (a,), (2,))[1]
    assert len(record) == 1 and record[0].message.index == [(0,), (2,)]
    assert np.array_equal(upper, a)
