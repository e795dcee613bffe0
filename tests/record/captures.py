"""What the tests of recordings share. TOOLS is the folder of list_capture, SIM that of simbus-record and the others."""

import collections
import itertools
import json
import os
import shutil
import subprocess
import sys
from pathlib import Path

DEADLINE = 60  # seconds, for a program
MISSING = 77  # the exit status of a test that is not run, because something is missing
TOOLS = Path(os.environ["RECORD_TOOLS"])
SIM = Path(os.environ["RECORD_SIM"])

Packet = collections.namedtuple("Packet", "number time event kind endpoint device bus status length setup data")


def need_tshark():
    """Ends the test as one that is not run where tshark is missing."""
    if not shutil.which("tshark"):
        print("not run here: tshark is missing; it is in the package tshark")
        sys.exit(MISSING)


def run(*command, status=0, **how):
    """Runs a program to its end; returns its output and its errors. Where it is a test that is not run, nor is this one."""
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, errors="replace",
                          stdin=subprocess.DEVNULL, timeout=DEADLINE, check=False, **how)
    if done.returncode == MISSING != status:
        print(done.stdout)
        sys.exit(MISSING)
    assert done.returncode == status, f"{command}: exit status {done.returncode}\n{done.stdout}{done.stderr}"
    return done.stdout, done.stderr


def record(file, *command, status=0, under=(), options=(), **how):
    """Runs a program under the recorder, and that under others; returns its output and its errors, with what they say."""
    return run(*under, SIM / "simbus-record", "--to", file, *options, "--", *command, status=status, **how)


def packets_of(file):
    """The packets of a capture as this project reads them, which must find nothing wrong with it."""
    listing = run(TOOLS / "list_capture", file)[0]
    return [Packet(int(number), int(time), event, int(kind), int(endpoint, 0), int(device), int(bus), int(status), int(length),
                   setup[1:], data[1:])
            for number, time, event, kind, endpoint, device, bus, status, length, setup, data
            in map(str.split, listing.splitlines())]


FIELDS = ("frame.number", "frame.time_epoch", "usb.urb_type", "usb.transfer_type", "usb.endpoint_address",
          "usb.device_address", "usb.bus_id", "usb.urb_status", "usb.urb_len", "usb.data_len", "usb.urb_id")


def seen_by_tshark(file):
    """The same packets as tshark sees them."""
    columns = [word for field in FIELDS for word in ("-e", field)]
    rows = [line.split("\t") for line in run("tshark", "-n", "-r", file, "-T", "fields", *columns)[0].splitlines()]
    frames = json.loads(run("tshark", "-n", "-r", file, "-T", "jsonraw", "-j", "frame")[0])
    header = 2 * 64  # of usbmon, in hexadecimal digits; the setup bytes are at 40 to 47
    for row, frame in zip(rows, frames, strict=True):
        number, time, event, kind, endpoint, device, bus, status, length, count = (field.strip("'") for field in row[:-1])
        raw = frame["_source"]["layers"]["frame_raw"][0]
        data = raw[len(raw) - 2 * int(count):] if int(count) else ""
        assert len(raw) == header + len(data), row
        is_request = event == "S" and int(kind, 0) == 2
        yield Packet(int(number), int(time.replace(".", "")), event, int(kind, 0), int(endpoint, 0), int(device), int(bus),
                     int(status), int(length), raw[80:96] if is_request else "", data), row[-1]


def tshark_agrees(file):
    """Compares what tshark sees with what this project reads; returns the packets. Each end has its beginning."""
    ours, theirs = packets_of(file), list(seen_by_tshark(file))
    for mine, (other, _) in zip(ours, theirs, strict=True):
        assert mine == other, f"{file}:\n{mine}\n{other}"
    begun = set()
    for packet, urb in theirs:
        assert (packet.event == "S") == (urb not in begun), f"{file}: {packet}"
        begun ^= {urb}
    return ours


def by_device(packets):
    """The packets of each device, in the order of the addresses, which differ from one plug to the next, and of the times:
    the packets of each process are together in a recording."""
    devices = collections.defaultdict(list)
    for packet in sorted(packets, key=lambda packet: packet.time):
        devices[packet.bus, packet.device].append(packet._replace(number=0, time=0, device=0))
    return [devices[place] for place in sorted(devices)]


def begun(packets):
    return [packet for packet in packets if packet.event == "S"]


def ended(packets, endpoint):
    return [packet for packet in packets if packet.event != "S" and packet.endpoint == endpoint]


def begun_before_reads(packets):
    """How many requests and writes had begun before the end of each read, by endpoint."""
    counts, begun_already = collections.defaultdict(list), 0
    for packet in packets:
        is_read = packet.endpoint & 0x80 and packet.kind != 2
        begun_already += packet.event == "S" and not is_read
        if packet.event == "C" and is_read:
            counts[packet.endpoint].append(begun_already)
    return counts


def assert_same(packets, others, with_ends=True):
    """Both have the same devices, with the same requests in the same order, and with the same ends at each endpoint."""
    for one, other in zip(by_device(packets), by_device(others), strict=True):
        pairs = [(begun(one), begun(other))]
        for endpoint in sorted({packet.endpoint for packet in one if with_ends}):
            pairs.append((ended(one, endpoint), ended(other, endpoint)))
        for mine, theirs in pairs:
            for first, second in itertools.zip_longest(mine, theirs):
                assert first == second, f"{first}\n{second}"
        replayed = begun_before_reads(other)
        for endpoint, counts in begun_before_reads(one).items() if with_ends else ():
            for first, second in zip(counts, replayed[endpoint], strict=True):
                assert second >= first, f"a read from {endpoint:#x} has ended before what it answers"
