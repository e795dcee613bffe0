"""Checks the Debian packages and their contents, and uses their files: usage unpacked.py FOLDER BUILD [ARCH].

What is used is used from a folder. BUILD is the folder of the build that they were made from. With the name of another processor ARCH they are for that
one, and are only looked at. Prints lines of checks.py.
"""

import re
import sys
import tempfile
from pathlib import Path

from checks import exit_status, expect, output_of

ROOT = Path(__file__).resolve().parents[2]
# Every file of the packages; * stands for the name of the processor and system.
FILES = {
    "orvex-usb-access": """
usr/bin/orvex-usb
usr/lib/*/jni/libUSBAccessLink.so
usr/lib/*/jni/libUSBAccessLink_3_47.so
usr/lib/udev/rules.d/70-orvex-usb.rules
usr/share/doc/orvex-usb-access/NOTICE
usr/share/doc/orvex-usb-access/README.md
usr/share/doc/orvex-usb-access/SECURITY.md
usr/share/doc/orvex-usb-access/changelog.Debian.gz
usr/share/doc/orvex-usb-access/changelog.gz
usr/share/doc/orvex-usb-access/copyright
usr/share/doc/orvex-usb-access/docs/platforms.md
usr/share/doc/orvex-usb-access/docs/threading.md
usr/share/doc/orvex-usb-access/orvex-usb-access.cdx.json
usr/share/java/lib/info.picocli.jar
usr/share/java/orvex-usb-access-3.47.jar
usr/share/java/orvex-usb-access.jar
usr/share/lintian/overrides/orvex-usb-access
""",
    "orvex-usb-simulator": """
usr/bin/simbus
usr/bin/simbus-record
usr/bin/simbus-replay
usr/lib/*/orvex-usb/orvex-usb-access.jar
usr/lib/*/orvex-usb/sim/demo.json
usr/lib/*/orvex-usb/sim/lib/libhidapi-hidraw.so
usr/lib/*/orvex-usb/sim/lib/libhidapi-hidraw.so.0
usr/lib/*/orvex-usb/sim/lib/libhidapi-libusb.so
usr/lib/*/orvex-usb/sim/lib/libhidapi-libusb.so.0
usr/lib/*/orvex-usb/sim/lib/libsimbus.so
usr/lib/*/orvex-usb/sim/lib/libusb-1.0.so
usr/lib/*/orvex-usb/sim/lib/libusb-1.0.so.0
usr/lib/*/orvex-usb/sim/python/boot_loader.py
usr/lib/*/orvex-usb/sim/python/card_reader.py
usr/lib/*/orvex-usb/sim/python/debug_probe.py
usr/lib/*/orvex-usb/sim/python/disk.py
usr/lib/*/orvex-usb/sim/python/security_key.py
usr/lib/*/orvex-usb/sim/python/simbus_device.py
usr/lib/*/orvex-usb/sim/record-lib/libhidapi-hidraw.so.0
usr/lib/*/orvex-usb/sim/record-lib/libhidapi-libusb.so.0
usr/lib/*/orvex-usb/sim/record-lib/libusb-1.0.so.0
usr/lib/*/orvex-usb/sim/simbus
usr/lib/*/orvex-usb/sim/simbus-record
usr/lib/*/orvex-usb/sim/simbus-replay
usr/lib/*/orvex-usb/sim/usbip/simbus-usbip
usr/share/doc/orvex-usb-simulator/changelog.Debian.gz
usr/share/doc/orvex-usb-simulator/copyright
usr/share/doc/orvex-usb-simulator/docs/any-usb-program.md
usr/share/doc/orvex-usb-simulator/docs/record-and-replay.md
usr/share/doc/orvex-usb-simulator/docs/remote-usb.md
usr/share/doc/orvex-usb-simulator/docs/simulated-bus.md
usr/share/doc/orvex-usb-simulator/docs/tool-window.png
usr/share/doc/orvex-usb-simulator/examples/device-in-java/run
usr/share/doc/orvex-usb-simulator/examples/device-in-java/src/example/BootLoader.java
usr/share/doc/orvex-usb-simulator/examples/device-in-java/src/simbus/SimulatedDevice.java
usr/share/doc/orvex-usb-simulator/examples/device-in-java/test/example/BootLoaderTest.java
usr/share/doc/orvex-usb-simulator/examples/devices-by-rules/meter.py
usr/share/doc/orvex-usb-simulator/examples/devices-by-rules/scenario.json
usr/share/doc/orvex-usb-simulator/examples/tool-with-tests/run
usr/share/doc/orvex-usb-simulator/examples/tool-with-tests/scenario.json
usr/share/doc/orvex-usb-simulator/examples/tool-with-tests/src/example/Monitor.java
usr/share/doc/orvex-usb-simulator/examples/tool-with-tests/test/example/MonitorTest.java
usr/share/doc/orvex-usb-simulator/examples/tool-with-tests/test/example/SimulatedBus.java
usr/share/doc/orvex-usb-simulator/examples/tool-with-tests/test/example/ToolProcess.java
usr/share/doc/orvex-usb-simulator/examples/tool-window/run
usr/share/doc/orvex-usb-simulator/examples/tool-window/scenario.json
usr/share/doc/orvex-usb-simulator/examples/tool-window/src/example/ToolWindow.java
usr/share/doc/orvex-usb-simulator/examples/tool-window/test/example/Picture.java
usr/share/doc/orvex-usb-simulator/examples/tool-window/test/example/ToolWindowTest.java
usr/share/doc/orvex-usb-simulator/orvex-usb-simulator.cdx.json
usr/share/doc/orvex-usb-simulator/sim/bus/README.md
usr/share/lintian/overrides/orvex-usb-simulator
usr/share/man/man1/simbus-record.1.gz
usr/share/man/man1/simbus-replay.1.gz
usr/share/man/man1/simbus.1.gz
""",
}
# Files that only some builds have.
MANUAL = "usr/share/man/man1/orvex-usb.1.gz"
OPTIONAL = {MANUAL, "usr/share/bash-completion/completions/orvex-usb"}
PROGRAMS = re.compile(r"/bin/|/usbip/|/sim/simbus(-record|-replay)?$|/sim/python/(?!simbus_device)|/examples/[\w-]+/run$")
# Libraries of the C and C++ runtime, which NOTICE names as a whole.
RUNTIME = ("libc.", "libm.", "libpthread.", "libgcc_s.", "libstdc++.", "ld-linux")


