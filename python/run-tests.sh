#!/usr/bin/env bash
# The Python suite: builds the library and the simulator, installs the package
# into a fresh virtual environment that also sees Debian's python3-can and
# python3-pytest, and runs the tests from outside the source tree, so that the
# installed package (and python-can's entry point to it) is what is tested.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=$root/build/default
[ -f "$build/CMakeCache.txt" ] || cmake --preset default
cmake --build "$build" --target TarvelAPI tarvel-sim -j2

venv=$build/python-venv
rm -rf "$venv"
/usr/bin/python3 -m venv --system-site-packages "$venv"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# setuptools builds inside the source folder: build a copy, keep the checkout clean.
cp -r "$root/python" "$work/src"
rm -rf "$work/src/build" "$work/src"/*.egg-info
"$venv/bin/python" -m pip install --quiet --no-build-isolation --no-index --disable-pip-version-check "$work/src"

export TARVEL_LIBRARY=$build/libTarvelAPI.so TARVEL_SIM=$build/sim/tarvel-sim TARVEL_TEST_INSTALLED=1
export PYTHONDONTWRITEBYTECODE=1
mkdir "$work/run"
cd "$work/run"
"$venv/bin/python" -m pytest -p no:cacheprovider -ra "$root/python/tests"
