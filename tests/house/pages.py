"""Pages that have to tell about everything of a kind do: usage pages.py ROOT, or pages.py --self-test.

docs/threading.md has each native method in its first table of kinds, once; docs/troubleshooting.md has a section for
each code, and none for what is no code; docs/architecture.md names nothing that the library's sources do not have.
"""

import re
import sys
from collections import Counter
from pathlib import Path

from contract import CODE, JAVA, methods
from sources import listed_files

KIND_ROW = re.compile(r"^\| [a-z]+ \| (`usb.*)\|$", re.MULTILINE)
NAME = re.compile(r"`([A-Za-z_]\w*)`")
HEADING = re.compile(r"^### (-\d.*)$", re.MULTILINE)


def differences(page, wanted, found):
    """What is missing on a page, or there more than once or for nothing."""
    counted = Counter(found)
    yield from (f"{page}: {each} is missing" for each in wanted if counted[each] == 0)
    yield from (f"{page}: {each} is there {counted[each]} times" for each in wanted if counted[each] > 1)
    yield from (f"{page}: {each} is unknown" for each in counted if each not in wanted)


def methods_of_kinds(text):
    return [name for row in KIND_ROW.findall(text) for name in re.findall(r"`(usb\w+)`", row)]


def codes_of_sections(text):
    """The numbers before the colon of each heading: a section may be for several codes."""
    return [number for heading in HEADING.findall(text) for number in re.findall(r"-\d+", heading.split(":")[0])]


def unknown_names(page, text, sources):
    """Names on a page, in code marks, that stand nowhere in the sources."""
    known = set(re.findall(r"\w+", sources))
    yield from (f"{page}: {name} is in no source" for name in dict.fromkeys(NAME.findall(text)) if name not in known)


def library_sources(root):
    paths = [path for path in listed_files(root) if path.parts[0] in ("src", "java")]
    return "\n".join(f"{path}\n{(root / path).read_text()}" for path in paths)


def complaints(root):
    codes = [number for _, number, _ in CODE.findall((root / JAVA / "UsbAccessCode.java").read_text())]
    pages = (
        ("docs/threading.md", methods(root), methods_of_kinds),
        ("docs/troubleshooting.md", codes, codes_of_sections),
    )
    for page, wanted, found_in in pages:
        yield from differences(page, wanted, found_in((root / page).read_text()))
    architecture = "docs/architecture.md"
    yield from unknown_names(architecture, (root / architecture).read_text(), library_sources(root))
    print(f"{len(methods(root))} methods, {len(codes)} codes")


KINDS = "| kind | methods |\n|---|---|\n| one | `usbA`, `usbB` |\n| two | `usbB`: beside `everything` |\n| **no** | `usbC` |"
SECTIONS = "### -4: gone\n-5\n### -101, -102: inside -7\n### a transfer hangs, -150\n"


def self_test():
    found = [
        *differences("kinds", ["usbA", "usbB", "usbC"], methods_of_kinds(KINDS)),
        *differences("sections", ["-4", "-102", "-150"], codes_of_sections(SECTIONS)),
        *unknown_names("names", "`Here`, `Gone`, `Gone`, Text, `a command`", "class Here;"),
    ]
    wanted = ["kinds: usbC is missing", "kinds: usbB is there 2 times", "sections: -150 is missing",
              "sections: -101 is unknown", "names: Gone is in no source"]
    return [] if found == wanted else [f"complained: {found} instead of {wanted}"]


if __name__ == "__main__":
    bad = self_test() if sys.argv[1] == "--self-test" else list(complaints(Path(sys.argv[1])))
    print("\n".join(bad) or "ok")
    sys.exit(1 if bad else 0)
