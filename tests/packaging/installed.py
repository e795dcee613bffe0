"""Installs the Debian packages of build/package and uses them, as root in the virtual machine.

The current folder is that of the project. The kernel's bus has the devices of sim/scenarios/demo.json, and SIMBUS_SOCKET
names its control socket. Prints lines of checks.py.
"""

import grp
import os
import re
import sys
import time
from pathlib import Path

sys.path.append(str(Path(__file__).resolve().parents[1] / "house"))

from checks import exit_status, expect, output_of
from documents import blocks
from doctor import FAULTS
from machine import EMULATED_JAVA, NOBODY, as_user, hid_device, node, usb_device

ROOT = Path(__file__).resolve().parents[2]
PACKAGES = ["orvex-usb-access", "orvex-usb-simulator"]
RULES = "/usr/lib/udev/rules.d/70-orvex-usb.rules"
DEADLINE = 30  # seconds
OPEN, NOT_OPEN = ("660", "plugdev", True), ("664", "root", False)


def rights(device):
    """Mode and group of a device's node, and whether udev wants the person at the machine to have it."""
    told = output_of("udevadm", "info", "--query=property", "--property=CURRENT_TAGS", "--value", f"--path={device}")
    of_node = os.stat(node(device))
    return f"{of_node.st_mode & 0o777:o}", grp.getgrgid(of_node.st_gid).gr_name, "uaccess" in told.strip().split(":")


def expect_rights(device, wanted):
    """For a device that udev has finished processing."""
    output_of("udevadm", "settle", f"--timeout={DEADLINE}")
    found = rights(device)
    expect(found == wanted, f"{device}: {found} and not {wanted}")


def without_rules(_):
    """Without the package the nodes of the tools are root's."""
    expect_rights(usb_device("ECHO0001"), NOT_OPEN)
    expect_rights(hid_device(), ("600", "root", False))


def said_by_commands(page, words):
    """The output of the commands in the block of a page that contains these words.

    Simulated devices get no control socket of their own in place of the kernel bus's. Under emulation apt takes minutes
    to find that nothing is missing.
    """
    commands = 'apt-get() { dpkg "--$1" --no-triggers "${@:2}"; }\n' + text_of(page, words)
    return output_of("env", "-u", "SIMBUS_SOCKET", "bash", "-euo", "pipefail", "-c", commands)


def text_of(page, words):
    return next(block.text for block in blocks(page, (ROOT / page).read_text()) if words in block.text)


def installs(_):
    """README's commands install the packages, list the devices, and run a Java program."""
    Path("FirstTool.java").write_text(text_of("README.md", "public class FirstTool"))
    said = said_by_commands("README.md", "apt-get install")
    expect("ECHO0001" in said and "The USB bus is simulated." in said and " bytes out, " in said, said)
    told = output_of("dpkg-query", "--show", "--showformat=${db:Status-Status} ", *PACKAGES)
    expect(told.split() == ["installed"] * len(PACKAGES), told)


def understood_by_udev(_):
    """udev reports no problem in the rules."""
    said = output_of("udevadm", "test", usb_device("ECHO0001"))
    expect(f"Reading rules file: {RULES}" in said, said)
    complaints = [line for line in said.splitlines() if line.startswith(RULES)]
    expect(not complaints, "\n".join(complaints))


def opens_present_tools(_):
    """Tools that were plugged in before are tagged for the person at the machine, and the group has them."""
    expect_rights(usb_device("ECHO0001"), OPEN)
    expect_rights(usb_device("COMP0001"), OPEN)
    expect_rights(hid_device(), OPEN)


def leaves_others(_):
    """Devices of others stay as they are under the rules."""
    output_of("udevadm", "trigger", "--action=change", usb_device("OTHER001"))
    expect_rights(usb_device("OTHER001"), NOT_OPEN)


def opens_new_tools(_):
    """A tool that is plugged in later gets the same, and a user of the group finds it."""
    output_of(ROOT / "script/lib/simbus", "plug", "device=echo3")
    deadline = time.monotonic() + DEADLINE
    while usb_device("ECHO0003") is None:
        expect(time.monotonic() < deadline, "the device does not come")
        time.sleep(0.05)
    expect_rights(usb_device("ECHO0003"), OPEN)
    said = as_user(grp.getgrnam("plugdev").gr_gid, "orvex-usb", "list")
    expect(all(serial in said for serial in ("ECHO0003", "COMP0001", "HID00001")), said)


def keeps_others_out(_):
    """A user outside the group has no access to the nodes."""
    for device in usb_device("ECHO0001"), hid_device():
        as_user(NOBODY, "test", "-r", node(device), status=1)


def simulates_for_anybody(_):
    """A user without any rights has the simulated devices, and moves bytes through one."""
    said = as_user(NOBODY, "orvex-usb", "--simulate", "list")
    expect(all(serial in said for serial in ("ECHO0001", "COMP0001", "HID00001")), said)
    as_user(NOBODY, "orvex-usb", "--simulate", "echo", "--serial", "ECHO0001")


def archives():
    """The archives of the tool's classes that the package has made."""
    return list(Path("/usr/lib").glob("*/jni/orvex-usb.jsa*"))


def archives_its_classes(_):
    """The installation archives the tool's classes, and so does a change of the system's Java; the tool uses them."""
    expect(len(archives()) == 1, f"made at the installation: {archives()}")
    archives()[0].unlink()
    output_of("dpkg-trigger", "--by-package=dpkg", "/usr/lib/jvm")
    output_of("dpkg", "--triggers-only", PACKAGES[0])
    log = Path("classes.log").resolve()
    output_of("orvex-usb", "list", JAVA_TOOL_OPTIONS=f"{EMULATED_JAVA} -Xlog:class+load:file={log}")
    expect("tool.ListCommand source: shared objects file (top)" in log.read_text(), f"not from {archives()}")


def keeps_a_bus(_):
    """simbus runs commands on one bus: what the first one writes, the second one reads."""
    demo = next(Path("/usr/lib").glob("*/orvex-usb/sim/demo.json"))
    commands = "orvex-usb write --serial ECHO0001 --data 0A0B; orvex-usb read --serial ECHO0001"
    said = as_user(NOBODY, "env", "-u", "SIMBUS_SOCKET", "simbus", "run", demo, "--", "sh", "-c", commands)
    expect("00000000  0A 0B " in said, said)


def copied_rules_work(_):
    """Without the package, the commands for copying the rules by hand give a tool to the person at the machine."""
    output_of("dpkg", "--remove", "--no-triggers", *PACKAGES)
    expect(not archives(), f"left: {archives()}")
    output_of("udevadm", "control", "--reload")
    output_of("udevadm", "trigger", "--settle", "--action=change", "--subsystem-match=usb")
    expect(not rights(usb_device("HID00001"))[2], "the rules outlive the package")
    said = said_by_commands("docs/platforms.md", "cp packaging/udev")
    expect(re.search("CURRENT_TAGS=.*:uaccess:", said), said)
    expect(rights(usb_device("HID00001")) == OPEN, said)


CHECKS = [without_rules, installs, understood_by_udev, opens_present_tools, leaves_others, opens_new_tools,
          keeps_others_out, simulates_for_anybody, keeps_a_bus, archives_its_classes, *FAULTS, copied_rules_work]

if __name__ == "__main__":
    os.environ["JAVA_TOOL_OPTIONS"] = EMULATED_JAVA
    sys.exit(exit_status(CHECKS, None))
