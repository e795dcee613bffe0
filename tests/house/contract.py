"""The contract and the tests that show it: usage contract.py ROOT LIBUSB_INCLUDE_DIR [--write | --show WHAT], or
contract.py --self-test.

Takes the methods from the Java class, the codes from its table of codes, the log texts from the library's sources, and
looks for the tests that name them; complains about what no test shows, and when docs/contract.md is not what it makes
of this. With --write it makes the page first, with --show it lists all tests of a method, a code or log texts instead.
"""

import re
import sys
import tempfile
from pathlib import Path

from contract_page import page
from test_catalogue import UNIT, all_tests, bare, closing, literals, read

PAGE = Path("docs/contract.md")
JAVA = Path("java/src/com/talvane/orvex/comm")

NATIVE = re.compile(r"\bnative\s+\w+\s+(usb\w+)\s*\(")
CODE = re.compile(r"^    ([A-Z_]+)\((-\d+), \"(.*)\"\)[,;]", re.MULTILINE)
LIBUSB_CODE = re.compile(r"\bLIBUSB_ERROR_(\w+)\s*=\s*(-\d+)")
NAMED_CODE = re.compile(r"\b(k\w+|[A-Z_]{3,})\s*=\s*(-\d+)\s*;")
ASSERTION = re.compile(r"\b(?:(?:EXPECT|ASSERT)_\w+|assert\w+)\s*\([^;]*;")
# What a call of libusb is made to answer, and what is only kept in the record, is not what a method returns.
NOT_RETURNED = re.compile(r"[^;{}]*\b(?:failCall|lastResult)\b[^;]*;")


def methods(root):
    return NATIVE.findall((root / JAVA / "ORVEXCommUSBAccess.java").read_text())


def names_of(method):
    """The method and the function of the library behind it."""
    return {method, "LibUSB_" + method.removeprefix("usb")}


def codes(root):
    """Number and meaning of each code that reaches Java."""
    found = CODE.findall((root / JAVA / "UsbAccessCode.java").read_text())
    return {int(number): meaning for _, number, meaning in found if "not returned to Java" not in meaning}


def code_names(root, libusb):
    """The names that stand for numbers in tests, besides those that a test's own file has."""
    names = {name: int(number) for name, number, _ in CODE.findall((root / JAVA / "UsbAccessCode.java").read_text())}
    for header in read(root, "src/", (".h",)):
        names.update({name: int(number) for name, number in NAMED_CODE.findall(header.text)})
    header = (libusb / "libusb.h").read_text()
    return {**names, **{f"LIBUSB_ERROR_{name}": int(number) for name, number in LIBUSB_CODE.findall(header)}}


def returned(test, all_methods):
    """The test without what it makes libusb answer, without looks at records, and without assertions on other calls
    than those of the methods."""
    code = NOT_RETURNED.sub("", test.code)
    for assertion in ASSERTION.findall(code):
        if not test.names_behind(assertion) & all_methods:
            code = code.replace(assertion, "")
    return code


def codes_in(test, names, all_methods):
    """The codes that a test names: the library's own, and those of libusb that methods return."""
    calls_methods = bool(test.names & all_methods)
    if test.floor != UNIT and not calls_methods:
        return set()  # a test of the table of codes
    own = {name: int(number) for name, number in NAMED_CODE.findall(test.code)}
    numbers = {name: number for name, number in {**names, **own}.items() if name in test.names}
    found = {number for number in numbers.values() if number <= -100}
    found |= {int(number) for number in re.findall(r"(?<![\w.])-\d{3}\b", test.code)}
    if not calls_methods:
        return found
    code = returned(test, all_methods)
    found |= {number for name, number in numbers.items() if re.search(rf"\b{name}\b", code)}
    for assertion in ASSERTION.findall(code):
        found |= {int(number) for number in re.findall(r"(?<![\w.])-\d{1,2}\b", assertion.split(",", 1)[0])}
    return found


class LogText:
    """A text of the log as it stands in the source: letters, and values by printf's conversions."""

    VALUE = re.compile(r"%%|%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z)?[a-zA-Z]")

    def __init__(self, text, function):
        self.text, self.function = text.strip("\n"), function
        pieces = [piece for piece in self.VALUE.split(self.text) if piece]
        self.pattern = re.compile(".*?".join(map(re.escape, pieces)), re.DOTALL)
        self.speaks = any(re.search("[A-Za-z]{3}", piece) for piece in pieces)

    def is_shown_by(self, test):
        """Somewhere in a string of the test. A text without a word of its own is the form that one function writes,
        and the test names that, too."""
        if not self.speaks and self.function not in test.names:
            return False
        return any(self.pattern.search(string) for string in test.strings)


