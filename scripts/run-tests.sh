#!/usr/bin/env bash
# Checks the formatting, then builds and runs every test suite: optimised, under AddressSanitizer +
# UndefinedBehaviorSanitizer, under ThreadSanitizer, and the Windows build
# (cross-compiled with MinGW-w64, run under wine against the simulator).
# Pass suite names to run only those: default asan tsan windows.
set -euo pipefail
cd "$(dirname "$0")/.."
suites=("$@")
[ ${#suites[@]} -gt 0 ] || suites=(default asan tsan windows)
bash scripts/install-deps.sh
bash scripts/check-format.sh
log=$(mktemp)
trap 'rm -f "$log"' EXIT
for suite in "${suites[@]}"; do
    echo "=== $suite ==="
    if [ "$suite" = windows ]; then
        bash .ci/windows.sh 2>&1 | tee -a "$log"
    else
        cmake --workflow --preset "$suite" 2>&1 | tee -a "$log"
    fi
done
# One closing line over all suites, from ctest's own summaries.
awk '/tests passed, [0-9]+ tests failed out of/ { total += $NF; failed += $4 }
     END { printf "all suites: %d passed, %d failed\n", total - failed, failed }' "$log"
