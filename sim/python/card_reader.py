#!/usr/bin/python3 -B
"""A smart-card reader (CCID) with a card in it that keeps 256 bytes, for the driver libccid and so for pcscd. As that
daemon looks for readers in the system, tell it of this one, under `simbus run`, in a file of the folder of --config:

FRIENDLYNAME "Reader"
LIBPATH /usr/lib/pcsc/drivers/ifd-ccid.bundle/Contents/Linux/libccid.so
CHANNELID 0
DEVICENAME usb:234b/0000:libusb-1.0:BUS:ADDRESS:0

`simbus control devices` has its bus and address.
"""
import struct

from simbus_device import Device, pipes

POWER_ON, POWER_OFF, SET_PARAMETERS, GET_PARAMETERS, EXCHANGE = 0x62, 0x63, 0x61, 0x6C, 0x6F
DATA_BLOCK, SLOT_STATUS, PARAMETERS = 0x80, 0x81, 0x82
SELECT, READ, UPDATE, DONE, UNKNOWN = 0xA4, 0xB0, 0xD6, b"\x90\x00", b"\x6D\x00"
ANSWER_TO_RESET = bytes.fromhex("3B80800101")

# One slot, all voltages, T=1, whole commands of the card up to 261 bytes; the rest is automatic.
ABILITIES = struct.pack("<BBHBBIIIBIIBIIIIIBBHBB", 54, 0x21, 0x0110, 0, 7, 2, 4000, 4000, 0, 10752, 10752, 0, 254, 0, 0,
                        0x000200BE, 271, 0, 0, 0, 0, 1)
DESCRIPTION = {
    "id": "card-reader", "vendorId": "0x234B", "productId": "0x0000", "serial": "PYTHON03",
    "interfaces": [{"class": 11, "extra": ABILITIES.hex(), "endpoints": pipes()}]}


class CardReader(Device):
    content, is_powered = bytearray(256), False

    def handle_out(self, address, data):
        kind, _, slot, sequence, protocol = struct.unpack_from("<BIBBB", data)
        reply, content = self.answer(kind, data[10:])
        state = 0 if self.is_powered else 1
        return struct.pack("<BIBBBBB", reply, len(content), slot, sequence, state, 0, protocol) + content

    def answer(self, kind, data):
        if kind in (POWER_ON, POWER_OFF):
            self.is_powered = kind == POWER_ON
            return (DATA_BLOCK, ANSWER_TO_RESET) if self.is_powered else (SLOT_STATUS, b"")
        if kind in (SET_PARAMETERS, GET_PARAMETERS):
            return PARAMETERS, data
        return (DATA_BLOCK, self.run_command(data)) if kind == EXCHANGE else (SLOT_STATUS, b"")

    def run_command(self, command):
        _, instruction, offset, length = struct.unpack_from(">BBHB", command + b"\0")
        if instruction == READ:
            return bytes(self.content[offset:offset + length]) + DONE
        if instruction == UPDATE:
            self.content[offset:offset + length] = command[5:5 + length]
        return DONE if instruction in (SELECT, UPDATE) else UNKNOWN


if __name__ == "__main__":
    CardReader(DESCRIPTION).run()
