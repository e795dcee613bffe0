#!/usr/bin/python3 -B
"""A disk of one megabyte (mass storage), which the kernel of this machine puts into service as any other, as root:

modprobe vhci_hcd; simbus-usbip --scenario sim/scenarios/demo.json --control socket &
sleep 1; SIMBUS_SOCKET=socket sim/python/disk.py
"""
import struct

from simbus_device import Device, Stall, pipes

BLOCK, BLOCKS = 512, 2048
READY, SENSE, INQUIRY, MODE_SENSE, CAPACITY, READ, WRITE, FLUSH = 0x00, 0x03, 0x12, 0x1A, 0x25, 0x28, 0x2A, 0x35
ANSWERS = {
    READY: b"", FLUSH: b"", MODE_SENSE: bytes.fromhex("03000000"),
    SENSE: struct.pack(">BxB4xB4xB5x", 0x70, 5, 10, 0x20),  # the command before was an unknown one
    INQUIRY: struct.pack(">xxBBB3x8s16s4s", 4, 2, 31, b"Maker   ", b"Disk".ljust(16), b"1.0 "),
    CAPACITY: struct.pack(">II", BLOCKS - 1, BLOCK)}
GET_LAST_UNIT, RESET = 0xFE, 0xFF

DESCRIPTION = {
    "id": "disk", "speed": "high", "vendorId": "0x1209", "productId": "0x7008", "serial": "PYTHON04",
    "interfaces": [{"class": 8, "subClass": 6, "protocol": 80, "endpoints": pipes(512)}]}


class Disk(Device):
    content, at, missing, tag = bytearray(BLOCK * BLOCKS), 0, 0, b""

    def handle_control(self, setup, data):
        if setup.request not in (GET_LAST_UNIT, RESET):
            raise Stall
        self.missing = 0
        return b"\x00" if setup.request == GET_LAST_UNIT else None

    def handle_event(self, event):
        self.missing = 0  # whatever happens, the rest of what was being written does not come

    def handle_out(self, address, data):
        if self.missing:
            self.content[self.at:self.at + len(data)] = data
            self.at, self.missing = self.at + len(data), self.missing - len(data)
            if not self.missing:
                self.finish(0)
            return
        (length,) = struct.unpack_from("<I", data, 8)
        command, block = struct.unpack_from(">BxI", data, 15)
        self.tag, self.at = data[4:8], block * BLOCK
        if command == WRITE:
            self.missing = length
        elif command == READ:
            self.finish(length, self.content[self.at:self.at + length])
        else:
            self.finish(length, ANSWERS.get(command, b"")[:length], command not in ANSWERS)

    def finish(self, length, data=b"", is_failure=False):
        """Sends the data, where the host wants some, and the status of the command."""
        if length:
            self.feed(0x81, data)
        self.feed(0x81, b"USBS" + self.tag + struct.pack("<IB", length - len(data), is_failure))


if __name__ == "__main__":
    Disk(DESCRIPTION).run()
