"""The raw layer: every export of the library with its exact C argument list, bound from
the kind table the build generates beside the library, and `invoke`, which runs an export
on numpy arrays by the roles of its arguments.

Argument roles of the table: handles are in (read only), out (sized by the export),
inout (read, then overwritten in place), work (scratch, emptied on every return) or
ignored (never touched, may be null), each with a rank and an element letter (s, d, c, z
or i for int32). Scalars are int / uint (int32 / uint32 by value; an int may name an
option table), real and elem (the real type or the element by value), module (a host
module handle), elem_in / real_in (pointer to one input), elem_out / real_out (pointer to
one result) and int_out (pointer to an int32 result).

invoke and op run on the compiled bridge when the package loaded one (see _library), else
through ctypes; both take and return the same values and raise the same errors. raw is
always ctypes.
"""
import contextlib
import ctypes
import warnings
from types import SimpleNamespace

import numpy as np

from ._host import TYPE_DTYPES, HostArray, letter_of, type_code
from ._library import BRIDGE_PATH, KIND_TABLE, bridge, kort, lib
from ._status import QuarzError, QuarzWarning


class ComplexFloat(ctypes.Structure):
    _fields_ = [("re", ctypes.c_float), ("im", ctypes.c_float)]


class ComplexDouble(ctypes.Structure):
    _fields_ = [("re", ctypes.c_double), ("im", ctypes.c_double)]


# element letter: C type of one element
C_TYPES = {"s": ctypes.c_float, "d": ctypes.c_double, "c": ComplexFloat,
           "z": ComplexDouble, "i": ctypes.c_int32}

HANDLE_ROLES = {"in", "out", "inout", "work", "ignored"}
# Roles that take a value from the caller of invoke, and roles whose value it returns.
INPUT_ROLES = {"in", "inout", "int", "uint", "real", "elem", "module", "elem_in", "real_in"}
OUTPUT_ROLES = {"out", "inout", "elem_out", "real_out", "int_out"}
SCALAR_OUT_ROLES = {"elem_out", "real_out", "int_out"}

EXPORTS = {e["name"]: e for e in KIND_TABLE["exports"]}
OPTIONS = KIND_TABLE["options"]


def c_argtype(arg):
    role = arg["role"]
    if role in HANDLE_ROLES or role == "module":
        return ctypes.c_void_p
    if role == "int":
        return ctypes.c_int32
    if role == "uint":
        return ctypes.c_uint32
    if role == "int_out":
        return ctypes.POINTER(ctypes.c_int32)
    ctype = C_TYPES[arg["elem"]]
    return ctype if role in ("real", "elem") else ctypes.POINTER(ctype)


def _bind(entry):
    try:
        fn = getattr(lib, entry["name"])
    except AttributeError:
        return None
    fn.argtypes = [c_argtype(a) for a in entry["args"]]
    fn.restype = ctypes.c_int32 if entry["result"] == "status" else None
    fn.entry = entry
    return fn


# The raw layer: raw.dDotProdH(x, y, ctypes.byref(result)) etc. Handle arguments take a
# HostArray, a plain address or None (a null handle).
raw = SimpleNamespace()
MISSING = []
for _entry in EXPORTS.values():
    _fn = _bind(_entry)
    if _fn is None:
        MISSING.append(_entry["name"])
    else:
        setattr(raw, _entry["name"], _fn)


def available(export_name):
    return hasattr(raw, export_name)


def option_value(table, name):
    """The int32 value of an option given by its name in `table`, or as a number."""
    if isinstance(name, str):
        values = OPTIONS[table]
        if name not in values:
            raise ValueError(f"{name!r} is not one of {table}: {', '.join(values)}")
        return values[name]
    return int(name)


def check_status(status, export_name):
    """Raises QuarzError on a negative status, warns on a positive one."""
    if status < 0:
        raise QuarzError(status, export_name)
    if status > 0:
        warnings.warn(QuarzWarning(status, export_name), stacklevel=3)
    return status


def to_ctype(letter, value):
    """One element or real of type `letter` as its C value."""
    if letter in "cz":
        v = complex(value)
        return C_TYPES[letter](v.real, v.imag)
    return C_TYPES[letter](value)


def from_ctype(letter, var):
    """A C element or real as a numpy scalar of its type."""
    value = complex(var.re, var.im) if letter in "cz" else var.value
    return TYPE_DTYPES[type_code(letter)].type(value)


