#!/usr/bin/env bash
# Installs what a fresh Debian 12 machine lacks to build and test TarvelAPI.
set -euo pipefail
packages=(cmake g++ make clang-format libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev
    python3-can python3-canmatrix python3-pytest python3-venv python3-wheel
    doxygen pkg-config dpkg-dev file python3-setuptools clang-14 libclang-rt-14-dev)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
as_root=()
[ "$(id -u)" -eq 0 ] || as_root=(sudo)
"${as_root[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq "${missing[@]}"
