#!/usr/bin/env python3
"""Generates everything that lists the exports from src/exports.list: the public header
(from include/quarz_linalg.h.in), the export definitions, the Linux version script, the
Windows module definition, the Python host's kind table (JSON) and the tests' call
table. The list's format is described at its top."""
import argparse
import json
import os
import re
import sys

# letter: (C++ element type, C element type, C real type, real letter, complex letter,
#          host type code)
LETTERS = {
    "s": ("float", "float", "float", "s", "c", 9),
    "d": ("double", "double", "double", "d", "z", 10),
    "c": ("std::complex<float>", "QuarzComplexFloat", "float", "s", "c", 12),
    "z": ("std::complex<double>", "QuarzComplexDouble", "double", "d", "z", 13),
}
INT32_CODE = 3

HANDLE_RE = re.compile(r"^(in|out|inout|work|ignored)([12])([rci]?)(sq)?(\??)$")
SCALAR_RE = re.compile(r"^(int|uint|real|elem|module|elem_in|real_in|elem_out|real_out)"
                       r"(?:\((\w+)\))?(?:=(-?\d+(?:\.\d+)?)(!?))?$|^int_out=(-?\d+)$")


class ListError(Exception):
    pass


class Arg:
    """One argument: handle (role, rank, element) or scalar (kind, option, fail value)."""

    def __init__(self, text, where):
        decl, _, only = text.partition("@")
        self.name, _, kind = decl.partition(":")
        self.only = only or None
        if not self.name or not kind:
            raise ListError(f"{where}: argument '{text}' is not name:kind")
        self.kind = kind
        self.option = None
        self.fail = None
        self.default = None
        self.pinned = False
        self.optional = False
        self.square = False
        m = HANDLE_RE.match(kind)
        if m:
            self.role, self.rank, self.elem = m.group(1), int(m.group(2)), m.group(3)
            self.square, self.optional = bool(m.group(4)), bool(m.group(5))
            if self.optional and self.role not in ("work", "out"):
                raise ListError(f"{where}: only a work handle or an output can be optional")
            if self.square and (self.role not in ("in", "inout") or self.rank != 2):
                raise ListError(f"{where}: only a matrix that is read can be marked square")
            return
        m = SCALAR_RE.match(kind)
        if not m:
            raise ListError(f"{where}: unknown kind '{kind}'")
        self.rank = 0
        if m.group(5) is not None:
            self.role, self.fail = "int_out", int(m.group(5))
        else:
            self.role, self.option = m.group(1), m.group(2)
            if self.option and self.role != "int":
                raise ListError(f"{where}: only int takes an option table")
            if m.group(3) is not None:
                if self.role not in ("int", "real") or (self.role == "int" and "." in m.group(3)):
                    raise ListError(f"{where}: only int and real take a default value, int a whole one")
                if self.role == "real" and m.group(4):
                    raise ListError(f"{where}: a real default cannot be pinned")
                value = m.group(3)
                self.default = int(value) if self.role == "int" else float(value)
                self.pinned = bool(m.group(4))

    @property
    def handle(self):
        return self.rank > 0

    def elem_letter(self, letter):
        """The element of a handle or scalar for an export letter: s d c z or i."""
        if self.role in ("real", "real_in", "real_out"):
            return LETTERS[letter][3]
        if self.role in ("elem", "elem_in", "elem_out"):
            return letter
        if not self.handle:
            return None
        return {"": letter, "r": LETTERS[letter][3], "c": LETTERS[letter][4], "i": "i"}[self.elem]


def parse(path):
    rows, statuses, options = [], [], {}
    family = section = None
    doc = []
    with open(path) as f:
        for lineno, raw in enumerate(f, 1):
            where = f"{path}:{lineno}"
            stripped = raw.strip()
            if stripped.startswith("|"):
                doc.append(stripped[1:].strip())
                continue
            line = raw.split("#", 1)[0].strip()
            if not line:
                continue
            parts = line.split()
            if parts[0] == "@family":
                family = parts[1]
            elif parts[0] == "@section":
                section = line.split(None, 1)[1]
            elif parts[0] == "@status":
                statuses.append((parts[1], int(parts[2])))
            elif parts[0] == "@option":
                values = []
                for item in parts[2:]:
                    key, eq, value = item.partition("=")
                    if not eq:
                        raise ListError(f"{where}: option value '{item}' is not name=value")
                    values.append((key, int(value)))
                options[parts[1]] = values
            else:
                if len(parts) < 3:
                    raise ListError(f"{where}: expected 'Name letters result [arg:kind ...]'")
                name, letters, result = parts[:3]
                if letters != "-" and (not letters or any(l not in LETTERS for l in letters)):
                    raise ListError(f"{where}: bad letters '{letters}'")
                if result not in ("status", "void"):
                    raise ListError(f"{where}: bad result '{result}'")
                if family is None:
                    raise ListError(f"{where}: row before any @family line")
                args = [Arg(a, where) for a in parts[3:]]
                for a in args:
                    if a.option and a.option not in options:
                        raise ListError(f"{where}: unknown option table '{a.option}'")
                    if a.role == "ignored" and a.only:
                        raise ListError(f"{where}: an ignored handle is the same for every letter")
                rows.append(dict(name=name, letters=letters, result=result, args=args,
                                 family=family, section=section, doc=doc))
                section, doc = None, []
    names = [e["name"] for e in exports(rows)]
    if len(set(names)) != len(names):
        raise ListError(f"{path}: duplicate export names")
    return rows, statuses, options