MACHINES = {"amd64": "X86-64", "arm64": "AArch64"}


class Packages:
    """The packages, and the folder into which they are unpacked; a name with a space detects missing quotes."""

    def __init__(self, folder, build, arch, scratch):
        self.arch = arch
        self.debs = {name: next(folder.glob(f"{name}_*.deb")) for name in FILES}
        self.build, self.scratch = build, scratch
        self.root, self.home = scratch / "a root", scratch / "home"
        self.home.mkdir()
        for deb in self.debs.values():
            output_of("dpkg-deb", "-x", deb, self.root)
        # The dependencies of the packages are installed on this system.
        (self.root / "usr/share/java/picocli.jar").symlink_to("/usr/share/java/picocli.jar")
        self.library = next(self.root.glob("usr/lib/*/jni/libUSBAccessLink_3_47.so"))
        self.release = next(self.root.glob("usr/lib/*/orvex-usb"))

    def run(self, *command, **environment):
        return output_of(*command, HOME=str(self.home), JAVA_TOOL_OPTIONS=f'"-Duser.home={self.home}"', **environment)

    def on_simulated_bus(self, simulator, *command):
        bus = {"LD_LIBRARY_PATH": str(simulator / "lib"), "SIMBUS_SCENARIO": str(simulator / "demo.json")}
        return self.run(*command, **bus)

    def expect_tools(self, said):
        expect(all(serial in said for serial in ("ECHO0001", "ECHO0002", "COMP0001", "HID00001")), said)
        unpacked = [str(path) for path in self.home.rglob("*.so")]
        expect(not unpacked, f"the copy in the jar was used, not the library of the package: {unpacked}")


def have_no_faults(packages):
    """lintian finds neither errors nor warnings in the packages."""
    without = [] if (packages.root / MANUAL).exists() else ["--suppress-tags", "no-manual-page"]
    said = output_of("lintian", "--allow-root", "--fail-on", "error,warning", *without, *packages.debs.values())
    expect(not said.strip(), said)


def are_reproducible(packages):
    """Packages that are made again, elsewhere and at another time, have the same bytes."""
    output_of("sh", "-c", 'umask 077 && "$@"', "sh", ROOT / "script/package", "--output", packages.scratch / "again",
              TZ="UTC-9", LC_ALL="C")
    for deb in packages.debs.values():
        again = packages.scratch / "again" / deb.name
        expect(again.read_bytes() == deb.read_bytes(), f"{deb} has other bytes each time")


def hold_what_they_should(packages):
    """The packages hold their files, readable for all and root's, and no others."""
    for name, deb in packages.debs.items():
        listed = [line.split(maxsplit=5) for line in output_of("dpkg-deb", "-c", deb).splitlines()]
        files = {words[5].split(" -> ")[0].removeprefix("./") for words in listed if words[0][0] != "d"}
        found = {re.sub(r"^usr/lib/[^/]+/(jni|orvex-usb)/", r"usr/lib/*/\1/", file) for file in files - OPTIONAL}
        expect(found == set(FILES[name].split()), f"differs: {sorted(found ^ set(FILES[name].split()))}")
        for mode, owner, *_, file in listed:
            plain = "-rwxr-xr-x" if PROGRAMS.search(file) else "-rw-r--r--"
            wanted = {"d": "drwxr-xr-x", "l": "lrwxrwxrwx"}.get(mode[0], plain)
            expect((mode, owner) == (wanted, "root/root"), f"{file} is {mode} {owner}")


