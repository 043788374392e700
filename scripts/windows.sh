#!/usr/bin/env bash
# The Windows DLL: cross-compiles QUARZ_LINALG.dll with mingw-w64 from the same sources,
# checks that its export table is exactly the export list (names, no extras, no
# decorations), and, where Wine is installed, loads it in Windows host processes from
# run-time directories laid out here (a marker kernel and a stand-in OpenMP runtime built
# with mingw): the kernel beside the DLL, the one named by the registry, and none at all;
# with an output sized through the host program's NumericArrayResize, the per-thread
# buffer release and KMP_DUPLICATE_LIB_OK set and restored.
# Usage: scripts/windows.sh [build dir=build-mingw]
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build-mingw}"
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$build" -j"$(nproc)" --target quarz_linalg
dll="$build/QUARZ_LINALG.dll"

sed -n '/^EXPORTS/,$p' "$build/generated/QUARZ_LINALG.def" | tail -n +2 | awk '{print $1}' | sort >"$build/expected_exports.txt"
x86_64-w64-mingw32-objdump -p "$dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
  sed -n 's/^\s*\[ *[0-9]*\] //p' | sort >"$build/actual_exports.txt"
if ! diff -u "$build/expected_exports.txt" "$build/actual_exports.txt"; then
  echo "windows: the DLL's export table differs from the export list" >&2
  exit 1
fi
echo "windows: $(wc -l <"$build/actual_exports.txt") exports, exactly the export list"

if ! command -v wine >/dev/null; then
  echo "windows: no wine here; the DLL was not run"
  exit 0
fi
src=tests/loader/windows
work="$build/wine"
rm -rf "$work"
mkdir -p "$work"
cc=x86_64-w64-mingw32-gcc
# Every bound entry is a stub of the marker, ddot excepted.
{
  echo "EXPORTS"
  sed -n 's/^QL_KERNEL_ENTRY(\(.*\))$/\1/p' src/kernel/entries.inc | grep -vx cblas_ddot | sed 's/.*/  &=marker_stub/'
  echo "  cblas_ddot=marker_ddot"
  echo "  MKL_Thread_Free_Buffers"
  echo "  MarkerBuffersReleased"
} >"$work/marker_kernel.def"
$cc -O2 -shared -o "$work/quarz_core_130000.dll" "$src/marker_kernel.c" "$work/marker_kernel.def"
$cc -O2 -shared -o "$work/libiomp5md.dll" "$src/openmp_runtime.c"
$cc -O2 -o "$work/probe.exe" "$src/probe.c"

unset KMP_DUPLICATE_LIB_OK
export WINEPREFIX="$PWD/$work/prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
wineboot -i >/dev/null 2>&1 || true
layout() {  # layout <dir> [runtime dir]: the DLL in <dir>, the run-time modules where asked
  mkdir -p "$1"
  cp "$dll" "$1/"
  if [ $# -gt 1 ]; then
    mkdir -p "$2"
    cp "$work/quarz_core_130000.dll" "$work/libiomp5md.dll" "$2/"
  fi
}
failed=0
expect() {  # expect <name> <expected output> <DLL path>
  local name="$1" want="$2"
  shift 2
  local got
  got="$(wine "$work/probe.exe" "$@" 2>/dev/null | tr -d '\r')"
  if [ "$got" = "$want" ]; then
    echo "windows: $name passed"
  else
    echo "windows: $name FAILED"
    printf 'expected:\n%s\ngot:\n%s\n' "$want" "$got"
    failed=1
  fi
}
key='HKLM\SOFTWARE\Orvane\Korvo\13.0\AddOns\Quarz Toolkit'
wine reg delete "$key" /f >/dev/null 2>&1 || true

layout "$work/own" "$work/own"
KMP_DUPLICATE_LIB_OK=0 expect "kernel beside the DLL" $'0\n0 1003\n0 3x2 resized 1\nreleased 1\nTRUE\n0' "$(winepath -w "$work/own/QUARZ_LINALG.dll")"
layout "$work/alone"
expect "no kernel anywhere: the DLL does not load" $'(unset)\nload failed' "$(winepath -w "$work/alone/QUARZ_LINALG.dll")"
layout "$work/alone" "$work/runtime/13.0.0"
wine reg add "$key" /v RunTimeDIR64 /t REG_SZ /d "$(winepath -w "$work/runtime")" /f >/dev/null 2>&1
expect "registry run-time directory" $'(unset)\n0 1003\n0 3x2 resized 1\nreleased 1\nTRUE\nTRUE' "$(winepath -w "$work/alone/QUARZ_LINALG.dll")"
wine reg delete "$key" /f >/dev/null 2>&1 || true
wineserver -k >/dev/null 2>&1 || true
if [ "$failed" -ne 0 ]; then
  echo "windows: FAILED" >&2
  exit 1
fi
echo "windows: passed under $(wine --version)"
