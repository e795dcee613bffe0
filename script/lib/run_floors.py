"""Builds and runs the floors of tests that the command line names (unit, java, system; all without a name) and sums them up.

Called by script/test from the root of the project. Each floor is one or more runs; a run that cannot be built, started
or counted, or that outlives its deadline, stands in the sum as one failed test with the end of its log.
"""

import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import xml.etree.ElementTree as ElementTree
from concurrent.futures import ThreadPoolExecutor
from itertools import chain
from pathlib import Path

from runs import (
    NOT_RUN_HERE, Case, NotRun, Run, cases_of, demand, end_all, execute, junit_cases, read, summarise, tail, told_cases,
    write_where,
)  # fmt: skip

ROOT = Path.cwd()
RESULTS = ROOT / "build/test-results"
RELEASE = ROOT / "build/release"
MACOS = sys.platform == "darwin"
LIBRARY = RELEASE / f"libUSBAccessLink_3_47.{'dylib' if MACOS else 'so'}"
TESTS_JAR = RELEASE / "tests/java/orvex-java-tests.jar"
JARS = ROOT / "build/jars" if MACOS else Path("/usr/share/java")
JUNIT = JARS / "junit-platform-console-standalone.jar"
SCENARIO = ROOT / "tests/java/scenario.json"
DEMO = ROOT / "sim/scenarios/demo.json"

BUILD_DEADLINE = 900  # seconds, as all deadlines here
UNIT_DEADLINE = 900
ONE_UNIT_TEST_DEADLINE = 120  # where a test has none of its own
COVERAGE_DEADLINE = 120
JAVA_DEADLINE = 420
SYSTEM_DEADLINE = 900
PACKAGE_DEADLINE = 300

SANITIZERS = {
    # The leak check is not there on every macOS.
    "ASAN_OPTIONS": f"halt_on_error=1:detect_leaks={0 if MACOS else 1}"
    ":detect_stack_use_after_return=1:strict_string_checks=1",
    "UBSAN_OPTIONS": "halt_on_error=1:print_stacktrace=1",
    "TSAN_OPTIONS": "halt_on_error=1:second_deadlock_stack=1",
}
LEAST_LINES, LEAST_BRANCHES = 100.0, 95.0  # percent of src that the unit tests have to reach
HID_SUITES = ".*Hid.*Test"
# Of two virtual machines each takes about half of the time; the half with the most threads has two processors.
KERNEL_HALF = r".*(\.access\.|Hid|Endurance).*Test"
FIRST_THAT_WARNS = 24  # version of Java
MEMCHECK = ["valgrind", "--quiet", "--error-exitcode=9", "--leak-check=full", "--errors-for-leak-kinds=definite"]
# A heap that neither grows nor shrinks, and one compiler: what the process gains is then what the tests have left.
STEADY_JVM = ["-Xms128m", "-Xmx128m", "-XX:+AlwaysPreTouch", "-XX:TieredStopAtLevel=1"]

building = threading.Lock()  # runs that go on side by side share the build folders


def ctest(preset, targets, choice):
    """The chosen tests of one build, for which these targets are needed."""
    folder = RESULTS / "unit"
    demand(["cmake", "--preset", preset], folder / f"{preset}-build.log", BUILD_DEADLINE)
    demand(["cmake", "--build", "--preset", preset, "--target", *targets], folder / f"{preset}-build.log", BUILD_DEADLINE)
    report, log = folder / f"{preset}.xml", folder / f"{preset}.log"
    # More than there are cores: many of the tests wait most of their time.
    command = ["ctest", "--test-dir", f"build/{preset}", f"-j{3 * os.cpu_count()}", "--no-tests=error"]
    command += ["--output-on-failure", "--timeout", ONE_UNIT_TEST_DEADLINE, "--output-junit", report, *choice]
    status = execute(command, log, UNIT_DEADLINE, SANITIZERS)
    return cases_of([report] if report.exists() else [], log, status)


def house():
    """What looks at the sources and at the library as it is built."""
    return ctest("dev", ["USBAccessLink", "orvex_jars"], ["-L", "house"])


