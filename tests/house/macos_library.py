"""Cross-builds the library for macOS and checks it: usage macos_library.py ROOT BUILD.

The project is configured for macOS, arm64 and x86_64, with Debian's clang and lld (macos/toolchain.cmake), and the shared
library built in the folder BUILD. In place of an SDK the linker gets text stubs that offer what macos/imports.txt lists:
a name that is not in there does not link. The two halves are joined with llvm-lipo. Then the library has to have its
name, its versions, the oldest macOS that the project names, the native methods as its exports, and each import from
the library that has it on a Mac; the list may have no other.

The C headers are those of this machine and the system's those of sim/iokit, so the result is not to be run: what it
asks for by name is right, sizes and constants of the C library are not. Exit status 77, with the reason, when the
tools are not there as tools.py wants them.
"""

import os
import re
import subprocess
import sys
from pathlib import Path

import tools
from exports import METHODS, PREFIX

TARGETS = "[ arm64-macos, x86_64-macos ]"
STUB = """--- !tapi-tbd
tbd-version: 4
targets: {targets}
install-name: '{name}'
exports:
  - targets: {targets}
    symbols: [ {symbols} ]
...
"""
LIBUSB = "Name: libusb\nDescription: stub\nVersion: 1.0.26\nCflags: -I{headers}\nLibs: -L{folder}/usr/lib -lusb-1.0\n"


def said(*command, **environment):
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          env={**os.environ, **environment}, check=False)
    if done.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\n{done.stdout[-4000:]}")
    return done.stdout


def stub_file(library):
    """The path of a library's stub in an SDK."""
    name = library.removesuffix(".dylib").replace("/Versions/A", "").replace(".B", "").replace("c++.1", "c++")
    return Path(name.replace("/opt/homebrew/opt/libusb", "usr").replace("usb-1.0.0", "usb-1.0").lstrip("/") + ".tbd")


def imports(root):
    """The names that may be imported, by library."""
    found = {}
    for line in (root / "tests/house/macos/imports.txt").read_text().splitlines():
        if line.startswith("/"):
            names = found[line] = set()
        elif not line.startswith("#"):
            names |= set(line.split())
    return found


def make_stubs(folder, wanted, libusb_headers):
    for library, names in wanted.items():
        file = folder / stub_file(library)
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(STUB.format(targets=TARGETS, name=library, symbols=", ".join(sorted(names))))
    (folder / "libusb-1.0.pc").write_text(LIBUSB.format(headers=libusb_headers, folder=folder))


def build(root, folder, llvm, java):
    """The universal library."""
    # Programs that clang and CMake expect on a Mac.
    for name, text in {"lipo": f'exec {llvm}/bin/llvm-lipo "$@"', "sw_vers": "echo 12.0"}.items():
        file = folder / "bin" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(f"#!/bin/sh\n{text}\n")
        file.chmod(0o755)
    headers = [line.strip() for line in said("c++", "-xc++", "-E", "-v", "/dev/null").splitlines() if line.startswith(" /")]
    own = {"PATH": f"{folder}/bin:{os.environ['PATH']}", "PKG_CONFIG_LIBDIR": str(folder / "stubs")}
    system = ";".join(folder for folder in headers if "/c++" not in folder and "/gcc" not in folder)
    said("cmake", "-S", root, "-B", folder / "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
         "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -DNDEBUG",
         f"--toolchain={root}/tests/house/macos/toolchain.cmake", f"-DSTUBS={folder}/stubs", f"-DLLVM={llvm}",
         f"-DSYSTEM_HEADERS={system}", "-DBUILD_TESTING=OFF", *java, **own)
    said("cmake", "--build", folder / "build", "--target", "USBAccessLink", **own)
    return folder / "build/libUSBAccessLink_3_47.dylib"


def complaints(root, library, half, llvm, wanted):
    """The problems of the library for one processor."""
    project = (root / "CMakeLists.txt").read_text()
    version = re.search(r"USBAccessLink VERSION (\S+)", project).group(1) + ".0"
    oldest = re.search(r"DEPLOYMENT_TARGET (\S+)", project).group(1)
    loads = said(llvm / "bin/llvm-otool", "-arch", half, "-l", library)
    for what, pattern in {
        "name": r"cmd LC_ID_DYLIB\n.*\n +name @rpath/libUSBAccessLink_3_47.dylib ",
        "versions": rf"cmd LC_ID_DYLIB\n(.*\n){{3}} +current version {version}\ncompatibility version {version}\n",
        "oldest macOS": rf"cmd LC_BUILD_VERSION\n.*\n +platform macos\n.*\n +minos {oldest}\n",
    }.items():
        if not re.search(pattern, loads):
            yield f"{half}: another {what}"
    exported = said(llvm / "bin/llvm-nm", "-arch", half, "-gUj", library).split()
    if sorted(exported) != sorted("_" + PREFIX + method for method in METHODS):
        yield f"{half}: exports {exported}"
    if re.search("cmd LC_RPATH", loads):
        yield f"{half}: has a run path"
    loaded = re.findall(r"cmd LC_LOAD_DYLIB\n.*\n +name (\S+) ", loads)
    if sorted(loaded) != sorted(wanted):
        yield f"{half}: loads {loaded}"


def imported(llvm, library, half, wanted):
    """(library, name) of each import."""
    by_name = {re.split(r"[./]", file.rpartition("/")[2])[0]: file for file in wanted}
    table = said(llvm / "bin/llvm-nm", "-arch", half, "-mu", library)
    return {(by_name.get(origin.partition(".")[0], origin), name)
            for name, origin in re.findall(r"external (\S+) \(from (\S+)\)", table)}


def main(root, folder, libusb_headers, *java):
    if not all(map(tools.find, ["clang++", "ld64.lld", "llvm-lipo"])):  # stops at the first that is missing
        return 77
    llvm = Path("/usr/lib/llvm-14")
    if not (llvm / "include/c++/v1").is_dir():
        print("libc++-dev is not installed")
        return 77
    wanted = imports(root)
    make_stubs(folder / "stubs", wanted, libusb_headers)
    library = build(root, folder, llvm, java)
    found, used = [], set()
    for half in ("arm64", "x86_64"):
        found += complaints(root, library, half, llvm, wanted)
        asked = imported(llvm, library, half, wanted)
        used |= asked
    listed = {(file, name) for file, names in wanted.items() for name in names}
    found += [f"not from where it should be: {pair}" for pair in sorted(used - listed)]
    found += [f"not asked for any more: {pair}" for pair in sorted(listed - used)]
    print("\n".join(found) or f"{len(used)} imports of {len(wanted)} libraries, {len(METHODS)} exports")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), Path(sys.argv[2]), *sys.argv[3:]))
