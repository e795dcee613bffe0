"""Checks how script/lib/floors.py reports failed builds and runs: usage floors.py ROOT.

Runs it on made-up floors in a temporary folder.
"""

import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

# For each run: its output, the expected counts (passed, failed, skipped), and the expected message.
RUNS = {
    "good": ("--as good true", (1, 0, 0), None),
    "told": ("sh -c [[echo ok one; echo not ok two; echo '# because'; false]]", (1, 1, 0), "two\n    # because"),
    "told wrong": ("sh -c [[echo ok one; false]]", (1, 1, 0), "exit status\n    ended with a failure"),
    "bad": ("--as bad sh -c [[echo why; false]]", (0, 1, 0), "bad\n    why"),
    "silent": ("true", (0, 1, 0), "could not run\n    no test ran"),
    "broken report": ("sh -c [[echo 'no XML' >FOLDER/reports/x.xml]]", (0, 1, 0), "could not run\n    syntax error"),
    "endless": ("sh -c [[echo begun; sleep 60 & sleep 60]]", (0, 1, 0), "could not run\n    not done after 2 s"),
    "without its build": ("--as never true", (0, 1, 0), "could not run\n    failed: "),
    "elsewhere": ("--as elsewhere sh -c [[echo not run here: too new; exit 77]]", (0, 0, 0), None),
    "without a tool": ("--as tool sh -c [[echo not installed; exit 77]]", (0, 1, 0), "without a tool\n    not installed"),
    "skipped": ("sh -c [[echo '<testcase name=\"x\"><skipped message=\"no root\"/></testcase>' >FOLDER/reports/x.xml]]",
                (0, 0, 1), None),
    "complaints": ("sh -c [[echo JUnit; echo ok one; echo WARNING in native method]]",
                   (0, 1, 0), "-Xcheck:jni is silent"),
}
PROJECT = """cmake_minimum_required(VERSION 3.25)
project(Floors LANGUAGES NONE)
enable_testing()
add_test(NAME "build: it" COMMAND @RUN@ @RESULTS@/build/it sh -c "echo compiler; false")
set_tests_properties("build: it" PROPERTIES FIXTURES_SETUP it)
"""
TEST = """add_test(NAME "java: {name}" COMMAND @RUN@ {folder} {words})
set_tests_properties("java: {name}" PROPERTIES LABELS java TIMEOUT 2 SKIP_RETURN_CODE 77)
"""


def write_floors(root, place):
    project = PROJECT
    for name, (words, _, _) in RUNS.items():
        folder = f"@RESULTS@/java/{name.replace(' ', '-')}"
        project += TEST.format(name=name, folder=folder, words=words.replace("FOLDER", folder))
    project += 'set_tests_properties("java: without its build" PROPERTIES FIXTURES_REQUIRED it)\n'
    (place / "tests/floors").mkdir(parents=True)
    run = f"{root}/tests/floors/run"
    text = project.replace("@RUN@", run).replace("@RESULTS@", f"{place}/build/test-results")
    (place / "tests/floors/CMakeLists.txt").write_text(text)


def complaints(root):
    with tempfile.TemporaryDirectory() as scratch:
        write_floors(root, Path(scratch))
        command = [sys.executable, "-B", root / "script/lib/floors.py", "build/test-results", "java"]
        done = subprocess.run(command, cwd=scratch, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)
    for name, (_, counts, said) in RUNS.items():
        row = next((line for line in done.stdout.splitlines() if line.startswith(f"java     {name:18}")), "")
        if row[26:].split()[:3] != [str(count) for count in counts]:
            yield f"{name}: counted {row or 'nowhere'}"
        if said and f"FAILED java, {name}: {said}" not in done.stdout:
            yield f"{name}: not said: {said}"
    sums = ", ".join(f"{sum(column)} {what}" for column, what in
                     zip(zip(*(counts for _, counts, _ in RUNS.values())), ("passed", "failed", "skipped")))
    if done.returncode != 1 or done.stdout.splitlines()[-1] != sums:
        yield f"ends with {done.returncode}, not with {sums}:\n{done.stdout}"
    if "java, elsewhere: elsewhere: not run here: too new" not in done.stdout:
        yield "elsewhere: not said"


if __name__ == "__main__":
    found = list(complaints(Path(sys.argv[1])))
    print("\n".join(found) or "ok")
    sys.exit(1 if found else 0)
