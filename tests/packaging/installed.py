"""Installs a Debian package and uses what it brought: usage installed.py DEB, in the virtual machine, as root.

The kernel's bus has the devices of sim/scenarios/demo.json, and SIMBUS_SOCKET names its control socket. Prints lines
of checks.py.
"""

import grp
import os
import re
import sys
import time
from pathlib import Path

from checks import exit_status, expect, output_of

ROOT = Path(__file__).resolve().parents[2]
PACKAGE = "orvex-usb-access"
RULES = "/usr/lib/udev/rules.d/70-orvex-usb.rules"
NOBODY = 65534
DEADLINE = 30  # seconds
OPEN, NOT_OPEN = ("660", "plugdev", True), ("664", "root", False)


def usb_device(serial):
    """The folder of a device in sysfs, or None."""
    told = (file for file in Path("/sys/bus/usb/devices").glob("*/serial") if file.read_text().strip() == serial)
    return next((file.parent for file in told), None)


def hid_device():
    """The folder of the one tool with a HID driver."""
    return next(path for path in Path("/sys/class/hidraw").iterdir() if ":6A5C:" in str(path.resolve()))


def node(device):
    return "/dev/" + re.search("^DEVNAME=(.*)", (device / "uevent").read_text(), re.MULTILINE).group(1)


def rights(device):
    """Mode and group of a device's node, and whether udev wants the person at the machine to have it."""
    told = output_of("udevadm", "info", "--query=property", "--property=CURRENT_TAGS", "--value", f"--path={device}")
    of_node = os.stat(node(device))
    return f"{of_node.st_mode & 0o777:o}", grp.getgrgid(of_node.st_gid).gr_name, "uaccess" in told.strip().split(":")


def expect_rights(device, wanted):
    """Of a device that udev is done with."""
    output_of("udevadm", "settle", f"--timeout={DEADLINE}")
    found = rights(device)
    expect(found == wanted, f"{device}: {found} and not {wanted}")


def as_user(group, *command, status=0):
    """What a command says to a user who is in that group and in no other."""
    user = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", f"--groups={group}", "--inh-caps=-all"]
    return output_of(*user, *command, status=status)


def without_rules(_):
    """Without the package the nodes of the tools are root's."""
    expect_rights(usb_device("ECHO0001"), NOT_OPEN)
    expect_rights(hid_device(), ("600", "root", False))


def installs(deb):
    """dpkg installs the package."""
    output_of("dpkg", "--install", "--no-triggers", deb)
    told = output_of("dpkg-query", "--show", "--showformat=${db:Status-Status}", PACKAGE)
    expect(told == "installed", told)


def understood_by_udev(_):
    """udev has nothing to say about the rules."""
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


CHECKS = [without_rules, installs, understood_by_udev, opens_present_tools, leaves_others, opens_new_tools,
          keeps_others_out]

if __name__ == "__main__":
    sys.exit(exit_status(CHECKS, *sys.argv[1:]))