def log_texts(root):
    """The strings that functions hand to the writers of the log, in the order of the sources.

    Writers are the functions that put text on standard error, and those that take a text and call a writer.
    """
    sources = read(root, "src/", (".cpp", ".h"))
    writers = {"fprintf", "fputs"}
    functions = [function for source in sources for function in source.functions]
    more = True
    while more:
        called = re.compile(rf"\b({'|'.join(sorted(writers))})\b\s*(?:<\d+>)?\s*\(")
        new = {name for name, text in functions
               if "const char*" in text.split("{")[0] and called.search(bare(text.split("{", 1)[1]))} - writers
        more = bool(new)
        writers |= new
    found = {}
    formats = re.compile(called.pattern.replace("fprintf", "fprintf|snprintf"))
    for name, text in functions:
        code = bare(text)
        for call in (formats if name in writers else called).finditer(code):
            # The first string alone: those behind it are values.
            for string in literals(text[call.start():closing(code, call.end() - 1)])[:1]:
                found.setdefault(string, LogText(string, name))
    return list(found.values())


def shown(root, libusb):
    """For each method, code and log text the tests that show it."""
    tests, names = all_tests(root), code_names(root, libusb)
    by_method = {method: [t for t in tests if t.names & names_of(method)] for method in methods(root)}
    all_methods = {name for method in by_method for name in names_of(method)}
    expected = {test: codes_in(test, names, all_methods) for test in tests}
    by_code = {(number, meaning): [t for t in tests if number in expected[t]]
               for number, meaning in codes(root).items()}
    by_text = {text.text: [t for t in tests if text.is_shown_by(t)] for text in log_texts(root)}
    return tests, by_method, by_code, by_text


def show(root, libusb, what):
    """Lists the tests of the method, of the code and of the log texts that these words are in."""
    _, by_method, by_code, by_text = shown(root, libusb)
    by_number = {str(number): found for (number, _), found in by_code.items()}
    found = {name: tests for table in (by_method, by_number) for name, tests in table.items() if name == what}
    found.update({text: tests for text, tests in by_text.items() if what in text and what not in found})
    for name, tests in found.items():
        print("\n".join([name, *(f"    {test.floor}: {test.suite}.{test.name}" for test in tests)]))
    return 0 if found else 1


def main(root, libusb, write):
    tests, by_method, by_code, by_text = shown(root, libusb)
    wanted = page(tests, by_method, by_code, by_text)
    if write:
        (root / PAGE).write_text(wanted)
    complaints = [f"no test shows {what}" for table in (by_method, by_code, by_text)
                  for what, found in table.items() if not found]
    if not (root / PAGE).exists() or (root / PAGE).read_text() != wanted:
        complaints.append(f"{PAGE} is not made of the present sources; script/contract writes it anew")
    print("\n".join(complaints))
    print(f"{len(by_method)} methods, {len(by_code)} codes, {len(by_text)} log texts, {len(tests)} tests")
    return 1 if complaints else 0


SMALL_TREE = {
    JAVA / "ORVEXCommUSBAccess.java": """
native int usbShown(int a);
native int usbMissed();
native int usbInShort();
""",
    JAVA / "UsbAccessCode.java": """
    GONE(-4, "shown"),
    BUSY(-6, "missed"),
    INTERNAL(-101, "not returned to Java"),
    SHOWN(-105, "shown"),
    MISSED(-107, "missed");
""",
    Path("libusb.h"): "LIBUSB_ERROR_NO_DEVICE = -4, LIBUSB_ERROR_BUSY = -6",
    Path("src/Log.cpp"): """
void log(const char* format, ...) {
    fprintf(stderr, format);
}

void work() {
    log("shown %d of %d", 1, 2);
    log("missed %d", 1);
}
""",
    Path("tests/unit/Calls.h"): "int inShort() { return LibUSB_InShort(); }",
    Path("tests/unit/WorkTest.cpp"): """
#include "Calls.h"
TEST(Work, IsShown) {
    failCall("x", LIBUSB_ERROR_BUSY);
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, usbShown());
    EXPECT_EQ(-105, inShort());
    EXPECT_EQ("shown 3 of " + four, lines());  // "missed 1", -107, usbMissed
}
""",
    Path("tests/java/src/CodeTest.java"): """
    @Test
    void tableOfCodes() {
        see(-107);
    }
""",
}
MISSED = ["usbMissed", "(-6, 'missed')", "(-107, 'missed')", "missed %d"]


def self_test():
    """In a small tree, what no test shows has to be missed, and nothing else."""
    with tempfile.TemporaryDirectory() as scratch:
        root = Path(scratch)
        for name, text in SMALL_TREE.items():
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (root / name).write_text(text)
        _, *tables = shown(root, root)
    missed = [str(what) for table in tables for what, found in table.items() if not found]
    print("ok" if missed == MISSED else f"missed {missed} instead of {MISSED}")
    return 0 if missed == MISSED else 1


if __name__ == "__main__":
    if sys.argv[1] == "--self-test":
        sys.exit(self_test())
    places = Path(sys.argv[1]), Path(sys.argv[2])
    sys.exit(show(*places, sys.argv[4]) if "--show" in sys.argv else main(*places, "--write" in sys.argv))
