#!/usr/bin/env bash
# Installs the peer mesh libraries the benchmark compares against, if missing.
# Optional: the benchmark builds without them and then measures this library alone.
set -euo pipefail
packages=(libopenmesh-dev libadmesh-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq >/dev/null
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
