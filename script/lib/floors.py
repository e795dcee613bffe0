"""Runs floors of tests and sums them up: usage floors.py FOLDER [--suites REGEX] [--system-suites REGEX] LABEL...

Called by script/test and script/arm64 from the root of the project. tests/floors has the runs, as tests of CTest with
these labels; FOLDER, below build/test-results, is where they leave their logs and reports. A run that cannot be built,
started or counted, or that outlives its deadline, stands in the sum as one failed test with the end of its log.
"""

import argparse
import os
import re
import signal
import shutil
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from collections import Counter
from dataclasses import dataclass, field
from pathlib import Path

RESULTS = Path("build/test-results")
FLOORS = ["unit", "java", "system", "arm64"]
NOT_RUN_HERE = "not run here: "
JNI_COMPLAINTS = re.compile(r"(WARNING in native method|WARNING: JNI local refs|FATAL ERROR).*")


@dataclass
class Case:
    name: str
    state: str  # passed, failed, skipped or not run
    detail: str = ""  # why it failed, was skipped or not run


@dataclass
class Run:
    floor: str
    build: str
    seconds: float
    cases: list = field(default_factory=list)

    @property
    def folder(self):
        return RESULTS / self.floor / self.build.replace(" ", "-")

    def count(self, state):
        return sum(case.state == state for case in self.cases)


def tail(text, lines=25):
    return "\n".join(text.rstrip().splitlines()[-lines:])


def read(file):
    return file.read_text(errors="replace") if file.exists() else ""


def skip_reason(case, skipped):
    """GoogleTest prints the reason after a line that ends in "Skipped"; JUnit hands it over; others print it last."""
    said = (case.findtext("system-out") or "").rstrip()
    googletest = re.search(r"Skipped\n(.*)", said)
    if googletest:
        return googletest.group(1).strip()
    own = (skipped.text or skipped.get("message") or "").strip()
    if not own.startswith("SKIP_"):
        return own or "no reason given"
    return tail(said, 1) or "no reason given"


def case_of(element):
    """A test case of a report of CTest or JUnit."""
    name = element.get("name")
    if element.get("classname") not in (None, "", name):
        name = f"{element.get('classname').rsplit('.', 1)[-1]}.{name}"
    bad = element.find("failure") if element.find("failure") is not None else element.find("error")
    if bad is not None:
        # A stack trace tells most at its top, a program's output at its end.
        trace, output = (bad.text or "").strip(), element.findtext("system-out") or ""
        said = "\n".join(trace.splitlines()[:10]) if trace else tail(output)
        return Case(name, "failed", said or f"no output in {float(element.get('time') or 0):.0f} s")
    skipped = element.find("skipped")
    # CTest calls a test whose program is missing skipped, too; that one has failed.
    if element.get("status") == "notrun" and not (skipped.get("message") or "").startswith("SKIP_"):
        return Case(name, "failed", f"not run: {skipped.get('message')}")
    if skipped is not None or element.get("status") == "disabled":
        reason = "disabled" if skipped is None else skip_reason(element, skipped)
        # What a check wants in one version only, and the system has in another one, is no gap in the test run.
        return Case(name, "not run" if reason.startswith(NOT_RUN_HERE) else "skipped", reason)
    return Case(name, "passed")


def told_cases(log):
    """The cases of a program that prints "ok NAME" or "not ok NAME" for each, then what there is to say after "# "."""
    for bad, name, said in re.findall(r"^(not )?ok (.*)\n((?:# .*\n)*)", log, re.MULTILINE):
        yield Case(name, "failed" if bad else "passed", tail(said or log))


def reported_cases(folder, log):
    """What a run has left: reports of CTest or JUnit, or lines of its own in its log."""
    reports = sorted((folder / "reports").glob("*.xml"))
    cases = [case_of(element) for report in reports for element in ElementTree.parse(report).iter("testcase")]
    complaints = [found.group() for found in JNI_COMPLAINTS.finditer(log)] if "JUnit" in log else []
    if complaints:
        cases.append(Case("-Xcheck:jni is silent", "failed", "\n".join(complaints[:10])))
    return cases or list(told_cases(log))


def cases_of(run, outcome, builds):
    """The cases of a run, when they agree with how it ended. Its file of times is missing when it was ended."""
    log = read(run.folder / "log")
    at_end = f"{run.folder / 'log'}\n{tail(log)}"
    failure = outcome.find("failure")
    skipped = outcome.find("skipped")
    if skipped is not None and not skipped.get("message", "").startswith("SKIP_"):
        why = [f"failed: {log}\n{tail(read(log), 40)}" for log in builds]
        return [Case("could not run", "failed", "\n".join(why) or skipped.get("message"))]
    if failure is not None and not (run.folder / "times").exists():
        return [Case("could not run", "failed", f"not done after {run.seconds:.0f} s: {at_end}")]
    try:
        cases = reported_cases(run.folder, log)
    except ElementTree.ParseError as problem:
        return [Case("could not run", "failed", f"{problem}: {at_end}")]
    if skipped is not None:
        cases.append(Case(run.build, "not run" if tail(log).startswith(NOT_RUN_HERE) else "failed", tail(log)))
    if not cases:
        return [Case("could not run", "failed", f"no test ran: {at_end}")]
    if failure is not None and all(case.state != "failed" for case in cases):
        cases.append(Case("exit status", "failed", f"ended with a failure: {at_end}"))
    return cases