def exports(rows):
    """One entry per exported name: the row, its letter (None for hand-written ones) and
    the arguments that exist for that letter."""
    for r in rows:
        if r["letters"] == "-":
            yield dict(row=r, letter=None, name=r["name"], args=r["args"])
            continue
        for l in r["letters"]:
            name = r["name"].replace("{t}", l) if "{t}" in r["name"] else l + r["name"]
            args = [a for a in r["args"] if not a.only or l in a.only]
            yield dict(row=r, letter=l, name=name, args=args)


def op_name(row):
    return row["name"].replace("{t}", "")


def camel(word):
    return "".join(p[:1].upper() + p[1:] for p in word.split("_"))


# ---- C and C++ types ----------------------------------------------------------------

def c_type(arg, letter):
    if arg.handle:
        return "ArrayHandle"
    if arg.role == "int":
        return "int32_t"
    if arg.role == "uint":
        return "uint32_t"
    if arg.role == "module":
        return "void*"
    if arg.role == "int_out":
        return "int32_t*"
    el = arg.elem_letter(letter)
    base = LETTERS[el][1] if arg.role.startswith("elem") else LETTERS[el][2]
    if arg.role in ("elem", "real"):
        return base
    return ("const " if arg.role.endswith("_in") else "") + base + "*"


def cpp_elem(arg):
    """The C++ element type of a handle or scalar role, in terms of the export's T."""
    return {"": "T", "r": "ql::RealOf<T>", "c": "ql::ComplexOf<T>", "i": "int32_t"}[
        arg.elem if arg.handle else ("r" if arg.role.startswith("real") else "")]


def role_object(arg):
    e = cpp_elem(arg)
    square = ", true" if arg.square else ""
    if arg.role == "in":
        return f"ql::In<{e}, {arg.rank}{square}>{{{arg.name}}}"
    if arg.role == "out":
        return f"ql::Out{arg.rank}<{e}{', true' if arg.optional else ''}>{{{arg.name}}}"
    if arg.role == "inout":
        return f"ql::Inout<{e}, {arg.rank}{square}>{{{{{arg.name}}}}}"
    if arg.role == "work":
        return f"ql::Work<{e}>{{{arg.name}}}"
    if arg.role == "elem_out":
        return f"ql::ScalarOut<T>{{ql::AsElem<T>({arg.name}), ql::Elem<T>::NaN()}}"
    if arg.role == "real_out":
        return f"ql::ScalarOut<ql::RealOf<T>>{{{arg.name}, ql::Elem<T>::RealNaN()}}"
    if arg.role == "int_out":
        return f"ql::ScalarOut<int32_t>{{{arg.name}, {arg.fail}}}"
    return None


def call_arg(arg):
    if arg.role in ("elem_out", "elem_in"):
        return f"ql::AsElem<T>({arg.name})"
    if arg.role == "elem":
        return f"ql::FromC<T>({arg.name})"
    return arg.name


def definition(e):
    letter = e["letter"]
    params = ", ".join(f"{c_type(a, letter)} {a.name}" for a in e["args"]) or "void"
    call = ", ".join(call_arg(a) for a in e["args"] if a.role != "ignored")
    roles = [r for r in (role_object(a) for a in e["args"]) if r]
    tail = "".join(",\n      " + r for r in roles)
    unused = "".join(f"  (void){a.name};\n" for a in e["args"] if a.role == "ignored")
    return (f"QUARZ_API int32_t {e['name']}({params}) {{\n"
            f"  using T = {LETTERS[letter][0]};\n{unused}"
            f"  return ql::RunExport([&] {{ return ql::{op_name(e['row'])}<T>({call}); }}{tail});\n"
            f"}}\n")


