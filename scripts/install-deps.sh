#!/usr/bin/env bash
# Installs the Debian 12 packages the project needs to build and test, skipping those that
# are already present. Runs apt-get only when something is missing.
set -euo pipefail

packages=(
    cmake ninja-build g++ clang pkg-config ccache
    libxml2-dev libxml2-utils
    libgtest-dev libgmock-dev libbenchmark-dev
    ffmpeg sox
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo=sudo
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
