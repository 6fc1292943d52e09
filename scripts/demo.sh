#!/usr/bin/env bash
# Builds the library and runs the cube demonstration.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" build >/dev/null
cd "$root/build" && ./Tools/lmesh_cube_demo
