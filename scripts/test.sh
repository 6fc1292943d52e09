#!/usr/bin/env bash
# Builds the library and runs the whole test suite: scripts/test.sh [BUILD_DIR] [CMAKE_OPTIONS...]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-build}
shift || true
"$root/scripts/build.sh" "$build" "$@"
ctest --test-dir "$root/$build" --output-on-failure -j "$(nproc)"
