"""Counts the instructions that the shipped library itself spends on each hot path, and compares with what is recorded.

usage: instructions.py PROGRAM LIBRARY SIMULATION

Without libusb, the C library and the virtual machine, whose instructions differ from machine to machine. A path that
takes more than the margin above its recorded number fails; one that takes less is to be recorded anew, so that it stays.
Exit status 77, with the reason, for a compiler or a processor without recorded numbers.
"""

import os
import platform
import re
import subprocess
import sys
import tempfile
from pathlib import Path

CALLS = 1000
MARGIN = 0.03
# Instructions per call by the version of g++, -O2, x86-64: those of Debian 12 and 13.
RECORDED = {
    "12": {"information_line": 788, "look_up": 171, "read": 378, "write": 378},
    "14": {"information_line": 788, "look_up": 171, "read": 365, "write": 365},
}
SCENARIO = Path(__file__).resolve().parent.parent.parent / "bench/scenario.json"


def run(program, simulation, folder):
    command = ["valgrind", "--tool=callgrind", "--collect-atstart=no", f"--callgrind-out-file={folder}/out", program]
    variables = {"LD_LIBRARY_PATH": simulation, "SIMBUS_SCENARIO": str(SCENARIO)}
    done = subprocess.run(command, env={**os.environ, **variables}, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(command)}\n{done.stderr}")


def own_instructions(profile, library):
    """The name of a dump, and the cost of the lines that stand under the library's object itself."""
    name, counted, inside, is_call = None, 0, False, False
    # An object's path stands where its number is seen first, be it as the caller's (ob) or the called one's (cob).
    objects = dict(re.findall(r"^c?ob=(\(\d+\)) (.+)$", profile, re.MULTILINE))
    for line in profile.splitlines():
        if line.startswith("desc: Trigger: Client Request: "):
            name = line.rpartition(" ")[2]
        elif line.startswith("ob="):
            inside = Path(objects[line[3:].split()[0]]).resolve() == library
        elif line.startswith("calls="):
            is_call = True  # the next line is what the called function spends
        elif re.match(r"[+*\d-]", line):
            if inside and not is_call:
                counted += int(line.split()[1])
            is_call = False
    return name, counted


def measure(program, library, simulation):
    with tempfile.TemporaryDirectory() as folder:
        run(program, simulation, folder)
        dumps = (own_instructions(path.read_text(), library) for path in Path(folder).iterdir())
        return {name: round(count / CALLS) for name, count in dumps if name}


def main(program, library, simulation):
    version = subprocess.run(["g++", "-dumpversion"], capture_output=True, text=True, check=True).stdout
    version = version.strip().partition(".")[0]
    processor = platform.machine()
    if version not in RECORDED or processor != "x86_64":
        print(f"not run here: no instructions are recorded for g++ {version} on {processor}")
        return 77
    known = RECORDED[version]
    measured = measure(program, Path(library).resolve(), simulation)
    changed = False
    for path in sorted({*known, *measured}):
        recorded, now = known.get(path, 0), measured.get(path, 0)
        within = abs(now - recorded) <= max(1, MARGIN * recorded)
        changed = changed or not within
        print(f"{path:18} {now:6} instructions a call, {recorded} recorded{'' if within else '  <-- changed'}")
    if changed:
        print("More than before: find out why. Less: record it here, in RECORDED.")
    return 1 if changed else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
