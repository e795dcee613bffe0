"""Runs checks and prints "ok NAME" or "not ok NAME" for each, followed by the failure in lines with "# ".

A check is a function; the first line of its text is its name. It fails by an exception.
"""

import os
import subprocess


class Wrong(Exception):
    """A check failed; the text says why."""


def expect(holds, said):
    if not holds:
        raise Wrong(said)


def output_of(*command, status=0, **environment):
    """The output of a command, of both streams; it has to end with this exit status."""
    done = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          stdin=subprocess.DEVNULL, env={**os.environ, **environment}, check=False)
    expect(done.returncode == status, f"{command}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


def passed(check, *arguments):
    name = check.__doc__.splitlines()[0].rstrip(".")
    try:
        check(*arguments)
    except (Wrong, OSError) as problem:
        said = "\n# ".join(str(problem).rstrip().splitlines())
        print(f"not ok {name}\n# {said}", flush=True)
        return False
    print(f"ok {name}", flush=True)
    return True


def exit_status(checks, *arguments):
    """Runs all checks, even after a failure; returns 0 if all are ok."""
    return 0 if all([passed(check, *arguments) for check in checks]) else 1
