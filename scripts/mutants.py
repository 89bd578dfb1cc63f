#!/usr/bin/env python3
"""Mutation testing of the library, the components and the plug-ins.

Each mutant is one small change to one source line (a flipped comparison, a swapped
operator, a literal off by one, a negated condition, a deleted statement or early return, a
replaced constant). The tool applies the mutants one at a time in the checkout, rebuilds
build/mutants incrementally, runs the tests of the programs that link or load the mutated
code, each in a process of its own as CTest does, and restores the file, also on Ctrl-C or
an error. A mutant is killed when a test fails, killed by time-out when a test runs far
longer than it does unmutated, survives when every test passes, and is counted apart when
it does not compile.

The sample is drawn from every mutation site of the chosen files with a seeded generator,
so two runs with the same --seed, --count and --files test the same mutants as long as
the library's sources are the same: run it before and after a change to the tests to
compare their strength.

    scripts/mutants.py [--seed N] [--count N] [--files GLOB]... [--killers] [--json FILE]
    scripts/mutants.py --list [...]            # print the sample without running it
    scripts/mutants.py --report FILE... [--keep REGEX]  # which tests kill what
    scripts/mutants.py --shard 2/3 [...]       # one of three parts, e.g. in another clone
    scripts/mutants.py --summary FILE...       # the parts' results together
    scripts/mutants.py --done FILE... [...]    # go on with a stopped run
    scripts/mutants.py --recheck FILE... [...] # only the mutants a run killed

--killers runs every test of each mutant instead of stopping at the first failure and
records in the JSON file which tests killed it; --report reads such files back: the tests
that alone kill some mutant, and a small set of tests (with those matching --keep) that
kills every mutant the suite kills, so that the tests outside it kill nothing of their own.
"""

import argparse
import fnmatch
import json
import os
import random
import re
import signal
import subprocess
import sys
import time
from concurrent.futures import FIRST_COMPLETED, ThreadPoolExecutor, wait
from dataclasses import dataclass, asdict

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SOURCE_DIRS = ("lib", "components", "plugins")
AREAS = ("lib/cm", "lib/base", "lib/zrbase", "lib/zrcore", "components", "plugins")

# The test programs that link or load each area's code, the nearest first so that a killed
# mutant is found early: libzr, libzrcore and libcm are linked by every program, the
# components' code by the component, host and fault tests (and the manager tests scan the
# built components), the HTTP reader is loaded by the plug-in, stream and fault tests.
ALL_TESTS = ["test_base", "test_zrbase", "test_zrcore", "test_cm", "test_plugins",
             "test_components", "test_host", "test_faults"]
TESTS_OF_AREA = {
    "lib/base": ALL_TESTS,
    "lib/zrbase": ["test_zrbase"] + [p for p in ALL_TESTS if p != "test_zrbase"],
    "lib/zrcore": ["test_zrcore"] + [p for p in ALL_TESTS if p != "test_zrcore"],
    "lib/cm": ["test_cm"] + [p for p in ALL_TESTS if p != "test_cm"],
    "components": ["test_components", "test_host", "test_faults", "test_cm"],
    "plugins": ["test_plugins", "test_cm", "test_faults"],
}
# Left out of the mutant runs by default: the interop tests that hand whole files or
# streams to outside programs (sox, ffmpeg, tshark, snmptrapd, GStreamer's RTSP server) take
# seconds each and would make every surviving mutant cost minutes. The tests that run
# cmhost over the components stay in.
SKIP = ("Interop|OutOfThePipelineUnchanged|TheToolsMeasure|ThatFfmpegDecodes|"
        "ReachARealReceiver|MakeAValidFile")


@dataclass
class Mutant:
    file: str
    line: int  # 1-based
    col: int  # 0-based offset of the replaced text in the line
    old: str
    new: str
    what: str

    def key(self):
        return f"{self.file}:{self.line}:{self.col}:{self.what}"


# ---------------------------------------------------------------------------------------
# Finding the mutation sites


def mask_literals(line):
    """The line with the insides of string and character literals and any trailing //
    comment replaced by blanks, so that operators are only found in code."""
    out = []
    i = 0
    quote = None
    while i < len(line):
        c = line[i]
        if quote:
            if c == "\\":
                out.append("  ")
                i += 2
                continue
            if c == quote:
                quote = None
                out.append(c)
            else:
                out.append(" ")
        elif c in "\"'":
            quote = c
            out.append(c)
        elif line.startswith("//", i):
            out.append(" " * (len(line) - i))
            break
        else:
            out.append(c)
        i += 1
    return "".join(out)[: len(line)]


