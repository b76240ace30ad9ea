#!/usr/bin/env python3
"""Mutation sampler: how much of the library's behaviour do the tests hold?

Applies one small fault at a time to the library's sources (a comparison
flipped, a bound moved by one, a statement removed, a constant changed),
rebuilds incrementally, runs the tests that can see the fault, and reports
which mutants the tests killed and which survived, with their place.

The sample is drawn from the sources alone with a fixed seed, so two runs over
the same sources with different test suites mutate the same places: that is
how a pruning of the tests is compared with the suite before it.

Which tests run for a mutant: all unit tests (seconds), then the network tests
whose coverage reaches the mutated line, shortest first, within a time budget.
The coverage map is made once per suite by a coverage build that runs each
network test alone. A network test counts as killing a mutant only if it fails
twice in a row (unit tests likewise: the failed ones run again), so that a
test unsettled by a loaded machine does not. A mutant killed by unit tests
lists them under "killers": a test that is the only killer of some mutant is
one to keep.

Run as root (the network tests make namespaces), from the repository:

    tools/mutation-sampler/mutation-sampler.py --count 150 --seed 1 --out before.json
    tools/mutation-sampler/mutation-sampler.py --list --count 150 --seed 1
    tools/mutation-sampler/mutation-sampler.py --recheck before.json --out after.json

--recheck takes an earlier report over the same sources and judges again only
the mutants it marks killed by the unit tests: the network tests are those the
earlier report ran, and fewer unit tests cannot kill more, so every other
verdict stands. A mutant the unit tests no longer kill goes on to the network
tests that see its line. Each judged entry records a fingerprint of the tests
and sources it was judged with; --reuse takes such entries from another
recheck report instead of judging them again when the fingerprint is the same.

It builds in build-mut/ and build-cov/ (made if missing) and restores every
source it touches, also when interrupted.
"""
import hashlib
import argparse
import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FOLDERS = ["hal", "modules", "stream", "registers"]

# Binary operators are spaced by the formatter, so " < " is a comparison and
# never a template bracket or a shift.
FLIPPED = {" == ": " != ", " != ": " == ", " < ": " >= ", " >= ": " < ",
           " > ": " <= ", " <= ": " > "}
BOUND = {" < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > "}
NOT_A_STATEMENT = re.compile(
    r"^\s*(return|break|continue|case|default|using|typedef|namespace|template|"
    r"if|else|for|while|do|switch|try|catch|public|private|protected|static_assert|#)\b")
LOGGING = re.compile(r"Logger|ReportError|ChainError|LogLine|Log\(")
INTEGER = re.compile(r"(?<![\w.])(\d+)(?![\w.])")
# "Type name = ..." or "Type* name(...)": removing a declaration does not build.
DECLARATION = re.compile(r"^\s*(?:[\w:]+(?:<[^>]*>)?[\s*&]+)+\w+\s*$")


def is_declaration(code):
    head = re.sub(r"\[[^\]]*\]", "", re.split(r"=|\(|\{", code, 1)[0])
    return "->" not in head and "." not in head and bool(DECLARATION.match(head))


def code_part(line):
    """The line with string and character literals blanked and comments cut,
    so that operators and numbers inside texts are never mutated."""
    out, i, quote = [], 0, None
    while i < len(line):
        c = line[i]
        if quote:
            if c == "\\":
                out.append("  ")
                i += 2
                continue
            out.append(" " if c != quote else c)
            quote = None if c == quote else quote
        elif c in "\"'":
            quote = c
            out.append(c)
        elif line.startswith("//", i):
            break
        else:
            out.append(c)
        i += 1
    return "".join(out)


