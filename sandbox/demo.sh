#!/usr/bin/env bash
# The scripted tour, run inside the simulated camera: each command is printed, then its output.
set -euo pipefail
BUILD=${1:?build directory}
export PATH="$BUILD/tools:$PATH"
export NETLIB_LOG=none

step() {
    printf '\n$ %s\n' "$*"
    "$@"
}

echo "== A two-port camera: ports ${NETLIB_CAP_IFNAMES}, each wired to a neighbour"
step netlibctl names
step netlibctl interfaces
step netlibctl mac lan1
step netlibctl mac lan2
step netlibctl --json interfaces
echo
echo "== Tour finished"
