"""Writes jars whose bytes depend only on their contents, not on the clock, the folder or the order of the files.

usage: jars.py pack JAR PIECE...     PIECE: the contents of another jar; or NAME=PATH, a file or folder under that name
       jars.py merge JAR INPUT...    the first input, with the platform files of all inputs
"""

import os
import sys
import time
import zipfile
from pathlib import Path

MANIFEST = "META-INF/MANIFEST.MF"
OF_PLATFORMS = ("META-INF/native/", "META-INF/sbom/")  # the native libraries and the bills of materials
BEGINNING = 315619200  # 1980-01-02, about where the time of jar files begins
# The only line of the manifest that may differ between merged jars: the JDK of the build.
BUILDER = b"Created-By:"


class Refused(Exception):
    """The jars cannot be packed or merged; the text says why."""


def entries_of(jar):
    """The files in a jar: content by name."""
    with zipfile.ZipFile(jar) as archive:
        return {name: archive.read(name) for name in archive.namelist() if not name.endswith("/")}


def entries_at(name, path):
    """A file, or all files of a folder, under a name in the jar."""
    if not path.is_dir():
        return {name: path.read_bytes()}
    files = [file for file in path.rglob("*") if file.is_file()]
    return {(Path(name) / file.relative_to(path)).as_posix(): file.read_bytes() for file in files}


def write(jar, entries):
    """Writes sorted files, the manifest first as Java requires, all with the date SOURCE_DATE_EPOCH or 1980."""
    date = time.gmtime(max(int(os.environ.get("SOURCE_DATE_EPOCH", BEGINNING)), BEGINNING))[:6]
    unfinished = Path(f"{jar}.new")
    with zipfile.ZipFile(unfinished, "w") as archive:
        for name in sorted(entries, key=lambda name: (name != MANIFEST, name)):
            entry = zipfile.ZipInfo(name, date)
            entry.create_system, entry.external_attr = 3, 0o100644 << 16
            archive.writestr(entry, entries[name], zipfile.ZIP_DEFLATED)
    unfinished.replace(jar)


def pack(jar, *pieces):
    entries = {}
    for piece in pieces:
        name, equals, path = piece.partition("=")
        more = entries_at(name, Path(path)) if equals else entries_of(piece)
        for double in sorted(entries.keys() & more.keys()):
            raise Refused(f"{piece}: {double} is already in the jar")
        entries.update(more)
    write(jar, entries)


def shared_part(entries):
    """The files and manifest lines that have to be the same in all merged jars."""
    rest = {name: content for name, content in entries.items() if not name.startswith(OF_PLATFORMS)}
    lines = rest.get(MANIFEST, b"").splitlines()
    rest[MANIFEST] = b"\n".join(line for line in lines if not line.startswith(BUILDER))
    return rest


def version(entries):
    lines = entries.get(MANIFEST, b"").decode().splitlines()
    return next((line.split(": ")[1] for line in lines if line.startswith("Implementation-Version: ")), "none")


def merge(jar, first, *others):
    merged = entries_of(first)
    for other in others:
        more = entries_of(other)
        if version(more) != version(merged):
            raise Refused(f"{other} has version {version(more)}, {first} has {version(merged)}")
        ours, theirs = shared_part(merged), shared_part(more)
        differing = sorted(name for name in ours.keys() | theirs.keys() if ours.get(name) != theirs.get(name))
        if differing:
            raise Refused(f"{other} and {first} differ in more than the native libraries: {', '.join(differing)}")
        for name in sorted(name for name in more if name.startswith(OF_PLATFORMS)):
            if merged.setdefault(name, more[name]) != more[name]:
                raise Refused(f"{other} has a different {name} than the jars before it")
    write(jar, merged)


if __name__ == "__main__":
    try:
        {"pack": pack, "merge": merge}[sys.argv[1]](*sys.argv[2:])
    except (Refused, OSError, zipfile.BadZipFile) as problem:
        sys.exit(f"{Path(sys.argv[0]).name}: {problem}")
