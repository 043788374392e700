#!/usr/bin/env bash
# Sets up a fresh machine, builds the library and the reference host, and runs the demo
# host program.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$(nproc)" --target quarz_demo
./build/quarz_demo
