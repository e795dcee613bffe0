"""Runs the main job on an arm64 kernel, and the jar on a minimal system: usage on_kernel.py BUILD JRE JAR.

tests/system/with-kernel-bus runs it in the virtual machine, with the devices of the demo. BUILD is the arm64 build, JRE
a root with a Java runtime and without USB libraries, JAR the jar that contains the libraries. Prints lines of
checks.py.
"""

import re
import shutil
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "packaging"))
from checks import exit_status, expect, output_of  # noqa: E402
from machine import EMULATED_JAVA  # noqa: E402

FOREIGN = ("libusb-1.0.so.0", "libhidapi-hidraw.so.0")


class Machine:
    def __init__(self, build, jre, jar):
        self.build, self.jre = build, jre
        for folder in ("dev", "proc", "run", "sys"):
            output_of("mount", "--rbind", f"/{folder}", jre / folder)
        for folder in ("root", "tmp"):
            output_of("mount", "-t", "tmpfs", "tmp", jre / folder)
        shutil.copy(jar, jre / "tmp/orvex-usb-access.jar")
        shutil.copy(build / "lib/info.picocli.jar", jre / "tmp")

    def alone(self, *arguments):
        """The tool's output on the system that has only a Java runtime."""
        clean = ["env", "-i", "PATH=/usr/bin", "HOME=/root"]
        java = ["java", *EMULATED_JAVA.split()]
        tool = ["-cp", "/tmp/orvex-usb-access.jar:/tmp/info.picocli.jar", "com.talvane.orvex.comm.tool.OrvexUsb"]
        return output_of("chroot", self.jre, *clean, *java, *tool, *arguments)


def main_job(machine):
    """Devices on an arm64 kernel's bus are listed, respond, are unplugged and plugged in, and exchange HID reports."""
    said = output_of("script/lib/main-job", machine.build / "orvex-usb", JAVA_TOOL_OPTIONS=EMULATED_JAVA)
    print("".join(f"  {line}\n" for line in said.splitlines()))
    for wanted in ("ECHO0001.*Echo Tool", "HID00001.*HID Tool", "The echo is equal", "left.*ECHO0002",
                   "arrived.*ECHO0002", "Read 64 bytes"):
        expect(re.search(wanted, said), said)


def has_java_alone(machine):
    """The system for the jar has neither libusb nor hidapi."""
    # The loader's folders; /lib is a link to usr/lib. Under emulation a walk through all files takes more than a minute.
    searched = [machine.jre / "usr/lib", *machine.jre.glob("usr/lib/*-linux-gnu")]
    found = [str(path) for folder in searched for name in FOREIGN for path in folder.glob(f"{name}*")]
    expect(not found, f"found: {found}")


def doctor_names_copies(machine):
    """The jar uses its own copies there, as doctor reports."""
    said = machine.alone("doctor")
    for name in ("libUSBAccessLink", *FOREIGN):
        expect(re.search(rf"/root/.*/{re.escape(name)}.*, the copy in the jar$", said, re.MULTILINE), said)


def moves_bytes(machine):
    """There the jar lists the devices and moves bytes through one."""
    listed, said = machine.alone("list"), machine.alone("echo", "--serial", "ECHO0001")
    expect("ECHO0001" in listed and "HID00001" in listed, listed)
    expect("The echo is equal" in said, said)


def moves_reports(machine):
    """The jar exchanges reports with a HID device there."""
    said = machine.alone("hid", "--serial", "HID00001", "--data", "48656C6C6F", "--read", "64")
    expect("Read 64 bytes" in said, said)


CHECKS = [main_job, has_java_alone, doctor_names_copies, moves_bytes, moves_reports]

if __name__ == "__main__":
    sys.exit(exit_status(CHECKS, Machine(*map(Path, sys.argv[1:]))))
