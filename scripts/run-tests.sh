#!/usr/bin/env bash
# Checks the formatting, then builds and runs every test suite: optimised, the
# soak on that build (60 s against the simulator with every fault at once), the
# Python package (pytest, through python-can), the packaging checks (install,
# CMake package, pkg-config, add_subdirectory, Debian packages, API reference;
# on the optimised build), under AddressSanitizer +
# UndefinedBehaviorSanitizer, under ThreadSanitizer, the fuzz targets (clang,
# libFuzzer; the three side by side for 60 s), and the Windows build
# (cross-compiled with MinGW-w64, run under wine against the simulator).
# Pass suite names to run only those: default soak python packaging asan tsan fuzz windows.
set -euo pipefail
cd "$(dirname "$0")/.."
suites=("$@")
[ ${#suites[@]} -gt 0 ] || suites=(default soak python packaging asan tsan fuzz windows)
bash scripts/install-deps.sh
bash scripts/check-format.sh
log=$(mktemp)
trap 'rm -f "$log"' EXIT
for suite in "${suites[@]}"; do
    echo "=== $suite ==="
    if [ "$suite" = windows ]; then
        bash .ci/windows.sh 2>&1 | tee -a "$log"
    elif [ "$suite" = soak ]; then
        bash scripts/run-soak.sh --seconds 60 2>&1 | tee -a "$log"
    elif [ "$suite" = fuzz ]; then
        bash scripts/run-fuzz.sh --seconds 60 2>&1 | tee -a "$log"
    elif [ "$suite" = python ]; then
        bash python/run-tests.sh 2>&1 | tee -a "$log"
    elif [ "$suite" = packaging ]; then
        # On the optimised build, configured here when the default suite did not run.
        [ -f build/default/CMakeCache.txt ] || cmake --preset default >/dev/null
        bash tests/consumers/run-packaging-tests.sh build/default 2>&1 | tee -a "$log"
    else
        cmake --workflow --preset "$suite" 2>&1 | tee -a "$log"
    fi
done
# One closing line over all suites, from ctest's and pytest's own summaries
# and the fuzz targets' figures lines.
awk '/tests passed, [0-9]+ tests failed out of/ { total += $NF; failed += $4 }
     /^fuzz_[a-z_]+ +[0-9]+ inputs / { total++; if ($NF != "ok") failed++ }
     /^=+ .*[0-9]+ (passed|failed).* in [0-9.]+s/ {
         for (i = 2; i <= NF; i++) {
             if ($i ~ /^passed,?$/) total += $(i - 1)
             if ($i ~ /^(failed|errors?),?$/) { total += $(i - 1); failed += $(i - 1) }
         }
     }
     END { printf "all suites: %d passed, %d failed\n", total - failed, failed }' "$log"