def sites_in(path):
    """Every mutation this file offers: (line index, kind, old, new, column)."""
    lines = path.read_text().splitlines()
    sites, previous = [], ";"
    in_block_comment = False
    for n, line in enumerate(lines):
        stripped = line.strip()
        if in_block_comment or stripped.startswith("/*"):
            in_block_comment = "*/" not in stripped
            continue
        code = code_part(line)
        if stripped.startswith("#") or not code.strip():
            continue
        if not LOGGING.search(line):
            for table, kind in ((FLIPPED, "comparison flipped"), (BOUND, "bound moved by one")):
                for old, new in table.items():
                    for m in re.finditer(re.escape(old), code):
                        sites.append((n, kind, old, new, m.start()))
            for m in INTEGER.finditer(code):
                value = int(m.group(1))
                new = "1" if value == 0 else str(value + 1) if value != 1 else "0"
                sites.append((n, "constant changed", m.group(1), new, m.start()))
        starts_statement = previous.endswith((";", "{", "}", ":"))
        if (starts_statement and code.rstrip().endswith(";") and not NOT_A_STATEMENT.match(code)
                and not LOGGING.search(line) and not is_declaration(code)
                and code.count("(") == code.count(")")
                and re.search(r"\(|=|\+\+|--", code)):
            sites.append((n, "statement removed", stripped, "", 0))
        previous = code.rstrip() or previous
    return lines, sites


