"""The native library for script/mutate: its sources, in a copy of the project, and the unit tests."""

import re
import shutil
import sys
from dataclasses import dataclass
from pathlib import Path

import mutants
from programs import demand, run

ROOT = Path.cwd()
COPY = ROOT / "build/mutate/tree"
BUILD = ROOT / "build/mutate/build"
SOURCES = COPY / "src/usb/mac"


@dataclass(frozen=True)
class Test:
    program: str
    name: str

    def command(self, _):
        return [BUILD / "tests/unit" / self.program, f"--gtest_filter={self.name}"], {}

    def __str__(self):
        return f"{self.program}.{self.name}"


class NativeLibrary:
    patience = 20  # times as long as it takes without a change, then a test counts as failed
    shortest_patience = 3  # seconds

    def changes(self):
        copy_tree()
        configure()
        finder, found = mutants.find(COPY, BUILD, SOURCES)
        print(f"{len(found)} changes; building", flush=True)
        build(finder, found)
        return found

    def tests(self):
        return [*tests_of("unit_tests", "*"), *tests_of("unit_tests_macos", "*Hid*:IoKit*")]


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