BINARY = [  # (spaced operator, replacements)
    (" == ", [(" != ", "== to !=")]),
    (" != ", [(" == ", "!= to ==")]),
    (" < ", [(" <= ", "< to <="), (" >= ", "< to >=")]),
    (" <= ", [(" < ", "<= to <"), (" > ", "<= to >")]),
    (" > ", [(" >= ", "> to >="), (" <= ", "> to <=")]),
    (" >= ", [(" > ", ">= to >"), (" < ", ">= to <")]),
    (" && ", [(" || ", "&& to ||")]),
    (" || ", [(" && ", "|| to &&")]),
    (" + ", [(" - ", "+ to -")]),
    (" - ", [(" + ", "- to +")]),
    (" += ", [(" -= ", "+= to -=")]),
    (" -= ", [(" += ", "-= to +=")]),
]
INT_LITERAL = re.compile(r"(?<![\w.])(\d+)(?![\w.])")
BOOL_LITERAL = re.compile(r"\b(true|false)\b")
STRING_LITERAL = re.compile(r'"[^"]+"')
CONDITION = re.compile(r"\b(if|while) \(")
DECLARATION = re.compile(r"^\s*(const |static |constexpr )*[\w:]+(<[^;=]*>)?[\s*&]+\w+\s*(=|\{|\(|;|\[)")
SKIP_LINE = re.compile(r"^\s*(#|//|/\*|\*|static_assert|case |default:|template|using |namespace )")


def matching_paren(text, open_at):
    depth = 0
    for i in range(open_at, len(text)):
        if text[i] == "(":
            depth += 1
        elif text[i] == ")":
            depth -= 1
            if depth == 0:
                return i
    return -1


def line_mutants(path, number, line, next_line):
    code = mask_literals(line)
    if SKIP_LINE.match(line) or not code.strip():
        return []
    found = []

    def add(col, old, new, what):
        found.append(Mutant(path, number, col, old, new, what))

    for op, replacements in BINARY:
        for m in re.finditer(re.escape(op), code):
            for new, what in replacements:
                add(m.start(), op, new, what)
    for m in re.finditer(r"(\+\+|--)", code):
        add(m.start(), m.group(1), "--" if m.group(1) == "++" else "++",
            f"{m.group(1)} to {'--' if m.group(1) == '++' else '++'}")
    for m in INT_LITERAL.finditer(code):
        n = int(m.group(1))
        add(m.start(), m.group(1), str(n + 1), f"{n} to {n + 1}")
        if n > 1:
            add(m.start(), m.group(1), "0", f"{n} to 0")
    for m in BOOL_LITERAL.finditer(code):
        flip = "false" if m.group(1) == "true" else "true"
        add(m.start(), m.group(1), flip, f"{m.group(1)} to {flip}")
    for m in STRING_LITERAL.finditer(code):
        add(m.start(), line[m.start():m.end()], '""', "string to empty")
    for m in CONDITION.finditer(code):
        open_at = m.end() - 1
        close_at = matching_paren(code, open_at)
        if close_at > 0:
            cond = line[open_at + 1:close_at]
            add(open_at + 1, cond, f"!({cond})", f"negated {m.group(1)} condition")
    stripped = code.strip()
    indent = len(line) - len(line.lstrip())
    if stripped.startswith("return ") or stripped == "return;":
        # An early return: one inside a nested block, or followed by more of the function.
        if stripped.endswith(";") and (indent >= 8 or next_line.strip() != "}"):
            add(indent, line.strip(), ";", "deleted early return")
    elif (stripped.endswith(";") and not stripped.startswith(("}", "break", "continue"))
          and not DECLARATION.match(code) and stripped.count("(") == stripped.count(")")):
        add(indent, line.strip(), ";", "deleted statement")
    return found


def all_mutants(globs):
    mutants = []
    for top in SOURCE_DIRS:
        for dirpath, _, names in os.walk(os.path.join(ROOT, top)):
            for name in sorted(names):
                if not name.endswith((".cpp", ".h")):
                    continue
                rel = os.path.relpath(os.path.join(dirpath, name), ROOT)
                if globs and not any(fnmatch.fnmatch(rel, g) for g in globs):
                    continue
                with open(os.path.join(ROOT, rel)) as f:
                    lines = f.read().split("\n")
                for i, line in enumerate(lines):
                    nxt = lines[i + 1] if i + 1 < len(lines) else ""
                    mutants.extend(line_mutants(rel, i + 1, line, nxt))
    mutants.sort(key=lambda m: (m.file, m.line, m.col, m.what))
    return mutants


