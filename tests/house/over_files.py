"""Runs a command over all files of one kind: usage over_files.py ROOT cpp|shell COMMAND...

Exit status: that of the command; 77, with the reason, when the command is not installed.
"""

import shutil
import subprocess
import sys
from pathlib import Path

from sources import cpp_files, listed_files


def is_shell(file):
    if file.suffix == ".sh":
        return True
    with open(file, "rb") as opened:
        start = opened.readline(100)
    return start.startswith(b"#!") and start.split()[-1].rpartition(b"/")[2] in (b"sh", b"bash")


def main(root, kind, *command):
    if shutil.which(command[0]) is None:
        print(f"{command[0]} is not installed")
        return 77
    files = cpp_files(root, "src", "sim", "tests") if kind == "cpp" else listed_files(root)
    if kind == "shell":
        files = [path for path in files if is_shell(root / path)]
    print(f"{len(files)} files")
    if not files:
        return 1
    return subprocess.run([*command, *files], cwd=root, check=False).returncode


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), *sys.argv[2:]))
