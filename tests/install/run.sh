#!/usr/bin/env bash
# Installs the build tree into a temporary prefix, runs the installed cmhost there as a
# user would (no LD_LIBRARY_PATH), and builds a small program against the installed package
# twice: once through pkg-config and once through find_package(cm).
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

echo "== documentation: whatever the build made is installed"
for file in share/man/man1/cmhost.1 share/doc/cm/html/index.html; do
    if [ -f "$build_dir/$file" ] && [ ! -f "$prefix/$file" ]; then
        echo "built but not installed: $file"
        exit 1
    fi
done

echo "== run paths"
# Every installed program, library and module that needs the project's libraries finds them
# relative to itself: an absolute run path would tie the install to one prefix, or to the
# build tree.
while IFS= read -r file; do
    dynamic=$(readelf -d "$file" 2>/dev/null) || continue
    grep -Eq 'NEEDED.*\[lib(zr|zrcore|cm)\.so' <<<"$dynamic" || continue
    run_path=$(sed -nE 's/.*\((RUNPATH|RPATH)\).*\[(.*)\]/\2/p' <<<"$dynamic")
    IFS=: read -ra entries <<<"$run_path"
    if [ ${#entries[@]} -eq 0 ]; then
        echo "no run path: ${file#"$prefix"/}"
        exit 1
    fi
    for entry in "${entries[@]}"; do
        if [[ $entry != '$ORIGIN'* ]]; then
            echo "run path not relative to the file: ${file#"$prefix"/}: $run_path"
            exit 1
        fi
    done
done < <(find "$prefix" -type f \( -name '*.so*' -o -path '*/bin/*' \))

echo "== installed cmhost, without LD_LIBRARY_PATH"
cmhost() { env -u LD_LIBRARY_PATH "$prefix/bin/cmhost" "$@"; }
cmhost --version
cmhost components --check >"$work/check.txt" || { cat "$work/check.txt"; exit 1; }
tail -n 1 "$work/check.txt"
cmhost generate tone "$work/tone.wav" --seconds 0.2 >/dev/null
cmhost convert "$work/tone.wav" "$work/quiet.wav" --filter gain:gain-db=-6 >/dev/null
cmhost info "$work/quiet.wav" | grep -q "importer: wav.importer"

echo "== pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
"$cxx" -std=c++17 -o "$work/hello-pc" "$src_dir/hello.cpp" $(pkg-config --cflags --libs cm)
LD_LIBRARY_PATH=$libdir "$work/hello-pc" "$prefix/share/cm/cm.conf"

echo "== find_package(cm)"
cmake -S "$src_dir" -B "$work/consumer" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
      -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/consumer" >/dev/null
LD_LIBRARY_PATH=$libdir "$work/consumer/hello" "$prefix/share/cm/cm.conf"