def unit_asan():
    """All C++ tests. Tells how many calls were made to fail in the library's main jobs."""
    cases = ctest("asan", ["orvex_tests"], ["-LE", "house"])
    report = RESULTS / "unit/asan.xml"
    counts = re.findall(r"(\d+) fault points, (\d+) of them reached", read(report) if report.exists() else "")
    points, met = (sum(map(int, column)) for column in zip(*counts)) if counts else (0, 0)
    print(f"unit: asan: {points} fault points, {met} of them reached")
    return cases


def unit_tsan():
    """The library's own tests only: they drive the simulated bus from as many threads as its own do.

    This build counts what they reach of src, from 0 in each run.
    """
    for counts in (ROOT / "build/tsan").rglob("*.gcda"):
        counts.unlink()
    return ctest("tsan", ["orvex_unit_tests"], ["-L", "unit"])


def unit_macos():
    """Whatever a Mac builds is built and linked here, over the stand-ins for its system, and its C++ tests run."""
    return ctest("macos", ["orvex_shipped", "orvex_tests", "USBAccessLink_macos"], ["-LE", "house"])


def reached(name, counts, least):
    """The case of what was reached, from the times that each place (file:line) was run."""
    missed = [place for place, count in counts if count == 0]
    percent = 100 * (1 - len(missed) / max(len(counts), 1)) if counts else 0
    print(f"unit: coverage: {percent:.2f} % of {name}, {len(counts) - len(missed)} of {len(counts)}")
    if percent >= least:
        return Case(f"{name} of src", "passed")
    return Case(f"{name} of src", "failed", f"{least} % wanted; not reached:\n" + tail("\n".join(missed), 40))


def coverage():
    """How much of src the tests of the run before, tsan, have reached."""
    folder = RESULTS / "unit"
    figures = folder / "coverage.json"
    demand(["gcovr", "--root", ".", "--filter", "src/", "--exclude-throw-branches", "--exclude-unreachable-branches",
            "--json", figures, "build/tsan"], folder / "coverage.log", COVERAGE_DEADLINE)
    lines, branches = [], []
    # Some versions of gcovr list lines without code, too, with a mark.
    for file in json.loads(read(figures))["files"]:
        for line in (line for line in file["lines"] if not line.get("gcovr/noncode")):
            place = f"{file['file']}:{line['line_number']}"
            lines.append((place, line["count"]))
            branches += [(place, branch["count"]) for branch in line["branches"] if not branch["throw"]]
    return [reached("lines", lines, LEAST_LINES), reached("branches", branches, LEAST_BRANCHES)]


def build_release(folder, *targets):
    """Builds what is shipped, and with it what tests it."""
    with building:
        demand(["script/build", "--tests"], folder / "build.log", BUILD_DEADLINE)
        if targets:
            demand(["cmake", "--build", "--preset", "release", "--target", *targets], folder / "build.log", BUILD_DEADLINE)


def junit(reports, jvm=(), launcher=(), library=LIBRARY, java="java", without=(), tests=TESTS_JAR):
    """The command that runs the JUnit suite, without the tests that have one of these tags."""
    return [
        java,
        "-Xcheck:jni",
        *STEADY_JVM,
        *jvm,
        f"-Dorvex.usb.library={library}",
        "-cp",
        f"{JUNIT}:{tests}",
        "org.junit.platform.console.ConsoleLauncher",
        f"--scan-classpath={tests}",
        f"--reports-dir={reports}",
        "--details=verbose",  # as it goes on, so that the log of a run that hangs tells where
        "--disable-banner",
        "--disable-ansi-colors",
        *(f"--exclude-tag={tag}" for tag in [*without, *(["linux", "preload"] if MACOS else [])]),
        *launcher,
    ]


def command_case(folder, name, *command, **environment):
    log = folder / f"{name}.log"
    status = execute(command, log, ONE_UNIT_TEST_DEADLINE, environment)
    said = tail(read(log))
    if status == 77 and said.startswith(NOT_RUN_HERE):
        return Case(name, "not run", said)
    return Case(name, "passed" if status == 0 else "failed", said)


