"""What the checks of the packages need to know of the virtual machine: Java's options, devices and users."""

import re
from pathlib import Path

from checks import output_of

NOBODY = 65534
# With the default collector Java can crash under emulation. A short program ends soonest if only what is called very
# often is compiled, by the faster compiler.
EMULATED_JAVA = "-XX:+UseSerialGC -XX:TieredStopAtLevel=1 -XX:CompileThresholdScaling=10"


def usb_device(serial):
    """The folder of a device in sysfs, or None."""
    told = (file for file in Path("/sys/bus/usb/devices").glob("*/serial") if file.read_text().strip() == serial)
    return next((file.parent for file in told), None)


def hid_device():
    """The folder of the one tool with a HID driver."""
    return next(path for path in Path("/sys/class/hidraw").iterdir() if ":6A5C:" in str(path.resolve()))


def node(device):
    return "/dev/" + re.search("^DEVNAME=(.*)", (device / "uevent").read_text(), re.MULTILINE).group(1)


def as_user(group, *command, status=0):
    """The output of a command that runs as a user who is in this group only."""
    user = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", f"--groups={group}", "--inh-caps=-all"]
    return output_of(*user, *command, status=status)
