"""The Python package as a wheel. It carries the pure-Python host; the library, its kind
table and the compiled bridge are the installed ones (cmake --install puts the bridge
beside the library). The version is the project's, read from ../CMakeLists.txt. With
QUARZ_LINALG_PREFIX set at build time, the package remembers <prefix>/lib as the place to
load the library from; otherwise it uses $QUARZ_LINALG_LIBDIR or the system loader path.
"""
import os
import re
from pathlib import Path

from setuptools import setup
from setuptools.command.build_py import build_py

HERE = Path(__file__).resolve().parent


def version():
    text = (HERE.parent / "CMakeLists.txt").read_text()
    return re.search(r"project\(quarz_linalg VERSION (\d+\.\d+\.\d+)", text).group(1)


class BuildPy(build_py):
    def run(self):
        super().run()
        prefix = os.environ.get("QUARZ_LINALG_PREFIX")
        target = Path(self.build_lib) / "quarz_linalg" / "_install.py"
        target.write_text("# Written when the wheel was built.\n"
                          f"LIBDIR = {str(Path(prefix) / 'lib') if prefix else None!r}\n")


setup(version=version(), cmdclass={"build_py": BuildPy})
