"""How much of src a build's tests have reached: usage coverage.py BUILD LEAST_LINES LEAST_BRANCHES (percent).

Prints "ok NAME" or "not ok NAME" for lines and for branches, and what was missed in lines that begin with "# ".
"""

import json
import subprocess
import sys

MOST_SHOWN = 40


def tell(name, counts, least):
    """The result for the times that each place (file:line) was run."""
    missed = [place for place, count in counts if count == 0]
    percent = 100 * (1 - len(missed) / len(counts)) if counts else 0
    print(f"{'ok' if percent >= least else 'not ok'} {name} of src")
    print(f"# {percent:.2f} % of {name}, {len(counts) - len(missed)} of {len(counts)}; {least} % wanted")
    for place in missed[-MOST_SHOWN:] if percent < least else []:
        print(f"# not reached: {place}")


def main(build, least_lines, least_branches):
    command = ["gcovr", "--root", ".", "--filter", "src/", "--exclude-throw-branches", "--exclude-unreachable-branches",
               "--json", "-", build]  # fmt: skip
    figures = json.loads(subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout)
    lines, branches = [], []
    # Some versions of gcovr list lines without code, too, with a mark.
    for file in figures["files"]:
        for line in (line for line in file["lines"] if not line.get("gcovr/noncode")):
            place = f"{file['file']}:{line['line_number']}"
            lines.append((place, line["count"]))
            branches += [(place, branch["count"]) for branch in line["branches"] if not branch["throw"]]
    tell("lines", lines, float(least_lines))
    tell("branches", branches, float(least_branches))


if __name__ == "__main__":
    main(*sys.argv[1:])
