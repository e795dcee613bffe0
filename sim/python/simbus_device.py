"""Simulated USB devices whose behaviour is written in Python; needs nothing but its standard library.

Derive from Device, override the handlers that the device needs, and call run(). boot_loader.py is an example.
"""

import collections
import json
import os
import socket
import struct

Setup = collections.namedtuple("Setup", "request_type request value index length")

SILENT = object()  # what a handler returns for a request that is not to end


class Stall(Exception):
    """What a handler raises to stall the host's request."""


def pipes(size=64, number=1, **more):
    """Two endpoints of an interface, OUT and IN, with this packet size, whose transfers the program answers."""
    return [{"address": address, "maxPacketSize": size, "behaviour": "program", **more}
            for address in (number, number | 0x80)]


class Device:
    """One device of the bus, and the connection over which this program answers for it."""

    def __init__(self, description, path=None):
        """Takes the id of a device of the bus, or the description of a new one, as in a scenario.

        A new one is added, and plugged in when run() is called. The path is that of the control socket: by default that
        of `simbus run`, or else of SIMBUS_SOCKET.
        """
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.connect(path or os.environ.get("SIMBUS_BUS") or os.environ["SIMBUS_SOCKET"])
        self._lines = self._socket.makefile("rw", encoding="utf-8")
        self._events = collections.deque()
        self._request = {}  # the control request or OUT transfer that is being handled
        self._is_new = isinstance(description, dict)
        self.id = description["id"] if self._is_new else description
        if self._is_new:
            self.ask("add", device={**description, "plugged": False})
        self.ask("serve", device=self.id)

    # For the device to override. A handler that does not return within 5 seconds ends the program's part.

    def handle_control(self, setup, data):
        """Returns the bytes for the host, at most setup.length; None for a request that brings data."""
        raise Stall

    def handle_out(self, address, data):
        """Takes the data of an OUT transfer. What it returns can be read from the IN endpoint of the same number."""

    def handle_in(self, address, length):
        """Returns the data for an IN transfer that waits; None when they will be fed later."""

    def handle_event(self, event):
        """Is told "plugged", "unplugged", "reset", "configuration" and so on: the events of the control socket."""

    # For the device to call, also in a handler.

    def feed(self, address, data):
        """Adds data to be read from an IN endpoint.

        Nothing comes of it when the control request or OUT transfer that is being handled has ended meanwhile.
        """
        self.ask("feed", device=self.id, address=address, data=data.hex(), **self._request)

    def reenumerate(self, **changes):
        """Leaves the bus and comes back with these keys of its description changed."""
        self.ask("unplug", device=self.id)
        self.ask("change", device=self.id, set=changes)
        self.ask("plug", device=self.id)

    def ask(self, op, **request):
        """Sends any request of the control socket; returns the response. Raises RuntimeError when it is refused."""
        self._lines.write(json.dumps({"op": op, **request}) + "\n")
        self._lines.flush()
        while "event" in (message := self._next_line()):
            self._events.append(message)
        if not message["ok"]:
            dismissals = (event["error"] for event in self._events if event["event"] == "dismissed")
            raise RuntimeError(next(dismissals, message["error"]))
        return message

    def run(self):
        """Answers until the bus ends. Raises RuntimeError, with the reason, when the bus has dismissed this program."""
        if self._is_new:
            self.ask("plug", device=self.id)
        try:
            while True:
                self._handle(self._events.popleft() if self._events else self._next_line())
        except (EOFError, ConnectionError):
            pass

    def _next_line(self):
        line = self._lines.readline()
        if not line:
            raise EOFError("the bus has ended")
        return json.loads(line)

    def _handle(self, event):
        if event["event"] == "dismissed":
            raise RuntimeError(event["error"])
        if event["event"] not in ("control", "out", "in"):
            self.handle_event(event)
            return
        self._request = {} if event["event"] == "in" else {"request": event["request"]}
        try:
            data = self._answer(event)
            reply = {"silent": True} if data is SILENT else {"data": bytes(data or b"").hex()}
        except Stall:
            data, reply = b"", {"stall": True}
        if data is not None or event["event"] != "in":
            self.ask("reply", request=event["request"], **reply)
        self._request = {}

    def _answer(self, event):
        data = bytes.fromhex(event.get("data", ""))
        if event["event"] == "control":
            return self.handle_control(Setup(*struct.unpack("<BBHHH", bytes.fromhex(event["setup"]))), data)
        if event["event"] == "out":
            answer = self.handle_out(event["address"], data)
            if answer in (None, SILENT):
                return answer
            self.feed(event["address"] | 0x80, answer)
            return None
        return self.handle_in(event["address"], event["length"])