def of_what_is_shipped(folder):
    """The library exports the native methods and nothing else; its hot paths take as many instructions as ever, and
    Memcheck has nothing to say about them."""
    python = [sys.executable, "-B"]
    yield command_case(folder, "exports", *python, "tests/house/exports.py", LIBRARY)
    if not MACOS:
        build_release(folder, "hot_paths", "sim_libusb")
        program, simulation = RELEASE / "tests/instructions/hot_paths", RELEASE / "sim/lib"
        yield command_case(folder, "instructions", *python, "tests/instructions/instructions.py", program, LIBRARY,
                           simulation)
        yield command_case(folder, "memcheck", *MEMCHECK, program, LD_LIBRARY_PATH=str(simulation),
                           SIMBUS_SCENARIO="bench/scenario.json")


def on_simulated_bus(folder, suite, log, build=RELEASE, environment=None):
    """The cases of a JUnit suite in a JVM that checks its native calls, over the drop-in libraries of a build."""
    with tempfile.TemporaryDirectory() as scratch:
        bus = {
            "DYLD_LIBRARY_PATH" if MACOS else "LD_LIBRARY_PATH": str(build / "sim/lib"),
            "SIMBUS_SCENARIO": str(SCENARIO),
            "SIMBUS_SOCKET": f"{scratch}/simbus",
        }
        status = execute(suite, log, JAVA_DEADLINE, {**bus, **(environment or {})})
    return junit_cases(folder / "reports", log, status)


def java_simulated(choice=()):
    """The JUnit suite on what is shipped, and that itself. The HID devices of macOS itself are not simulated."""
    folder = RESULTS / "java"
    build_release(folder, "orvex_java_tests")
    left_out = [f"--exclude-classname={HID_SUITES}"] if MACOS else []
    suite = junit(folder / "reports", launcher=[*left_out, *choice], without=["kernel", "newest"])
    return [*on_simulated_bus(folder, suite, folder / "junit.log"), *of_what_is_shipped(folder)]


def documents():
    """The commands and programs of the documents, over the release build."""
    folder = RESULTS / "documents"
    build_release(folder, "orvex_java_tests")
    log = folder / "documents.log"
    return told_cases([sys.executable, "-B", "tests/house/documents.py", ROOT, RELEASE], log, JAVA_DEADLINE)


def java_macos_side():
    """What depends on the HID interface, on the library with the macOS side, over stand-ins for the system's."""
    folder, preset = RESULTS / "java-macos", "release" if MACOS else "macos"
    build, targets = ROOT / "build" / preset, ["USBAccessLink_macos", "sim_libusb"]
    build_release(folder, "orvex_java_tests")
    with building:
        demand(["cmake", "--preset", preset], folder / "build.log", BUILD_DEADLINE)
        demand(["cmake", "--build", "--preset", preset, "--target", *targets], folder / "build.log", BUILD_DEADLINE)
    # What unloads a library does so with the one in the jar, which is this system's.
    suite = junit(folder / "reports", launcher=[f"--include-classname={HID_SUITES}"],
                  library=build / "macos" / LIBRARY.name, without=["unloading"])
    return on_simulated_bus(folder, suite, folder / "junit.log", build)


def java_asan():
    """The suite on the library as the address sanitizer watches it, in a virtual machine that has the sanitizer."""
    folder = RESULTS / "java-asan"
    build_release(folder, "orvex_java_tests")
    demand(["cmake", "--preset", "asan"], folder / "build.log", BUILD_DEADLINE)
    demand(["cmake", "--build", "--preset", "asan", "--target", "USBAccessLink", "orvex_jar", "sim_libusb", "sim_hidapi"],
           folder / "build.log", BUILD_DEADLINE)
    build = ROOT / "build/asan"
    # The sanitizer looks for what throws an exception when it starts: the runtime of C++ has to be there by then.
    names = ["libasan.so", "libstdc++.so.6"]
    files = [subprocess.run(["g++", f"-print-file-name={name}"], capture_output=True, text=True, check=True).stdout.strip()
             for name in names]
    environment = {
        **SANITIZERS,
        "LD_PRELOAD": " ".join(files),
        # The virtual machine takes signals for its own work, and forgets much when it ends.
        "ASAN_OPTIONS": "halt_on_error=1:detect_leaks=0:handle_segv=0:verify_asan_link_order=0",
    }
    jvm = ["-XX:+UseSerialGC", "-Dorvex.test.growthKb=1000000"]
    # How the library is found has nothing for the sanitizer, and the jar holds the one without it. Two libraries that
    # take the place of operator new cannot be in one process. And where a library is unloaded, the virtual machine
    # itself looks at the name that the system has just freed.
    without = ["kernel", "loading", "newest", "preload", "unloading"]
    suite = junit(folder / "reports", jvm, library=build / LIBRARY.name, without=without)
    return on_simulated_bus(folder, suite, folder / "junit.log", build, environment)


