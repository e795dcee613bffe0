"""Builds arm64 Linux on another processor, and tests the parts that the command line names: java, demo, unit, package.

Called by script/arm64 from the root of the project. The runs are counted and summed up as those of script/test are.
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
    """What is shipped: what the library offers and needs, and the one jar for both processors."""
    demand(["script/build"], LOGS / "build.log", BUILD_DEADLINE)
    demand(["cmake", "--preset", "arm64"], LOGS / "build.log", BUILD_DEADLINE)
    build("USBAccessLink", "orvex_jars", "sim_libusb", "sim_hidapi", "simbus-usbip", "orvex_java_tests")
    exports = [sys.executable, "-B", "tests/house/exports.py", LIBRARY, *FOREIGN]
    jars = [build / "orvex-usb-access.jar" for build in (RELEASE, BUILD)]
    return [command_case(LOGS, "exports", *exports),
            command_case(LOGS, "one jar for both processors", "script/merge-natives", JAR, *jars)]


def in_root(root, *command, **environment):
    """The command that runs a command among the files of a root."""
    variables = [word for name, text in environment.items() for word in ("--env", f"{name}={text}")]
    return ["tests/arm64/in-root", root, "--bind", "/usr/share/java", *variables, "--", *command]


def java():
    """The JUnit suite without what emulation does not do."""
    folder = LOGS / "java"
    suite = junit(folder / "reports", library=LIBRARY, tests=BUILD / "tests/java/orvex-java-tests.jar",
                  without=["kernel", "newest", "unemulated"])
    bus = {"LD_LIBRARY_PATH": BUILD / "sim/lib", "SIMBUS_SCENARIO": SCENARIO, "SIMBUS_SOCKET": "/tmp/simbus"}
    status = execute(in_root(FULL, *suite, **bus), folder / "junit.log", JAVA_DEADLINE)
    return junit_cases(folder / "reports", folder / "junit.log", status)


def demo():
    """The main job on an arm64 kernel, and there the jar on a system without libusb and hidapi."""
    machine = ["tests/system/vm", "--arch", "arm64", "--root", FULL, "--share", ROOT, "--timeout", DEMO_DEADLINE]
    machine += ["--env", f"SIMBUS_USBIP={BUILD / 'sim/usbip/simbus-usbip'}", "--", "tests/system/with-kernel-bus", DEMO]
    job = ["python3", "-B", "tests/arm64/on_kernel.py", BUILD, JRE, JAR]
    return told_cases([*machine, "--", *job], LOGS / "demo.log", DEMO_DEADLINE + 10)


def unit():
    """The C++ tests. CTest is this machine's, and starts each with the emulator; what they start themselves, the kernel
    does."""
    build("unit_tests", "sim_tests", "usbip_tests")
    report, log = LOGS / "unit.xml", LOGS / "unit.log"
    command = ["ctest", "--test-dir", BUILD, f"-j{2 * os.cpu_count()}", "--no-tests=error", "--output-on-failure"]
    command += ["--timeout", ONE_UNIT_TEST_DEADLINE, "--output-junit", report]
    command += ["-LE", "house", "-E", "^(macos|fuzz)[.]|NOT_BUILT"]
    status = execute(in_root("/", *command, QEMU_LD_PREFIX=FULL), log, UNIT_DEADLINE)
    return cases_of([report] if report.exists() else [], log, status)


def package():
    """The Debian packages, looked at and into."""
    demand(["script/package", "--arm64"], LOGS / "package-build.log", BUILD_DEADLINE)
    command = [sys.executable, "-B", "tests/packaging/unpacked.py", ROOT / "build/package-arm64", BUILD, "arm64"]
    return told_cases(command, LOGS / "package.log", PACKAGE_DEADLINE)


RUNS = {"java": ("java", java), "demo": ("kernel", demo), "unit": ("unit", unit), "package": ("package", package)}
# Those that mostly wait go on side by side, the others one after the other with both processors for themselves.
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
