#!/usr/bin/env bash
# Builds the soak program (build/default/tests/soak/tarvel_soak, with the
# simulator it starts) and runs it: one session against tarvel-sim with every
# fault at once, several threads exchanging commands with the receiver on.
#
#   bash scripts/run-soak.sh [--seconds N] [more tarvel_soak options, see --help]
#
# Exits with the soak's status: 0 sound, 1 a wrong result or a leak, 2 the simulator
# did not start, 3 a deadlock.
set -euo pipefail
cd "$(dirname "$0")/.."
[ -f build/default/CMakeCache.txt ] || cmake --preset default >/dev/null
cmake --build build/default --target tarvel_soak -j2 >/dev/null
exec build/default/tests/soak/tarvel_soak "$@"
