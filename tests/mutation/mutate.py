"""Changes the library's source in one place at a time and checks whether the unit tests detect it; see script/mutate.

All changes are compiled at once (see mutants.py) in a copy of the project below build/mutate. A first run of each test
records the places that it reaches; then, for each change, the tests that reach its place run until one fails.
"""

import argparse
import os
import random
import re
import shutil
import subprocess
import sys
import time
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass
from pathlib import Path

import mutants

ROOT = Path.cwd()
COPY = ROOT / "build/mutate/tree"
BUILD = ROOT / "build/mutate/build"
VISITS = ROOT / "build/mutate/visits"
SOURCES = COPY / "src/usb/mac"
EQUIVALENT = ROOT / "tests/mutation/equivalent.txt"
WANTED = 0.95
PATIENCE = 20  # times as long as it takes without a change, then a test counts as failed
SHORTEST_PATIENCE = 3  # seconds


@dataclass(frozen=True)
class Test:
    program: str
    name: str


def run(command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **options)


def demand(command):
    done = run(command)
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(map(str, command))}\n{done.stdout[-3000:]}{done.stderr[-3000:]}")


def copy_tree():
    shutil.rmtree(COPY, ignore_errors=True)
    listing = run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"])
    for name in filter(None, listing.stdout.split("\0")):
        if (ROOT / name).is_file():
            (COPY / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(ROOT / name, COPY / name)


def configure():
    demand(["cmake", "-G", "Ninja", "-S", COPY, "-B", BUILD, "-DCMAKE_BUILD_TYPE=Debug",
            "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -w", "-DBUILD_TESTING=ON"])
    lists = SOURCES / "CMakeLists.txt"
    lists.write_text(lists.read_text().replace("add_library(usbaccess OBJECT", f"add_library(usbaccess OBJECT\n  {ROOT}/tests/mutation/mutant.cpp"))
    demand(["ninja", "-C", BUILD, "orvex_native_header_file"])  # which the sources include


def build(finder, found):
    """Removes changes that do not compile, file by file and line by line."""
    for _ in range(8):
        for file in finder.edits:
            text = finder.rewritten(file)
            if not (COPY / file).exists() or (COPY / file).read_text() != text:
                (COPY / file).write_text(text)
        done = run(["ninja", "-C", BUILD, "-k", "0", "unit_tests", "unit_tests_macos"])
        if done.returncode == 0:
            return
        wrong = set(re.findall(rf"^{re.escape(str(COPY))}/(\S+?):(\d+):\d+: error", done.stdout, re.MULTILINE))
        refused = [m for m in found if m.state != "invalid" and (m.file, str(m.line)) in wrong]
        if not refused:
            sys.exit(done.stdout[-5000:])
        for mutant in refused:
            mutant.state = "invalid"
    sys.exit("the changed sources do not compile")


def tests_of(program, choice):
    listing = run([BUILD / "tests/unit" / program, "--gtest_list_tests", f"--gtest_filter={choice}"]).stdout
    suite, found = "", []
    for line in listing.splitlines():
        name = line.split("#")[0].rstrip()
        if name.startswith("  "):
            found.append(Test(program, suite + name.strip()))
        else:
            suite = name
    return found


def attempt(test, environment, patience):
    """Whether the test passes."""
    command = [BUILD / "tests/unit" / test.program, f"--gtest_filter={test.name}"]
    try:
        return run(command, env={**os.environ, **environment}, timeout=patience).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def visits(test, found):
    """Records the changes that the test reaches."""
    file = VISITS / re.sub(r"\W", "_", f"{test.program}.{test.name}")
    begin = time.monotonic()
    if not attempt(test, {"ORVEX_MUTANT_VISITS": str(file)}, 120):
        sys.exit(f"fails without any change: {test.program} {test.name}")
    seconds = time.monotonic() - begin
    for number in set(map(int, file.read_text().split())):
        found[number].tests.append((seconds, test))


def try_out(mutant, killers):
    """Sorts the tests that detected other changes first, then the quick ones."""
    order = sorted(mutant.tests, key=lambda entry: (-killers[entry[1]] if killers[entry[1]] > 3 else 0, entry[0]))
    mutant.state = "survived" if order else "unvisited"
    for seconds, test in order:
        patience = max(SHORTEST_PATIENCE, PATIENCE * seconds)
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
    parser.add_argument("--only")
    parser.add_argument("--again", type=Path)
    parser.add_argument("--sample", type=int)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    return parser.parse_args()


def main():
    options = parse_arguments()
    copy_tree()
    configure()
    finder, found = mutants.find(COPY, BUILD, SOURCES)
    print(f"{len(found)} changes; building", flush=True)
    build(finder, found)
    tests = [*tests_of("unit_tests", "*"), *tests_of("unit_tests_macos", "*Hid*:IoKit*")]
    shutil.rmtree(VISITS, ignore_errors=True)
    VISITS.mkdir(parents=True)
    with ThreadPoolExecutor(options.jobs) as pool:
        list(pool.map(lambda test: visits(test, found), tests))
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
    left = [m for m in chosen if m.state != "equivalent"]
    print(f"{len(found) - sum(m.state != 'invalid' for m in found)} do not compile; {len(tests)} tests; trying {len(left)}", flush=True)
    killers = Counter()
    with ThreadPoolExecutor(options.jobs) as pool:
        for number, _ in enumerate(pool.map(lambda mutant: try_out(mutant, killers), left), 1):
            if number % 20 == 0 or number == len(left):
                print(f"\r{number} of {len(left)}", end="", file=sys.stderr, flush=True)
    print(file=sys.stderr)
    return 0 if table(chosen) >= WANTED else 1


if __name__ == "__main__":
    sys.exit(main())
