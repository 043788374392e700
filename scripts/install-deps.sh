#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the Python host need, if any
# is missing. Needs root (or sudo) only when something has to be installed.
set -euo pipefail
packages=(cmake g++ make pkg-config binutils libopenblas-dev liblapacke-dev libgtest-dev libbenchmark-dev
          python3 python3-dev python3-numpy python3-scipy python3-pytest python3-mpmath
          clang libclang-rt-14-dev
          g++-mingw-w64-x86-64-win32 wine wine64
          dpkg-dev lintian abigail-tools python3-venv python3-setuptools python3-wheel python3-pip)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
fi
