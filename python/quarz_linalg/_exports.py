"""The raw layer: every export of the library with its exact C argument list, generated
from the export list (one row per operation, `Name letters result arg:kind ...`), and
`invoke`, which runs an export on numpy arrays by the argument kinds."""
import contextlib
import ctypes
import warnings
from dataclasses import dataclass
from types import SimpleNamespace

import numpy as np

from ._host import INT32_CODE, LETTERS, HostArray
from ._library import EXPORTS_PATH, lib
from ._status import QuarzError, QuarzWarning


class ComplexFloat(ctypes.Structure):
    _fields_ = [("re", ctypes.c_float), ("im", ctypes.c_float)]


class ComplexDouble(ctypes.Structure):
    _fields_ = [("re", ctypes.c_double), ("im", ctypes.c_double)]


# letter: (C element type, C real type)
C_TYPES = {
    "s": (ctypes.c_float, ctypes.c_float),
    "d": (ctypes.c_double, ctypes.c_double),
    "c": (ComplexFloat, ctypes.c_float),
    "z": (ComplexDouble, ctypes.c_double),
}

IN_KINDS = {"in1": 1, "in2": 2}
OUT_KINDS = {"out1": 1, "out2": 2, "iout1": 1, "iout2": 2, "inout2": 2}
WORK_KINDS = {"work1": 1, "iwork1": 1}
HANDLE_KINDS = {**IN_KINDS, **OUT_KINDS, **WORK_KINDS}
VALUE_KINDS = {"int", "uint", "real", "module"}
SCALAR_OUT_KINDS = {"elem_out", "real_out"}
ALL_KINDS = set(HANDLE_KINDS) | VALUE_KINDS | SCALAR_OUT_KINDS


@dataclass(frozen=True)
class ExportRow:
    name: str           # operation name without its letter
    letters: str        # element types ("-" for a single export under its own name)
    result: str         # "status" or "void"
    args: tuple         # ((argument name, kind), ...)
    family: str

    def export_names(self):
        if self.letters == "-":
            return [self.name]
        return [letter + self.name for letter in self.letters]


def parse_export_list(text, source="<export list>"):
    rows, family = [], None
    for lineno, raw in enumerate(text.splitlines(), 1):
        line = raw.split("#", 1)[0].strip()
        if not line:
            continue
        if line.startswith("@family"):
            family = line.split()[1]
            continue
        parts = line.split()
        if len(parts) < 3:
            raise ValueError(f"{source}:{lineno}: expected 'Name letters result [arg:kind ...]'")
        name, letters, result = parts[:3]
        args = []
        for a in parts[3:]:
            aname, _, kind = a.partition(":")
            if kind not in ALL_KINDS:
                raise ValueError(f"{source}:{lineno}: unknown kind {kind!r}")
            args.append((aname, kind))
        if letters != "-" and (not letters or any(ch not in LETTERS for ch in letters)):
            raise ValueError(f"{source}:{lineno}: bad letters {letters!r}")
        if result not in ("status", "void"):
            raise ValueError(f"{source}:{lineno}: bad result {result!r}")
        if family is None:
            raise ValueError(f"{source}:{lineno}: row before any @family line")
        rows.append(ExportRow(name, letters, result, tuple(args), family))
    return rows


def c_argtype(kind, letter):
    if kind in HANDLE_KINDS or kind == "module":
        return ctypes.c_void_p
    if kind == "int":
        return ctypes.c_int32
    if kind == "uint":
        return ctypes.c_uint32
    elem, real = C_TYPES[letter]
    return {"real": real, "elem_out": ctypes.POINTER(elem),
            "real_out": ctypes.POINTER(real)}[kind]


ROWS = parse_export_list(EXPORTS_PATH.read_text(), str(EXPORTS_PATH))
ROWS_BY_NAME = {r.name: r for r in ROWS}

