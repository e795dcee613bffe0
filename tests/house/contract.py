"""No part of the contract is without a test: usage contract.py ROOT, or contract.py --self-test.

The unit tests and the Java tests each call every native method, and so does each test that covers all methods. The unit
tests expect every code that reaches Java, and quote every text of the library, those of its log among them.
"""

import re
import sys
import tempfile
from pathlib import Path

from sources import listed_files

JAVA = Path("java/src/com/talvane/orvex/comm")
CODES = Path("src/usb/mac/ground/ResultCodes.h")
# Files that have to name every native method.
OF_EVERY_METHOD = [Path("tests/fuzz/JniFuzz.cpp"), *(Path("tests/java/src/com/talvane/orvex/comm", name)
                   for name in ("EveryMethod.java", "AllocationSteps.java"))]  # fmt: skip

NATIVE = re.compile(r"\bnative\s+\w+\s+(usb\w+)\s*\(")
CODE = re.compile(r"^    ([A-Z_]+)\((-\d+), \"(.*)\"\)[,;]", re.MULTILINE)
OWN_NAME = re.compile(r"^constexpr int32_t (k\w+) = (-\d+);", re.MULTILINE)

# Comments, directives and literals; the text of a string is a group.
NOT_CODE = re.compile(
    r"""//[^\n]*|/\*.*?\*/|^\#[^\n]*|'(?:\\.|[^'\\\n])*'|R"\((.*?)\)"|"((?:\\.|[^"\\\n])*)\"""",
    re.DOTALL | re.MULTILINE)
ASSERTION = re.compile(r"\b(?:EXPECT|ASSERT)_\w+\s*\([^;]*;")
# Faked answers of libusb and the code kept in a record are not results of a method.
NOT_RETURNED = re.compile(r"[^;{}]*\b(?:failCall|lastResult|libusb_strerror)\b[^;]*;")
NAMED_TEXT = re.compile(r'\bk[A-Z]\w* = "([^"\n]+)";')

JOINED = "\0"  # a value between two pieces of a concatenated text
CONVERSION = re.compile(r"%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z)?([a-zA-Z])")
VALUES = {"d": r"-?\d+", "u": r"\d+", "x": r"[0-9a-f]+", "X": r"[0-9A-F]+", "p": r"0x[0-9a-f]+"}


def sources(root, top, *suffixes):
    return [(root / path).read_text() for path in listed_files(root)
            if path.as_posix().startswith(top) and path.suffix in suffixes]


def code(text):
    return NOT_CODE.sub(" ", text)


def texts(source):
    """The strings of a source; concatenated strings, with values between them, count as one."""
    found, last = [], None
    for match in NOT_CODE.finditer(source):
        text = match.group(1) or match.group(2)
        if text is None:
            continue
        text = text.replace("\\n", "\n").replace('\\"', '"')
        between = "," if last is None else source[last:match.start()]
        last = match.end()
        text += JOINED if re.match(r"\s*\+", source[last:last + 80]) else ""
        if re.fullmatch(r"\s*(\+([^;,]*\+)?\s*)?", between):
            found[-1] += text
        else:
            found.append(text)
    return found


def quoted(source):
    """The strings of a source, and each of them again with each named string in front of it."""
    own = texts(source)
    return own + [name + text for name in NAMED_TEXT.findall(source) for text in own]


def pattern(text):
    """A pattern for a text of the library in a test, with a value in place of each conversion of printf."""
    pieces = CONVERSION.split(text)
    for at, piece in enumerate(pieces):
        pieces[at] = f"(?:{VALUES.get(piece, '.*?')}|{JOINED})" if at % 2 else re.escape(piece)
    return re.compile("".join(pieces), re.DOTALL)


def methods(root):
    return NATIVE.findall((root / JAVA / "ORVEXCommUSBAccess.java").read_text())


def codes(root):
    """The codes that reach Java: number, name in Java, name in the library. One without the latter is libusb's."""
    own = {number: name for name, number in OWN_NAME.findall((root / CODES).read_text())}
    for name, number, meaning in CODE.findall((root / JAVA / "UsbAccessCode.java").read_text()):
        if "not returned to Java" not in meaning:
            yield number, name.removeprefix("LIBUSB_"), own.get(number)