def are_for_the_processor(packages):
    """The packages are for the processor, and so is the library in them."""
    for deb in packages.debs.values():
        told = output_of("dpkg-deb", "-f", deb, "Architecture").strip()
        expect(told == packages.arch and deb.stem.endswith(f"_{told}"), f"{deb}: {told}")
    machine = re.search(r"Machine: +(.*)", output_of("readelf", "-h", packages.library)).group(1)
    expect(MACHINES[packages.arch] in machine, machine)


def name_their_dependencies(packages):
    """NOTICE lists each linked library, and the dependencies its package."""
    needed = re.findall(r"NEEDED.*\[(.*)\]", output_of("readelf", "-d", packages.library))
    depends = output_of("dpkg-deb", "-f", packages.debs["orvex-usb-access"], "Depends")
    notice = (packages.root / "usr/share/doc/orvex-usb-access/NOTICE").read_text()
    for name in (name for name in needed if not name.startswith(RUNTIME)):
        software = re.split(r"[-.]", name)[0]
        told = re.search(rf"^  (lib)?{software.removeprefix('lib')}\b", notice, re.MULTILINE)
        expect(told, f"{name} is not in NOTICE")
        expect(software in depends, f"{name} is not in the dependencies: {depends}")
    expect("java17-runtime-headless" in depends and "libpicocli-java" in depends, depends)
    of_simulator = output_of("dpkg-deb", "-f", packages.debs["orvex-usb-simulator"], "Depends")
    expect("libstdc++6" in of_simulator and "orvex-usb-access (= 3.47-1)" in of_simulator, of_simulator)


def tool_finds_devices(packages):
    """The tool of the package finds its jar and library, and lists the devices."""
    packages.expect_tools(packages.on_simulated_bus(packages.build / "sim", packages.root / "usr/bin/orvex-usb", "list"))


def tool_simulates(packages):
    """With the simulator's package the tool has simulated devices by itself."""
    packages.expect_tools(packages.run(packages.root / "usr/bin/orvex-usb", "--simulate", "list"))


def java_finds_devices(packages):
    """A Java program with the jar and the library of the package lists the devices of the simulator's package."""
    said = packages.on_simulated_bus(packages.release / "sim", "java",
                                     f"-Djava.library.path={packages.library.parent}", "-cp",
                                     packages.root / "usr/share/java/orvex-usb-access.jar",
                                     ROOT / "tests/packaging/ListTools.java")
    packages.expect_tools(said)


def devices_in_python_work(packages):
    """A device in Python of the simulator's package answers on its bus, where programs find the module for others."""
    wait = 'until "$1/simbus" control devices | grep boot-loader.*answers; do kill -0 $!; done'
    script = f'"$1/python/boot_loader.py" & {wait}; kill $!; cd /; python3 -Bc "import simbus_device"'
    packages.run(packages.root / "usr/bin/simbus", "run", packages.release / "sim/demo.json", "--",
                 "timeout", "60", "sh", "-ec", script, "sh", packages.release / "sim")


def devices_are_recorded_and_replayed(packages):
    """The commands of the simulator's package record its own tool, and replay the recording without its bus."""
    commands, capture = packages.root / "usr/bin", packages.scratch / "capture.pcapng"
    tool = [commands / "orvex-usb", "echo", "--serial", "ECHO0001"]
    packages.run(commands / "simbus", "run", packages.release / "sim/demo.json", "--",
                 commands / "simbus-record", "--to", capture, "--", *tool)
    said = packages.run(commands / "simbus-replay", capture, "--", *tool)
    expect(re.search(r"([1-9]\d*) of \1 recorded transfers were asked for", said), said)


def examples_are_tested(packages):
    """The tests of the example projects pass on the simulator's package; those of the window want a display."""
    for name in ("device-in-java", "tool-with-tests", "tool-window"):
        example = packages.root / "usr/share/doc/orvex-usb-simulator/examples" / name / "run"
        said = output_of(example, packages.release, XDG_CACHE_HOME=str(packages.home))
        done = re.search(r"[1-9]\d* tests successful", said) or "no window can be opened" in said
        expect(done and " 0 tests failed" in said, said)


def signing_stays_on_macos(_):
    """The script that signs for macOS refuses to run elsewhere, and prints its usage."""
    script = ROOT / "packaging/macos/sign"
    refused = output_of(script, "--application", "A", "--installer", "B", "--profile", "C", status=1)
    expect("macOS" in refused, refused)
    expect("usage:" in output_of(script, "--help"), "no help")


LOOKS = [hold_what_they_should, are_for_the_processor, name_their_dependencies, have_no_faults]
CHECKS = [*LOOKS, tool_finds_devices, tool_simulates, java_finds_devices, devices_in_python_work,
          devices_are_recorded_and_replayed, examples_are_tested, are_reproducible, signing_stays_on_macos]


def main(folder, build, arch=None):
    own = output_of("dpkg", "--print-architecture").strip()
    with tempfile.TemporaryDirectory() as scratch:
        packages = Packages(Path(folder).resolve(), Path(build).resolve(), arch or own, Path(scratch))
        return exit_status(LOOKS if arch else CHECKS, packages)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
