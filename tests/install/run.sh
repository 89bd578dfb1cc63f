#!/usr/bin/env bash
# Installs the build tree into a temporary prefix and builds a small program against the
# installed package twice: once through pkg-config and once through find_package(cm).
set -euo pipefail
build_dir=$1
src_dir=$2
cxx=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build_dir" --prefix "$prefix" >/dev/null
libdir=$(ls -d "$prefix"/lib*/pkgconfig | head -n 1 | xargs dirname)

echo "== data files"
for file in info.dtd cm-config.dtd cm.conf; do
    test -f "$prefix/share/cm/$file" || { echo "not installed: share/cm/$file"; exit 1; }
done

echo "== pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
"$cxx" -std=c++17 -o "$work/hello-pc" "$src_dir/hello.cpp" $(pkg-config --cflags --libs cm)
LD_LIBRARY_PATH=$libdir "$work/hello-pc"

echo "== find_package(cm)"
cmake -S "$src_dir" -B "$work/consumer" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
      -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
LD_LIBRARY_PATH=$libdir "$work/consumer/hello"
