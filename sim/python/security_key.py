#!/usr/bin/python3 -B
"""A security key (FIDO2) that keeps the large blobs of programs. As the programs of libfido2 look for keys among the HID
devices of the kernel, plug it into that of this machine, as root:

modprobe vhci_hcd; simbus-usbip --scenario sim/scenarios/demo.json --control socket &
sleep 1; SIMBUS_SOCKET=socket sim/python/security_key.py & sleep 1; fido2-token -L
"""
import struct

from simbus_device import Device, pipes

IS_FIRST, INIT, CBOR, ERROR, NO_SUCH_COMMAND = 0x80, 0x86, 0x90, 0xBF, b"\x01"
PACKET, CHANNEL, ABILITIES = 64, b"\0\0\0\1", bytes([2, 1, 0, 0, 0x0C])  # protocol 2, version 1.0.0, CBOR only
GET_INFO, RESET, LARGE_BLOBS, DONE = 0x04, 0x07, 0x0C, b"\0"
READ, WRITE, OFFSET = 1, 2, 3
NO_BLOBS = bytes.fromhex("8076BE8B528D0075F7AAE98D6FA57A6D3C")  # an empty list, and the beginning of its SHA-256
INFO = (b"\xA5\x01\x81\x68FIDO_2_1" b"\x03\x50Simulated key 01" b"\x04\xA1\x6AlargeBlobs\xF5"
        b"\x05\x19\x04\x00" b"\x0B\x19\x10\x00")  # messages of 1024 bytes, blobs of 4096

DESCRIPTION = {
    "id": "security-key", "vendorId": "0x1209", "productId": "0x7009", "product": "Security key", "serial": "PYTHON05",
    "interfaces": [{
        "hid": {"report": "06D0F10901A1010920150026FF007508954081020921150026FF00750895409102C0"},
        "endpoints": pipes(PACKET, type="interrupt", interval=1)}]}


def item(data):
    """The number or the bytes at the beginning of CBOR, and what follows."""
    size = {24: 1, 25: 2}.get(data[0] & 31, 0)
    number = int.from_bytes(data[1:1 + size], "big") if size else data[0] & 31
    kind, rest = data[0] >> 5, data[1 + size:]
    return (rest[:number], rest[number:]) if kind == 2 else (number, rest)


class SecurityKey(Device):
    blobs, channel, command, length, message = NO_BLOBS, b"", 0, 0, b""

    def handle_out(self, address, data):
        """Joins the packets of a message; answers when it is whole."""
        if data[4] & IS_FIRST:
            self.channel, (self.command, self.length), self.message = data[:4], struct.unpack(">BH", data[4:7]), data[7:]
        else:
            self.message += data[5:]
        return self.answer(self.message[:self.length]) if len(self.message) >= self.length else None

    def answer(self, message):
        if self.command == INIT:
            return self.packets(INIT, message + CHANNEL + ABILITIES)
        if self.command == CBOR:
            return self.packets(CBOR, self.run_command(message[0], message[1:]))
        return self.packets(ERROR, NO_SUCH_COMMAND)

    def packets(self, command, answer):
        message = struct.pack(">BH", command, len(answer)) + answer
        parts = [message[:PACKET - 4]] + [
            bytes([number]) + message[start:start + PACKET - 5]
            for number, start in enumerate(range(PACKET - 4, len(message), PACKET - 5))]
        return b"".join((self.channel + part).ljust(PACKET, b"\0") for part in parts)

    def run_command(self, command, data):
        if command == GET_INFO:
            return DONE + INFO
        if command == RESET:
            self.blobs = NO_BLOBS
            return DONE
        return self.use_blobs(data) if command == LARGE_BLOBS else NO_SUCH_COMMAND

    def use_blobs(self, data):
        """Reads or writes a part of the blobs, which are bytes to the key; data is a map in CBOR."""
        count, data = item(data)
        wanted = {}
        for _ in range(count):
            key, data = item(data)
            wanted[key], data = item(data)
        if WRITE in wanted:
            self.blobs = self.blobs[:wanted[OFFSET]] + wanted[WRITE]
            return DONE
        part = self.blobs[wanted[OFFSET]:][:wanted[READ]]
        return DONE + struct.pack(">BBBH", 0xA1, READ, 0x59, len(part)) + part


if __name__ == "__main__":
    SecurityKey(DESCRIPTION).run()
