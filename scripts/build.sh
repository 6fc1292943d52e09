#!/usr/bin/env bash
# Configures and builds into a folder: scripts/build.sh [BUILD_DIR] [CMAKE_OPTIONS...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-build}
shift || true
"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$root/$build" -DCMAKE_BUILD_TYPE=Release "$@" >/dev/null
cmake --build "$root/$build" -j "$(nproc)"
