"""Checks the spelling of pages, comments, Javadoc and help texts with codespell: usage spelling.py ROOT, or
spelling.py --self-test.

Exit status 77 if codespell is not installed.
"""

import subprocess
import sys
import tempfile
from pathlib import Path

import tools
from sources import listed_files
from words import CORPUS

# A word of a German message, and the id of a device.
KNOWN = "oder,loner"
# Words with an escaped letter, other escape sequences, which would run into the next word, and names in mixed case.
NOT_WORDS = r"\w*\\[ux][0-9A-Fa-f]+\w*|\\[a-z]|\b\w*[a-z][A-Z]\w*\b"
# Its patterns have letters in brackets.
EXCEPTED = Path("tests/house/words.py")
TYPO = "rec" + "ieve"
BAD_LINES = [
    f"The method {TYPO}s a byte.", f"// {TYPO}s the bytes", f"     * @return the bytes that it {TYPO}s",
    f'description = "Show what the device {TYPO}s."',
]
GOOD_LINES = ["The method receives a byte.", "bool inFlight = true;", r'"out\nin"', r'"Caf\u00e9"', "Initialise the behaviour."]


def misspelled(root, paths):
    """codespell's line for each misspelled word in the given files below a folder."""
    command = ["codespell", "--check-hidden", "--disable-colors", "--ignore-words-list", KNOWN, "--ignore-regex", NOT_WORDS]
    done = subprocess.run([*command, *paths], cwd=root, capture_output=True, text=True, check=False)
    return (done.stdout + done.stderr).splitlines()


def self_test():
    """The first file has a misspelled word in each line, the second one none."""
    with tempfile.TemporaryDirectory() as scratch:
        for name, lines in (("bad", BAD_LINES), ("good", GOOD_LINES)):
            Path(scratch, name).write_text("\n".join(lines) + "\n")
        found = misspelled(scratch, ["bad", "good"])
    wanted = [f"bad:{number}: {TYPO}" for number in range(1, len(BAD_LINES) + 1)]
    good = len(found) == len(wanted) and all(line.startswith(start) for line, start in zip(found, wanted))
    return [] if good else [f"found {found}"]


def main(argument):
    if tools.find("codespell") is None:
        return 77
    if argument == "--self-test":
        found = self_test()
    else:
        paths = [path for path in listed_files(argument) if CORPUS not in path.parents and path != EXCEPTED]
        print(f"{len(paths)} files")
        found = misspelled(argument, paths)
    print("\n".join(found) or "ok")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
