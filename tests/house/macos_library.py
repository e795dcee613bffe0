"""Cross-builds the library and the recorder for macOS and checks them: usage macos_library.py ROOT BUILD.

The project is configured for macOS, arm64 and x86_64, with Debian's clang and lld (macos/toolchain.cmake), and the shared
library built in the folder BUILD. In place of an SDK the linker gets text stubs that offer what macos/imports.txt lists:
a name that is not in there does not link. The two halves are joined with llvm-lipo. Then the library has to have its
name, its versions, the oldest macOS that the project names, the native methods as its exports, and each import from
the library that has it on a Mac; the list may have no other.

The recorder (sim/record) is linked without such a list. Its library has to have the name of libusb, and all functions
of libusb as its exports: those that it records are its own, each of the others is a jump to the real library's.

The C headers are those of this machine and the system's those of sim/iokit, so the result is not to be run: what it
asks for by name is right, sizes and constants of the C library are not. Exit status 77, with the reason, when the
tools are not there as tools.py wants them.
"""

import os
import re
import shutil
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
    """Builds the universal library, and the recorder; returns their folder."""
    # Programs that clang and CMake expect on a Mac.
    for name, text in {"lipo": f'exec {llvm}/bin/llvm-lipo "$@"', "sw_vers": "echo 12.0"}.items():
        file = folder / "bin" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(f"#!/bin/sh\n{text}\n")
        file.chmod(0o755)
    headers = [line.strip() for line in said("c++", "-xc++", "-E", "-v", "/dev/null").splitlines() if line.startswith(" /")]
    own = {"PATH": f"{folder}/bin:{os.environ['PATH']}", "PKG_CONFIG_LIBDIR": str(folder / "stubs")}
    system = ";".join(folder for folder in headers if "/c++" not in folder and "/gcc" not in folder)
    # Only the recorder may ask for names that no stub has.
    unlisted = "-fuse-ld=lld -Wl,-undefined,dynamic_lookup"
    said("cmake", "--fresh", "-S", root, "-B", folder / "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
         "-DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=lld", f"-DCMAKE_EXE_LINKER_FLAGS={unlisted}",
         "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O2 -DNDEBUG", "-DCMAKE_UNITY_BUILD=ON",
         f"--toolchain={root}/tests/house/macos/toolchain.cmake", f"-DSTUBS={folder}/stubs", f"-DLLVM={llvm}",
         f"-DSYSTEM_HEADERS={system}", "-DBUILD_TESTING=OFF", *java, **own)
    said("cmake", "--build", folder / "build", "--target", "USBAccessLink", **own)
    said("cmake", f"-DCMAKE_SHARED_LINKER_FLAGS={unlisted}", folder / "build", **own)
    shutil.rmtree(folder / "build/sim/record-lib", ignore_errors=True)  # one of another name is not to be missed
    said("cmake", "--build", folder / "build", "--target", "simbus_record", **own)
    return folder / "build"


def lacks(loads, half, **wanted):
    for what, pattern in wanted.items():
        if not re.search(pattern, loads):
            yield f"{half}: another {what}"


def oldest_of(root):
    """The load command with the oldest macOS that the project names."""
    oldest = re.search(r"DEPLOYMENT_TARGET (\S+)", (root / "CMakeLists.txt").read_text()).group(1)
    return rf"cmd LC_BUILD_VERSION\n.*\n +platform macos\n.*\n +minos {oldest}\n"


def complaints(root, library, half, llvm, wanted):
    """The problems of the library for one processor."""
    version = re.search(r"USBAccessLink VERSION (\S+)", (root / "CMakeLists.txt").read_text()).group(1) + ".0"
    loads = said(llvm / "bin/llvm-otool", "-arch", half, "-l", library)
    yield from lacks(
        loads, half,
        name=r"cmd LC_ID_DYLIB\n.*\n +name @rpath/libUSBAccessLink_3_47.dylib ",
        versions=rf"cmd LC_ID_DYLIB\n(.*\n){{3}} +current version {version}\ncompatibility version {version}\n",
        oldest_macOS=oldest_of(root))
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


