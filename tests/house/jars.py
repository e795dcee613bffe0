"""Checks the published jars: usage jars.py ROOT BUILD.

A second build makes jars with the same bytes; the version is the same in every place; the jars of two
platforms can be merged, and those that do not belong together cannot; the jar contains copies of libusb and hidapi.
"""

import os
import re
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ElementTree
import zipfile
from pathlib import Path

JARS = [f"orvex-usb-access{kind}.jar" for kind in ("", "-sources", "-javadoc")]
POM = "META-INF/maven/com.talvane.orvex/orvex-usb-access/pom.xml"
MANIFEST = "META-INF/MANIFEST.MF"
LOADER = "java/src/com/talvane/orvex/comm/LibraryInJar.java"
LIBRARY = "META-INF/native/{}/libUSBAccessLink_3_47.{}"


def built(build):
    subprocess.run(["cmake", "--build", build, "--target", "orvex_jars"], check=True, stdout=subprocess.DEVNULL)
    return {name: (build / name).read_bytes() for name in JARS}


def second_build_differs(build):
    before = built(build)
    for made in [*(build / name for name in JARS), build / "java/orvex-classes.jar"]:
        made.unlink()
    for made in (build / "java/CMakeFiles/orvex_classes.dir").rglob("*.class"):
        made.unlink()
    (build / "java/CMakeFiles/orvex_classes.dir/java_compiled_orvex_classes").unlink()
    after = built(build)
    return [f"{name}: other bytes in a second build" for name in JARS if before[name] != after[name]]


class Packed:
    """Jars that script/lib/jars.py writes into a folder."""

    def __init__(self, root, folder):
        self.tool, self.folder = root / "script/lib/jars.py", folder

    def run(self, *words, **environment):
        command = [sys.executable, "-B", self.tool, *words]
        return subprocess.run(command, capture_output=True, text=True, check=False, env={**os.environ, **environment})

    def repacked(self, zone, jar, backwards):
        """The same jar again, from files in another folder, with other dates and in another order."""
        files, pieces = self.folder / zone, []
        with zipfile.ZipFile(jar) as archive:
            for age, entry in enumerate(sorted(archive.namelist(), reverse=backwards)):
                file = Path(archive.extract(entry, files))
                os.utime(file, (time.time() - age * 1000,) * 2)
                pieces.append(f"{entry}={file}")
        again = self.folder / f"{zone}.jar"
        self.run("pack", again, *pieces, TZ=zone, SOURCE_DATE_EPOCH="1000000000")
        return again.read_bytes()

    def changed(self, name, jar, change):
        """A copy of the jar in which change has changed the entries."""
        with zipfile.ZipFile(jar) as archive:
            entries = {entry: archive.read(entry) for entry in archive.namelist()}
        change(entries)
        with zipfile.ZipFile(self.folder / name, "w") as archive:
            for entry, content in entries.items():
                archive.writestr(entry, content)
        return self.folder / name


def order_shows(packed, jar):
    same = packed.repacked("UTC-9", jar, False) == packed.repacked("UTC5", jar, True)
    return [] if same else [f"{jar.name}: the bytes tell when, where or in what order it was packed"]


def versions(root, build):
    """The version in each place that contains it."""
    text = (build / "orvex-usb-access.pom").read_text()
    with zipfile.ZipFile(build / JARS[0]) as jar:
        if jar.read(POM).decode() != text:
            return {"pom in the jar": "has a different pom than the one beside it"}
        manifest = dict(line.split(": ", 1) for line in jar.read(MANIFEST).decode().splitlines() if ": " in line)
    cmake = (root / "CMakeLists.txt").read_text().partition("project(USBAccessLink VERSION ")[2].split()[0]
    loader = (root / LOADER).read_text().partition('VERSION = "')[2].partition('"')[0]
    pom = ElementTree.fromstring(text).findtext("{*}version")
    return {"project": cmake, "pom": pom, "manifest": manifest["Implementation-Version"], "loader": loader}