def complaints(root):
    unit, java = sources(root, "tests/unit/", ".cpp", ".h"), sources(root, "tests/java/", ".java")
    for floor, called in ("unit tests", code("".join(unit))), ("Java tests", code("".join(java))):
        yield from (f"the {floor} never call {name}" for name in methods(root) if not re.search(rf"\b{name}\b", called))
    for path in OF_EVERY_METHOD:
        text = (root / path).read_text()
        yield from (f"{path}: {name} is missing" for name in methods(root) if not re.search(rf"\b{name}\b", text))
    results = NOT_RETURNED.sub(" ", code("".join(text for text in unit if "\nTEST" in text)))
    expected = " ".join(ASSERTION.findall(results))
    names = set(re.findall(r"\w+", results))
    of_libusb = tuple(name.removeprefix("LIBUSB_ERROR_") for name in names if name.startswith("LIBUSB_ERROR_"))
    for number, java_name, own_name in codes(root):
        is_named = own_name in names or java_name.startswith(of_libusb)  # libusb's names are the shorter ones
        if not is_named and not re.search(rf"(?<![\w.]){number}\b", expected):
            yield f"no unit test expects {number}"
    strings = [string for text in unit for string in quoted(text)]
    library = "\n".join(sources(root, "src/", ".cpp", ".h"))
    for text in dict.fromkeys(text.strip("\n") for text in texts(library)):
        if not any(text in string or pattern(text).search(string) for string in strings):
            yield f"no unit test quotes {text!r}"


SMALL_TREE = {
    JAVA / "ORVEXCommUSBAccess.java": "native int usbShown(int a);\nnative int usbMissed();\nnative int usbInJava();\n",
    JAVA / "UsbAccessCode.java": """
    GONE(-4, "shown"),
    BUSY(-6, "missed"),
    INTERNAL(-101, "not returned to Java"),
    SHOWN(-105, "shown"),
    MISSED(-107, "missed"),
    NAMED(-108, "shown");
""",
    CODES: "constexpr int32_t kMissed = -107;\nconstexpr int32_t kNamed = -108;\n",
    Path("src/Log.cpp"): """
#include "Log.h"
void work() {
    log("shown %d of %d\\n", 1, 2);
    log("missed %d", 1);
    log("[%u] %s", 1, "also " "shown");
}
""",
    Path("tests/unit/Calls.h"): 'int notTested() { return kMissed; }\nconstexpr auto kStart = "also ";',
    Path("tests/unit/WorkTest.cpp"): """
TEST(Work, IsShown) {
    failCall("x", LIBUSB_ERROR_BUSY);
    EXPECT_EQ(LIBUSB_ERROR_GONE, usbShown());
    EXPECT_EQ(-105, call());
    for (int code : {kNamed}) {
        EXPECT_EQ(LIBUSB_ERROR_BUSY, record.lastResult);
    }
    EXPECT_EQ("shown 3 of " + four, lines());  // "missed 1", -107, usbMissed
    EXPECT_EQ("[7] also shown", "missed x"));
}
""",
    Path("tests/java/src/CodeTest.java"): "usbShown(-107);\nusbMissed();\nusbInJava();\n",
    **{path: "usbShown, usbMissed, usbInJava" for path in OF_EVERY_METHOD[1:]},
    OF_EVERY_METHOD[0]: "usbShown, usbMissed",
}
MISSED = ["the unit tests never call usbMissed", "the unit tests never call usbInJava",
          f"{OF_EVERY_METHOD[0]}: usbInJava is missing", "no unit test expects -6",
          "no unit test expects -107", "no unit test quotes 'missed %d'"]


def self_test():
    """In a small tree, the check has to report exactly what no test covers."""
    with tempfile.TemporaryDirectory() as scratch:
        root = Path(scratch)
        for name, text in SMALL_TREE.items():
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (root / name).write_text(text)
        found = list(complaints(root))
    return [] if found == MISSED else [f"complained: {found} instead of {MISSED}"]


if __name__ == "__main__":
    bad = self_test() if sys.argv[1] == "--self-test" else list(complaints(Path(sys.argv[1])))
    print("\n".join(bad) or "ok")
    sys.exit(1 if bad else 0)
