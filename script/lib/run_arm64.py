"""Builds for arm64 Linux on another processor, and tests the given parts: java, demo, unit, package.

Called by script/arm64 in the root of the project. It counts and summarises the runs as script/test does.
"""

import os
import shutil
import signal
import sys

from run_floors import (
    BUILD_DEADLINE, DEMO, ONE_UNIT_TEST_DEADLINE, PACKAGE_DEADLINE, RELEASE, RESULTS, ROOT, SCENARIO, command_case,
    junit, side_by_side,
)  # fmt: skip
from runs import cases_of, demand, end_all, execute, junit_cases, summarise, told_cases

BUILD = ROOT / "build/arm64"
FULL, JRE = ROOT / "build/arm64-root/full", ROOT / "build/arm64-root/jre"
LIBRARY = BUILD / "libUSBAccessLink_3_47.so"
FOREIGN = [FULL / "usr/lib/aarch64-linux-gnu" / name for name in ("libusb-1.0.so.0", "libhidapi-hidraw.so.0")]
JAR = BUILD / "orvex-usb-access-linux.jar"
LOGS = RESULTS / "arm64"

JAVA_DEADLINE = 1200  # seconds
DEMO_DEADLINE = 900
UNIT_DEADLINE = 2400


def build(*targets):
    command = ["cmake", "--build", "--preset", "arm64", "--target", *targets]
    demand(command, LOGS / "build.log", BUILD_DEADLINE)


def library():
    """Builds the library and the jar; checks the exports and imports, and merges the jars of both processors."""
    demand(["script/build"], LOGS / "build.log", BUILD_DEADLINE)
    demand(["cmake", "--preset", "arm64"], LOGS / "build.log", BUILD_DEADLINE)
    build("USBAccessLink", "orvex_jars", "sim_libusb", "sim_hidapi", "simbus-usbip", "orvex_java_tests")
    exports = [sys.executable, "-B", "tests/house/exports.py", LIBRARY, *FOREIGN]
    jars = [build / "orvex-usb-access.jar" for build in (RELEASE, BUILD)]
    return [command_case(LOGS, "exports", *exports),
            command_case(LOGS, "one jar for both processors", "script/merge-natives", JAR, *jars)]


def in_root(root, *command, **environment):
    """The command line that runs a command in a root."""
    variables = [word for name, text in environment.items() for word in ("--env", f"{name}={text}")]
    return ["tests/arm64/in-root", root, "--bind", "/usr/share/java", *variables, "--", *command]


def java():
    """The JUnit suite without the tests that emulation does not support."""
    folder = LOGS / "java"
    suite = junit(folder / "reports", library=LIBRARY, tests=BUILD / "tests/java/orvex-java-tests.jar",
                  without=["kernel", "newest", "unemulated"])
    bus = {"LD_LIBRARY_PATH": BUILD / "sim/lib", "SIMBUS_SCENARIO": SCENARIO, "SIMBUS_SOCKET": "/tmp/simbus"}
    status = execute(in_root(FULL, *suite, **bus), folder / "junit.log", JAVA_DEADLINE)
    return junit_cases(folder / "reports", folder / "junit.log", status)


def demo():
    """The main job on an arm64 kernel, and the jar there on a system without libusb and hidapi."""
    machine = ["tests/system/vm", "--arch", "arm64", "--root", FULL, "--share", ROOT, "--timeout", DEMO_DEADLINE]
    machine += ["--env", f"SIMBUS_USBIP={BUILD / 'sim/usbip/simbus-usbip'}", "--", "tests/system/with-kernel-bus", DEMO]
    job = ["python3", "-B", "tests/arm64/on_kernel.py", BUILD, JRE, JAR]
    return told_cases([*machine, "--", *job], LOGS / "demo.log", DEMO_DEADLINE + 10)


def unit():
    """The C++ tests. This machine's CTest starts each in the emulator; the kernel emulates the programs they start."""
    build("unit_tests", "sim_tests", "usbip_tests")
    report, log = LOGS / "unit.xml", LOGS / "unit.log"
    command = ["ctest", "--test-dir", BUILD, f"-j{2 * os.cpu_count()}", "--no-tests=error", "--output-on-failure"]
    command += ["--timeout", ONE_UNIT_TEST_DEADLINE, "--output-junit", report]
    command += ["-LE", "house", "-E", "^(macos|fuzz)[.]|NOT_BUILT"]
    status = execute(in_root("/", *command, QEMU_LD_PREFIX=FULL), log, UNIT_DEADLINE)
    return cases_of([report] if report.exists() else [], log, status)


def package():
    """Makes the Debian packages and checks their contents."""
    demand(["script/package", "--arm64"], LOGS / "package-build.log", BUILD_DEADLINE)
    command = [sys.executable, "-B", "tests/packaging/unpacked.py", ROOT / "build/package-arm64", BUILD, "arm64"]
    return told_cases(command, LOGS / "package.log", PACKAGE_DEADLINE)


RUNS = {"java": ("java", java), "demo": ("kernel", demo), "unit": ("unit", unit), "package": ("package", package)}
# Parts that mostly wait run in parallel; the others run one after the other, with both processors.
WAITING = ("java", "demo")


def main(parts):
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, end_all)
    shutil.rmtree(LOGS, ignore_errors=True)
    runs = side_by_side([("arm64", [("library", library)])])
    if runs[0].count("failed") == 0:
        runs += side_by_side([("arm64", [RUNS[part]]) for part in parts if part in WAITING])
        runs += side_by_side([("arm64", [RUNS[part] for part in parts if part not in WAITING])])
    return summarise(runs)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
