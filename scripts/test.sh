#!/usr/bin/env bash
# Builds and runs the whole test suite three times: a normal build (g++), an
# AddressSanitizer + UndefinedBehaviorSanitizer build (clang++) and a ThreadSanitizer build
# (g++), then builds the libFuzzer targets (scripts/fuzz.sh, in build/fuzz) and runs each
# for FUZZ_SECONDS (45), two at a time; each target counts as one test. Ends with one
# summary line; exits non-zero if anything failed.
set -uo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh || exit 1

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
jobs=$(nproc)

passed=0
failed=0
status=0
run_flavour() {
    local name=$1
    shift
    echo "=== $name: build"
    if ! scripts/build.sh "$name" -DCM_WERROR=ON "$@"; then
        echo "=== $name: BUILD FAILED"
        failed=$((failed + 1))
        status=1
        return
    fi
    echo "=== $name: test"
    local log="build/$name/ctest.log"
    ctest --test-dir "build/$name" --output-on-failure -j "$jobs" 2>&1 | tee "$log"
    [ "${PIPESTATUS[0]}" -eq 0 ] || status=1
    local line total bad
    line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -n 1)
    total=$(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$line")
    bad=$(sed -E 's/.*passed, ([0-9]+) tests failed.*/\1/' <<<"$line")
    if [ -z "$line" ]; then
        failed=$((failed + 1))
        status=1
        return
    fi
    passed=$((passed + total - bad))
    failed=$((failed + bad))
}

run_flavour normal -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=g++ -DCM_BUILD_BENCH=ON
run_flavour asan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ \
    "-DCM_SANITIZE=address,undefined"
run_flavour tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=g++ -DCM_SANITIZE=thread

echo "=== fuzz: build and run"
mkdir -p build/fuzz
fuzz_log=build/fuzz/test.log
scripts/fuzz.sh "${FUZZ_SECONDS:-45}" 2>&1 | tee "$fuzz_log"
[ "${PIPESTATUS[0]}" -eq 0 ] || status=1
fuzz_line=$(grep -E '^fuzz: [0-9]+ passed, [0-9]+ failed$' "$fuzz_log" | tail -n 1)
if [ -z "$fuzz_line" ]; then
    failed=$((failed + 1))
    status=1
else
    passed=$((passed + $(sed -E 's/fuzz: ([0-9]+) passed.*/\1/' <<<"$fuzz_line")))
    failed=$((failed + $(sed -E 's/.*passed, ([0-9]+) failed/\1/' <<<"$fuzz_line")))
fi

echo "summary: $passed passed, $failed failed"
exit $status
