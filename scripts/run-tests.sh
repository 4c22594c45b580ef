#!/usr/bin/env bash
# Builds and runs every test suite: optimised, under AddressSanitizer +
# UndefinedBehaviorSanitizer, and under ThreadSanitizer.
# Pass preset names to run only those (default asan tsan).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(default asan tsan)
for preset in "${presets[@]}"; do
    echo "=== $preset ==="
    cmake --workflow --preset "$preset"
done
