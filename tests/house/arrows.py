"""Checks the architecture: usage arrows.py ROOT, or arrows.py --self-test.

Includes of the library point down or stay in their room, some names belong to some rooms, and files stay small.
"""

import os
import re
import sys
import tempfile
from pathlib import Path

from sources import cpp_files

LIBRARY = Path("src/usb/mac")

# Floors from top to bottom; the rooms of one floor do not include each other.
FLOORS = [
    ["LibUSBJNILink"],
    ["MacOSXUSBAccess/session"],
    ["MacOSXUSBAccess/io", "MacOSXUSBAccess/lists"],
    ["HotplugUsb", "HidHandling"],
    ["MacOSXUSBAccess/records"],
    ["DebugUtil"],
    ["hid"],
    ["ground"],
]

# What appears in code, and the only rooms or files where it may.
BOUND = [
    ("JNIEnv", r"\bJNIEnv\b", ["LibUSBJNILink"]),
    ("a libusb call", r"\blibusb_\w+\s*\(", ["MacOSXUSBAccess", "HotplugUsb", "hid/HidDeviceHidapi.cpp"]),
    ("a call of the system's HID service", r"\b(IO[A-Z]\w+|CF[A-Z]\w+|hid_\w+)\s*\(", ["HidHandling", "hid"]),
    ("a header of the system's HID service", r"#\s*include\s*<(IOKit|CoreFoundation|hidapi)\b", ["HidHandling", "hid"]),
]

MOST_LINES = 450
MOST_LINES_BELOW = ["src", "sim"]

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*[<"]([^>"]+)[>"]', re.MULTILINE)
# Comments and literals; a literal is matched so that what looks like a comment inside one is not taken for it.
NOT_CODE = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', re.DOTALL)


def floor_and_room(path):
    """Floor number, counted from the top, and room of a file or folder below the library, or None."""
    for number, rooms in enumerate(FLOORS):
        for room in rooms:
            if Path(room) == path or Path(room) in path.parents:
                return number, room
    return None


def target_of(root, including, included):
    """The file of the library that an include names, or None when it names another."""
    for base in ("", including.parent):
        target = Path(os.path.normpath(Path(base, included)))
        if (root / LIBRARY / target).is_file():
            return target
    return None


def wrong_includes(root, path, text):
    here = floor_and_room(path)
    if here is None:
        yield f"{path}: lies in no room of the table"
        return
    for included in INCLUDE.findall(text):
        target = target_of(root, path, included)
        if target is None:
            continue
        there = floor_and_room(target)
        if there is None or (there[1] != here[1] and there[0] <= here[0]):
            yield f"{path}: includes {target}, which is not below {here[1]}"


def wrong_names(path, text):
    code = NOT_CODE.sub(" ", text)
    for what, pattern, places in BOUND:
        at_home = any(Path(place) == path or Path(place) in path.parents for place in places)
        found = None if at_home else re.search(pattern, code)
        if found:
            yield f"{path}: has {what} ({found.group().strip()}), which belongs to {', '.join(places)}"


def complaints(root):
    for path in cpp_files(root, *MOST_LINES_BELOW):
        text = (root / path).read_text()
        lines = text.count("\n")
        if lines > MOST_LINES:
            yield f"{path}: has {lines} lines, more than {MOST_LINES}"
        if LIBRARY in path.parents:
            inside = path.relative_to(LIBRARY)
            yield from wrong_includes(root, inside, text)
            yield from wrong_names(inside, text)


BAD_TREE = {
    "ground/Up.h": '#include "hid/Tick.h"\n',
    "DebugUtil/Up.cpp": '#include "HotplugUsb/HotplugUsb.h"\n',
    "MacOSXUSBAccess/io/Sideways.cpp": '#include "../lists/Lists.h"\n',
    "MacOSXUSBAccess/lists/Angle.cpp": "#include <MacOSXUSBAccess/session/Session.h>\n",
    "attic/Stray.cpp": "",
    "MacOSXUSBAccess/io/Java.h": "void call(JNIEnv* environment);\n",
    "hid/Usb.cpp": "void f() { libusb_exit (nullptr); }\n",
    "HotplugUsb/Registry.cpp": "auto n = IOIteratorNext(i);\n",
    "MacOSXUSBAccess/io/Hid.cpp": "#include <hidapi/hidapi.h>\n",
    "hid/Long.cpp": "\n" * (MOST_LINES + 1),
}
GOOD_TREE = {
    "HotplugUsb/HotplugUsb.h": '#include "MacOSXUSBAccess/records/Chain.h"\n#include <jni.h>\n',
    "MacOSXUSBAccess/lists/Lists.h": '#include "HotplugUsb/HotplugUsb.h"\n// JNIEnv, in words\n',
    "MacOSXUSBAccess/session/Session.h": '#include "MacOSXUSBAccess/lists/Lists.h"\n',
    "MacOSXUSBAccess/records/Chain.h": '#include "ground/DeviceRecords.h"\n',
    "ground/DeviceRecords.h": "",
    "hid/Ground.cpp": '#include "ground/DeviceRecords.h"\nauto s = "libusb_exit()";\n',
    "LibUSBJNILink/Methods.cpp": '#include "hid/Tick.h"\nvoid call(JNIEnv*);\n',
    "hid/Tick.h": "auto open = hid_open(1, 2, nullptr);\n",
}


def self_test():
    """Every file of the bad tree, and none of the good one, has to be complained about."""
    with tempfile.TemporaryDirectory() as scratch:
        root = Path(scratch)
        for name, text in {**GOOD_TREE, **BAD_TREE}.items():
            file = root / LIBRARY / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)
        blamed = [line.split(":")[0].removeprefix(f"{LIBRARY}/") for line in complaints(root)]
    if sorted(blamed) != sorted(BAD_TREE):
        return [f"complained about {sorted(blamed)} instead of {sorted(BAD_TREE)}"]
    return []


if __name__ == "__main__":
    found = self_test() if sys.argv[1] == "--self-test" else list(complaints(Path(sys.argv[1])))
    print("\n".join(found) or "ok")
    sys.exit(1 if found else 0)
