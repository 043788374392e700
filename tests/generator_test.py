#!/usr/bin/env python3
"""The generator's argument kinds that no landed export uses yet: name templates,
arguments for some letters only, real and complex counterparts, ignored handles, pointer
inputs and int32 results with a failure value. Run by ctest with the generator's path."""
import json
import os
import subprocess
import sys
import tempfile

GEN = sys.argv[1]
LIST = """
@status StatusOk 0
@option Side left=141 right=142
@family blas/gemm.h
| first line
| second line
koblas_{t}gemm sdcz status C:inout2 alpha:elem_in rwork:work1r@cz S:out1r V:out2c rank:int_out=-1 unused:ignored2 side:int(Side) cRow:int=0 lead:int(Side)=142 check:int=1!
"""


def generate(text):
    d = tempfile.mkdtemp()
    with open(os.path.join(d, "x.list"), "w") as f:
        f.write(text)
    with open(os.path.join(d, "h.in"), "w") as f:
        f.write("@STATUS@\n@OPTIONS@\n@PROTOTYPES@\n")
    r = subprocess.run([sys.executable, GEN, "--list", os.path.join(d, "x.list"), "--header-template",
                        os.path.join(d, "h.in"), "--out", d], capture_output=True, text=True)
    return d, r


def read(d, name):
    with open(os.path.join(d, name)) as f:
        return f.read()


d, r = generate(LIST)
assert r.returncode == 0, r.stderr
table = {e["name"]: e for e in json.loads(read(d, "quarz_linalg_exports.json"))["exports"]}
assert sorted(table) == ["koblas_cgemm", "koblas_dgemm", "koblas_sgemm", "koblas_zgemm"], sorted(table)
elems = {n: {a["name"]: a.get("elem") for a in e["args"]} for n, e in table.items()}
assert "rwork" not in elems["koblas_dgemm"] and elems["koblas_zgemm"]["rwork"] == "d", elems
assert (elems["koblas_cgemm"]["S"], elems["koblas_dgemm"]["V"], elems["koblas_sgemm"]["V"]) == ("s", "z", "c"), elems
args = {a["name"]: a for a in table["koblas_sgemm"]["args"]}
assert args["side"]["option"] == "Side" and "default" not in args["side"], args
assert (args["cRow"]["default"], args["lead"]["default"], args["lead"]["option"]) == (0, 142, "Side"), args
assert args["check"]["pinned"] and "pinned" not in args["cRow"], args

header = read(d, "include/quarz_linalg.h")
flat = " ".join(header.split())
assert ("QUARZ_API int32_t koblas_cgemm(ArrayHandle C, const QuarzComplexFloat* alpha, ArrayHandle rwork, "
        "ArrayHandle S, ArrayHandle V, int32_t* rank, ArrayHandle unused, int32_t side, int32_t cRow, "
        "int32_t lead, int32_t check);") in flat, header
assert "koblas_dgemm(ArrayHandle C, const double* alpha, ArrayHandle S," in flat, header
assert "/* first line\n * second line\n */" in header and "QuarzSideRight = 142" in header, header

calls = read(d, "export_table.inc")
for desc in ['{"cRow", Role::Int, 0, 0, -1, 0, false, "0", false, false}',
             '{"side", Role::Int, 0, 0, 0, 0, false, nullptr, false, false}',
             '{"check", Role::Int, 0, 0, -1, 0, false, "1", true, false}']:
    assert desc in calls, (desc, calls)

code = read(d, "exports_blas_gemm.cpp")
z = code[code.index("koblas_zgemm"):]
assert "ql::koblas_gemm<T>(C, ql::AsElem<T>(alpha), rwork, S, V, rank, side, cRow, lead, check)" in z, z
for role in ["ql::Inout<T, 2>{{C}}", "ql::Work<ql::RealOf<T>>{rwork}", "ql::Out1<ql::RealOf<T>>{S}",
             "ql::Out2<ql::ComplexOf<T>>{V}", "ql::ScalarOut<int32_t>{rank, -1}", "(void)unused;"]:
    assert role in z, role

for bad, why in [("X sd status a:in3", "unknown kind"), ("X sd status a:int(Nope)", "unknown option"),
                 ("X sd status\nX d status", "duplicate"), ("X sq status", "bad letters"),
                 ("X sd status a:in1?", "only a work handle or an output"),
                 ("X sd status a:out2sq", "only a matrix that is read")]:
    _, r = generate("@family f.h\n" + bad + "\n")
    assert r.returncode != 0 and why in r.stderr, (bad, r.stderr)
print("1 passed, 0 failed")
