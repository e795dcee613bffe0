"""The files that the house checks read: all committed and new files, without build results."""

import subprocess
from pathlib import Path


def listed_files(root):
    """Paths below the root of all files that git knows or would add; without git all files outside build/."""
    listing = ["git", "-C", str(root), "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    try:
        answer = subprocess.run(listing, capture_output=True, text=True, check=True).stdout
        paths = {Path(name) for name in answer.split("\0") if name}
    except (OSError, subprocess.CalledProcessError):
        paths = {path.relative_to(root) for path in Path(root).rglob("*")}
        paths = {path for path in paths if path.parts[0] not in ("build", ".git")}
    return sorted(path for path in paths if (Path(root) / path).is_file())


def cpp_files(root, *tops):
    """The C++ files among them that lie below the given top folders."""
    return [p for p in listed_files(root) if p.parts[0] in tops and p.suffix in (".cpp", ".h")]
