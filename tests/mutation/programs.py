"""How script/mutate runs programs."""

import subprocess
import sys


def run(command, **options):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False, **options)


def demand(command):
    """The output of a command, without which nothing can go on."""
    done = run(command)
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(map(str, command))}\n{done.stdout[-3000:]}{done.stderr[-3000:]}")
    return done.stdout
