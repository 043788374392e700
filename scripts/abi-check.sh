#!/usr/bin/env bash
# The exported prototypes against the ABI baseline kept in abi/libquarz_linalg.abi:
# abidiff over the library's debug information (a build with -g: the sanitizer build
# by default) restricted to the public header. A changed prototype or a removed export
# fails; exports added since the baseline are allowed. The baseline is refreshed on
# purpose only, after a deliberate change of an existing export: --refresh.
# Usage: scripts/abi-check.sh [build dir with debug information=build-asan] [--refresh]
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build-asan}"
baseline=abi/libquarz_linalg.abi
lib="$build/libquarz_linalg.so"
dump() { abidw --no-corpus-path --no-show-locs --headers-dir "$build/generated/include" "$lib"; }
if [ "${2:-}" = "--refresh" ]; then
  mkdir -p abi
  dump >"$baseline"
  echo "abi: baseline written to $baseline"
  exit 0
fi
current="$(mktemp)"
trap 'rm -f "$current"' EXIT
dump >"$current"
status=0
abidiff --no-added-syms --no-unreferenced-symbols "$baseline" "$current" || status=$?
if [ "$status" -ne 0 ]; then
  echo "abi: the exports differ from $baseline (abidiff status $status); if that is deliberate, run" \
       "scripts/abi-check.sh $build --refresh and commit the baseline" >&2
  exit 1
fi
echo "abi: every export of $baseline keeps its prototype"
