"""Checks the models of the library's waiting exhaustively: usage models.py FOLDER_OF_MODELS.

Each model has to hold, with every statement of it reached, and each of the mistakes that can be seeded in it (by the
definitions that its first comment lists in capital letters after "Seeded mistakes") has to be found.
Exit status 77, with the reason, when spin is not installed.
"""

import re
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

DEEPEST = 500_000  # steps of one run; the search says when that is too few
# Without partial-order reduction, which is unsound together with the check for deadlocks.
CHECKER_FLAGS = ["-O1", "-w", "-DSAFETY", "-DNOREDUCE"]


def seeded_mistakes(model):
    listed = re.search(r"Seeded mistakes:(.*?)\*/", model.read_text(), re.DOTALL).group(1)
    return re.findall(r"\b[A-Z]+(?:_[A-Z]+)+\b", listed)


def search(model, mistake):
    """The output of the search through all states of a model."""
    seeded = [f"-D{mistake}"] if mistake else []
    with tempfile.TemporaryDirectory() as scratch:
        def run(*command):
            done = subprocess.run(command, cwd=scratch, capture_output=True, text=True, check=False)
            if done.returncode != 0:
                raise RuntimeError(f"{' '.join(command)}: {done.stdout}{done.stderr}")
            return done.stdout

        run("spin", *seeded, "-a", str(model))
        run("cc", *CHECKER_FLAGS, "-o", "pan", "pan.c")
        return run("./pan", f"-m{DEEPEST}", "-w22")


def judge(model, mistake, said):
    """A readable line, and whether the model holds."""
    name = f"{model.stem} with {mistake}" if mistake else model.stem
    errors = int(re.search(r"errors: (\d+)", said).group(1))
    states = int(re.search(r"(\d+) states, stored", said).group(1))
    if mistake:
        return f"{name}: {'found' if errors else 'NOT FOUND'}", errors > 0
    unreached = [line for line in re.findall(r"^\t.*state \d+, (.*)$", said, re.MULTILINE) if line != '"-end-"']
    cut = "max search depth too small" in said or "Search not completed" in said
    well = errors == 0 and not unreached and not cut
    trouble = "" if well else f"; unreached: {', '.join(unreached) or 'nothing'}\n{said}"
    return f"{name}: {states} states, {errors} errors{trouble}", well


def main(folder):
    if shutil.which("spin") is None:
        print("spin is not installed")
        return 77
    jobs = [(model, mistake) for model in sorted(folder.glob("*.pml")) for mistake in ["", *seeded_mistakes(model)]]
    with ThreadPoolExecutor(2) as pool:
        answers = list(pool.map(lambda job: judge(*job, search(*job)), jobs))
    print("\n".join(line for line, _ in answers))
    return 0 if answers and all(well for _, well in answers) else 1


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1]).resolve()))
