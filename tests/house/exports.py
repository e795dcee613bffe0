"""Checks the exports and imports of the shared library: usage exports.py [--unoptimised] LIBRARY [OTHER...].

It exports the native methods of the Java class and nothing else. On Linux it needs nothing of the macOS side and looks
for no library in a folder of its own. What it and the libraries that come with it need of the runtimes is what
docs/platforms.md promises, when they are built where what is shipped is: on Debian 12. Elsewhere it is shown. What a
library that is not optimised needs of the C++ runtime is not asked.
"""

import re
import subprocess
import sys
from pathlib import Path

from contract import methods

PREFIX = "Java_com_talvane_orvex_comm_ORVEXCommUSBAccess_"
METHODS = methods(Path(__file__).resolve().parent.parent.parent)


def exported(library):
    """Names of the symbols that the library defines for others."""
    if sys.platform == "darwin":
        command, extra = ["nm", "-gU", library], 1  # names begin with an underscore there
    else:
        command, extra = ["nm", "-D", "--defined-only", library], 0
    lines = subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()
    # For several architectures, nm prints other lines between the symbols.
    return {words[2][extra:] for words in map(str.split, lines) if len(words) == 3}


def needed_of_macos(library):
    """Names of I/O Kit and Core Foundation that a library for Linux imports."""
    if sys.platform == "darwin":
        return set()
    lines = subprocess.run(["nm", "-D", "--undefined-only", library], capture_output=True, text=True, check=True).stdout
    names = {line.split()[-1] for line in lines.splitlines()}
    return {name for name in names if re.match("k?(CF|IO)[A-Z]|__CF", name)}


SHIPPED_FROM = 'ID=debian VERSION_ID="12"'.split()

# The newest versions that may be needed, by the beginning of a library's name.
NEWEST = {
    "libUSBAccessLink": {"GLIBC": "2.17", "GLIBCXX": "3.4.22", "CXXABI": "1.3.9", "GCC": "3.0"},
    "libusb-1.0": {"GLIBC": "2.17", "LIBUDEV": "183"},
    "libhidapi-hidraw": {"GLIBC": "2.33", "LIBUDEV": "183"},
}


def dynamic(library, *options):
    command = ["readelf", "--wide", *options, library]
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def too_new(library, unasked=()):
    """The versions of its runtimes that a library for Linux needs and older systems lack."""
    limits = next(limits for name, limits in NEWEST.items() if Path(library).name.startswith(name))
    needed = set(re.findall(r"Name: ([A-Z]+)_([0-9.]+)  Flags", dynamic(library, "--version-info")))
    if not needed:
        yield f"{library}: no versions found"
    for runtime, version in sorted(needed):
        newest = limits.get(runtime, "0")
        if runtime not in unasked and numbers(version) > numbers(newest):
            yield f"{library}: needs {runtime}_{version}, newer than {newest}"


def numbers(version):
    return [int(number) for number in re.findall("[0-9]+", version)]


def run_path(library):
    return [line.strip() for line in dynamic(library, "--dynamic").splitlines() if re.search("R(UN)?PATH", line)]


def needs_too_much(libraries, unasked):
    if sys.platform == "darwin":
        return
    told = [problem for library in libraries for problem in too_new(library, unasked)]
    if set(SHIPPED_FROM) <= set(Path("/etc/os-release").read_text().splitlines()):
        yield from told
    else:
        print("not built on Debian 12:", *told, sep="\n")
    for library in libraries:
        yield from (f"{library}: {line}" for line in run_path(library))


if __name__ == "__main__":
    unasked = ["GLIBCXX", "CXXABI"] if sys.argv[1] == "--unoptimised" else []
    libraries = sys.argv[1 + (len(unasked) > 0):]
    found, wanted = exported(libraries[0]), {PREFIX + method for method in METHODS}
    for name in sorted(wanted - found):
        print(f"missing: {name}")
    for name in sorted(found - wanted):
        print(f"not to be exported: {name}")
    foreign = needed_of_macos(libraries[0])
    for name in sorted(foreign):
        print(f"of macOS: {name}")
    excess = list(needs_too_much(libraries, unasked))
    print(*excess, sep="\n", end="\n" if excess else "")
    print(f"{len(found & wanted)} of {len(wanted)} native methods exported")
    sys.exit(0 if wanted and found == wanted and not foreign and not excess else 1)
