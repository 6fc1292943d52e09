#!/usr/bin/env bash
# Installs the peer mesh libraries the benchmark compares against, if missing.
# Optional: the benchmark builds without them and then measures this library alone.
exec "$(dirname "$0")/install-deps.sh" libopenmesh-dev libadmesh-dev libcgal-dev
