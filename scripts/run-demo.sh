#!/usr/bin/env bash
# Builds the command-line tool and runs its tour on the built-in simulated device.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target tarvel
exec build/default/tools/tarvel demo "$@"
