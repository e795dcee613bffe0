"""Checks that files mention only the product: usage words.py ROOT, or words.py --self-test.

They must not mention paths of a machine, documents or issues of the work, or how it was organised.
"""

import re
import sys
from pathlib import Path

from sources import listed_files

# Each pattern begins with a one-letter class, so that this file does not contain what it looks for.
PATTERNS = {
    "a path of one machine": r"(?<![\w.}])/[w]ork/|/[t]mp/(brief|build|bl-)|/[h]ome/\w+/|/[r]oot/\w",
    "a document of the work": r"(?<!@)(?<!\.)\b([s]pec|[S]pec|[S]PEC)s?\b(?!-)|\b[Ss]pecifications?\b|as [s]pecified",
    "a chapter of such a document": r"\b[Pp]arts? \d+\.\d",
    "an issue or a to-do": r"\b[Ii]ssues? #?\d|\b[T]ODO\b|\b[F]IXME\b",
    # The XML namespace of a pom is no registry host.
    "a package registry": r"\b(repo1?|[m]aven(?!\.apache\.org/(POM|xsd)\b)|[p]ypi|[n]exus|[a]rtifactory)"
    r"\.\w+\.(org|com|io|net)|\b[r]egistry\.\w+\.",
    "how the work is organised": r"\b[s]ub-?agents?\b|\b[A]I\b|\b[L]LM\b|\b[C]hatbot\b|\b[l]anguage model",
}
# Bytes for the library and pictures, not words.
CORPUS = Path("tests/fuzz/corpus")
PICTURES = {".png"}
BAD_LINES = [
    "see " + "/w" + "ork/shared", "in /t" + "mp/build-x", "the s" + "pec says", "S" + "pecification",
    "P" + "art 2.3", "i" + "ssue 7", "T" + "ODO later", "repo1.m" + "aven.org", "made by A" + "I",
]
GOOD_LINES = [
    "LIBUSB_CLASS_VENDOR_SPEC", "@Spec", "special, specific", "timespec now", "a part of 3 bytes", "workers",
    "http://maven.apache.org/POM/4.0.0",
]


def findings(line):
    return [what for what, pattern in PATTERNS.items() if re.search(pattern, line)]


def complaints(root):
    for path in listed_files(root):
        if CORPUS in path.parents or path.suffix in PICTURES:
            continue
        try:
            lines = (root / path).read_text().splitlines()
        except UnicodeDecodeError:
            yield f"{path}: not text in UTF-8"
            continue
        for number, line in enumerate([path.as_posix(), *lines]):
            for what in findings(line):
                yield f"{path}:{number}: {what}: {line.strip()}"


def self_test():
    missed = [f"not found: {line}" for line in BAD_LINES if not findings(line)]
    return missed + [f"wrongly found: {line}" for line in GOOD_LINES if findings(line)]


if __name__ == "__main__":
    found = self_test() if sys.argv[1] == "--self-test" else list(complaints(Path(sys.argv[1])))
    print("\n".join(found) or "ok")
    sys.exit(1 if found else 0)
