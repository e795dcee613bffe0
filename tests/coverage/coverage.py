"""How much of the code the tests have reached.

usage: coverage.py src BUILD LINES BRANCHES   of src, by a build with ORVEX_COVERAGE; at least so many percent
       coverage.py count RELEASE              copies the jars of a release build to its folder "counted", where those
                                              of the tests use classes that count what is executed
       coverage.py java RELEASE               of the classes of java/src, by the tests in those copies

Prints "ok NAME" or "not ok NAME" for lines and for branches, and what was missed in lines that begin with "# ". The
lines of java/src that no test can reach are in unreachable.txt, with the reason.
"""

import json
import shutil
import subprocess
import sys
from collections import defaultdict
from pathlib import Path

HERE = Path(__file__).resolve().parent
MOST_SHOWN = 40

JARS = Path("/usr/share/java")
JACOCO = ":".join(str(JARS / f"{name}.jar") for name in
                  ("org.jacoco.core", "asm", "asm-tree", "asm-commons", "asm-analysis"))  # fmt: skip
RUNTIME = [JARS / "org.jacoco.agent.rt.jar", JARS / "org.jacoco.core.jar"]
SOURCES = Path("java/src")
PACKAGE = "com/talvane/orvex/comm"
LEAST = {"access": (100, 95), "recording": (100, 95), ".": (100, 95), "tool": (95, 90)}  # percent of lines and of branches, by package


def tell(name, counts, least):
    """The result for the times that each place (file:line) was run."""
    missed = [place for place, count in counts if count == 0]
    percent = 100 * (1 - len(missed) / len(counts)) if counts else 0
    print(f"{'ok' if percent >= least else 'not ok'} {name}")
    print(f"# {percent:.2f} % of {name}, {len(counts) - len(missed)} of {len(counts)}; {least} % wanted")
    for place in missed[-MOST_SHOWN:] if percent < least else []:
        print(f"# not reached: {place}")


def src(build, least_lines, least_branches):
    command = ["gcovr", "--root", ".", "--filter", "src/", "--exclude-throw-branches", "--exclude-unreachable-branches",
               "--json", "-", build]  # fmt: skip
    figures = json.loads(subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout)
    lines, branches = [], []
    # Some versions of gcovr list lines without code, too, with a mark.
    for file in figures["files"]:
        for line in (line for line in file["lines"] if not line.get("gcovr/noncode")):
            place = f"{file['file']}:{line['line_number']}"
            lines.append((place, line["count"]))
            branches += [(place, branch["count"]) for branch in line["branches"] if not branch["throw"]]
    tell("lines of src", lines, float(least_lines))
    tell("branches of src", branches, float(least_branches))


def counted(release):
    return Path(release).resolve() / "counted"


def count(release):
    release, copies = Path(release), counted(release)
    shutil.rmtree(copies, ignore_errors=True)
    for folder in "lib", "tests/java/lib":
        shutil.copytree(release / folder, copies / folder)
    shutil.copy(release / "tests/java/orvex-java-tests.jar", copies / "tests/java")
    subprocess.run(["java", "-cp", JACOCO, HERE / "Instrument.java", release / "orvex-usb-access.jar",
                    copies / "orvex-usb-access.jar", copies / "results", *RUNTIME], check=True)  # fmt: skip


def unreachable():
    """The lines that no test can reach: file and code."""
    lines = (HERE / "unreachable.txt").read_text().splitlines()
    return {tuple(line.split(": ", 1)) for line in lines if line and not line.startswith("#")}


def java(release):
    command = ["java", "-cp", JACOCO, HERE / "Report.java", Path(release) / "orvex-usb-access.jar",
               counted(release) / "results"]  # fmt: skip
    lines, branches = defaultdict(list), defaultdict(list)
    left, sources = unreachable(), {}
    for line in subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout.splitlines():
        file, number, *figures = line.split()
        executed, branches_missed, branches_taken = map(int, figures[1:])
        code = sources.setdefault(file, (SOURCES / file).read_text().splitlines())[int(number) - 1].strip()
        name = Path(file).relative_to(PACKAGE)
        if executed == 0 and (str(name), code) in left:
            left.discard((str(name), code))
            continue
        package, place = str(name.parent), f"{name}:{number}: {code}"
        lines[package].append((place, executed))
        branches[package] += [(place, 0)] * branches_missed + [(place, 1)] * branches_taken
    for package, (least_lines, least_branches) in LEAST.items():
        what = "the loader" if package == "." else package
        tell(f"lines of {what}", lines[package], least_lines)
        tell(f"branches of {what}", branches[package], least_branches)
    print(f"{'not ok' if left else 'ok'} lines that no test can reach")
    print("".join(f"# reached, or gone: {file}: {code}\n" for file, code in sorted(left)), end="")


if __name__ == "__main__":
    globals()[sys.argv[1]](*sys.argv[2:])