def libusb_functions(root):
    """All functions of libusb, and those that the recorder records."""
    versions = re.findall(r"\[libusb-1.0 .*\n([^[]+)", (root / "sim/interfaces.txt").read_text())
    recorder = (root / "sim/record/LibusbRecorder.cpp").read_text()
    recorded = re.findall(r"^[a-z]\w*\*? (libusb_\w+)\(", recorder, re.MULTILINE)
    return {f"_{name}" for name in " ".join(versions).split()}, {f"_{name}" for name in recorded}


def goes_to(code, names):
    """The name of the pointer through which code jumps at once; None if it begins with something else."""
    there = re.match(r"jmpq\t\*(\w+)\(%rip\)\n", code)
    if there:
        return there.group(1)
    there = re.match(r"adrp\tx16, \d+ ; (0x\w+)\nldr\tx16, \[x16(?:, #(\d+))?\]\nbr\tx16\n", code)
    return there and names.get(int(there.group(1), 16) + int(there.group(2) or 0))


def recorder_complaints(root, folder, half, llvm):
    """The problems of the recorder for one processor."""
    library, program = folder / "record-lib/libusb-1.0.0.dylib", folder / "simbus-record"
    loads = said(llvm / "bin/llvm-otool", "-arch", half, "-l", library)
    yield from lacks(loads, half, name_of_libusb=r"cmd LC_ID_DYLIB\n.*\n +name @rpath/libusb-1.0.0.dylib ",
                     oldest_macOS=oldest_of(root))
    table = re.findall(r"^(\w+) \(\S+\) (.*) (\S+)$", said(llvm / "bin/llvm-nm", "-arch", half, "-m", library), re.MULTILINE)
    names = {int(address, 16): name for address, _, name in table}
    exported = {name: kind for _, kind, name in table if kind in ("external", "weak external")}
    listing = said(llvm / "bin/llvm-objdump", "--macho", f"--arch={half}", "--no-show-raw-insn", "-d", library)
    code = {name: re.sub(r"(?m)^ *\w+:\s+", "", body) for name, body in re.findall(r"(?m)^(_\w+):\n((?: .*\n)+)", listing)}
    functions, recorded = libusb_functions(root)
    if set(exported) != functions:
        yield f"{half}: the recorder's exports differ: {sorted(set(exported) ^ functions)}"
    for name in sorted(functions & set(exported)):
        wanted = (None, "external") if name in recorded else (f"_real{name}", "weak external")
        found = goes_to(code[name], names), exported[name]
        if found != wanted:
            yield f"{half}: {name} is {found}, not {wanted}"
    if "__NSGetExecutablePath" not in said(llvm / "bin/llvm-nm", "-arch", half, "-u", program).split():
        yield f"{half}: simbus-record does not ask for its own path"


def main(root, folder, libusb_headers, *java):
    if not all(map(tools.find, ["clang++", "ld64.lld", "llvm-lipo"])):  # stops at the first that is missing
        return 77
    llvm = Path("/usr/lib/llvm-14")
    if not (llvm / "include/c++/v1").is_dir():
        print("libc++-dev is not installed")
        return 77
    wanted = imports(root)
    make_stubs(folder / "stubs", wanted, libusb_headers)
    built = build(root, folder, llvm, java)
    library = built / "libUSBAccessLink_3_47.dylib"
    found, used = [], set()
    for half in ("arm64", "x86_64"):
        found += complaints(root, library, half, llvm, wanted)
        found += recorder_complaints(root, built / "sim", half, llvm)
        asked = imported(llvm, library, half, wanted)
        used |= asked
    listed = {(file, name) for file, names in wanted.items() for name in names}
    found += [f"not from where it should be: {pair}" for pair in sorted(used - listed)]
    found += [f"not asked for any more: {pair}" for pair in sorted(listed - used)]
    functions, recorded = libusb_functions(root)
    print("\n".join(found) or f"{len(used)} imports of {len(wanted)} libraries, {len(METHODS)} exports; the recorder has "
          f"{len(functions)} functions, {len(recorded)} of its own")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), Path(sys.argv[2]), *sys.argv[3:]))
