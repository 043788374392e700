"""The Python package as a platform wheel: the pure-Python host and its compiled bridge
(quarz_linalg/_quarz_bridge, bridge/bridge.c with its export table generated here from
../src/exports.list by the same tools as the CMake build, so its digest is the installed
kind table's). The library, the host runtime and the kind table are not in the wheel; the
package loads the installed ones. With QUARZ_LINALG_PREFIX set at build time it remembers
<prefix>/lib as the place to load them from; otherwise it uses $QUARZ_LINALG_LIBDIR or the
system loader path. The version is the project's, read from ../CMakeLists.txt.
"""
import os
import re
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext
from setuptools.command.build_py import build_py

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent


def version():
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"project\(quarz_linalg VERSION (\d+\.\d+\.\d+)", text).group(1)


class BuildExt(build_ext):
    def run(self):
        import numpy
        gen = Path(self.build_temp).resolve() / "generated"
        subprocess.run([sys.executable, str(ROOT / "tools" / "gen_exports.py"),
                        "--list", str(ROOT / "src" / "exports.list"),
                        "--header-template", str(ROOT / "include" / "quarz_linalg.h.in"),
                        "--out", str(gen), "--version", version()], check=True, stdout=subprocess.DEVNULL)
        subprocess.run([sys.executable, str(ROOT / "tools" / "gen_pybridge.py"),
                        "--table", str(gen / "quarz_linalg_exports.json"),
                        "--out", str(gen / "pybridge_table.inc")], check=True)
        for ext in self.extensions:
            ext.include_dirs += [str(gen), str(gen / "include"), numpy.get_include()]
        super().run()


class BuildPy(build_py):
    def run(self):
        super().run()
        prefix = os.environ.get("QUARZ_LINALG_PREFIX")
        target = Path(self.build_lib) / "quarz_linalg" / "_install.py"
        target.write_text("# Written when the wheel was built.\n"
                          f"LIBDIR = {str(Path(prefix) / 'lib') if prefix else None!r}\n")


bridge = Extension("quarz_linalg._quarz_bridge", ["bridge/bridge.c"], libraries=["dl"],
                   extra_compile_args=["-Wall", "-Wextra", "-fvisibility=hidden"])
setup(version=version(), ext_modules=[bridge], cmdclass={"build_ext": BuildExt, "build_py": BuildPy})
