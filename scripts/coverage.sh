#!/usr/bin/env bash
# Line and branch coverage of the library, the components, the plug-ins and the tools by the
# test suite. Builds the normal flavour with gcov instrumentation in build/coverage, runs the
# whole suite there (CTEST_ARGS adds ctest options, e.g. CTEST_ARGS="-E Soak" to leave out the
# soak) and prints one summary line per directory and a total line.
#   scripts/coverage.sh
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
build=build/coverage
scripts/build.sh coverage -DCM_COVERAGE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_COMPILER=g++
# Counts left by an earlier run would add up with this one's.
find "$build" -name '*.gcda' -delete
# A failing test still leaves its counts; the summary says how many failed.
ctest --test-dir "$build" -j "$(nproc)" ${CTEST_ARGS:-} >"$build/ctest.log" 2>&1 || true
grep -E 'tests passed|tests failed' "$build/ctest.log" | tail -n 1

# gcovr runs once over everything and writes its JSON summary; each directory's figures
# are then added up from the per-file entries.
gcovr --root . --object-directory "$build" --filter 'lib/' --filter 'components/' \
    --filter 'plugins/' --filter 'tools/' --exclude-unreachable-branches \
    --exclude-throw-branches --json-summary "$build/coverage.json" -j "$(nproc)" >/dev/null
python3 - "$build/coverage.json" <<'PY'
import json, sys
files = json.load(open(sys.argv[1]))["files"]
groups = ["lib/cm", "lib/base", "lib/zrbase", "lib/zrcore", "lib", "components", "plugins",
          "tools"]
def pct(hit, total):
    return f"{100.0 * hit / total:5.1f}%" if total else "    -"
def line(name, fs):
    lc = sum(f["line_covered"] for f in fs); lt = sum(f["line_total"] for f in fs)
    bc = sum(f["branch_covered"] for f in fs); bt = sum(f["branch_total"] for f in fs)
    print(f"{name:<12} lines {pct(lc, lt)} ({lc}/{lt})  branches {pct(bc, bt)} ({bc}/{bt})")
for g in groups:
    line(g, [f for f in files if f["filename"].startswith(g + "/")])
line("total", files)
PY
