#!/usr/bin/env bash
# The installed library, as a user gets it: installs the build into a scratch prefix and
# builds the examples there as a project of their own, once through CMake's
# find_package(QuarzLinalg) and once through pkg-config, and runs them; installs the
# Python package as a wheel into a virtual environment and runs it; then makes the
# Debian packages (CPack), checks them with lintian (no errors) and their dependencies,
# extracts them into a scratch root and runs the CMake consumer against that tree.
# Nothing found at run time comes from the source or build tree: the programs run from
# the scratch directory without LD_LIBRARY_PATH, their RUNPATH naming the installed lib
# directory, and the library finds the kernel's links in its folder lib/quarz_linalg/
# (lib/ itself, the loader's default path for the packages, must not hold them).
# Usage: scripts/install-test.sh [build dir=build]
set -euo pipefail
cd "$(dirname "$0")/.."
build="$(cd "${1:-build}" && pwd)"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
run() { (cd "$scratch" && env -u LD_LIBRARY_PATH -u QUARZ_TOOLKIT_CONFIG "$@"); }

consumer() {  # consumer <prefix> <name>: the examples through find_package, run
  cmake -S examples -B "$scratch/$2" -DCMAKE_PREFIX_PATH="$1" >/dev/null
  cmake --build "$scratch/$2" >/dev/null
  run "$scratch/$2/quarz_dot"
  run "$scratch/$2/quarz_demo" >/dev/null
}

cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
if [ -e "$scratch/prefix/lib/libiomp5.so" ] || [ ! -e "$scratch/prefix/lib/quarz_linalg/libiomp5.so" ]; then
  echo "install: the run-time links belong in lib/quarz_linalg/, not lib/" >&2
  exit 1
fi
consumer "$scratch/prefix" cmake-consumer
libdir="$(PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig" pkg-config --variable=libdir quarz_linalg)"
# shellcheck disable=SC2046
cc -o "$scratch/dot-pkg-config" examples/dot.c \
  $(PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig" pkg-config --cflags --libs quarz_linalg kort) -Wl,-rpath,"$libdir"
run "$scratch/dot-pkg-config"

# The Python package as a wheel in a virtual environment (Debian's numpy through the
# system site packages), remembering the prefix; a smoke run and a fast part of the oracle
# suite from a copy of the tests outside the repository, against the installed package and
# through the compiled bridge the wheel carries (the prefix has none).
/usr/bin/python3 -m venv --system-site-packages "$scratch/venv"
QUARZ_LINALG_PREFIX="$scratch/prefix" "$scratch/venv/bin/pip" install -q --no-build-isolation --no-index \
  --no-cache-dir ./python
rm -rf python/build python/*.egg-info
run env QUARZ_LINALG_BRIDGE=1 "$scratch/venv/bin/python" -c 'import quarz_linalg as ql, numpy as np
assert ql.__file__.startswith("'"$scratch"'/venv"), ql.__file__
assert str(ql.BRIDGE_PATH).startswith("'"$scratch"'/venv"), ql.BRIDGE_PATH
print("python:", ql.__version__, ql.LIB_PATH, ql.BRIDGE_PATH, ql.solve(np.eye(2) * 2, np.ones(2)))'
cp -r python/tests "$scratch/tests"
run env QUARZ_LINALG_BRIDGE=1 "$scratch/venv/bin/python" -m pytest -q -p no:cacheprovider "$scratch/tests/test_solve.py" \
  "$scratch/tests/test_det.py" "$scratch/tests/test_products.py" "$scratch/tests/test_subspaces.py"

(cd "$build" && rm -f ./*.deb && cpack -G DEB >"$scratch/cpack.log" 2>&1) || { cat "$scratch/cpack.log" >&2; exit 1; }
for deb in "$build"/*.deb; do
  dpkg-deb --contents "$deb" >/dev/null
  dpkg-deb -x "$deb" "$scratch/root"
done
lintian --tag-display-limit 0 "$build"/*.deb 2>/dev/null | tee "$scratch/lintian.txt" | grep '^E' && {
  echo "install: lintian reports errors" >&2
  exit 1
}
# The runtime package depends on what its run-time links point to.
depends="$(dpkg-deb -f "$build"/libquarz-linalg1_*.deb Depends)"
echo "install: Depends: $depends"
for link in "$scratch"/root/usr/lib/quarz_linalg/*; do
  owner="$(dpkg-query -S "$(readlink -f "$link")" | cut -d: -f1)"
  tr ',' '\n' <<<"$depends" | sed 's/ *(.*//; s/^ *//' | grep -qx "$owner" || {
    echo "install: $link needs $owner, which Depends does not name" >&2
    exit 1
  }
done
consumer "$scratch/root/usr" deb-consumer
echo "install: prefix, find_package, pkg-config and the Debian packages ($(basename -a "$build"/*.deb | tr '\n' ' ')) work"