# ---- Public header ------------------------------------------------------------------

def prototype(e):
    result = "int32_t" if e["row"]["result"] == "status" else "void"
    head = f"QUARZ_API {result} {e['name']}("
    params = [f"{c_type(a, e['letter'])} {a.name}" for a in e["args"]] or ["void"]
    lines, cur = [], head
    for i, p in enumerate(params):
        piece = p + (", " if i + 1 < len(params) else ");")
        if len(cur) + len(piece) > 100 and cur.strip() != head.strip():
            lines.append(cur.rstrip())
            cur = " " * len(head) + piece
        else:
            cur += piece
    lines.append(cur)
    return "\n".join(lines)


def header(template, rows, statuses, options):
    status = ",\n".join(f"  {n} = {v}" for n, v in statuses)
    opts = []
    for name, values in options.items():
        items = ", ".join(f"Quarz{name}{camel(k)} = {v}" for k, v in values)
        opts.append(f"enum Quarz{name} {{ {items} }};")
    protos = []
    for r in rows:
        if r["section"]:
            protos.append(f"/* ---- {r['section']} " + "-" * max(4, 80 - len(r["section"])) + " */\n")
        if r["doc"]:
            body = "\n * ".join(r["doc"])
            protos.append(f"/* {body} */\n" if len(r["doc"]) == 1 else f"/* {body}\n */\n")
        protos.append("".join(prototype(e) + "\n" for e in exports([r])) + "\n")
    out = template.replace("@STATUS@", status).replace("@OPTIONS@", "\n".join(opts))
    return out.replace("@PROTOTYPES@", "".join(protos).rstrip() + "\n")


# ---- Test-side tables ---------------------------------------------------------------

def typed_api(rows):
    """Api<T>::Name(...) calls the export of T's letter, with element pointers typed as
    std::complex where the C header has the plain structs."""
    out = ["// Generated by tools/gen_exports.py from src/exports.list; do not edit.",
           "#pragma once", "#include <complex>", "#include <cstdint>", '#include "quarz_linalg.h"', "",
           "namespace qt {", "template <class T> struct Api;", ""]
    for letter, (t, elem, real, *_rest) in LETTERS.items():
        out.append(f"template <> struct Api<{t}> {{")
        for e in exports(rows):
            if e["letter"] != letter:
                continue
            params, args = [], []
            for a in e["args"]:
                ct = c_type(a, letter)
                if a.role in ("elem_out", "elem_in"):
                    cpp = ("const " if a.role == "elem_in" else "") + t + "*"
                    params.append(f"{cpp} {a.name}")
                    args.append(f"reinterpret_cast<{ct}>({a.name})")
                else:
                    params.append(f"{ct} {a.name}")
                    args.append(a.name)
            out.append(f"  static int32_t {op_name(e['row'])}({', '.join(params)}) "
                       f"{{ return {e['name']}({', '.join(args)}); }}")
        out.append("};")
    out += ["", "}  // namespace qt", ""]
    return "\n".join(out)


def type_code(arg, letter):
    el = arg.elem_letter(letter)
    return INT32_CODE if el == "i" else (LETTERS[el][5] if el else 0)


def call_table(rows, options):
    """One qt::ExportEntry per status export: argument descriptions and a thunk that calls the
    export from an array of qt::ArgValue."""
    option_index = {n: i for i, n in enumerate(options)}
    out = ["// Generated by tools/gen_exports.py from src/exports.list; do not edit.",
           "// Included inside namespace qt by tests/support/export_table.h."]
    out.append("inline const OptionTable kOptionTables[] = {")
    for name, values in options.items():
        out.append(f'  {{"{name}", {len(values)}, {{{", ".join(f"{v}" for _, v in values)}}}}},')
    out.append("};")
    out.append("inline const ExportEntry kExportTable[] = {")
    for e in exports(rows):
        if e["row"]["result"] != "status":
            continue
        descs, thunk = [], []
        for i, a in enumerate(e["args"]):
            role = "Role::" + camel(a.role)
            opt = option_index[a.option] if a.option else -1
            default = f'"{a.default}"' if a.default is not None else "nullptr"
            descs.append(f'{{"{a.name}", {role}, {a.rank}, {type_code(a, e["letter"])}, {opt}, '
                         f'{a.fail if a.fail is not None else 0}, {str(a.optional).lower()}, {default}, '
                         f'{str(a.pinned).lower()}, {str(a.square).lower()}}}')
            ct = c_type(a, e["letter"])
            if a.handle:
                thunk.append(f"a[{i}].h")
            elif a.role == "int":
                thunk.append(f"a[{i}].i")
            elif a.role == "uint":
                thunk.append(f"a[{i}].u")
            elif a.role == "real":
                thunk.append(f"static_cast<{ct}>(a[{i}].r)")
            elif a.role == "elem":
                thunk.append(f"*static_cast<const {ct}*>(a[{i}].p)")
            else:
                thunk.append(f"static_cast<{ct}>(a[{i}].p)")
        out.append(f'  {{"{e["name"]}", "{op_name(e["row"])}", \'{e["letter"]}\', {len(descs)},\n'
                   f'   {{{", ".join(descs)}}},\n'
                   f'   [](const ArgValue* a) -> int32_t {{ (void)a; return {e["name"]}({", ".join(thunk)}); }}}},')
    out.append("};")
    return "\n".join(out) + "\n"


