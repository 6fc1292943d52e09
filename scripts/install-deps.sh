#!/usr/bin/env bash
# Installs Debian packages that are missing, quietly and idempotently:
# scripts/install-deps.sh [PACKAGE...]; with none, what the build and the tests need.
set -euo pipefail

packages=("$@")
[ ${#packages[@]} -eq 0 ] && packages=(cmake g++ make libgtest-dev libbenchmark-dev)
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