def sample(count, seed):
    """count mutants, shared evenly among the folders; what a small folder
    cannot offer goes to the others."""
    rng = random.Random(seed)
    pools = {}
    for folder in FOLDERS:
        pools[folder] = [(path, s) for path in sorted((ROOT / "src" / folder).glob("*.cpp"))
                         for s in sites_in(path)[1]]
    wants, left = {}, count
    for i, folder in enumerate(sorted(FOLDERS, key=lambda f: len(pools[f]))):
        wants[folder] = min(len(pools[folder]), left // (len(FOLDERS) - i))
        left -= wants[folder]
    chosen = []
    for folder in FOLDERS:
        chosen += rng.sample(pools[folder], wants[folder])
    return chosen


def apply(path, site):
    lines = path.read_text().splitlines(keepends=True)
    n, kind, old, new, col = site
    line = lines[n]
    if kind == "statement removed":
        lines[n] = line[: len(line) - len(line.lstrip())] + ";\n"
    else:
        lines[n] = line[:col] + line[col:].replace(old, new, 1)
    path.write_text("".join(lines))


def run(cmd, cwd, timeout=None):
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return "timeout"


def configure(build, extra):
    if shutil.which("ccache"):
        extra = extra + ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
    if not (build / "build.ninja").exists():
        subprocess.run(["cmake", "-S", str(ROOT), "-B", str(build), "-G", "Ninja"] + extra,
                       check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", str(build), "-j", str(os.cpu_count())], check=True,
                   stdout=subprocess.DEVNULL)


def network_tests(build):
    out = subprocess.run(["ctest", "-N", "-L", "netns"], cwd=build, text=True,
                         stdout=subprocess.PIPE, check=True).stdout
    return re.findall(r"Test +#\d+: (\S+)", out)


def covered_lines(build):
    """(source file, line) pairs run since the counters were last cleared."""
    lines = set()
    for gcda in build.rglob("kesta_gentl_core.dir/**/*.gcda"):
        out = subprocess.run(["gcov", "--json-format", "--stdout", str(gcda)], cwd=gcda.parent,
                             text=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
        for doc in out.splitlines():
            if not doc.startswith("{"):
                continue
            for f in json.loads(doc)["files"]:
                rel = os.path.relpath(os.path.join(build, f["file"]), ROOT) \
                    if not os.path.isabs(f["file"]) else os.path.relpath(f["file"], ROOT)
                lines |= {(rel, l["line_number"]) for l in f["lines"] if l["count"] > 0}
    return lines


def coverage_map(build):
    """For each network test: its duration and the library lines it runs."""
    cache = build / "coverage-map.json"
    if cache.exists():
        return json.loads(cache.read_text())
    configure(build, ["-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=--coverage",
                      "-DCMAKE_C_FLAGS=--coverage", "-DCMAKE_EXE_LINKER_FLAGS=--coverage",
                      "-DCMAKE_SHARED_LINKER_FLAGS=--coverage"])
    result = {}
    for test in network_tests(build):
        for gcda in build.rglob("*.gcda"):
            gcda.unlink()
        start = time.time()
        run(["ctest", "-R", f"^{test}$", "--timeout", "300"], build)
        result[test] = {"seconds": time.time() - start,
                        "lines": sorted(f"{f}:{l}" for f, l in covered_lines(build))}
        print(f"coverage: {test} {len(result[test]['lines'])} lines", flush=True)
    cache.write_text(json.dumps(result))
    return result


def load_coverage(build):
    coverage = coverage_map(build)
    for c in coverage.values():
        c["lines"] = set(c["lines"])
    return coverage


def last_failed(build):
    """The tests the last ctest run failed, as ctest itself lists them."""
    log = build / "Testing" / "Temporary" / "LastTestsFailed.log"
    return sorted(l.split(":", 1)[1] for l in log.read_text().splitlines() if ":" in l) \
        if log.exists() else []


# What the unit tests run of the library: built first, so that a mutant the
# unit tests kill costs no link of the network tests and the benchmarks.
UNIT_TARGETS = ["GenTL_KESTA"] + [f"test_{d}" for d in
                                  ("api", "hal", "modules", "stream", "events", "registers")
                                  if (ROOT / "tests" / d).is_dir()]


def build_targets(build, targets=()):
    cmd = ["cmake", "--build", str(build), "-j", str(os.cpu_count())]
    for target in targets:
        cmd += ["--target", target]
    return run(cmd, ROOT) == 0


def judge(build, place, coverage, budget, unit_timeout=120):
    """Builds and runs the tests that can see the mutant; returns (verdict,
    by, unit tests that failed twice)."""
    if not build_targets(build, UNIT_TARGETS):
        return "did not build", "", []
    limit = str(unit_timeout)
    status = run(["ctest", "-L", "unit", "-j", str(os.cpu_count()), "--timeout", limit], build,
                 timeout=900)
    if status != 0 and run(["ctest", "--rerun-failed", "--timeout", limit], build,
                           timeout=900) != 0:
        return "killed", "unit tests", last_failed(build)
    seeing = sorted((t for t, c in coverage.items() if place in c["lines"]),
                    key=lambda t: coverage[t]["seconds"])
    if not seeing:
        return "survived", "no network test runs this line", []
    if not build_targets(build):
        return "did not build", "", []
    deadline = time.time() + budget
    for test in seeing:
        if time.time() > deadline:
            return "survived", f"time budget spent ({len(seeing)} tests see the line)", []
        cmd = ["ctest", "-R", f"^{test}$", "--timeout", "300"]
        if run(cmd, build) != 0 and run(cmd, build) != 0:
            return "killed", test, []
    return "survived", f"{len(seeing)} network tests see the line", []


def fingerprint():
    """Hash of everything a verdict depends on: tests, library, tools."""
    digest = hashlib.sha256()
    for top in ("tests", "src", "include", "tools", "kestalog", "CMakeLists.txt"):
        base = ROOT / top
        for path in sorted([base] if base.is_file() else base.rglob("*")):
            if path.is_file():
                digest.update(str(path.relative_to(ROOT)).encode() + b"\0" + path.read_bytes())
    return digest.hexdigest()[:16]


def key(entry):
    return (entry["place"], entry["kind"], entry["from"], entry["to"])


def earlier_verdicts(report_path, mutants):
    """Pairs each entry of an earlier report with its mutant of this sample."""
    waiting = {}
    for path, site in mutants:
        place = f"{path.relative_to(ROOT)}:{site[0] + 1}"
        waiting.setdefault((place, site[1], site[2].strip(), site[3].strip()), []).append(
            (path, site))
    paired = []
    for entry in json.loads(Path(report_path).read_text()):
        found = waiting.get(key(entry))
        if not found:
            sys.exit(f"{report_path}: {entry['place']} is not in this sample "
                     "(other sources, --count or --seed?)")
        paired.append((entry, found.pop(0)))
    return paired


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--count", type=int, default=150)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--budget", type=int, default=180,
                        help="seconds of network tests per mutant (default 180)")
    parser.add_argument("--unit-timeout", type=int, default=120,
                        help="seconds a unit test may take before it counts as failed; a "
                        "mutant that makes tests hang costs this much per test (default 120)")
    parser.add_argument("--out", default="mutation-report.json")
    parser.add_argument("--list", action="store_true", help="print the sample and stop")
    parser.add_argument("--build", default=str(ROOT / "build-mut"))
    parser.add_argument("--coverage-build", default=str(ROOT / "build-cov"))
    parser.add_argument("--recheck", metavar="REPORT",
                        help="judge again only what REPORT marks killed by the unit tests")
    parser.add_argument("--reuse", metavar="REPORT",
                        help="with --recheck: verdicts judged with the same fingerprint")
    args = parser.parse_args()

    mutants = sample(args.count, args.seed)
    if args.list:
        for path, (n, kind, old, new, _) in mutants:
            print(f"{path.relative_to(ROOT)}:{n + 1}: {kind}: {old.strip()!r} -> {new.strip()!r}")
        return 0

    coverage = load_coverage(Path(args.coverage_build))
    build = Path(args.build)
    configure(build, ["-DCMAKE_BUILD_TYPE=Release", "-DKESTA_WERROR=OFF"])
    # A test that fails without any mutant would "kill" every one.
    if run(["ctest", "-L", "unit", "-j", str(os.cpu_count()), "--timeout", "120"], build) != 0:
        sys.exit(f"unit tests fail without a mutant: {', '.join(last_failed(build))}")

    original = {}
    def restore(*_):
        for path, text in original.items():
            path.write_text(text)
        if _:
            sys.exit(130)
    signal.signal(signal.SIGINT, restore)
    signal.signal(signal.SIGTERM, restore)

    if args.recheck:
        todo = earlier_verdicts(args.recheck, mutants)
    else:
        todo = [(None, m) for m in mutants]
    stamp = fingerprint()
    reusable = {}
    if args.reuse:
        reusable = {key(e): e for e in json.loads(Path(args.reuse).read_text())
                    if e.get("fingerprint") == stamp}

    report = []
    try:
        for i, (earlier, (path, site)) in enumerate(todo, 1):
            rel = str(path.relative_to(ROOT))
            place = f"{rel}:{site[0] + 1}"
            if earlier is not None and (earlier["verdict"], earlier["by"]) != ("killed",
                                                                                "unit tests"):
                report.append(earlier)
                Path(args.out).write_text(json.dumps(report, indent=1))
                print(f"[{i}/{len(todo)}] {place} {site[1]}: {earlier['verdict']} "
                      f"{earlier['by']} (kept)", flush=True)
                continue
            if earlier is not None and key(earlier) in reusable:
                entry = reusable[key(earlier)]
                report.append(entry)
                print(f"[{i}/{len(todo)}] {place} {site[1]}: {entry['verdict']} {entry['by']} "
                      "(reused)", flush=True)
                Path(args.out).write_text(json.dumps(report, indent=1))
                continue
            original[path] = path.read_text()
            apply(path, site)
            verdict, by, killers = judge(build, place, coverage, args.budget, args.unit_timeout)
            path.write_text(original.pop(path))
            entry = {"place": place, "kind": site[1], "from": site[2].strip(),
                     "to": site[3].strip(), "verdict": verdict, "by": by}
            if killers:
                entry["killers"] = killers
            if earlier is not None:
                entry["fingerprint"] = stamp
            report.append(entry)
            print(f"[{i}/{len(todo)}] {place} {site[1]}: {verdict} {by}", flush=True)
            Path(args.out).write_text(json.dumps(report, indent=1))
    finally:
        restore()
        subprocess.run(["cmake", "--build", str(build)], stdout=subprocess.DEVNULL)

    counted = [r for r in report if r["verdict"] != "did not build"]
    killed = sum(r["verdict"] == "killed" for r in counted)
    print(f"\n{killed} of {len(counted)} mutants killed "
          f"({100.0 * killed / max(1, len(counted)):.1f} %); "
          f"{len(report) - len(counted)} did not build")
    for r in counted:
        if r["verdict"] == "survived":
            print(f"  survived: {r['place']} {r['kind']} {r['from']!r} -> {r['to']!r} ({r['by']})")
    return 0


if __name__ == "__main__":
    sys.exit(main())
