"""Checks how scripts behave on machines that lack something: usage machines.py ROOT.

Copies of script/bootstrap, script/fresh and script/arm64 run with fakes of javac and of Debian's tools first in PATH,
which record their calls: the scripts have to print one line with the problem and its fix, and must not install
anything.
"""

import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

PROGRAMS = {
    "javac": 'echo "javac ${FAKE_JDK-17.0.1}"',
    "dpkg-query": 'case " ${FAKE_MISSING-} " in *" $4 "*) exit 1 ;; esac; printf installed',
    "apt-get": 'case "$*" in *"${FAKE_SOURCES-nothing}"*) echo $FAKE_SAID; exit ;; esac; echo "apt-get $*" >>"$FAKE_CALLS"; '
               'case "$*" in *"${FAKE_BAD-nothing}"*) echo $FAKE_SAID; exit 9 ;; esac',
    "apt-cache": 'case " ${FAKE_UNKNOWN-} " in *" $3 "*) exit 100 ;; esac',
    "dpkg": "echo ${FAKE_PROCESSOR-amd64}",
    "sudo": "exit 1",
}


class Machine:
    def __init__(self, root, folder):
        self.folder, self.calls = folder, folder / "calls"
        libraries = [str(path.relative_to(root)) for path in root.glob("script/lib/*.sh")]
        for name in ("script/bootstrap", "script/fresh", "script/arm64", "script/test", *libraries):
            (folder / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(root / name, folder / name)
        (folder / "bin").mkdir()
        for name, text in PROGRAMS.items():
            (folder / "bin" / name).write_text(f"#!/bin/sh\n{text}\n")
            (folder / "bin" / name).chmod(0o755)
        folder.chmod(0o755)

    def run(self, script, *arguments, user=(), **fakes):
        """Exit status, standard error, and the calls of apt-get."""
        self.calls.write_text("")
        environment = {"PATH": f"{self.folder}/bin:/usr/bin:/bin", "FAKE_CALLS": str(self.calls)}
        environment |= {f"FAKE_{name}": text for name, text in fakes.items()}
        command = [*user, self.folder / "script" / script, *arguments]
        done = subprocess.run(command, env=environment, capture_output=True, text=True, check=False)
        return done.returncode, done.stderr, self.calls.read_text()


def complaints(machine):
    def expect(what, outcome, status, said, installed=False):
        code, error, calls = outcome
        if code != status or said not in error or error.count("\n") != (1 if status else 0):
            yield f"{what}: exit status {code}, said {error!r}"
        if installed != any("install" in call and "download" not in call for call in calls.splitlines()):
            yield f"{what}: called {calls!r}"

    def build_set(**how):
        return machine.run("bootstrap", "build", **how)

    yield from expect("nothing missing", build_set(), 0, "")
    yield from expect("something missing", build_set(MISSING="cmake"), 0, "", installed=True)
    yield from expect("an emulator for the build", build_set(MISSING="qemu-system-x86 clang lintian"), 0, "")
    no_windows = machine.run("bootstrap", "test", MISSING="openjdk-17-jre xvfb")
    yield from expect("a JDK without windows", no_windows, 0, "", installed=True)
    wanted = "--no-install-recommends openjdk-17-jre xvfb"
    if wanted not in no_windows[2]:
        yield f"a JDK without windows: called {no_windows[2]!r}"
    part = machine.folder / "lib/libawt_xawt.so"
    part.parent.mkdir()
    part.touch()
    yield from expect("a JDK with windows", machine.run("bootstrap", "test", MISSING="openjdk-17-jre"), 0, "")
    part.unlink()
    yield from expect("an old JDK", build_set(JDK="11.0.2", MISSING="cmake"), 1, "is JDK 11, and 17 or newer is")
    yield from expect("a very old JDK", build_set(JDK="1.8.0_41"), 1, "is JDK 8, and")
    no_network = build_set(MISSING="cmake", UNKNOWN="cmake", BAD="update", SAID="Err:1 Could not resolve 'a.mirror'")
    yield from expect("no network", no_network, 1, "cannot be reached")
    yield from expect("an unknown release", build_set(MISSING="cmake g++", UNKNOWN="g++"), 1, "does not have g++:")
    yield from expect("a failed download", build_set(MISSING="cmake", BAD="download-only"), 1, "cannot be fetched")
    yield from expect("a wrong suite", machine.run("fresh", "sid"), 1, "unknown suite: sid; known are bookworm")
    yield from expect("another processor", machine.run("fresh", "trixie", "riscv64"), 1, "only amd64 works here")
    yield from expect("arm64 on arm64", machine.run("arm64", PROCESSOR="arm64"), 1, "this machine is arm64 itself")
    if os.geteuid() == 0:
        (machine.folder / "bin/unshare").write_text("#!/bin/sh\nexit 1\n")
        (machine.folder / "bin/unshare").chmod(0o755)
        yield from expect("no namespaces", machine.run("fresh", "trixie"), 3, "namespaces are not allowed here")
        compiler = "g++-aarch64-linux-gnu"
        no_compiler = machine.run("arm64", MISSING=compiler, UNKNOWN=compiler)
        yield from expect("no cross compiler", no_compiler, 3, f"does not have {compiler}:")
        yield from expect("no archive for arm64", machine.run("arm64"), 3, "apt's sources have no archive of Debian")
        no_network = machine.run("arm64", SOURCES="indextargets", SAID="http://a.mirror/debian main bookworm", BAD="update")
        yield from expect("no network for arm64", no_network, 3, "cannot be downloaded from")
        nobody = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
        yield from expect("no root", build_set(user=nobody, MISSING="cmake"), 1, "as root: apt-get install cmake")
        yield from expect("no root for fresh", machine.run("fresh", "trixie", user=nobody), 3, "sudo script/fresh trixie")
        yield from expect("no root for arm64", machine.run("arm64", user=nobody), 3, "sudo script/arm64")


def suite_complaints(machine):
    """What script/test has the floors run when it is given a choice of suites; python3 only shows what it is given."""
    (machine.folder / "bin/python3").write_text('#!/bin/sh\nfor word; do printf "[%s]" "$word"; done >&2\n')
    (machine.folder / "bin/python3").chmod(0o755)
    for arguments, status, said in (
        ("--suites A", 0, "[--suites][A][--system-suites][A][build/test-results][java][system]"),
        ("--system-suites B", 0, "[--suites][][--system-suites][B][build/test-results][java][system][unit]"),
        ("--java --system --suites A --system-suites B", 0, "[--suites][A][--system-suites][B][build/test-results][java]"),
        ("--suites", 2, "--suites needs a regular expression"),
        ("--system-suites", 2, "--system-suites needs a regular expression"),
        ("--unit --suites A", 2, "--suites is for --java and --system only"),
        ("--java --system-suites B", 2, "--system-suites is for --system only"),
    ):
        code, error, _ = machine.run("test", *arguments.split())
        if code != status or said not in error:
            yield f"script/test {arguments}: exit status {code}, said {error!r}"


def ci_run(root, folder, fresh):
    """Exit status of .ci/run, and what it says at its end, where script/fresh runs this program."""
    for name in (".ci/run", "script/lib/common.sh"):
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(root / name, folder / name)
    for name, text in {"fresh": fresh, "test": "echo 10 passed, 0 failed, 1 skipped"}.items():
        (folder / "script" / name).write_text(f"#!/bin/sh\n{text}\n")
        (folder / "script" / name).chmod(0o755)
    done = subprocess.run([folder / ".ci/run"], capture_output=True, text=True, check=False)
    return done.returncode, re.split(r"total \(\d+ s\):\n", done.stdout)[-1].splitlines()


def ci_complaints(root, folder):
    passes = "echo 3 passed, 0 failed, 0 skipped; echo 4 passed, 0 failed, 0 skipped"
    fails = f"{passes}; echo FAILED java, release: A.b; echo; [ $1 = trixie ]"
    for what, fresh, wanted in (
        ("two minimal systems", passes, (0, ["14 passed, 0 failed, 0 skipped"])),
        ("a failure in one", fails, (1, ["14 passed, 0 failed, 0 skipped", *2 * ["FAILED java, release: A.b"]])),
        ("a machine without minimal systems", "exit 3", (0, ["10 passed, 0 failed, 1 skipped"])),
        ("a machine without the newer one", f"[ $1 = bookworm ] || exit 3; {passes}",
         (0, ["7 passed, 0 failed, 0 skipped"])),
    ):  # fmt: skip
        outcome = ci_run(root, folder, fresh)
        if outcome != wanted:
            yield f"CI on {what}: {outcome}"


def main(root):
    with tempfile.TemporaryDirectory() as scratch, tempfile.TemporaryDirectory() as checkout:
        machine = Machine(root, Path(scratch))
        found = [*complaints(machine), *suite_complaints(machine), *ci_complaints(root, Path(checkout))]
    print("\n".join(found) or "ok")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
