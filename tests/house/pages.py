"""Checks that pages are complete: usage pages.py ROOT, or pages.py --self-test.

docs/threading.md has each native method in its first table of kinds, once; docs/troubleshooting.md has a section for
each code, and no other section with a number; docs/architecture.md names nothing that the library's sources do not
have; docs/testing.md has the house checks, the tags of the Java tests, and the presets that compile each source alone;
docs/performance.md and docs/platforms.md tell the figures that other tests hold.
"""

import json
import re
import sys
from collections import Counter
from pathlib import Path

from contract import CODE, JAVA, methods
from exports import NEWEST
from sources import listed_files

sys.path.append(str(Path(__file__).resolve().parent.parent / "instructions"))
from instructions import RECORDED

KIND_ROW = re.compile(r"^\| [a-z]+ \| (`usb.*)\|$", re.MULTILINE)
NAME = re.compile(r"`([A-Za-z_]\w*)`")
HEADING = re.compile(r"^### (-\d.*)$", re.MULTILINE)
HOUSE_CHECK = re.compile(r"^ *add_house_check\((\w+)", re.MULTILINE)
HOUSE_ROW = re.compile(r"^\| (`house\..*?) \|", re.MULTILINE)
TAG = re.compile(r'@Tag\("(\w+)"\)')
COUNT_ROW = re.compile(r"^\| ([a-z0-9 ]+) \| (\d+) \|$", re.MULTILINE)
COUNTED = {"write": "bulk write of 64 bytes", "read": "bulk read of 64 bytes", "look_up": "finding an open device",
           "information_line": "information line"}
NEED_ROW = re.compile(r"^\| `(lib[\w.-]+)`.*? \| ([\d.]+) \| (.*?) \|", re.MULTILINE)


def differences(page, wanted, found):
    """Entries that are missing on a page, there more than once, or unknown."""
    counted = Counter(found)
    yield from (f"{page}: {each} is missing" for each in wanted if counted[each] == 0)
    yield from (f"{page}: {each} is there {counted[each]} times" for each in wanted if counted[each] > 1)
    yield from (f"{page}: {each} is unknown" for each in counted if each not in wanted)


def methods_of_kinds(text):
    return [name for row in KIND_ROW.findall(text) for name in re.findall(r"`(usb\w+)`", row)]


def codes_of_sections(text):
    """The numbers before the colon of each heading; one section may describe several codes."""
    return [number for heading in HEADING.findall(text) for number in re.findall(r"-\d+", heading.split(":")[0])]


def unknown_names(page, text, sources):
    """Names on a page, in code marks, that no source contains."""
    known = set(re.findall(r"\w+", sources))
    yield from (f"{page}: {name} is in no source" for name in dict.fromkeys(NAME.findall(text)) if name not in known)


def house_checks(text):
    return [name for row in HOUSE_ROW.findall(text) for name in re.findall(r"`house\.(\w+)`", row)]


def without_tags(text, sources):
    yield from (f"the tag {tag} is not told" for tag in sorted(set(TAG.findall(sources))) if f"`{tag}`" not in text)


def told_alone(text):
    """The presets that a page tells to compile each source alone."""
    sentence = re.search(r"The presets (.*?) compile each source alone", text)
    return re.findall(r"`(\w+)`", sentence[1]) if sentence else []


def compiling_alone(presets):
    """The presets that do not inherit the one that compiles several sources at once."""
    parents = {preset["name"]: preset.get("inherits") for preset in presets}

    def joins(name):
        return name is not None and (name == "joined" or joins(parents[name]))

    return [preset["name"] for preset in presets if not preset.get("hidden") and not joins(preset["name"])]


def other_counts(text, recorded):
    """Instruction counts on a page that differ from the recorded ones."""
    told = {path: int(count) for path, count in COUNT_ROW.findall(text)}
    yield from (f"{COUNTED[path]}: {told.get(COUNTED[path])} is told, {count} is recorded"
                for path, count in recorded.items() if told.get(COUNTED[path]) != count)


def other_needs(text, newest):
    """Requirements for glibc and the C++ runtime on a page that differ from the checked ones."""
    rows = NEED_ROW.findall(text)
    for name, limits in newest.items():
        glibc, runtime = next((row[1:] for row in rows if row[0].startswith(name)), ("nothing", ""))
        wanted = f"GLIBCXX_{limits['GLIBCXX']}" if "GLIBCXX" in limits else "-"
        if glibc != limits["GLIBC"] or wanted not in runtime:
            yield f"{name}: {glibc} and '{runtime}' are told, {limits['GLIBC']} and '{wanted}' are held"


