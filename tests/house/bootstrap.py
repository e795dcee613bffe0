"""What script/bootstrap says and does on a machine that is not as it should be: usage bootstrap.py ROOT.

A copy of it runs with fakes of javac and of Debian's tools first in PATH, which tell what was called: one line says what
is wrong and how to mend it, and nothing has been installed by then.
"""

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

PROGRAMS = {
    "javac": 'echo "javac ${FAKE_JDK-17.0.1}"',
    "dpkg-query": 'case " ${FAKE_MISSING-} " in *" $4 "*) exit 1 ;; esac; printf installed',
    "apt-get": 'echo "apt-get $*" >>"$FAKE_CALLS"; case "$*" in *"${FAKE_BAD-nothing}"*) echo "${FAKE_SAID-}"; exit 100 ;; esac',
    "apt-cache": 'case " ${FAKE_UNKNOWN-} " in *" $3 "*) exit 100 ;; esac',
    "sudo": "exit 1",
}


class Machine:
    def __init__(self, root, folder):
        self.folder, self.calls = folder, folder / "calls"
        for name in ("script/bootstrap", "script/lib/common.sh"):
            (folder / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(root / name, folder / name)
        (folder / "bin").mkdir()
        for name, text in PROGRAMS.items():
            (folder / "bin" / name).write_text(f"#!/bin/sh\n{text}\n")
            (folder / "bin" / name).chmod(0o755)
        folder.chmod(0o755)

    def bootstrap(self, *sets, user=(), **fakes):
        """Exit status, what it said to standard error, and the calls of apt-get."""
        self.calls.write_text("")
        environment = {"PATH": f"{self.folder}/bin:/usr/bin:/bin", "FAKE_CALLS": str(self.calls)}
        environment |= {f"FAKE_{name}": text for name, text in fakes.items()}
        done = subprocess.run([*user, self.folder / "script/bootstrap", *sets], env=environment, capture_output=True,
                              text=True, check=False)
        return done.returncode, done.stderr, self.calls.read_text()


def complaints(machine):
    def expect(what, outcome, status, said, installed=False):
        code, error, calls = outcome
        if code != status or said not in error or error.count("\n") != (1 if status else 0):
            yield f"{what}: exit status {code}, said {error!r}"
        if installed != any("install" in call and "download" not in call for call in calls.splitlines()):
            yield f"{what}: called {calls!r}"

    run = machine.bootstrap
    yield from expect("nothing missing", run("build"), 0, "")
    yield from expect("something missing", run("build", MISSING="cmake"), 0, "", installed=True)
    yield from expect("an emulator for the build", run("build", MISSING="qemu-system-x86 clang lintian"), 0, "")
    yield from expect("an old JDK", run("build", JDK="11.0.2", MISSING="cmake"), 1, "is JDK 11, and 17 or newer is needed")
    yield from expect("a very old JDK", run("build", JDK="1.8.0_41"), 1, "is JDK 8, and")
    yield from expect("no network", run("build", MISSING="cmake", UNKNOWN="cmake", BAD="update",
                                        SAID="Err:1 Could not resolve 'a.mirror'"), 1, "cannot be reached")
    yield from expect("an unknown release", run("build", MISSING="cmake g++", UNKNOWN="g++"), 1, "does not have g++:")
    yield from expect("a failed download", run("build", MISSING="cmake", BAD="download-only"), 1, "cannot be fetched")
    if os.geteuid() == 0:
        nobody = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
        yield from expect("no root", run("build", user=nobody, MISSING="cmake"), 1, "as root: apt-get install cmake")


def main(root):
    with tempfile.TemporaryDirectory() as scratch:
        found = list(complaints(Machine(root, Path(scratch))))
    print("\n".join(found) or "ok")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
