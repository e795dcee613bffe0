"""Lints src and sim with the compile commands of a build: usage tidy.py ROOT BUILD.

A clean source is checked again only if it, a file that it includes, its compile command or the rules have changed.
Exit status 77, with the reason, if tools.py does not find clang-tidy.
"""

import hashlib
import json
import os
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import tools


def included_files(entry):
    """The source of a compile command and what it includes, without the system's headers."""
    words = shlex.split(entry["command"])
    at = words.index("-o")
    del words[at:at + 2]
    words.remove("-c")
    listing = subprocess.run([*words, "-MM"], cwd=entry["directory"], capture_output=True, text=True, check=True)
    names = listing.stdout.replace("\\\n", " ").split(":", 1)[1].split()
    return sorted(Path(entry["directory"], name) for name in names)


def fingerprint(entry, rules):
    digest = hashlib.sha256(rules + entry["command"].encode())
    for file in included_files(entry):
        digest.update(file.read_bytes())
    return digest.hexdigest()


def lint(tidy, entry, build, rules):
    """The findings of clang-tidy in one source; empty if it is clean."""
    clean = build / "tidy-clean" / fingerprint(entry, rules)
    if clean.exists():
        return ""
    command = [tidy, "--quiet", "-p", str(build), entry["file"]]
    done = subprocess.run(command, capture_output=True, text=True, check=False)
    if done.returncode == 0:
        clean.touch()
        return ""
    return done.stdout + done.stderr


def main(root, build):
    tidy = tools.find("clang-tidy")
    if tidy is None:
        return 77
    (build / "tidy-clean").mkdir(exist_ok=True)
    version = subprocess.run([tidy, "--version"], capture_output=True, check=True).stdout
    rules = version + (root / ".clang-tidy").read_bytes()
    commands = json.loads((build / "compile_commands.json").read_text())
    tops = (f"{root}/src/", f"{root}/sim/")
    # One for each source: a source that several targets compile would say the same again.
    entries = {entry["file"]: entry for entry in commands if entry["file"].startswith(tops)}
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        findings = [text for text in pool.map(lambda e: lint(tidy, e, build, rules), entries.values()) if text]
    print("".join(findings) + f"{len(entries)} sources, {len(findings)} with findings")
    return 1 if findings or not entries else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), Path(sys.argv[2])))
