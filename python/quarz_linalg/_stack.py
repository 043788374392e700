"""Stacks of matrices: an export run over (..., M, N) inputs broadcast over their leading
dimensions as numpy does, each output stacked in front of its own shape.

With the compiled bridge the loop runs in C over one set of handles (bridge.stack);
through ctypes it runs here, one call per matrix. Statuses per matrix: the first negative
one raises QuarzError with `.index` the matrix's index in the stack (a tuple over the
leading dimensions); the positive ones are collected into one QuarzWarning whose `.index`
lists the matrices that warned.
"""
import warnings

import numpy as np

from ._exports import _BRIDGED, invoke
from ._host import TYPE_DTYPES, type_code
from ._library import bridge
from ._status import QuarzError, QuarzWarning


def ndim(a):
    """(array, its rank) without converting arrays that are already numpy's."""
    try:
        return a, a.ndim
    except AttributeError:
        a = np.asarray(a)
        return a, a.ndim


def _at(i, batch):
    return tuple(int(v) for v in np.unravel_index(i, batch))


def _stand_in(core, dtype):
    # A matrix every export accepts, to learn the output shapes of an empty stack.
    return (np.eye(*core) if len(core) == 2 else np.ones(core)).astype(dtype)


def stacked(export, inputs, cores):
    """Runs `export` over the broadcast stack of its inputs (in the export's input order):
    cores[i] is the rank of one call's input i (2 a matrix, 1 a vector), None for inputs
    passed to every call as they are. Returns the outputs, each shaped (*stack, *shape)."""
    dtype = TYPE_DTYPES[type_code(export[0])]
    inputs = list(inputs)
    arrays = [i for i, k in enumerate(cores) if k is not None]
    core = {}
    for i in arrays:
        a = np.asarray(inputs[i])
        if a.ndim < cores[i]:
            raise ValueError(f"{export}: input {i} needs at least {cores[i]} dimensions, "
                             f"got shape {a.shape}")
        inputs[i], core[i] = a, a.shape[a.ndim - cores[i]:]
    batch = np.broadcast_shapes(*(inputs[i].shape[:inputs[i].ndim - cores[i]] for i in arrays))
    count = int(np.prod(batch))
    for i in arrays:
        inputs[i] = np.ascontiguousarray(
            np.broadcast_to(inputs[i], batch + core[i]).reshape((count,) + core[i]), dtype=dtype)
    if count == 0:
        one = [_stand_in(core[i], dtype) if i in core else v for i, v in enumerate(inputs)]
        return [np.empty(batch + np.shape(o), np.asarray(o).dtype)
                for o in invoke(export, *one, check=False)[1]]
    fast = _BRIDGED.get(export)
    try:
        if fast is not None:
            outputs, warned = bridge.stack(fast, count, tuple(inputs))
        else:
            outputs, warned = _loop(export, count, inputs, arrays)
    except QuarzError as e:
        raise QuarzError(e.status, e.export, index=_at(e.index, batch)) from None
    if warned:
        warnings.warn(QuarzWarning(warned[0][1], export, index=[_at(m, batch) for m, _ in warned]),
                      stacklevel=3)
    return [o.reshape(batch + o.shape[1:]) for o in outputs]


def _loop(export, count, inputs, arrays):
    results, warned = [], []
    for m in range(count):
        status, out = invoke(export, *(v[m] if i in arrays else v for i, v in enumerate(inputs)),
                             check=False)
        if status is not None and status < 0:
            raise QuarzError(status, export, index=m)
        if status:
            warned.append((m, status))
        results.append(out)
    return [np.stack(o) for o in zip(*results)], warned
