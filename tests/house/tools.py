"""The programs that house checks run, some in one version only, because the results of others differ."""

import re
import shutil
import subprocess

VERSIONS = {"clang++": "14", "clang-format": "14", "clang-tidy": "14", "ld64.lld": "14", "llvm-lipo": "14"}


def find(name):
    """The command for a program; None, after a message with the reason, if it is not installed.

    A message that begins with "not run here: " is not a gap in the test run: the system has another version.
    """
    version = VERSIONS.get(name)
    command = f"{name}-{version}" if version else name
    if shutil.which(command):
        return command
    if version is None or shutil.which(name) is None:
        print(f"{name} is not installed")
        return None
    said = subprocess.run([name, "--version"], capture_output=True, text=True, check=True).stdout
    found = re.search(r"version (\S+)", said)
    print(f"not run here: {name} {version} is wanted, this is {found.group(1) if found else 'another one'}")
    return None