def runs_of(report):
    """The runs in CTest's report. Builds, which are in it as well, count when they fail a run that needs them."""
    outcomes = {outcome.get("name"): outcome for outcome in ElementTree.parse(report).iter("testcase")}
    builds = [name for name in outcomes if name.startswith("build: ")]
    failed_builds = [RESULTS / name.replace(": ", "/").replace(" ", "-") / "log" for name in builds
                     if outcomes[name].find("failure") is not None]  # fmt: skip
    for name in sorted(outcomes.keys() - builds, key=lambda name: (FLOORS.index(name.partition(":")[0]), name)):
        run = Run(*name.split(": "), float(outcomes[name].get("time")))
        run.cases = cases_of(run, outcomes[name], failed_builds)
        yield run


def details(runs, state):
    return [(run, case) for run in runs for case in run.cases if case.state == state]


def notes(runs):
    """Figures to look at: how many calls were made to fail in the library's main jobs, and what was reached of src."""
    for run in runs:
        log = "".join(map(read, [run.folder / "log", *(run.folder / "reports").glob("ctest.xml")]))
        counts = re.findall(r"(\d+) fault points, (\d+) of them reached", log)
        if counts and run.build == "asan":
            points, met = (sum(map(int, column)) for column in zip(*counts))
            yield f"{run.floor}: {run.build}: {points} fault points, {met} of them reached"
        for said in re.findall(r"^# ([\d.]+ % of .*)", log, re.MULTILINE):
            yield f"{run.floor}: {run.build}: {said}"


def where(runs):
    """What is tested where: the number of tests of each suite in each run."""
    builds = [f"{run.floor}, {run.build}" for run in runs]
    counts = {}
    for build, run in zip(builds, runs):
        for case in run.cases:
            named = re.match(r"(?:macos[.])?(?:\w+/)?(\w+)[.]\w", case.name)
            suite = named.group(1) if named else "checks without a suite"
            counts.setdefault(suite, Counter())[build] += 1
    rows = [["suite", *builds], ["---"] * (len(runs) + 1)]
    rows += [[suite, *(str(count[build] or "") for build in builds)] for suite, count in sorted(counts.items())]
    return "".join(f"| {' | '.join(row)} |\n" for row in rows)


def summarise(runs):
    print("", *notes(runs), sep="\n")
    for run, case in details(runs, "failed"):
        print(f"\nFAILED {run.floor}, {run.build}: {case.name}")
        print("\n".join(f"    {line}" for line in case.detail.splitlines()))
    for run, case in details(runs, "skipped"):
        print(f"\nskipped {run.floor}, {run.build}: {case.name}: {case.detail}")
    for run, case in details(runs, "not run"):
        print(f"\n{run.floor}, {run.build}: {case.name}: {case.detail}")
    print(f"\n{'floor':8} {'build':17} {'passed':>8} {'failed':>8} {'skipped':>8} {'seconds':>8}")
    for run in runs:
        print(f"{run.floor:8} {run.build:17} {run.count('passed'):8} {run.count('failed'):8} "
              f"{run.count('skipped'):8} {run.seconds:8.0f}")
    passed, failed, skipped = (len(details(runs, state)) for state in ("passed", "failed", "skipped"))
    if skipped:
        print(f"\nNot everything was tested: {skipped} skipped.")
    print(f"\n{passed} passed, {failed} failed, {skipped} skipped", flush=True)
    return 0 if passed and failed == skipped == 0 else 1


def perform(command):
    """Runs a command; ended from outside, it ends what that has started, too."""
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, start_new_session=True) as process:
        def end(number, _frame):
            os.killpg(process.pid, signal.SIGTERM)
            os._exit(128 + number)

        for number in (signal.SIGINT, signal.SIGTERM):
            signal.signal(number, end)
        return process.wait()


def main(given):
    folder = given.folder
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    report = folder / "floors.xml"
    configure = ["cmake", "--fresh", "-S", "tests/floors", "-B", "build/floors", "-G", "Ninja",
                 f"-DSUITES={given.suites}", f"-DSYSTEM_SUITES={given.system_suites}"]  # fmt: skip
    subprocess.run(configure, check=True, stdout=subprocess.DEVNULL)
    perform(["ctest", "--test-dir", "build/floors", f"-j{2 * os.cpu_count()}", "--no-tests=error",
             "-L", f"^({'|'.join(given.labels)})$", "--output-junit", report.absolute()])  # fmt: skip
    runs = list(runs_of(report))
    (folder / "where.md").write_text(where(runs))
    return summarise(runs)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--suites", default="")
    parser.add_argument("--system-suites", default="")
    parser.add_argument("folder", type=Path)
    parser.add_argument("labels", nargs="+")
    sys.exit(main(parser.parse_args()))
