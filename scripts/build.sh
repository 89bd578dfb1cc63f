#!/usr/bin/env bash
# Configures (once) and builds one flavour of the tree under build/<name>.
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
if [ ! -f "build/$name/build.ninja" ]; then
    cmake -S . -B "build/$name" -G Ninja "${launcher[@]}" "$@" >/dev/null
fi
cmake --build "build/$name"
