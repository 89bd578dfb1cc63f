#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, ASan and UBSan under build/fuzz and runs each
# for SECONDS seconds (default 20) from its seed corpus in fuzz/corpus/<name>/. New inputs
# go to build/fuzz/corpus/<name>/, so the committed corpus only changes by hand. Fails on
# the first crash, leak or undefined behaviour; the input that caused it is left in
# build/fuzz/artifacts/<name>/.
#   scripts/fuzz.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
scripts/build.sh fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    "-DCM_SANITIZE=address,undefined" -DCM_BUILD_FUZZ=ON -DCM_BUILD_TESTS=OFF -DCM_WERROR=ON
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=0
export UBSAN_OPTIONS=print_stacktrace=1
for target in build/fuzz/fuzz/*_fuzz; do
    name=$(basename "$target" _fuzz)
    corpus=build/fuzz/corpus/$name
    artifacts=build/fuzz/artifacts/$name
    mkdir -p "$corpus" "$artifacts"
    echo "== $name: ${seconds}s"
    if ! "$target" "$corpus" "fuzz/corpus/$name" -max_total_time="$seconds" \
        -artifact_prefix="$artifacts/" -print_final_stats=1 >"$artifacts/log" 2>&1; then
        tail -n 60 "$artifacts/log"
        echo "== $name failed; the input is in $artifacts/" >&2
        exit 1
    fi
    grep -E '^stat::number_of_executed_units' "$artifacts/log" || true
done
echo "== all fuzz targets ran ${seconds}s without a failure"