# export name -> (row, letter or None)
EXPORTS = {}
for _row in ROWS:
    if _row.letters == "-":
        EXPORTS[_row.name] = (_row, None)
    else:
        for _l in _row.letters:
            EXPORTS[_l + _row.name] = (_row, _l)


def _bind(export_name):
    row, letter = EXPORTS[export_name]
    try:
        fn = getattr(lib, export_name)
    except AttributeError:
        return None
    fn.argtypes = [c_argtype(kind, letter) for _, kind in row.args]
    fn.restype = ctypes.c_int32 if row.result == "status" else None
    fn.row, fn.letter = row, letter
    return fn


# The raw layer: raw.dDotProdH(x, y, ctypes.byref(result)) etc. Handle arguments take a
# HostArray, a plain address or None (a null handle).
raw = SimpleNamespace()
MISSING = []
for _name in EXPORTS:
    _fn = _bind(_name)
    if _fn is None:
        MISSING.append(_name)
    else:
        setattr(raw, _name, _fn)


def available(export_name):
    return hasattr(raw, export_name)


def check_status(status, export_name):
    """Raises QuarzError on a negative status, warns on a positive one."""
    if status < 0:
        raise QuarzError(status, export_name)
    if status > 0:
        warnings.warn(QuarzWarning(status, export_name), stacklevel=3)
    return status


def _scalar_value(var, kind, letter):
    if kind == "real_out":
        return np.dtype(np.float32 if letter in "sc" else np.float64).type(var.value)
    if letter in "cz":
        return LETTERS[letter][1].type(complex(var.re, var.im))
    return LETTERS[letter][1].type(var.value)


def invoke(export_name, *args, check=True):
    """Runs an export on numpy arrays.

    `args` are the export's inputs in list order: an array for every in1/in2/inout2
    argument, a number for every int/uint/real/module argument. The handles for outputs
    and work arrays are made here and freed here, whatever happens. Returns
    (status, [outputs]) with one entry per inout2/out/iout/elem_out/real_out argument, in
    list order (numpy arrays, numpy scalars). With check=True a negative status raises
    QuarzError and a positive one issues a QuarzWarning.
    """
    row, letter = EXPORTS[export_name]
    if not available(export_name):
        raise AttributeError(f"{export_name} is not exported by the loaded library")
    fn = getattr(raw, export_name)
    n_user = sum(1 for _, k in row.args if k in IN_KINDS or k in VALUE_KINDS or k == "inout2")
    if len(args) != n_user:
        raise TypeError(f"{export_name} takes {n_user} inputs, got {len(args)}")
    user = iter(args)
    elem_code = LETTERS[letter][0] if letter else None
    with contextlib.ExitStack() as stack:
        call_args, outputs = [], []
        for aname, kind in row.args:
            if kind in IN_KINDS or kind == "inout2":
                h = stack.enter_context(HostArray.from_numpy(next(user), elem_code,
                                                             HANDLE_KINDS[kind]))
                call_args.append(h)
                if kind == "inout2":
                    outputs.append(("handle", h))
            elif kind in OUT_KINDS or kind in WORK_KINDS:
                code = INT32_CODE if kind.startswith("i") else elem_code
                h = stack.enter_context(HostArray.empty(code, HANDLE_KINDS[kind]))
                call_args.append(h)
                if kind in OUT_KINDS:
                    outputs.append(("handle", h))
            elif kind in VALUE_KINDS:
                value = next(user)
                call_args.append(float(value) if kind == "real" else
                                 value if kind == "module" else int(value))
            else:  # elem_out / real_out
                ctype = C_TYPES[letter][0 if kind == "elem_out" else 1]
                var = ctype()
                call_args.append(ctypes.byref(var))
                outputs.append((kind, var))
        status = fn(*call_args)
        results = [h.to_numpy() if what == "handle" else _scalar_value(h, what, letter)
                   for what, h in outputs]
    if check and row.result == "status":
        check_status(status, export_name)
    return status, results
