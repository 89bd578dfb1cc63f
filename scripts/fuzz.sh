#!/usr/bin/env bash
# Runs every libFuzzer target for SECONDS seconds from its seed corpus in fuzz/corpus/<name>/,
# two at a time (one per core; FUZZ_JOBS sets how many), and ends with the line
# "fuzz: N passed, M failed".
#   scripts/fuzz.sh [SECONDS [NAME...]]           builds the targets with clang, ASan and
#                                                 UBSan under build/fuzz first (default 300
#                                                 seconds each)
#   scripts/fuzz.sh --in BUILD SECONDS [NAME...]  runs the targets already built in BUILD/fuzz
#   scripts/fuzz.sh --merge [NAME...]             adds to fuzz/corpus/<name>/ the inputs of
#                                                 build/fuzz/fuzz-corpus/<name>/ that reach
#                                                 coverage it lacks (libFuzzer's -merge=1),
#                                                 of at most 4 KiB each
# Given NAMEs (http_reader, cdata, ...), only those targets run or merge.
# New inputs go to BUILD/fuzz-corpus/<name>/, so the committed corpus only changes by a merge.
# A crash, leak, time-out (10 s), report of undefined behaviour or allocation of more than
# 256 MB at once fails the target: no input of a few kilobytes needs that much, so such an
# allocation trusts a size the input claims but does not hold. The input and log are left
# in BUILD/fuzz-artifacts/<name>/. Exits non-zero if any target failed.
set -uo pipefail
cd "$(dirname "$0")/.."
mode=run
if [ "${1:-}" = "--merge" ]; then
    mode=merge
    build=build/fuzz
    shift
elif [ "${1:-}" = "--in" ]; then
    build=$2
    seconds=$3
    shift 3
else
    build=build/fuzz
    seconds=${1:-300}
    shift $(($# > 0 ? 1 : 0))
    scripts/build.sh fuzz -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        "-DCM_SANITIZE=address,undefined" -DCM_BUILD_FUZZ=ON -DCM_BUILD_TESTS=OFF \
        -DCM_WERROR=ON || exit 1
fi
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
parallel=${FUZZ_JOBS:-$(nproc)}

# One target; its outcome goes to its artifact directory as "passed" or "failed".
run_target() {
    local target=$1 name
    name=$(basename "$target" _fuzz)
    local corpus=$build/fuzz-corpus/$name artifacts=$build/fuzz-artifacts/$name
    rm -rf "$artifacts"
    mkdir -p "$corpus" "$artifacts"
    if "$target" "$corpus" "fuzz/corpus/$name" -max_total_time="$seconds" -timeout=10 \
        -malloc_limit_mb=256 -artifact_prefix="$artifacts/" -print_final_stats=1 \
        >"$artifacts/log" 2>&1; then
        echo passed >"$artifacts/outcome"
        echo "== $name: passed, $(grep -oP '^stat::number_of_executed_units:\s*\K\d+' \
            "$artifacts/log") runs in ${seconds}s"
    else
        echo failed >"$artifacts/outcome"
        tail -n 40 "$artifacts/log"
        echo "== $name: FAILED; the input and log are in $artifacts/"
    fi
}

targets=()
if [ $# -eq 0 ]; then
    targets=("$build"/fuzz/*_fuzz)
else
    for name in "$@"; do
        targets+=("$build/fuzz/${name}_fuzz")
    done
fi
for target in "${targets[@]}"; do
    if [ ! -x "$target" ]; then
        echo "no fuzz target $target" >&2
        echo "fuzz: 0 passed, 1 failed"
        exit 1
    fi
done
# One target's new inputs into its committed corpus. Larger inputs stay out: they would
# bloat the repository.
merge_target() {
    local target=$1 name small
    name=$(basename "$target" _fuzz)
    small=$(mktemp -d)
    find "$build/fuzz-corpus/$name" -type f -size -4097c -exec cp {} "$small/" \; 2>/dev/null
    local before after
    before=$(ls "fuzz/corpus/$name" | wc -l)
    if ! "$target" -merge=1 "fuzz/corpus/$name" "$small" >"$build/merge-$name.log" 2>&1; then
        echo "== $name: merge FAILED; see $build/merge-$name.log"
        rm -rf "$small"
        return 1
    fi
    after=$(ls "fuzz/corpus/$name" | wc -l)
    echo "== $name: $((after - before)) inputs added, $after in the corpus"
    rm -rf "$small"
}

if [ "$mode" = merge ]; then
    status=0
    for target in "${targets[@]}"; do
        merge_target "$target" || status=1
    done
    exit $status
fi

for target in "${targets[@]}"; do
    while [ "$(jobs -rp | wc -l)" -ge "$parallel" ]; do
        wait -n
    done
    run_target "$target" &
done
wait

passed=0
failed=0
for target in "${targets[@]}"; do
    if [ "$(cat "$build/fuzz-artifacts/$(basename "$target" _fuzz)/outcome" 2>/dev/null)" = passed ]; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
    fi
done
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
