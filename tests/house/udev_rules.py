"""The vendors of the tools, and the rules for udev: usage udev_rules.py ROOT.

The library has the vendors; the command-line tool lists theirs by itself, and the documents name them. The rules match
them, not devices behind one of their hubs, and run early enough to grant access; orvex-usb doctor proposes the same.
Where udevadm can verify files, it does.
"""

import re
import shutil
import subprocess
import sys
from pathlib import Path

RULES = "packaging/udev"
LIBRARY = "src/usb/mac/MacOSXUSBAccess/lists/CompositeDevices.cpp"
LARGE_REPORTS = "src/usb/mac/hid/HIDAccess.cpp"
PAGES = ["README.md", "docs/platforms.md", "docs/troubleshooting.md"]
TOOL = "java/src/com/talvane/orvex/comm/tool/VendorOptions.java"
POSTINST = "packaging/deb/postinst.in"
SEAT_RULES = 73  # the number of the rules that turn the tag uaccess into a right
DOCTOR = "java/src/com/talvane/orvex/comm/tool/UdevRules.java"
# By kind of node: how a rule names a vendor. An ATTRS{idVendor} fits a hub above the device as well.
NAMES = {'SUBSYSTEM=="usb"': ("ATTR{idVendor}", str), 'SUBSYSTEM=="hidraw"': ("KERNELS", lambda id: f"0003:{id.upper()}:*")}


def found_in(root, file, pattern):
    """The matches of a pattern in a file, in lower case."""
    return [found.lower() for found in re.findall(pattern, (root / file).read_text())]


def library_vendors(root):
    listed, = found_in(root, LIBRARY, r"kMakersVendorIds\[\] = \{(.*)\}")
    return [vendor.removeprefix("0x") for vendor in listed.split(", ")]


def other_places(root, vendors):
    """Places other than the rules that name different vendors."""
    if found_in(root, TOOL, r'USUAL = "(.*)"') != [",".join(vendors)]:
        yield f"{TOOL}: the tool does not list the library's vendors {vendors}"
    if not set(found_in(root, LARGE_REPORTS, r"kLargeReportVendor = 0x(\w+)")) <= set(vendors):
        yield f"{LARGE_REPORTS}: a vendor that is not among {vendors}"
    named = r"\b" + r"\s+and\s+".join(vendors) + r"\b"
    yield from (f"{page}: does not name the vendors {vendors}" for page in PAGES
                if not re.search(named, (root / page).read_text(), re.IGNORECASE))


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
            yield f"{rules}: {wanted} is wanted, for the library's vendors alone: {found[0]}"


def doctor_complaints(root, rules):
    """The rules that doctor proposes for other vendors have to give the same rights."""
    proposed = re.search(r'RIGHTS = "(.*)";', (root / DOCTOR).read_text()).group(1).replace('\\"', '"')
    for line in rules.read_text().splitlines():
        if line.startswith(tuple(NAMES)) and not line.endswith(", " + proposed):
            yield f"{DOCTOR}: the rights differ from those of {rules}: {proposed}"


def postinst_complaints(root, vendors):
    if f"for vendor in {' '.join(vendors)};" not in (root / POSTINST).read_text():
        yield f"{POSTINST}: not for the library's vendors {vendors}"


def udev_complaints(rules):
    """The findings of udevadm; older versions cannot verify rules, so a test in the virtual machine checks them."""
    if shutil.which("udevadm") is None or "verify" not in subprocess.run(
            ["udevadm", "--help"], capture_output=True, text=True, check=False).stdout:
        return
    done = subprocess.run(["udevadm", "verify", rules], capture_output=True, text=True, check=False)
    if done.returncode != 0:
        yield done.stdout + done.stderr


def complaints(root):
    vendors = library_vendors(root)
    yield from other_places(root, vendors)
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
