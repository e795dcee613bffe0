"""Compiles the HID rooms for macOS, as far as the syntax: usage macos_syntax.py ROOT LIBUSB_INCLUDE_DIR.

With clang's macOS targets over the stand-ins for the system's headers, so that what only another system's compiler
takes is found. The C and C++ libraries are this machine's: their headers come without the macOS macros that clash.
Exit status 77, with the reason, when clang is not installed.
"""

import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import tools

TARGETS = ["arm64-apple-macos12", "x86_64-apple-macos12"]
ROOMS = ["hid", "HidHandling"]
OTHER_SYSTEMS = ["HidDeviceHidapi.cpp"]
FLAGS = "-fsyntax-only -std=c++17 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror".split()


def system_folders():
    """The folders that this machine's C++ compiler searches."""
    said = subprocess.run(["c++", "-xc++", "-E", "-v", "/dev/null"], capture_output=True, text=True, check=True).stderr
    listing = said.split("#include <...> search starts here:")[1].split("End of search list")[0]
    # A compiler's own folder is no good to another one.
    return [folder for folder in listing.split() if "/lib/gcc" not in folder]


def main(root, libusb):
    clang = tools.find("clang++")
    if clang is None:
        return 77
    library = root / "src/usb/mac"
    files = [file for room in ROOMS for file in sorted((library / room).glob("*.cpp")) if file.name not in OTHER_SYSTEMS]
    # Without the major version the C library does not take the compiler for one with the machine's 128-bit numbers.
    for_this_machines_libraries = ["-nostdlibinc", "-U__nonnull", "-U__clang_major__", "-D__x86_64__", "-D_GNU_SOURCE"]
    folders = [root / "sim/iokit/include", libusb, *system_folders()]
    searched = [f"-I{library}", *(word for folder in folders for word in ("-isystem", str(folder)))]

    def complaints(job):
        target, file = job
        command = [clang, "-target", target, *FLAGS, *for_this_machines_libraries, *searched, str(file)]
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        return done.stderr if done.returncode != 0 else ""

    with ThreadPoolExecutor(2) as pool:
        said = list(pool.map(complaints, [(target, file) for target in TARGETS for file in files]))
    print(f"{len(files)} files for {len(TARGETS)} targets")
    print("".join(said))
    return 1 if any(said) or not files else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), sys.argv[2]))
