"""The rules for udev: usage udev_rules.py ROOT.

They are for the vendors that the command-line tool lists by itself, for nothing that hangs behind one of their hubs, and
come early enough to give rights; orvex-usb doctor proposes the same. Where udevadm can verify files, it does.
"""

import re
import shutil
import subprocess
import sys
from pathlib import Path

RULES = "packaging/udev"
TOOL = "java/src/com/talvane/orvex/comm/tool/VendorOptions.java"
POSTINST = "packaging/deb/postinst.in"
SEAT_RULES = 73  # the number of the rules that turn the tag uaccess into a right
DOCTOR = "java/src/com/talvane/orvex/comm/tool/UdevRules.java"
# By kind of node: how a rule names a vendor. An ATTRS{idVendor} fits a hub above the device as well.
NAMES = {'SUBSYSTEM=="usb"': ("ATTR{idVendor}", str), 'SUBSYSTEM=="hidraw"': ("KERNELS", lambda id: f"0003:{id.upper()}:*")}


def tool_vendors(root):
    usual = re.search(r"USUAL = List.of\((.*)\)", (root / TOOL).read_text()).group(1)
    return [vendor.lower().removeprefix("0x") for vendor in usual.split(", ")]


def number_complaints(rules):
    if int(rules.name.partition("-")[0]) >= SEAT_RULES:
        yield f"{rules}: its number has to be below {SEAT_RULES}, or the tag uaccess comes too late"


def vendor_complaints(rules, vendors):
    lines = rules.read_text().splitlines()
    for kind, (key, name) in NAMES.items():
        found = [line for line in lines if line.startswith(kind)]
        wanted = f'{key}=="{"|".join(map(name, vendors))}"'
        if len(found) != 1 or 'TAG+="uaccess"' not in found[0]:
            yield f'{rules}: one line of {kind} with TAG+="uaccess" is wanted: {found}'
        elif wanted not in found[0].split(", "):
            yield f"{rules}: {wanted} is wanted, for the tool's vendors alone: {found[0]}"


def doctor_complaints(root, rules):
    """What doctor proposes for another vendor gives the same rights."""
    proposed = re.search(r'RIGHTS = "(.*)";', (root / DOCTOR).read_text()).group(1).replace('\\"', '"')
    for line in rules.read_text().splitlines():
        if line.startswith(tuple(NAMES)) and not line.endswith(", " + proposed):
            yield f"{DOCTOR}: the rights differ from those of {rules}: {proposed}"


def postinst_complaints(root, vendors):
    if f"for vendor in {' '.join(vendors)};" not in (root / POSTINST).read_text():
        yield f"{POSTINST}: not for the tool's vendors {vendors}"


def udev_complaints(rules):
    """What udevadm says; the older ones cannot verify, and are asked in the virtual machine instead."""
    if shutil.which("udevadm") is None or "verify" not in subprocess.run(
            ["udevadm", "--help"], capture_output=True, text=True, check=False).stdout:
        return
    done = subprocess.run(["udevadm", "verify", rules], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        yield done.stdout + done.stderr


def complaints(root):
    vendors = tool_vendors(root)
    yield from postinst_complaints(root, vendors)
    for rules in sorted((root / RULES).iterdir()):
        yield from number_complaints(rules)
        yield from vendor_complaints(rules, vendors)
        yield from doctor_complaints(root, rules)
        yield from udev_complaints(rules)


if __name__ == "__main__":
    found = list(complaints(Path(sys.argv[1])))
    print("\n".join(found) or "ok")
    sys.exit(1 if found else 0)
