"""Copies libusb and hidapi into the jar, for machines without them: usage bundled.py OUTPUT ROOT LIBRARY...

Writes into the folder OUTPUT, for each LIBRARY of Debian's packages below ROOT: a copy under its soname, the package's
copyright file, the licence to which that file refers (the same on every Debian), and libraries.properties with the
versions.
"""

import gzip
import shutil
import subprocess
import sys
from pathlib import Path

PACKAGES = {"libusb-1.0.so.0": "libusb-1.0-0", "libhidapi-hidraw.so.0": "libhidapi-hidraw0"}
LICENCES = [Path("/usr/share/common-licenses/LGPL-2.1")]
HEAD = """\
# Third-party libraries in this folder, unmodified from Debian: file name, source package, version.
# licences/ contains the terms of each. Sources: "apt-get source PACKAGE=VERSION" on Debian, or
# https://snapshot.debian.org/package/PACKAGE/VERSION/. Another build of a library that is found first, for example
# through LD_LIBRARY_PATH, replaces it.
"""


def source_of(root, package):
    """Name and version of a package's source, from the start of its changelog or, without one, from dpkg."""
    changelog = root / "usr/share/doc" / package / "changelog.Debian.gz"
    if changelog.exists():
        with gzip.open(changelog, "rt", encoding="utf-8") as lines:
            name, version = next(lines).split()[:2]
        return f"{name} {version.strip('()')}"
    query = ["dpkg-query", f"--admindir={root}/var/lib/dpkg", "-W", "-f", "${source:Package} ${source:Version}"]
    return subprocess.run([*query, package], capture_output=True, text=True, check=True).stdout


def gather(output, root, libraries):
    shutil.rmtree(output, ignore_errors=True)
    (output / "licences").mkdir(parents=True)
    lines = []
    for library in sorted(libraries):
        package = PACKAGES[library.name]
        shutil.copyfile(library, output / library.name)
        shutil.copyfile(root / "usr/share/doc" / package / "copyright", output / "licences" / f"{package}.copyright")
        lines.append(f"{library.name}={source_of(root, package)}\n")
    for licence in LICENCES:
        shutil.copyfile(licence, output / "licences" / licence.name)
    (output / "libraries.properties").write_text(HEAD + "".join(lines))


if __name__ == "__main__":
    gather(Path(sys.argv[1]), Path(sys.argv[2]), [Path(library) for library in sys.argv[3:]])