def newest_java():
    """The launcher of the newest JDK, or None when that lets native code in without a word."""
    launchers = sorted(Path("/usr/lib/jvm").glob("*/bin/java"))
    versions = {}
    for launcher in launchers:
        said = subprocess.run([launcher, "-version"], capture_output=True, text=True, check=False).stderr
        found = re.search(r'version "(\d+)', said)
        versions[int(found.group(1)) if found else 0] = launcher
    return versions[max(versions)] if versions and max(versions) >= FIRST_THAT_WARNS else None


def java_newest():
    """The suite in the newest JDK, which warns of native code that nobody allowed."""
    folder = RESULTS / "java-newest"
    build_release(folder, "orvex_java_tests")
    suite = junit(folder / "reports", ["--enable-native-access=ALL-UNNAMED"], java=newest_java(),
                  without=["kernel", "preload"])
    return on_simulated_bus(folder, suite, folder / "junit.log")


def in_machine(deadline, shared, *command, scenario=SCENARIO, processors=2):
    """The command that runs a command in the virtual machine with the devices of a scenario on its kernel's bus."""
    server = RELEASE / "sim/usbip/simbus-usbip"
    machine = ["tests/system/vm", "--timeout", deadline, "--processors", processors, "--share", shared]
    return [*machine, "--env", f"SIMBUS_USBIP={server}", "--", "tests/system/with-kernel-bus", scenario, "--", *command]


def java_on_kernel(choice, pattern, processors):
    """The same suite where a stock kernel, udev and libusb have the devices. What needs the memory bus stays out, what
    needs a kernel is in. The choice is to include or to exclude the classes whose names match."""
    folder = RESULTS / "system" / choice
    build_release(folder, "orvex_java_tests")
    reports, log = folder / "reports", folder / "junit.log"
    reports.mkdir(parents=True)
    # With the default collector a JVM can crash under emulation.
    jvm = ["-XX:+UseSerialGC"]
    without = ["memory", "loading", "newest", "preload"]
    suite = junit(reports, jvm, [f"--{choice}-classname={pattern}"], without=without)
    status = execute(in_machine(SYSTEM_DEADLINE, folder, *suite, processors=processors), log, SYSTEM_DEADLINE + 10)
    return junit_cases(reports, log, status)


def system_selftest():
    """The virtual machine and the kernel's view of the devices, without the library."""
    folder = RESULTS / "system"
    build_release(folder, "kernel_bus_probe")
    return told_cases(["tests/system/selftest", RELEASE], folder / "selftest.log", SYSTEM_DEADLINE)


def packages(folder):
    """The folder of the Debian packages, freshly made of the release build."""
    with building:
        demand(["script/package"], folder / "package-build.log", BUILD_DEADLINE)
    return ROOT / "build/package"


def package_unpacked():
    """The Debian packages as they are, and what is in them, used from a folder."""
    folder = RESULTS / "java"
    command = [sys.executable, "-B", "tests/packaging/unpacked.py", packages(folder), RELEASE]
    return told_cases(command, folder / "package.log", PACKAGE_DEADLINE)


def package_installed():
    """The Debian packages installed in the virtual machine, where udev and the kernel decide who may use a device."""
    folder = RESULTS / "system"
    packages(folder)
    command = [sys.executable, "-B", "tests/packaging/installed.py"]
    return told_cases(in_machine(PACKAGE_DEADLINE, folder, *command, scenario=DEMO), folder / "package.log",
                      PACKAGE_DEADLINE + 10)


def remote_devices():
    """Devices that are lent over the network, through the system's own usbip."""
    folder = RESULTS / "system"
    build_release(folder)
    command = ["tests/system/vm", "--timeout", SYSTEM_DEADLINE, "--", "tests/system/remote-devices", RELEASE]
    return told_cases(command, folder / "remote.log", SYSTEM_DEADLINE + 10)


