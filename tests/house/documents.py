"""Runs the commands and the Java programs of the documents: usage documents.py ROOT BUILD, or documents.py --self-test.

Each fenced block of README.md and docs/*.md that is not marked as of another language is a command of the shell, or
Java, and has a comment on the line before it that says how to test it:

    <!-- run -->                  its lines are run by bash, in a scratch copy of the checkout with the release build
                                  and the devices of the demo; a Java program is kept as a file there and run as one
    <!-- options only: WHY -->    each command is asked for --help, which has to name the options that the line uses
    <!-- not run: WHY -->

Prints "ok NAME" or "not ok NAME" for each block that was run or asked, and what a failed one said in lines with "# ";
exit status 0 when all are ok.
"""

import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

from sources import listed_files

BLOCK = re.compile(r"(?:^<!-- (.*?) -->\n)?^```(\w*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
MAIN_CLASS = re.compile(r"^public class (\w+)", re.MULTILINE)
LANGUAGES = ("", "sh", "java")  # what is looked at; drawings are "text"
DEADLINE = 60  # seconds for a block


@dataclass
class Block:
    page: str
    line: int
    mark: str
    language: str
    text: str

    def __str__(self):
        return f"{self.page}:{self.line}: {self.text.strip().splitlines()[0].strip()}"


def blocks(page, text):
    for found in BLOCK.finditer(text):
        if found[2] in LANGUAGES:
            yield Block(page, text.count("\n", 0, found.start(3)) + 1, found[1] or "", found[2], found[3])


def wrong_mark(block):
    """Why the mark is invalid, or None."""
    if re.fullmatch(r"run|(not run|options only): \S.*", block.mark):
        return None
    return "the line before the block has to be <!-- run -->, <!-- options only: WHY --> or <!-- not run: WHY -->"


def execute(command, where, environment=None):
    """Runs a command; returns its output if it failed, or None."""
    try:
        done = subprocess.run(command, cwd=where, env={**os.environ, **(environment or {})}, timeout=DEADLINE,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    except subprocess.TimeoutExpired as late:
        return f"not done after {DEADLINE} s\n{(late.output or b'').decode(errors='replace')}"
    return f"exit status {done.returncode}\n{done.stdout.decode(errors='replace')}" if done.returncode else None


def run(block, copy):
    simulated = {
        "LD_LIBRARY_PATH": str(copy / "build/release/sim/lib"),
        "SIMBUS_SCENARIO": str(copy / "sim/scenarios/demo.json"),
        "XDG_CACHE_HOME": str(copy / "cache"),  # where the jar unpacks its library
    }
    if block.language != "java":
        return execute(["bash", "-euo", "pipefail", "-c", block.text], copy, simulated)
    name = MAIN_CLASS.search(block.text)
    if name is None:
        return "no public class in it"
    program = copy / f"{name[1]}.java"
    program.write_text(block.text)
    return execute(["java", "-cp", "build/release/orvex-usb-access.jar", program.name], copy, simulated)


def unknown_options(block, copy):
    """The options that the help texts of the commands do not name, or None."""
    for line in block.text.replace("\\\n", " ").splitlines():
        program, *words = shlex.split(line, comments=True)
        if not program.startswith("script/"):
            return f"not a script of this project: {program}"
        said = subprocess.run([program, "--help"], cwd=copy, capture_output=True, text=True, check=False)
        unknown = [word for word in words if word.startswith("--") and word not in re.findall(r"--[\w-]+", said.stdout)]
        if said.returncode != 0 or unknown:
            return f"{program} --help does not name {' '.join(unknown)}: {said.stdout}{said.stderr}"
    return None


def checked(block, copy):
    """What is wrong with a block, or None."""
    if wrong_mark(block):
        return wrong_mark(block)
    return run(block, copy) if block.mark == "run" else unknown_options(block, copy)


def make_copy(root, build, copy):
    """The checkout with a release build that the blocks may not write to."""
    for path in listed_files(root):
        (copy / path).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(root / path, copy / path)
    (copy / "build").mkdir()
    shutil.copytree(build, copy / "build/release", symlinks=True, ignore=shutil.ignore_patterns("CMakeFiles", "*.o", "*.a", "*.gcda"))


def main(root, build):
    pages = [Path("README.md"), *sorted(path.relative_to(root) for path in (root / "docs").glob("*.md"))]
    failed = False
    with tempfile.TemporaryDirectory() as scratch:
        copy = Path(scratch) / "checkout"
        make_copy(root, build, copy)
        found = [block for page in pages for block in blocks(page.as_posix(), (root / page).read_text())]
        for block in (block for block in found if not block.mark.startswith("not run: ")):
            wrong = checked(block, copy)
            print(f"{'not ok' if wrong else 'ok'} {block}", flush=True)
            if wrong:
                print("\n".join(f"# {line}" for line in wrong.rstrip().splitlines()), flush=True)
                failed = True
    return 1 if failed else 0


PAGE = """
<!-- run -->
```
true
```
```
true
```
<!-- run -->
```sh
echo said
false
```
```text
a -> b
```
<!-- not run: -->
```
false
```
<!-- options only: takes an hour -->
```
script/known --yes 5  # --no
script/known --yes --no
```
<!-- run -->
```java
class Hidden { }
```
"""
WRONG = [None, "the line before", "exit status 1\nsaid", "the line before", "script/known --help does not name --no",
         "no public class"]


def self_test():
    """Exactly the mistakes in a small page have to be found."""
    with tempfile.TemporaryDirectory() as scratch:
        script = Path(scratch, "script/known")
        script.parent.mkdir()
        script.write_text("#!/bin/sh\necho 'usage: --yes N'\n")
        script.chmod(0o755)
        found = [checked(block, Path(scratch)) for block in blocks("page", PAGE)]
    good = len(found) == len(WRONG) and all(
        wrong is None if wanted is None else (wrong or "").startswith(wanted) for wrong, wanted in zip(found, WRONG))
    print("ok" if good else f"found {found}")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(self_test() if sys.argv[1] == "--self-test" else main(Path(sys.argv[1]), Path(sys.argv[2])))
