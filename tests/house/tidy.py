"""Lints src and sim with the compile commands of a build: usage tidy.py ROOT BUILD.

Sources of a target are linted together, joined to one file, so that what they include is read and checked once. Clean
sources are linted again only if one of them, a file that they include, a compile command or the rules have changed.
Exit status 77, with the reason, if tools.py does not find clang-tidy.
"""

import hashlib
import json
import os
import re
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from itertools import groupby
from pathlib import Path

import tools

MOST_SOURCES = 11  # in one file: more leave a processor without work at the end


def target_of(entry):
    """The folder of the object files of the target, and the language."""
    return entry["command"].split(".dir/")[0].split()[-1], Path(entry["file"]).suffix


def words_of(entry):
    """A compile command without its input and output, which come last."""
    words = shlex.split(entry["command"])
    return words[:words.index("-o")]


def entries_of(commands):
    """A compile command for each source: some builds compile a file that includes several."""
    for entry in commands:
        sources = [entry["file"]]
        if "/Unity/" in entry["file"]:
            sources = re.findall(r'#include "(.*)"', Path(entry["file"]).read_text())
        yield from ({**entry, "file": source} for source in sources)


def included_files(entry):
    """The source of a compile command and what it includes, without the system's headers."""
    listing = subprocess.run([*words_of(entry), "-MM", entry["file"]], cwd=entry["directory"],
                             capture_output=True, text=True, check=True)  # fmt: skip
    names = listing.stdout.replace("\\\n", " ").split(":", 1)[1].split()
    return sorted(Path(entry["directory"], name) for name in names)


def fingerprint(entries, rules):
    digest = hashlib.sha256(rules)
    for entry in entries:
        digest.update(entry["command"].encode())
        for file in included_files(entry):
            digest.update(file.read_bytes())
    return digest.hexdigest()


class Joined:
    """A file with the text of several sources, which keep their lines."""

    def __init__(self, file, sources):
        self.file = file
        self.places = []  # of each line: its source and number there
        text = ""
        for source in sources:
            lines = Path(source).read_text().splitlines()
            self.places += [f"{source}:{number}" for number in range(1, len(lines) + 1)]
            text += "\n".join(lines) + "\n"
        file.write_text(text)

    def with_places_of_sources(self, findings):
        return re.sub(rf"{re.escape(str(self.file))}:(\d+)", lambda at: self.places[int(at[1]) - 1], findings)


def lint(tidy, entries, build, rules):
    """The findings of clang-tidy in some sources of one target; empty if they are clean."""
    clean = build / "tidy-clean" / fingerprint(entries, rules)
    if clean.exists():
        return ""
    sources = [entry["file"] for entry in entries]
    joined = Joined(clean.with_suffix(Path(sources[0]).suffix), sources)
    folders = sorted({f"-iquote{Path(source).parent}" for source in sources})
    command = [tidy, "--quiet", joined.file, "--", *words_of(entries[0])[1:], *folders]
    done = subprocess.run(command, cwd=entries[0]["directory"], capture_output=True, text=True, check=False)
    joined.file.unlink()
    if done.returncode == 0:
        clean.touch()
        return ""
    return joined.with_places_of_sources(done.stdout + done.stderr)


def groups_of(commands, tops):
    """At most MOST_SOURCES compile commands of one target at a time."""
    # One for each source: a source that several targets compile would say the same again.
    entries = {entry["file"]: entry for entry in entries_of(commands) if entry["file"].startswith(tops)}
    for _, group in groupby(sorted(entries.values(), key=target_of), key=target_of):
        group = list(group)
        yield from (group[at:at + MOST_SOURCES] for at in range(0, len(group), MOST_SOURCES))


def main(root, build):
    tidy = tools.find("clang-tidy")
    if tidy is None:
        return 77
    (build / "tidy-clean").mkdir(exist_ok=True)
    version = subprocess.run([tidy, "--version"], capture_output=True, check=True).stdout
    rules = version + (root / ".clang-tidy").read_bytes()
    commands = json.loads((build / "compile_commands.json").read_text())
    groups = sorted(groups_of(commands, (f"{root}/src/", f"{root}/sim/")), key=len, reverse=True)
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        findings = [text for text in pool.map(lambda group: lint(tidy, group, build, rules), groups) if text]
    print("".join(findings) + f"{sum(map(len, groups))} sources, {len(findings)} groups of them with findings")
    return 1 if findings or not groups else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]), Path(sys.argv[2])))
