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
for file in share/cm/info.dtd share/cm/cm-config.dtd share/cm/plugin.dtd share/cm/cm.conf \
            lib/cm/plugins/http.plugin.xml lib/cm/plugins/http-reader.so; do
    test -f "$prefix/$file" || { echo "not installed: $file"; exit 1; }
done

echo "== pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
"$cxx" -std=c++17 -o "$work/hello-pc" "$src_dir/hello.cpp" $(pkg-config --cflags --libs cm)
LD_LIBRARY_PATH=$libdir "$work/hello-pc" "$prefix/share/cm/cm.conf"

echo "== find_package(cm)"
cmake -S "$src_dir" -B "$work/consumer" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
      -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
LD_LIBRARY_PATH=$libdir "$work/consumer/hello" "$prefix/share/cm/cm.conf"