def round_trips():
    """Round trips through the library on the kernel's bus, by one thread and by four; their times go to the log."""
    folder = RESULTS / "system"
    build_release(folder, "roundtrips")
    log, program = folder / "roundtrips.log", RELEASE / "tests/system/roundtrips"
    runs = f"{program} 10000 1 && {program} 10000 4"
    status = execute(in_machine(SYSTEM_DEADLINE, folder, "sh", "-c", runs, scenario=DEMO), log, SYSTEM_DEADLINE + 10)
    state = "passed" if status == 0 else "failed"
    return [Case("round trips bring every byte back", state, tail(read(log)))]


def pulled_devices():
    """Devices that are pulled before every call into the kernel that the library makes for them."""
    folder = RESULTS / "system"
    build_release(folder, "pulls")
    return told_cases(in_machine(SYSTEM_DEADLINE, folder, RELEASE / "tests/system/pulls", scenario=DEMO),
                      folder / "pulls.log", SYSTEM_DEADLINE + 10)


HOUSE, ASAN, TSAN = ("house", house), ("asan", unit_asan), ("tsan", unit_tsan)
# The runs of each floor, in lanes: those of one lane come one after the other, and the lanes are side by side.
FLOORS = {
    "unit": [[HOUSE, ("as on a Mac", unit_macos)], [ASAN, TSAN, ("coverage", coverage)]],
    "java": [
        [("release", java_simulated), ("asan", java_asan)],
        [("macOS side", java_macos_side), ("documents", documents), ("package", package_unpacked)],
    ],
    "system": [
        [("java on kernel", lambda: java_on_kernel("exclude", KERNEL_HALF, processors=1)), ("kernel bus", system_selftest),
         ("remote", remote_devices)],
        [("HID and stress", lambda: java_on_kernel("include", KERNEL_HALF, processors=2)), ("round trips", round_trips),
         ("pulls", pulled_devices), ("package installed", package_installed)],
    ],
}
if newest_java():
    FLOORS["java"][1].append(("newest JDK", java_newest))
if MACOS:
    # The fakes that some unit tests need are not linked there; its JVM cannot be made to load the sanitizer first, and
    # the documents have the library paths of Linux, as the package has; the system floor needs a Linux kernel.
    FLOORS = {"unit": [[HOUSE], [ASAN, TSAN]], "java": [[("release", java_simulated), ("macOS side", java_macos_side)]]}


def perform(floor, build, work):
    print(f"{floor}: {build} ...", flush=True)
    run, start = Run(floor, build), time.monotonic()
    try:
        run.cases = work()
    except (NotRun, OSError, ElementTree.ParseError) as problem:
        run.cases = [Case("could not run", "failed", str(problem))]
    run.seconds = time.monotonic() - start
    print(f"{floor}: {build}: {run.count('passed')} passed, {run.count('failed')} failed, "
          f"{run.count('skipped')} skipped, {run.seconds:.0f} s", flush=True)
    return run


def only(suites):
    """The floors when no more is wanted than the JUnit classes whose names match."""
    pattern = f".*({suites}).*"
    lanes_of = {
        "java": [[("release", lambda: java_simulated([f"--include-classname={pattern}"]))]],
        "system": [[("java on kernel", lambda: java_on_kernel("include", pattern, processors=2))]],
    }
    return {floor: lanes for floor, lanes in lanes_of.items() if floor in FLOORS}


def side_by_side(lanes):
    """Performs lanes, each with its floor's name; gives back all their runs."""
    with ThreadPoolExecutor(max(len(lanes), 1)) as pool:
        return list(chain(*pool.map(lambda lane: [perform(lane[0], *run) for run in lane[1]], lanes)))


def main(floors, suites):
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, end_all)
    shutil.rmtree(RESULTS, ignore_errors=True)
    lanes_of = only(suites) if suites else FLOORS
    lanes = [(floor, lane) for floor in lanes_of if floor in floors or not floors for lane in lanes_of[floor]]
    # Compilers and lint keep all processors busy; what comes after them often waits.
    busy, waiting = ([lane for lane in lanes if (lane[0] == "unit") == is_busy] for is_busy in (True, False))
    runs = [*side_by_side(busy), *side_by_side(waiting)]
    write_where(runs, RESULTS / "where.md")
    return summarise(runs)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--suites")
    parser.add_argument("floors", nargs="*")
    given = parser.parse_args()
    sys.exit(main(given.floors, given.suites))
