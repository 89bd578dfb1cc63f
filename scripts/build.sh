#!/usr/bin/env bash
# Configures (once) and builds one flavour of the tree under build/<name>.
#   scripts/build.sh NAME [cmake options...]
set -euo pipefail
cd "$(dirname "$0")/.."
name=$1
shift
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
if [ ! -f "build/$name/build.ninja" ]; then
    cmake -S . -B "build/$name" -G Ninja "${launcher[@]}" "$@" >/dev/null
fi
cmake --build "build/$name"