def area_of(path):
    for area in AREAS:
        if path.startswith(area + "/"):
            return area
    return path.split("/")[0]


def sample(mutants, count, seed):
    """count mutants spread over the areas: each area gets its share of the sites, but at
    least a twentieth of the sample, so that the small libraries are not left out."""
    rng = random.Random(seed)
    by_area = {}
    for m in mutants:
        by_area.setdefault(area_of(m.file), []).append(m)
    if count >= len(mutants):
        return mutants
    floor = count // 20
    quota = {a: max(min(floor, len(ms)), count * len(ms) // len(mutants))
             for a, ms in by_area.items()}
    while sum(quota.values()) > count:
        biggest = max(quota, key=quota.get)
        quota[biggest] -= 1
    chosen = []
    for area in sorted(by_area):
        chosen.extend(rng.sample(by_area[area], quota[area]))
    chosen.sort(key=lambda m: (m.file, m.line, m.col, m.what))
    return chosen


# ---------------------------------------------------------------------------------------
# Running them


class Checkout:
    """Applies one mutant at a time and always puts the file back."""

    def __init__(self):
        self.path = None
        self.original = None

    def apply(self, m):
        self.path = os.path.join(ROOT, m.file)
        with open(self.path) as f:
            self.original = f.read()
        lines = self.original.split("\n")
        line = lines[m.line - 1]
        assert line[m.col:m.col + len(m.old)] == m.old, m.key()
        lines[m.line - 1] = line[:m.col] + m.new + line[m.col + len(m.old):]
        with open(self.path, "w") as f:
            f.write("\n".join(lines))

    def restore(self):
        if self.path is not None:
            with open(self.path, "w") as f:
                f.write(self.original)
            self.path = None


def build(build_dir, log):
    # Paths below the checkout count relative to it in ccache, so that a restored file is a
    # cache hit, also in another clone.
    env = dict(os.environ, CCACHE_BASEDIR=ROOT)
    return subprocess.run(["cmake", "--build", build_dir], stdout=log, stderr=log,
                          env=env).returncode == 0


def list_tests(build_dir, program):
    """The tests of one program, as Suite.Name."""
    out = subprocess.run([os.path.join(build_dir, "tests", program), "--gtest_list_tests"],
                         stdout=subprocess.PIPE, check=True).stdout.decode()
    tests = []
    suite = ""
    for line in out.splitlines():
        if not line.startswith(" "):
            suite = line.strip()
        else:
            tests.append(suite + line.split()[0])
    return tests


def run_test(build_dir, program, test, timeout):
    """Runs one test in a process of its own, as CTest does (the library's singletons start
    fresh); returns "passed", "failed" or "timeout" and the seconds it took."""
    start = time.monotonic()
    try:
        proc = subprocess.run([os.path.join(build_dir, "tests", program), "--gtest_filter=" + test],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=timeout, cwd=os.path.join(build_dir, "tests"),
                              start_new_session=True)
    except subprocess.TimeoutExpired:
        return "timeout", time.monotonic() - start
    return ("passed" if proc.returncode == 0 else "failed"), time.monotonic() - start


class Suite:
    """The tests each area's mutants run, in order, with their unmutated durations."""

    def __init__(self, build_dir, programs, skip, jobs):
        self.build_dir = build_dir
        self.jobs = jobs
        self.tests = {p: [t for t in list_tests(build_dir, p) if not (skip and re.search(skip, t))]
                      for p in programs}
        self.seconds = {}
        for program, tests in self.tests.items():
            for (test, (status, seconds)) in self.map(program, tests, 600):
                if status != "passed":
                    sys.exit(f"mutants: {program} {test} fails without a mutant; fix it first")
                self.seconds[(program, test)] = seconds
            total = sum(self.seconds[(program, t)] for t in tests)
            print(f"baseline {program}: {len(tests)} tests, {total:.1f} s", flush=True)

    def map(self, program, tests, timeout):
        with ThreadPoolExecutor(self.jobs) as pool:
            futures = [(t, pool.submit(run_test, self.build_dir, program, t, timeout))
                       for t in tests]
            for test, future in futures:
                yield test, future.result()

    def order(self, area, first):
        """The area's tests as (program, test): those matching `first` ahead of the rest,
        each part in the order of the area's programs."""
        tests = [(p, t) for p in TESTS_OF_AREA.get(area, ALL_TESTS) for t in self.tests.get(p, [])]
        ahead = [pt for pt in tests if first and re.search(first, f"{pt[0]}:{pt[1]}")]
        return ahead + [pt for pt in tests if pt not in ahead]

    def run(self, area, all_killers, first):
        """Runs the area's tests, all of them or up to the first failure; returns the status
        and the tests that killed the mutant."""
        killers = []
        failed = False
        pending = self.order(area, first)
        with ThreadPoolExecutor(self.jobs) as pool:
            running = {}
            while pending or running:
                while pending and len(running) < self.jobs and (all_killers or not killers):
                    program, test = pending.pop(0)
                    # A test far slower than it is unmutated hangs: killed by time-out.
                    limit = 3 * self.seconds[(program, test)] + 10
                    future = pool.submit(run_test, self.build_dir, program, test, limit)
                    running[future] = f"{program}:{test}"
                if not running:
                    break
                done, _ = wait(running, return_when=FIRST_COMPLETED)
                for future in done:
                    test = running.pop(future)
                    status, _ = future.result()
                    if status != "passed":
                        killers.append(test)
                        failed |= status == "failed"
        if not killers:
            return "survived", []
        # Killed by time-out: the mutant made tests hang and none fail outright.
        return ("killed" if failed else "timeout"), sorted(killers)


def configure(build_dir):
    subprocess.run(["cmake", "-S", ROOT, "-B", build_dir, "-G", "Ninja",
                    "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_COMPILER=g++",
                    # Quick to compile; a mutant that drops a return value does not compile.
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g0 -Werror=return-type",
                    # A changed shared library needs no relinking of the programs.
                    "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON",
                    "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"],
                   check=True, stdout=subprocess.DEVNULL)


def run(args, mutants):
    build_dir = os.path.join(ROOT, args.build)
    configure(build_dir)
    log_path = os.path.join(build_dir, "mutants-build.log")
    with open(log_path, "w") as log:
        if not build(build_dir, log):
            sys.exit(f"mutants: the unmutated tree does not build; see {log_path}")
    programs = sorted({p for m in mutants for p in TESTS_OF_AREA.get(area_of(m.file), ALL_TESTS)})
    suite = Suite(build_dir, programs, args.skip, args.jobs)

    checkout = Checkout()

    def interrupted(signum, frame):
        checkout.restore()
        sys.exit(f"mutants: interrupted by signal {signum}; the sources are restored")

    signal.signal(signal.SIGINT, interrupted)
    signal.signal(signal.SIGTERM, interrupted)

    results = []
    counts = {"killed": 0, "timeout": 0, "survived": 0, "uncompilable": 0}
    started = time.monotonic()
    try:
        for i, m in enumerate(mutants, 1):
            checkout.apply(m)
            try:
                with open(log_path, "w") as log:
                    built = build(build_dir, log)
                status, killed_by = (suite.run(area_of(m.file), args.killers, args.first)
                                     if built else ("uncompilable", []))
            finally:
                checkout.restore()
            counts[status] += 1
            results.append(dict(asdict(m), status=status, killers=killed_by))
            print(f"[{i}/{len(mutants)}] {status:<12} {m.file}:{m.line}: {m.what}", flush=True)
            if args.json:  # after every mutant, so that a long run stopped early still tells
                with open(args.json, "w") as f:
                    json.dump({"seed": args.seed, "count": args.count, "files": args.files,
                               "skip": args.skip, "mutants": results}, f, indent=1)
    finally:
        checkout.restore()
        # Leave the build matching the restored sources.
        with open(log_path, "w") as log:
            build(build_dir, log)
    summarize(results, counts, time.monotonic() - started)


def summarize(results, counts, seconds):
    tested = counts["killed"] + counts["timeout"] + counts["survived"]
    score = 100.0 * (counts["killed"] + counts["timeout"]) / tested if tested else 0.0
    print("\nsurvivors:")
    for r in results:
        if r["status"] == "survived":
            print(f"  {r['file']}:{r['line']}: {r['what']}")
    print(f"\nkilled {counts['killed']}, timed out {counts['timeout']}, "
          f"survived {counts['survived']}, did not compile {counts['uncompilable']}; "
          f"score {score:.1f}% of {tested}" + (f" in {seconds / 60:.1f} min" if seconds else ""))


def report(paths, build_dir, keep):
    """The tests that alone kill some mutant of the sample; then, starting from those and
    the tests matching `keep`, a small set of tests that still kills every mutant the whole
    suite kills (chosen greedily, most mutants first), and the tests outside it: each of
    those kills only mutants that the set kills too."""
    results = [r for path in paths for r in json.load(open(path))["mutants"]]
    sole = {}
    for r in results:
        if len(r["killers"]) == 1:
            sole.setdefault(r["killers"][0], []).append(f"{r['file']}:{r['line']}: {r['what']}")
    print("tests that alone kill a mutant:")
    for test in sorted(sole):
        print(f"  {test}: {len(sole[test])}")
        for where in sole[test]:
            print(f"    {where}")

    tests = [f"{p}:{t}" for p in ALL_TESTS for t in list_tests(build_dir, p)]
    kept = set(sole) | {t for t in tests if keep and re.search(keep, t)}
    open_mutants = [set(r["killers"]) for r in results
                    if r["killers"] and not kept & set(r["killers"])]
    while open_mutants:
        best = max(sorted({t for k in open_mutants for t in k}),
                   key=lambda t: sum(t in k for k in open_mutants))
        kept.add(best)
        open_mutants = [k for k in open_mutants if best not in k]
    print(f"\n{len(kept)} of {len(tests)} tests kill every mutant the suite kills; the others:")
    for test in tests:
        if test not in kept:
            kills = sum(test in r["killers"] for r in results)
            print(f"  {test} (kills {kills})")


def recorded(paths, statuses):
    """The keys of the mutants that the JSON files record with one of the statuses."""
    fields = ("file", "line", "col", "old", "new", "what")
    return {Mutant(**{k: r[k] for k in fields}).key()
            for path in paths for r in json.load(open(path))["mutants"] if r["status"] in statuses}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=400)
    parser.add_argument("--files", action="append", default=[],
                        help="only mutate sources matching this glob (repeatable), "
                             "e.g. 'lib/cm/CMQueue*'")
    parser.add_argument("--build", default="build/mutants", help="build directory")
    parser.add_argument("--killers", action="store_true",
                        help="run every test of each mutant and record which kill it")
    parser.add_argument("--json", help="write the results to this file")
    parser.add_argument("--jobs", type=int, default=2, help="tests run at once")
    parser.add_argument("--first", metavar="REGEX",
                        help="run the tests (program:Suite.Name) matching this first; without "
                             "--killers the test recorded as a mutant's killer is then one of "
                             "them whenever any of them kills it")
    parser.add_argument("--skip", default=SKIP,
                        help="leave out the tests whose Suite.Name matches this regular expression "
                             "(default: the slow ones that drive outside programs)")
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    parser.add_argument("--shard", metavar="K/N",
                        help="run only the K-th of N interleaved parts of the sample, so that "
                             "N clones of the checkout can share the work")
    parser.add_argument("--done", metavar="FILE", nargs="+",
                        help="leave out the mutants these JSON files already hold (to go on "
                             "with a run that was stopped, or to split the rest anew)")
    parser.add_argument("--recheck", metavar="FILE", nargs="+",
                        help="run only the mutants these JSON files record as killed: after "
                             "tests were removed, the ones that may have come back to life")
    parser.add_argument("--summary", metavar="FILE", nargs="+",
                        help="the counts and survivors of one or more JSON files together")
    parser.add_argument("--report", metavar="FILE", nargs="+",
                        help="which tests the --killers JSON files say kill what")
    parser.add_argument("--keep", help="with --report: tests (program:Suite.Name) kept whatever "
                                       "they kill, a regular expression")
    args = parser.parse_args()
    if args.report:
        report(args.report, os.path.join(ROOT, args.build), args.keep)
        return
    if args.summary:
        results = [r for path in args.summary for r in json.load(open(path))["mutants"]]
        results.sort(key=lambda r: (r["file"], r["line"], r["col"], r["what"]))
        counts = {"killed": 0, "timeout": 0, "survived": 0, "uncompilable": 0}
        for r in results:
            counts[r["status"]] += 1
        summarize(results, counts, 0)
        return
    mutants = sample(all_mutants(args.files), args.count, args.seed)
    if args.done:
        done = recorded(args.done, ("killed", "timeout", "survived", "uncompilable"))
        mutants = [m for m in mutants if m.key() not in done]
    if args.recheck:
        killed = recorded(args.recheck, ("killed", "timeout"))
        mutants = [m for m in mutants if m.key() in killed]
    if args.shard:
        k, n = (int(x) for x in args.shard.split("/"))
        mutants = mutants[k - 1::n]
    if args.list:
        for m in mutants:
            print(f"{m.file}:{m.line}: {m.what}")
        return
    run(args, mutants)


if __name__ == "__main__":
    main()
