"""Changes the sources in one place at a time and checks whether the tests detect it; see script/mutate.

All changes are compiled at once. A first run of each test records the places that it reaches; then, for each change,
the tests that reach its place run until one fails.
"""

import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from programs import run

ROOT = Path.cwd()
VISITS = ROOT / "build/mutate/visits"
EQUIVALENT = ROOT / "tests/mutation/equivalent.txt"
WANTED = 0.95


def attempt(test, environment, patience):
    """Whether the test passes."""
    with tempfile.TemporaryDirectory() as scratch:
        command, needed = test.command(scratch)
        try:
            return run(command, env={**os.environ, **needed, **environment}, timeout=patience).returncode == 0
        except subprocess.TimeoutExpired:
            return False


def visits(test, found):
    """Records the changes that the test reaches."""
    file = VISITS / re.sub(r"\W", "_", str(test))
    begin = time.monotonic()
    if not attempt(test, {"ORVEX_MUTANT_VISITS": str(file)}, 120):
        sys.exit(f"fails without any change: {test}")
    seconds = time.monotonic() - begin
    for number in set(map(int, file.read_text().split())) if file.exists() else ():
        found[number].tests.append((seconds, test))


def try_out(target, mutant, killers):
    """Sorts the tests that detected other changes first, then the quick ones."""
    order = sorted(mutant.tests, key=lambda entry: (-killers[entry[1]] if killers[entry[1]] > 3 else 0, entry[0]))
    mutant.state = "survived" if order else "unvisited"
    for seconds, test in order:
        patience = max(target.shortest_patience, target.patience * seconds)
        if not attempt(test, {"ORVEX_MUTANT": str(mutant.number)}, patience):
            killers[test] += 1
            mutant.state = "killed"
            return
    print(f"{mutant.state}: {mutant}", flush=True)


def unnumbered(change):
    """A change without its line number, which depends on the lines before it."""
    return re.sub(r":\d+:", ":", str(change).strip(), count=1)


def equivalents():
    """The changes without observable effect, one per line: the change, "  # " and the reason."""
    if not EQUIVALENT.exists():
        return set()
    lines = [line.split("  # ")[0] for line in EQUIVALENT.read_text().splitlines()]
    return {unnumbered(line) for line in lines if line.strip() and not line.startswith("#")}


def survivors(log):
    """The changes that the output of an earlier run lists as not killed; it may contain progress messages."""
    return {unnumbered(change) for change in re.findall(r"(?:survived|unvisited): (.*)", log.read_text())}


def table(found):
    print(f"\n{'file':62} {'killed':>7} {'equal':>7} {'survived':>9}")
    for file in sorted({m.file for m in found}):
        states = Counter(m.state for m in found if m.file == file)
        print(f"{file:62} {states['killed']:7} {states['equivalent']:7} {states['survived'] + states['unvisited']:9}")
    states = Counter(m.state for m in found)
    tried = len(found) - states["equivalent"]
    share = states["killed"] / tried if tried else 0.0
    print(f"\n{states['killed']} of {tried} changes killed: {100 * share:.1f} %; {states['equivalent']} more have no effect")
    return share


def parse_arguments():
    parser = argparse.ArgumentParser(prog="mutate", add_help=False)  # script/mutate tells what they are
    parser.add_argument("--java", action="store_true")
    parser.add_argument("--only")
    parser.add_argument("--again", type=Path)
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    return parser.parse_args()


def chosen_target(options):
    # Each has needs of its own.
    if options.java:
        from java_layer import JavaLayer

        return JavaLayer()
    from native_library import NativeLibrary

    return NativeLibrary()


def chosen_changes(found, options):
    known = equivalents()
    chosen = [m for m in found if m.state != "invalid" and (options.only or "") in m.file]
    for mutant in chosen:
        if unnumbered(mutant) in known:
            mutant.state = "equivalent"
    if options.again:
        again = survivors(options.again)
        chosen = [m for m in chosen if unnumbered(m) in again]
    if options.sample:
        chosen = random.Random(options.seed).sample(chosen, min(options.sample, len(chosen)))
    return chosen


def main():
    options = parse_arguments()
    target = chosen_target(options)
    found = target.changes()
    tests = target.tests()
    shutil.rmtree(VISITS, ignore_errors=True)
    VISITS.mkdir(parents=True)
    with ThreadPoolExecutor(options.jobs) as pool:
        list(pool.map(lambda test: visits(test, found), tests))
    chosen = chosen_changes(found, options)
    left = [m for m in chosen if m.state != "equivalent"]
    invalid = sum(m.state == "invalid" for m in found)
    print(f"{invalid} do not compile; {len(tests)} tests; trying {len(left)}", flush=True)
    killers = Counter()
    with ThreadPoolExecutor(options.jobs) as pool:
        for number, _ in enumerate(pool.map(lambda mutant: try_out(target, mutant, killers), left), 1):
            if number % 20 == 0 or number == len(left):
                print(f"\r{number} of {len(left)}", end="", file=sys.stderr, flush=True)
    print(file=sys.stderr)
    return 0 if table(chosen) >= WANTED else 1


if __name__ == "__main__":
    sys.exit(main())
