#!/usr/bin/env bash
# Builds the library and the lmesh tool, then shows it on the example part: its
# measures, and a conversion to the native file and back to binary STL.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/build.sh" build >/dev/null
lmesh="$root/build/Tools/lmesh"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
"$lmesh" info "$root/examples/plate_holes.stl"
echo
"$lmesh" convert "$root/examples/plate_holes.stl" "$out/plate_holes.lmesh"
"$lmesh" convert "$out/plate_holes.lmesh" "$out/plate_holes_copy.stl"
