"""What the drop-in libraries offer: usage interfaces.py FOLDER.

Each library exports the functions that sim/interfaces.txt lists for all versions of the library that it replaces, and nothing
else, and is in the folder under all names by which programs load it. Every function of the system's own library, where
that is installed, is listed. Where it is newer than the list, a function is missing here first.
"""

import re
import subprocess
import sys
from pathlib import Path

NAMES = ("{}.so.0", "{}.so")


def exported(library):
    command = ["nm", "--dynamic", "--defined-only", str(library)]
    lines = subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()
    return {words[2].split("@")[0] for words in map(str.split, lines) if len(words) == 3}


def listed():
    """The functions of each library, of all versions together."""
    libraries = {}
    for line in (Path(__file__).parents[2] / "sim" / "interfaces.txt").read_text().splitlines():
        if header := re.fullmatch(r"\[(\S+) \S+\]", line):
            functions = libraries.setdefault(header[1], set())
        elif line:
            functions.add(line)
    return libraries


def of_the_system(library):
    """The functions of the system's library; empty where it is not installed."""
    prefix = "libusb_" if library.startswith("libusb") else "hid_"
    for folder in Path("/usr/lib").glob("*-linux-gnu"):
        file = folder / f"{library}.so.0"
        if file.exists():
            return {name for name in exported(file) if name.startswith(prefix)}
    return set()


def problems(folder):
    for library, functions in listed().items():
        files = [folder / name.format(library) for name in NAMES]
        yield from (f"missing: {file}" for file in files if not file.exists())
        if not files[0].exists():
            continue
        found, theirs = exported(files[0]), of_the_system(library)
        yield from (f"{library} lacks {name}" for name in sorted(functions - found))
        yield from (f"{library} exports {name}, which is not listed" for name in sorted(found - functions))
        yield from (f"{library}: {name} of the system's is not listed" for name in sorted(theirs - functions))
        print(f"{library}: {len(found & functions)} of {len(functions)} functions; the system's has {len(theirs)}")


if __name__ == "__main__":
    found = list(problems(Path(sys.argv[1])))
    print(*found, sep="\n", end="\n" if found else "")
    sys.exit(1 if found else 0)
