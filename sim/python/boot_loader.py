#!/usr/bin/python3 -B
"""A boot loader, from which dfu-util reads the firmware and to which it writes another:

simbus run sim/scenarios/demo.json -- sh -c 'sim/python/boot_loader.py & sleep 1; dfu-util --upload firmware'
"""
from simbus_device import Device, Stall

IDLE, DOWNLOADING, MANIFESTING, UPLOADING = 2, 5, 6, 9
DNLOAD, UPLOAD, GETSTATUS, CLRSTATUS, GETSTATE, ABORT = range(1, 7)
BLOCK = 64

DESCRIPTION = {
    "id": "boot-loader", "vendorId": "0x1209", "productId": "0x7003", "serial": "PYTHON01", "interfaces": [
        {"class": 254, "subClass": 1, "protocol": 2, "string": "Flash", "extra": "092107FF0040001001"}]}


class BootLoader(Device):
    firmware, coming, state = bytes(range(200)), b"", IDLE

    def handle_control(self, setup, data):
        if setup.request == DNLOAD:
            return self.download(data)
        if setup.request == UPLOAD:
            block = self.firmware[setup.value * BLOCK:][:setup.length]
            self.state = UPLOADING if len(block) == setup.length else IDLE
            return block
        if setup.request == GETSTATUS:
            self.state = IDLE if self.state == MANIFESTING else self.state
            return bytes([0, 0, 0, 0, self.state, 0])
        if setup.request == GETSTATE:
            return bytes([self.state])
        if setup.request not in (CLRSTATUS, ABORT):
            raise Stall
        self.coming, self.state = b"", IDLE
        return None

    def download(self, data):
        self.coming, self.state = self.coming + data, DOWNLOADING
        if not data:
            self.firmware, self.coming, self.state = self.coming, b"", MANIFESTING


if __name__ == "__main__":
    BootLoader(DESCRIPTION).run()