def kind_table(rows, statuses, options, version):
    """The Python host's view: every export with its arguments, the options and statuses."""
    entries = []
    for e in exports(rows):
        args = []
        for a in e["args"]:
            d = {"name": a.name, "kind": a.kind, "role": a.role}
            if a.handle:
                d.update(rank=a.rank, elem=a.elem_letter(e["letter"]))
            elif e["letter"]:
                el = a.elem_letter(e["letter"])
                if el:
                    d["elem"] = el
            if a.option:
                d["option"] = a.option
            if a.fail is not None:
                d["fail"] = a.fail
            if a.optional:
                d["optional"] = True
            if a.square:
                d["square"] = True
            if a.default is not None:
                d["default"] = a.default
            if a.pinned:
                d["pinned"] = True
            args.append(d)
        entries.append({"name": e["name"], "op": op_name(e["row"]), "letter": e["letter"],
                        "result": e["row"]["result"], "family": e["row"]["family"], "args": args})
    return json.dumps({"version": version, "exports": entries,
                       "options": {n: dict(v) for n, v in options.items()},
                       "status": dict(statuses)}, indent=1) + "\n"


def write_if_changed(path, text):
    if os.path.exists(path):
        with open(path) as f:
            if f.read() == text:
                return
    os.makedirs(os.path.dirname(path) or ".", exist_ok=True)
    with open(path, "w") as f:
        f.write(text)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--list", required=True)
    ap.add_argument("--header-template", required=True)
    ap.add_argument("--out", required=True)
    ap.add_argument("--print-sources", action="store_true")
    ap.add_argument("--version", default="0.0.0", help="major.minor.patch, for the header and the kind table")
    a = ap.parse_args()
    try:
        rows, statuses, options = parse(a.list)
    except ListError as err:
        sys.exit(str(err))
    names = [e["name"] for e in exports(rows)]

    families = {}
    for e in exports(rows):
        if e["letter"]:
            families.setdefault(e["row"]["family"], []).append(e)
    sources = []
    for family, entries in families.items():
        stem = os.path.splitext(family)[0].replace("/", "_")
        path = os.path.join(a.out, f"exports_{stem}.cpp")
        write_if_changed(path,
                         "// Generated by tools/gen_exports.py from src/exports.list; do not edit.\n"
                         "#include \"frame/export.h\"\n"
                         f"#include \"{family}\"\n\n"
                         "extern \"C\" {\n\n" + "".join(definition(e) + "\n" for e in entries) +
                         "}  // extern \"C\"\n")
        sources.append(path)

    with open(a.header_template) as f:
        template = f.read()
    major, minor, patch = a.version.split(".")
    template = template.replace("@VERSION_MAJOR@", major).replace("@VERSION_MINOR@", minor)
    template = template.replace("@VERSION_PATCH@", patch)
    write_if_changed(os.path.join(a.out, "include", "quarz_linalg.h"), header(template, rows, statuses, options))
    write_if_changed(os.path.join(a.out, "quarz_linalg.map"),
                     "{\n  global:\n" + "".join(f"    {n};\n" for n in names) + "  local:\n    *;\n};\n")
    write_if_changed(os.path.join(a.out, "QUARZ_LINALG.def"),
                     "LIBRARY QUARZ_LINALG\nEXPORTS\n" + "".join(f"  {n}\n" for n in names))
    write_if_changed(os.path.join(a.out, "export_names.inc"), "".join(f"\"{n}\",\n" for n in names))
    write_if_changed(os.path.join(a.out, "typed_api.h"), typed_api(rows))
    write_if_changed(os.path.join(a.out, "export_table.inc"), call_table(rows, options))
    write_if_changed(os.path.join(a.out, "quarz_linalg_exports.json"), kind_table(rows, statuses, options, a.version))
    if a.print_sources:
        print(";".join(sources))


if __name__ == "__main__":
    main()
