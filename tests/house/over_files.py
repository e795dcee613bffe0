"""Runs a command over all files of one kind: usage over_files.py ROOT cpp|shell|yaml COMMAND...

Exit status: that of the command; 77, with the reason, if tools.py does not find the command.
"""

import subprocess
import sys
from pathlib import Path

import tools
from sources import cpp_files, listed_files


def is_shell(file):
    if file.suffix == ".sh":
        return True
    with open(file, "rb") as opened:
        start = opened.readline(100)
    return start.startswith(b"#!") and start.split()[-1].rpartition(b"/")[2] in (b"sh", b"bash")


def is_yaml(file):
    return file.suffix in (".yml", ".yaml")


def main(root, kind, name, *arguments):
    program = tools.find(name)
    if program is None:
        return 77
    if kind == "cpp":
        files = cpp_files(root, "src", "sim", "tests")
    else:
        is_kind = is_shell if kind == "shell" else is_yaml
        files = [path for path in listed_files(root) if is_kind(root / path)]
    print(f"{len(files)} files")
    if not files:
        return 1
    return subprocess.run([program, *arguments, *files], cwd=root, check=False).returncode


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), *sys.argv[2:]))
