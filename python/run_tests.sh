#!/bin/sh
# Runs the Python oracle suite against a built library.
#   python/run_tests.sh [build-dir] [pytest arguments...]
# The build directory defaults to $QUARZ_LINALG_LIBDIR, else <repo>/build. The calls go
# through the compiled bridge built there when there is one; QUARZ_LINALG_BRIDGE=0 runs
# the suite through ctypes, QUARZ_LINALG_BRIDGE=1 insists on the bridge.
# Uses Debian's interpreter, which carries python3-numpy, python3-scipy and python3-pytest.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
if [ $# -gt 0 ] && [ -d "$1" ]; then
  libdir=$1
  shift
else
  libdir=${QUARZ_LINALG_LIBDIR:-$here/../build}
fi
libdir=$(cd "$libdir" && pwd)
if [ ! -f "$libdir/libquarz_linalg.so" ] || [ ! -f "$libdir/libkort.so" ]; then
  echo "run_tests.sh: no libquarz_linalg.so / libkort.so in $libdir (build first)" >&2
  exit 2
fi
export QUARZ_LINALG_LIBDIR=$libdir
export PYTHONDONTWRITEBYTECODE=1
cd "$here"
exec /usr/bin/python3 -m pytest "$@"