def versions_differ(root, build):
    told = versions(root, build)
    return [] if len(set(told.values())) == 1 else [f"versions differ: {told}"]


def merge_problems(packed, jar):
    """Merges the jar with one of a Mac, and then with jars that do not belong to it."""
    natives = {name for name in zipfile.ZipFile(jar).namelist() if name.startswith("META-INF/native/linux")}
    linux = next(name for name in natives if "libUSBAccessLink" in name)
    mac = LIBRARY.format("macos-aarch64", "dylib")

    def of_mac(entries):
        entries[mac] = b"dylib, " + entries[linux][:9]
        for name in natives:
            del entries[name]
        entries[MANIFEST] = entries[MANIFEST].replace(b"Created-By: ", b"Created-By: another ")

    def put(name, old, new):
        return lambda entries: entries.update({name: entries[name].replace(old, new)})

    merged, turned = packed.folder / "merged.jar", packed.folder / "turned.jar"
    other = packed.changed("mac.jar", jar, of_mac)
    problems = [done.stderr for done in (packed.run("merge", merged, jar, other),) if done.returncode != 0]
    with zipfile.ZipFile(merged) as archive:
        names = set(archive.namelist())
    problems += [f"not in the merged jar: {name}" for name in sorted({*natives, mac} - names)]
    packed.run("merge", turned, jar, merged)
    if turned.read_bytes() != merged.read_bytes():
        problems.append("merged again, the jar has other bytes")
    for name, change, reason in (
        ("version.jar", put(MANIFEST, b"Version: 3.47", b"Version: 3.48"), "has version 3.48"),
        ("class.jar", put("module-info.class", b"talvane", b"talvaen"), "differ in more than the native libraries"),
        ("library.jar", put(linux, b"usbInitialize", b"usbInitialise"), "has a different " + linux),
    ):
        refused = packed.run("merge", packed.folder / "never.jar", jar, packed.changed(name, jar, change))
        if refused.returncode == 0 or reason not in refused.stderr:
            problems.append(f"merged with {name}, it should say '{reason}' and says '{refused.stderr}'")
    return problems


BUNDLED = ["libraries.properties", "libusb-1.0.so.0", "libhidapi-hidraw.so.0", "licences/LGPL-2.1",
           "licences/libusb-1.0-0.copyright", "licences/libhidapi-hidraw0.copyright"]


def bundled_problems(jar):
    """The jar contains third-party libraries with their licences, and one file with their versions."""
    with zipfile.ZipFile(jar) as archive:
        names = archive.namelist()
        folder = next(name for name in names if "libUSBAccessLink" in name).rpartition("/")[0]
        problems = [f"not in the jar: {name}" for name in BUNDLED if f"{folder}/{name}" not in names]
        text = "" if problems else archive.read(f"{folder}/{BUNDLED[0]}").decode()
    for library, source in (("libusb-1.0.so.0", "libusb-1.0"), ("libhidapi-hidraw.so.0", "hidapi")):
        version = re.search(rf"^{re.escape(library)}={source} (\d+:)?\d+\.\d+\.\d+-\d", text, re.MULTILINE)
        if not problems and not version:
            problems.append(f"{BUNDLED[0]} has no version of {source}: {text}")
    return problems


def complaints(root, build):
    yield from second_build_differs(build)
    yield from versions_differ(root, build)
    yield from bundled_problems(build / JARS[0])
    with tempfile.TemporaryDirectory() as folder:
        packed = Packed(root, Path(folder))
        yield from order_shows(packed, build / JARS[0])
        yield from merge_problems(packed, build / JARS[0])


if __name__ == "__main__":
    found = list(complaints(Path(sys.argv[1]), Path(sys.argv[2])))
    print("\n".join(found) or "ok")
    sys.exit(1 if found else 0)
