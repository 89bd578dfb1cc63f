#!/usr/bin/env bash
# Configures and builds one flavour of the tree under build/<name>. The options are applied
# on every call, so that a build directory made with other options takes the new ones.
#   scripts/build.sh NAME [cmake options...]
set -euo pipefail
cd "$(dirname "$0")/.."
name=$1
shift
launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    # Paths below the checkout count relative to it, so another clone hits the same cache.
    export CCACHE_BASEDIR=$PWD
fi
cmake -S . -B "build/$name" -G Ninja "${launcher[@]}" "$@" >/dev/null
cmake --build "build/$name"