def _input_arg(arg, value, stack):
    role = arg["role"]
    if role in ("in", "inout"):
        if value is None:
            return None, None
        h = stack.enter_context(HostArray.from_numpy(value, type_code(arg["elem"]), arg["rank"]))
        return h, h
    if role in ("int", "uint"):
        return int(value), None
    if role == "module":
        return value, None
    if role in ("real", "elem"):
        return to_ctype(arg["elem"], value), None
    # elem_in / real_in: a pointer to one value, or null
    return (None if value is None else ctypes.byref(to_ctype(arg["elem"], value))), None


def invoke(export_name, *args, check=True):
    fast = _BRIDGED.get(export_name)
    if fast is not None:
        return fast(*args, check=check)
    return _invoke_ctypes(export_name, *args, check=check)


def _invoke_ctypes(export_name, *args, check=True):
    """Runs an export on numpy arrays.

    `args` are the export's inputs in list order: an array (or None for a null handle) for
    every in / inout handle, a number for every by-value scalar (int, uint, real, elem,
    module) and for every elem_in / real_in (None passes a null pointer). Handles for
    outputs and work arrays are made here and freed here, whatever happens; ignored
    handles are passed as null. Returns (status, [outputs]) with one entry per out /
    inout handle and per *_out scalar, in list order (numpy arrays, numpy scalars); the
    status is None for an export without one. With check=True a negative status raises
    QuarzError and a positive one issues a QuarzWarning.
    """
    entry = EXPORTS[export_name]
    if not available(export_name):
        raise AttributeError(f"{export_name} is not exported by the loaded library")
    fn = getattr(raw, export_name)
    n_inputs = sum(1 for a in entry["args"] if a["role"] in INPUT_ROLES)
    if len(args) != n_inputs:
        raise TypeError(f"{export_name} takes {n_inputs} inputs, got {len(args)}")
    user = iter(args)
    with contextlib.ExitStack() as stack:
        call_args, outputs = [], []
        for arg in entry["args"]:
            role = arg["role"]
            if role in INPUT_ROLES:
                value, kept = _input_arg(arg, next(user), stack)
                call_args.append(value)
                if role == "inout":
                    outputs.append(("handle", kept))
            elif role in ("out", "work"):
                h = stack.enter_context(HostArray.empty(type_code(arg["elem"]), arg["rank"]))
                call_args.append(h)
                if role == "out":
                    outputs.append(("handle", h))
            elif role == "ignored":
                call_args.append(None)
            else:  # elem_out / real_out / int_out
                letter = "i" if role == "int_out" else arg["elem"]
                var = C_TYPES[letter]()
                call_args.append(ctypes.byref(var))
                outputs.append((letter, var))
        status = fn(*call_args)
        results = [(None if v is None else v.to_numpy()) if what == "handle"
                   else from_ctype(what, v) for what, v in outputs]
    if check and status is not None:
        check_status(status, export_name)
    return status, results


# The bridge's exports by name: those the loaded library has.
_BRIDGED = bridge.bind(lib._handle, kort._handle, check_status, QuarzError) if bridge is not None else {}


def _op_ctypes(name, first_only):
    variants = [EXPORTS[l + name] for l in "sdcz" if l + name in EXPORTS]
    if not variants:
        raise KeyError(f"no export of the operation {name!r}")
    inputs = [a["role"] for a in variants[0]["args"] if a["role"] in INPUT_ROLES]
    handles = [i for i, role in enumerate(inputs) if role in ("in", "inout")]

    def call(*args):
        if len(args) != len(inputs):
            raise TypeError(f"{name} takes {len(inputs)} inputs, got {len(args)}")
        args = list(args)
        for i in handles:
            if args[i] is not None:
                args[i] = np.asarray(args[i])
        arrays = [args[i] for i in handles if args[i] is not None]
        letter = letter_of(np.result_type(*arrays)) if arrays else "d"
        outputs = invoke(letter + name, *args)[1]
        return outputs[0] if first_only else outputs

    call.__name__ = name
    return call


def op(name, first_only=False):
    """The operation `name` (an export's name without its element letter) as one callable
    over the four element types: op(name)(*inputs) runs the export whose letter is numpy's
    result type of the arrays given for its handle inputs (float32 s, float64 d, complex64
    c, complex128 z; integers d) and returns its outputs as invoke does, or the first one
    alone with first_only. A negative status raises QuarzError, a positive one warns."""
    if bridge is not None:
        return bridge.op(name, first_only)
    return _op_ctypes(name, first_only)
