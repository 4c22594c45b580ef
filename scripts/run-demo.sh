#!/usr/bin/env bash
# Builds the command-line tool, the simulator program and the examples, runs
# the tool's tour on the built-in simulated device, and says where they are.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake --preset default >/dev/null
cmake --build --preset default --target tarvel tarvel-sim example_basic_c example_basic_cpp example_receive_cpp
build/default/tools/tarvel demo "$@"
cat <<EOT

Built in build/default:
  tools/tarvel                                  the command-line tool ('tarvel --help')
  sim/tarvel-sim                                the device simulator on its own
  examples/basic, basic_cpp, receive_cpp        the examples; each takes the port to use
To call them by name in this shell:
  export PATH="$PWD/build/default/tools:$PWD/build/default/sim:\$PATH"
EOT
