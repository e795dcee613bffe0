"""What the tests of foreign programs share. They run inside of `simbus run`, whose devices the program finds."""

import contextlib
import json
import os
import shutil
import socket
import subprocess
import sys
import time
from importlib.util import find_spec
from pathlib import Path

DEADLINE = 20  # seconds, for whatever is awaited
DEVICES = Path(__file__).resolve().parents[2] / "sim" / "python"
os.environ["PATH"] += ":/usr/sbin"  # where some programs are that any user may start
# Set where the work of the program is "recorded" or "replayed" (tests/record). The bus of a replay has only the devices
# that were used, under other names, and none of them is a program of its own.
RUN = os.environ.get("FOREIGN_RUN")


def end_of_work():
    """Ends a test that is recorded or replayed: what follows changes the bus, mostly with an unplug."""
    if RUN:
        sys.exit()


def need(program, package):
    """Ends the test as one that is not run unless this program, Python module or file of the package is there."""
    there = os.path.exists(program) if program.startswith("/") else shutil.which(program) or find_spec(program)
    if not there:
        print(f"not run here: {program} is missing; it is in the package {package}")
        sys.exit(77)


def control(op, **more):
    """Sends a request to the bus; returns the response."""
    with socket.socket(socket.AF_UNIX) as connection, connection.makefile("rw") as lines:
        connection.connect(os.environ.get("SIMBUS_BUS") or os.environ["SIMBUS_SOCKET"])
        lines.write(json.dumps({"op": op, **more}) + "\n")
        lines.flush()
        response = json.loads(lines.readline())
    assert response["ok"], response
    return response


def until(happened):
    """Waits until the function returns something true, which it returns."""
    end = time.monotonic() + DEADLINE
    while time.monotonic() < end:
        if result := happened():
            return result
        time.sleep(0.01)
    raise AssertionError("it has not happened in time")


def bus_entry(device):
    """What the bus tells about a device; nothing when there is none of this id."""
    return next((each for each in control("devices")["devices"] if each["id"] == device), {})


@contextlib.contextmanager
def device_program(script, device):
    """Runs a script of the devices in Python; its device, of this id, is plugged in at the beginning of the block."""
    if RUN == "replayed":
        yield None
        return
    with subprocess.Popen([sys.executable, "-B", DEVICES / script]) as program:
        try:
            until(lambda: bus_entry(device).get("plugged"))
            yield program
        finally:
            program.kill()


def unplug_during_transfer(device, address):
    """Unplugs the device as soon as a transfer waits at that endpoint."""
    until(lambda: control("pending", device=device, address=address)["count"])
    control("unplug", device=device)


def output_of(*command, status=0, deadline=DEADLINE, folder=None):
    """Runs a program to its end; returns what it has printed, also as errors. Any status is good where it is None."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                          stdin=subprocess.DEVNULL, timeout=deadline, cwd=folder, check=False)
    assert status in (done.returncode, None), f"{command}: exit status {done.returncode}\n{done.stdout}"
    return done.stdout


@contextlib.contextmanager
def running(*command, **how):
    """Starts a program, whose output is to be read from it; it has to end by itself in the block or soon after."""
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          **how) as process:
        try:
            yield process
            process.wait(DEADLINE)
        finally:
            process.kill()


def has(text, *parts):
    for part in parts:
        assert part in text, f"{part!r} is not in this:\n{text}"


def fails_with(code, call, *arguments, **more):
    """Makes a call that has to fail with this error of the system."""
    try:
        call(*arguments, **more)
    except OSError as error:
        assert error.errno == code, error
    else:
        raise AssertionError("the call has succeeded")