RESULT_CODE = re.compile(r"^constexpr int32_t k\w+ = (-\d+);  +///< \S", re.MULTILINE)


def library_sources(root):
    paths = [path for path in listed_files(root) if path.parts[0] in ("src", "java")]
    return "\n".join(f"{path}\n{(root / path).read_text()}" for path in paths)


def complaints(root):
    codes = [number for _, number, _ in CODE.findall((root / JAVA / "UsbAccessCode.java").read_text())]
    # The library passes on libusb's codes, and returns two of them itself.
    own = [number for number in codes if int(number) <= -100 or number in ("-11", "-99")]
    header = "src/usb/mac/ground/ResultCodes.h"
    yield from differences(header, own, RESULT_CODE.findall((root / header).read_text()))
    checks = HOUSE_CHECK.findall((root / "tests/house/CMakeLists.txt").read_text())
    pages = (
        ("docs/threading.md", methods(root), methods_of_kinds),
        ("docs/troubleshooting.md", codes, codes_of_sections),
        ("docs/testing.md", checks, house_checks),
    )
    for page, wanted, found_in in pages:
        yield from differences(page, wanted, found_in((root / page).read_text()))
    architecture = "docs/architecture.md"
    yield from unknown_names(architecture, (root / architecture).read_text(), library_sources(root))
    java_tests = "".join(path.read_text() for path in (root / "tests/java").rglob("*.java"))
    yield from without_tags((root / "docs/testing.md").read_text(), java_tests)
    presets = json.loads((root / "CMakePresets.json").read_text())["configurePresets"]
    told = told_alone((root / "docs/testing.md").read_text())
    yield from differences("docs/testing.md", compiling_alone(presets), told)
    yield from other_counts((root / "docs/performance.md").read_text(), RECORDED["12"])
    yield from other_needs((root / "docs/platforms.md").read_text(), NEWEST)
    print(f"{len(methods(root))} methods, {len(codes)} codes")


KINDS = "| kind | methods |\n|---|---|\n| one | `usbA`, `usbB` |\n| two | `usbB`: beside `everything` |\n| **no** | `usbC` |"
CHECKS = "| `house.one` | `house.not` |\n| `house.two`, `house.one` | fails |"
COUNTS = "| information line | 12 |\n| bulk read of 64 bytes | 34 |"
PRESETS = [{"name": "joined", "hidden": True},
           {"name": "one"}, {"name": "two"}, {"name": "three", "inherits": "joined"}]
ALONE = "The presets `one` and `three` compile each source alone."
NEEDS = "| `libours_3_47.so` | 2.17 | `GLIBCXX_3.4` | - |\n| `libtheirs-1.0.so.0` (12: 1.0.26) | 2.17 | - | - |"
SECTIONS = "### -4: gone\n-5\n### -101, -102: inside -7\n### a transfer hangs, -150\n"


def self_test():
    found = [
        *differences("kinds", ["usbA", "usbB", "usbC"], methods_of_kinds(KINDS)),
        *differences("sections", ["-4", "-102", "-150"], codes_of_sections(SECTIONS)),
        *unknown_names("names", "`Here`, `Gone`, `Gone`, Text, `a command`", "class Here;"),
        *differences("checks", ["one", "two", "three"], house_checks(CHECKS)),
        *without_tags("`here`", '@Tag("here") @Tag("gone")'),
        *differences("presets", compiling_alone(PRESETS), told_alone(ALONE)),
        *other_counts(COUNTS, {"information_line": 12, "read": 35}),
        *other_needs(NEEDS, {"libours": {"GLIBC": "2.17", "GLIBCXX": "3.4"}, "libtheirs-1.0": {"GLIBC": "2.33"}}),
    ]
    wanted = ["kinds: usbC is missing", "kinds: usbB is there 2 times", "sections: -150 is missing",
              "sections: -101 is unknown", "names: Gone is in no source", "checks: three is missing",
              "checks: one is there 2 times", "the tag gone is not told", "presets: two is missing",
              "presets: three is unknown",
              "bulk read of 64 bytes: 34 is told, 35 is recorded",
              "libtheirs-1.0: 2.17 and '-' are told, 2.33 and '-' are held"]
    return [] if found == wanted else [f"complained: {found} instead of {wanted}"]


if __name__ == "__main__":
    bad = self_test() if sys.argv[1] == "--self-test" else list(complaints(Path(sys.argv[1])))
    print("\n".join(bad) or "ok")
    sys.exit(1 if bad else 0)
