"""Checks the requirements of a Maven repository, as far as possible without one: usage publishing.py ROOT BUILD.

Only the licence is missing, deliberately: the owner has to choose it. This check fails when the pom gets
one, so that README and NOTICE are changed with it.
"""

import hashlib
import json
import re
import sys
import xml.etree.ElementTree as ElementTree
import zipfile
from pathlib import Path

BASE = "orvex-usb-access"
WANTED = ["modelVersion", "groupId", "artifactId", "version", "packaging", "name", "description", "url",
          "developers/developer/name", "developers/developer/email", "developers/developer/organization",
          "scm/connection", "scm/developerConnection", "scm/url"]
CONFIGURATION = "META-INF/native-image/com.talvane.orvex/orvex-usb-access/"
NATIVE_CLASS = "com.talvane.orvex.comm.ORVEXCommUSBAccess"
LICENCE_IDS = {"LGPL-2.1-or-later", "BSD-3-Clause", "Apache-2.0", "MIT"}


def maven_path(name):
    return "/".join(f"{{*}}{part}" for part in name.split("/"))


def pom_problems(text):
    pom = ElementTree.fromstring(text)
    for name in WANTED:
        if not (pom.findtext(maven_path(name)) or "").strip():
            yield f"the pom has no {name}"
    if "@" in re.sub(r"\S+@usb-access-link\.example\.org", "", text):
        yield "the pom has a variable that was not replaced"
    if pom.findtext("{*}version", "").endswith("SNAPSHOT"):
        yield "a release is no snapshot"
    if pom.find("{*}repositories") is not None or pom.find("{*}distributionManagement") is not None:
        yield "the pom sends its users to a repository of its own"
    if pom.find("{*}licenses") is not None:
        yield "the pom names a licence: README, NOTICE, the Debian copyright and the bills have to name it, too"
    for dependency in pom.iterfind("{*}dependencies/{*}dependency"):
        if not re.fullmatch(r"[\w.]+", dependency.findtext("{*}version", "")):
            yield "a dependency has no fixed version"


def jar_problems(build):
    names = {kind: zipfile.ZipFile(build / f"{BASE}{kind}.jar").namelist() for kind in ("", "-sources", "-javadoc")}
    sources = {name.removesuffix(".java") for name in names["-sources"] if name.endswith(".java")}
    classes = {re.sub(r"(\$.*)?\.class$", "", name) for name in names[""] if name.endswith(".class")}
    for name in sorted(classes - sources):
        yield f"{name} is not in the jar with the sources"
    if "index.html" not in names["-javadoc"]:
        yield "the jar with the documentation has no index.html"


def listed(component):
    """The form of a component of a bill."""
    for licence in component["licenses"]:
        if licence["license"].get("id") not in LICENCE_IDS:
            yield f"{component['name']}: no known licence: {licence}"
    if not re.fullmatch(r"pkg:\w+/[\w./-]+@[\w.%+~-]+(\?arch=source)?", component["purl"]):
        yield f"{component['name']}: this is no package URL: {component['purl']}"


def bill_problems(bill, parts):
    if (bill["bomFormat"], bill["specVersion"]) != ("CycloneDX", "1.5"):
        yield "this is no CycloneDX 1.5"
    components = bill["components"]
    for component in components:
        yield from listed(component)
    names = {component["name"] for component in components}
    if names != parts:
        yield f"the bill has {sorted(names)} where {sorted(parts)} are published"
    subject, = bill["dependencies"]
    if subject != {"ref": bill["metadata"]["component"]["bom-ref"], "dependsOn": [each["bom-ref"] for each in components]}:
        yield f"the bill's dependencies are not its parts: {subject}"


def jar_bill_problems(jar):
    """The bill names exactly the libraries in the jar, with their hashes."""
    bills = [name for name in jar.namelist() if name.startswith("META-INF/sbom/")]
    if len(bills) != 1:
        yield f"one bill of materials is wanted: {bills}"
        return
    bill = json.loads(jar.read(bills[0]))
    folders = {name.rpartition("/")[0] for name in jar.namelist() if name.endswith("libraries.properties")}
    yield from bill_problems(bill, {"picocli", "libusb-1.0", "hidapi"} if folders else {"picocli"})
    for component in bill["components"]:
        for digest in component.get("hashes", []):
            content = jar.read(f"{min(folders)}/{component['description']}")
            if digest["content"] != hashlib.sha256(content).hexdigest():
                yield f"{component['description']} has another hash than the bill says"


def native_image_problems(root, jar):
    """A native image contains the libraries of the jar and the class that the native code looks up."""
    resources = json.loads(jar.read(f"{CONFIGURATION}resource-config.json"))["resources"]["includes"]
    patterns = [re.compile(include["pattern"]) for include in resources]
    for name in jar.namelist():
        if name.startswith("META-INF/native/") and not any(pattern.fullmatch(name) for pattern in patterns):
            yield f"{name} would not be in a native image"
    known = {entry["name"] for entry in json.loads(jar.read(f"{CONFIGURATION}jni-config.json"))}
    sources = "".join(file.read_text() for file in (root / "src").rglob("*.cpp"))
    looked_up = {name.replace("/", ".") for name in re.findall(r'FindClass\("([^"]+)"', sources)}
    for name in sorted(({NATIVE_CLASS} | looked_up) ^ known):
        yield f"{name} is not what a native image is told of: {sorted(known)}"
    if re.search(r"Get(Static)?(MethodID|FieldID)\(", sources):
        yield "the native code looks up members, and a native image is not told of them"


def problems(root, build):
    yield from pom_problems((build / f"{BASE}.pom").read_text())
    yield from jar_problems(build)
    with zipfile.ZipFile(build / f"{BASE}.jar") as jar:
        yield from jar_bill_problems(jar)
        yield from native_image_problems(root, jar)
    simulator = build / "packaging/orvex-usb-simulator.cdx.json"
    yield from bill_problems(json.loads(simulator.read_text()), {"json"})


if __name__ == "__main__":
    found = list(problems(Path(sys.argv[1]), Path(sys.argv[2])))
    print("\n".join(found) or "ok; the licence is for the owner to choose")
    sys.exit(1 if found else 0)
