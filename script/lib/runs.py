"""Commands that run for the tests, each with its log and its deadline, the test cases that they report, and their sum.

Part of run_floors.py.
"""

import os
import re
import signal
import subprocess
import xml.etree.ElementTree as ElementTree
from collections import Counter
from dataclasses import dataclass, field

JNI_COMPLAINTS = re.compile(r"(WARNING in native method|WARNING: JNI local refs|FATAL ERROR).*")

NOT_RUN_HERE = "not run here: "

running = set()  # processes


class NotRun(Exception):
    """A run that has no result to count."""


@dataclass
class Case:
    name: str
    state: str  # passed, failed, skipped or not run
    detail: str = ""  # why it failed, was skipped or not run


@dataclass
class Run:
    floor: str
    build: str
    cases: list = field(default_factory=list)
    seconds: float = 0.0

    def count(self, state):
        return sum(case.state == state for case in self.cases)


def tail(text, lines=25):
    return "\n".join(text.rstrip().splitlines()[-lines:])


def end_group(process):
    """Ends a command with all that it started."""
    for how, patience in ((signal.SIGTERM, 5), (signal.SIGKILL, None)):
        try:
            os.killpg(process.pid, how)
            process.wait(patience)
        except ProcessLookupError:
            break
        except subprocess.TimeoutExpired:
            pass


def end_all(number, _frame):
    """Ended from outside it ends what it started, too."""
    for process in list(running):
        end_group(process)
    os._exit(128 + number)  # the threads that wait for these processes have nothing more to say


def execute(command, log, deadline, environment=None):
    """Runs a command with its output in the log; gives back its exit status. NotRun when the deadline passes."""
    log.parent.mkdir(parents=True, exist_ok=True)
    with open(log, "wb") as output:
        process = subprocess.Popen(
            [str(word) for word in command],
            stdin=subprocess.DEVNULL,
            stdout=output,
            stderr=subprocess.STDOUT,
            env={**os.environ, **(environment or {})},
            start_new_session=True,
        )
        running.add(process)
        try:
            return process.wait(deadline)
        except subprocess.TimeoutExpired:
            raise NotRun(f"not done after {deadline} s: {log}\n{tail(read(log))}") from None
        finally:
            end_group(process)
            running.discard(process)


def read(log):
    return log.read_text(errors="replace")


def demand(command, log, deadline):
    """Runs a command that has to succeed."""
    if execute(command, log, deadline) != 0:
        raise NotRun(f"failed: {' '.join(map(str, command))}: {log}\n{tail(read(log), 40)}")


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


def checked(cases, log, status):
    """The cases of a run, when they agree with its exit status."""
    if not cases:
        raise NotRun(f"no test ran: {log}\n{tail(read(log))}")
    if status != 0 and all(case.state != "failed" for case in cases):
        cases.append(Case("exit status", "failed", f"ended with status {status}: {log}\n{tail(read(log))}"))
    return cases


def cases_of(reports, log, status):
    cases = [case_of(element) for report in reports for element in ElementTree.parse(report).iter("testcase")]
    return checked(cases, log, status)


def told_cases(command, log, deadline):
    """The cases of a program that tells them itself.

    It prints "ok NAME" or "not ok NAME" for each check, and after it what there is to say, in lines with "# ".
    """
    status = execute(command, log, deadline)
    checks = re.findall(r"^(not )?ok (.*)\n((?:# .*\n)*)", read(log), re.MULTILINE)
    cases = [Case(name, "failed" if bad else "passed", tail(said)) for bad, name, said in checks]
    return checked(cases, log, status)


def junit_cases(reports, log, status):
    cases = cases_of(reports.glob("TEST-*.xml"), log, status)
    complaints = [found.group() for found in JNI_COMPLAINTS.finditer(read(log))]
    if complaints:
        cases.append(Case("-Xcheck:jni is silent", "failed", "\n".join(complaints[:10]) + f"\nsee {log}"))
    return cases


def details(runs, state):
    return [(run, case) for run in runs for case in run.cases if case.state == state]


def write_where(runs, file):
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
    file.write_text("".join(f"| {' | '.join(row)} |\n" for row in rows))


def summarise(runs):
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
    return 0 if failed == skipped == 0 else 1
