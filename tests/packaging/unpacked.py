"""Looks at a Debian package and into it, and uses what is in it from a folder: usage unpacked.py DEB BUILD.

BUILD is the folder of the build that it was made from, whose simulated bus is used. Prints lines of checks.py.
"""

import re
import sys
import tempfile
from pathlib import Path

from checks import exit_status, expect, output_of

ROOT = Path(__file__).resolve().parents[2]
# Every file of the package; * stands for the name of the processor and system.
FILES = """
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
usr/share/java/orvex-usb-access-3.47.jar
usr/share/java/orvex-usb-access.jar
usr/share/lintian/overrides/orvex-usb-access
""".split()
# What is there when the build has it.
MANUAL = "usr/share/man/man1/orvex-usb.1.gz"
OPTIONAL = {MANUAL, "usr/share/bash-completion/completions/orvex-usb"}
# Of the C and C++ runtime; NOTICE names it as a whole.
RUNTIME = ("libc.", "libm.", "libgcc_s.", "libstdc++.", "ld-linux")


class Package:
    """A package, and the folder into which it is unpacked; a name with a space shows what is not quoted."""

    def __init__(self, deb, build, scratch):
        self.deb, self.build, self.scratch = deb, build, scratch
        self.root, self.home = scratch / "a root", scratch / "home"
        self.home.mkdir()
        output_of("dpkg-deb", "-x", deb, self.root)
        # What the package depends on is the system's.
        (self.root / "usr/share/java/picocli.jar").symlink_to("/usr/share/java/picocli.jar")
        self.library = next(self.root.glob("usr/lib/*/jni/libUSBAccessLink_3_47.so"))

    def on_simulated_bus(self, *command):
        bus = {"LD_LIBRARY_PATH": str(self.build / "sim/lib"), "SIMBUS_SCENARIO": str(self.build / "sim/demo.json")}
        return output_of(*command, HOME=str(self.home), JAVA_TOOL_OPTIONS=f'"-Duser.home={self.home}"', **bus)

    def expect_tools(self, said):
        expect(all(serial in said for serial in ("ECHO0001", "ECHO0002", "COMP0001", "HID00001")), said)
        unpacked = [str(path) for path in self.home.rglob("*.so")]
        expect(not unpacked, f"the copy in the jar was used, not the library of the package: {unpacked}")


def has_no_faults(package):
    """lintian finds neither errors nor warnings in the package."""
    without = [] if (package.root / MANUAL).exists() else ["--suppress-tags", "no-manual-page"]
    said = output_of("lintian", "--allow-root", "--fail-on", "error,warning", *without, package.deb)
    expect(not said.strip(), said)


def is_reproducible(package):
    """A second package, made elsewhere at another time, has the same bytes."""
    output_of("sh", "-c", 'umask 077 && "$@"', "sh", ROOT / "script/package", "--output", package.scratch / "again",
              TZ="UTC-9", LC_ALL="C")
    again = package.scratch / "again" / package.deb.name
    expect(again.read_bytes() == package.deb.read_bytes(), f"{package.deb} has other bytes each time")


def holds_what_it_should(package):
    """The package holds its files, readable for all and root's, and no others."""
    listed = [line.split(maxsplit=5) for line in output_of("dpkg-deb", "-c", package.deb).splitlines()]
    files = {words[5].split(" -> ")[0].removeprefix("./") for words in listed if words[0][0] != "d"}
    found = {re.sub(r"^usr/lib/[^/]+/jni", "usr/lib/*/jni", name) for name in files - OPTIONAL}
    expect(found == set(FILES), f"differs: {sorted(found ^ set(FILES))}")
    for mode, owner, *_, name in listed:
        wanted = {"d": "drwxr-xr-x", "l": "lrwxrwxrwx"}.get(mode[0], "-rwxr-xr-x" if "/bin/" in name else "-rw-r--r--")
        expect((mode, owner) == (wanted, "root/root"), f"{name} is {mode} {owner}")


def names_its_dependencies(package):
    """Each library that is linked stands in NOTICE, and its package in the dependencies."""
    needed = re.findall(r"NEEDED.*\[(.*)\]", output_of("readelf", "-d", package.library))
    depends = output_of("dpkg-deb", "-f", package.deb, "Depends")
    notice = (package.root / "usr/share/doc/orvex-usb-access/NOTICE").read_text()
    for name in (name for name in needed if not name.startswith(RUNTIME)):
        software = re.split(r"[-.]", name)[0]
        told = re.search(rf"^  (lib)?{software.removeprefix('lib')}\b", notice, re.MULTILINE)
        expect(told, f"{name} is not in NOTICE")
        expect(software in depends, f"{name} is not in the dependencies: {depends}")
    expect("java17-runtime-headless" in depends and "libpicocli-java" in depends, depends)


def tool_finds_devices(package):
    """The tool of the package finds its jar and library, and lists the devices."""
    said = package.on_simulated_bus(package.root / "usr/bin/orvex-usb", "list")
    package.expect_tools(said)


def java_finds_devices(package):
    """A Java program with the jar and the library of the package lists the devices."""
    said = package.on_simulated_bus("java", f"-Djava.library.path={package.library.parent}", "-cp",
                                    package.root / "usr/share/java/orvex-usb-access.jar",
                                    ROOT / "tests/packaging/ListTools.java")
    package.expect_tools(said)


def signing_stays_on_macos(_):
    """The script that signs for macOS refuses to run elsewhere, and tells its use."""
    script = ROOT / "packaging/macos/sign"
    refused = output_of(script, "--application", "A", "--installer", "B", "--profile", "C", status=1)
    expect("macOS" in refused, refused)
    expect("usage:" in output_of(script, "--help"), "no help")


CHECKS = [holds_what_it_should, names_its_dependencies, tool_finds_devices, java_finds_devices, has_no_faults,
          is_reproducible, signing_stays_on_macos]


def main(deb, build):
    with tempfile.TemporaryDirectory() as scratch:
        return exit_status(CHECKS, Package(Path(deb).resolve(), Path(build).resolve(), Path(scratch)))


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
