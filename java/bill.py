"""Writes a bill of materials (CycloneDX 1.5): usage bill.py OUTPUT IDENTITY NAME PART...

IDENTITY is a JSON file with the project's version, summary, url and scm. Each PART is a component of NAME: a package
URL and its licence, PURL=SPDX, preceded by "optional:" if NAME works without it; or the folder of third-party libraries
that bundled.py has written. The same input gives the same bytes.
"""

import hashlib
import json
import sys
from pathlib import Path
from urllib.parse import quote, unquote

LICENCES = {"libusb-1.0": "LGPL-2.1-or-later", "hidapi": "BSD-3-Clause"}
UNDECLARED = {"name": "not declared"}


def component(purl, licence, **more):
    path, _, version = purl.partition("?")[0].rpartition("@")
    return {"type": "library", "bom-ref": purl, "name": path.rpartition("/")[2], "version": unquote(version),
            "licenses": [{"license": licence}], "purl": purl, **more}


def bundled(folder):
    """The libraries that libraries.properties lists, in lines "FILE=SOURCE VERSION"."""
    for line in (folder / "libraries.properties").read_text().splitlines():
        if not line.startswith("#"):
            file, _, source = line.partition("=")
            name, version = source.split()
            digest = hashlib.sha256((folder / file).read_bytes()).hexdigest()
            yield component(f"pkg:deb/debian/{name}@{quote(version)}?arch=source", {"id": LICENCES[name]},
                            description=file, hashes=[{"alg": "SHA-256", "content": digest}])


def components(part):
    if "=" not in part:
        return list(bundled(Path(part)))
    optional = part.startswith("optional:")
    purl, _, licence = part.removeprefix("optional:").rpartition("=")
    return [component(purl, {"id": licence}, scope="optional" if optional else "required")]


def bill(identity, subject, parts):
    used = [each for part in parts for each in components(part)]
    return {
        "bomFormat": "CycloneDX",
        "specVersion": "1.5",
        "version": 1,
        "metadata": {"component": component(
            subject, UNDECLARED, description=identity["summary"],
            externalReferences=[{"type": "website", "url": identity["url"]}, {"type": "vcs", "url": identity["scm"]}],
        )},
        "components": used,
        "dependencies": [{"ref": subject, "dependsOn": [each["bom-ref"] for each in used]}],
    }


if __name__ == "__main__":
    output, identity, subject, *parts = sys.argv[1:]
    written = bill(json.loads(Path(identity).read_text()), subject, parts)
    Path(output).write_text(json.dumps(written, indent=2) + "\n")
