#!/usr/bin/env bash
# Builds and runs every test suite: optimised, under AddressSanitizer +
# UndefinedBehaviorSanitizer, under ThreadSanitizer, and the Windows build
# (cross-compiled with MinGW-w64, run under wine against the simulator).
# Pass suite names to run only those: default asan tsan windows.
set -euo pipefail
cd "$(dirname "$0")/.."
suites=("$@")
[ ${#suites[@]} -gt 0 ] || suites=(default asan tsan windows)
bash scripts/install-deps.sh
for suite in "${suites[@]}"; do
    echo "=== $suite ==="
    if [ "$suite" = windows ]; then
        bash .ci/windows.sh
    else
        cmake --workflow --preset "$suite"
    fi
done
