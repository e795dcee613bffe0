#!/usr/bin/python3 -B
"""A debug probe (CMSIS-DAP) with a Cortex-M4 behind it, whose memory OpenOCD reads and writes:

simbus run sim/scenarios/demo.json -- sh -c 'sim/python/debug_probe.py & sleep 1; openocd -c "adapter driver cmsis-dap
    transport select swd; swd newdap m4 cpu -expected-id 0; dap create m4.dap -chain-position m4.cpu
    target create m4.cpu cortex_m -dap m4.dap; init" -c "mww 0x20000000 1234" -c "mdw 0x20000000" -c shutdown'
"""
import struct

from simbus_device import Device, pipes

INFO, CONNECT, TRANSFER, TRANSFER_BLOCK = 0x00, 0x02, 0x05, 0x06
FACTS = {0x04: b"2.0.0\0", 0xF0: b"\x01", 0xFE: b"\x01", 0xFF: b"\x40\x00"}  # version, SWD, 1 packet of 64 bytes
OF_ACCESS_PORT, IS_READ, OK = 1, 2, 1
CONTROL, SELECT = 0x04, 0x08  # registers of the debug port
MODE, ADDRESS, DATA, BANKED_DATA, BASE, IDENTITY = 0x00, 0x04, 0x0C, 0x10, 0xF8, 0xFC  # those of the access port
CPUID, HALTING, CONTROL_SPACE, ROM_TABLE = 0xE000ED00, 0xE000EDF0, 0xE000E000, 0xE00FF000
IDENTITIES = {ROM_TABLE: "04000000C4B40B000D1005B1", CONTROL_SPACE: "040000000CB00B000DE005B1"}  # of the components

DESCRIPTION = {
    "id": "debug-probe", "vendorId": "0x1209", "productId": "0x7006", "product": "Probe CMSIS-DAP",
    "serial": "PYTHON02", "interfaces": [{"string": "Probe CMSIS-DAP", "endpoints": pipes()}]}


class Chip:
    """The registers of its two ports, and its memory; what is not here is 0."""

    def __init__(self):
        self.debug_port = {0x00: 0x2BA01477, SELECT: 0}
        self.access_port = {MODE: 0, ADDRESS: 0, BASE: ROM_TABLE | 3, IDENTITY: 0x24770011}
        self.memory = {CPUID: 0x410FC241, ROM_TABLE: (CONTROL_SPACE - ROM_TABLE) & 0xFFFFFFFF | 3}
        for component, identity in IDENTITIES.items():
            self.memory.update(zip(range(component + 0xFD0, component + 0x1000, 4), bytes.fromhex(identity)))

    def transfer(self, request, value):
        """Reads or writes a register; returns what it holds then."""
        register, registers = request & 0x0C, self.debug_port
        if request & OF_ACCESS_PORT:
            register, registers = register | self.debug_port[SELECT] & 0xF0, self.access_port
            if register == DATA or register & 0xF0 == BANKED_DATA:
                register, registers, value = self.word_of_memory(register, value)
        if not request & IS_READ:
            if registers is self.debug_port and register == CONTROL:
                value |= (value & 0x50000000) << 1  # what is asked for has power
            elif register == HALTING:
                value = value & 0x0F | 0x10000 | (value & 2) << 16  # halted as soon as asked, with registers to read
            registers[register] = value
        return registers.get(register, 0)

    def word_of_memory(self, register, value):
        """The word of the memory at which a data register points, and the value that a write leaves there."""
        address = self.access_port[ADDRESS]
        if register != DATA:
            return address & ~0x0F | register & 0x0C, self.memory, value
        size = 1 << (self.access_port[MODE] & 7)
        if self.access_port[MODE] & 0x30:
            self.access_port[ADDRESS] += size
        lanes = (1 << 8 * size) - 1 << 8 * (address & 3)
        word = address & ~3
        return word, self.memory, self.memory.get(word, 0) & ~lanes | value & lanes


class DebugProbe(Device):
    chip = Chip()

    def handle_out(self, address, data):
        return data[:1] + self.answer(data[0], data[1:])

    def answer(self, command, data):
        if command == INFO:
            fact = FACTS.get(data[0], b"")
            return bytes([len(fact)]) + fact
        if command == TRANSFER:
            return bytes([data[1], OK]) + self.transfers(data[1], data[2:])
        if command == TRANSFER_BLOCK:
            (count,) = struct.unpack_from("<H", data, 1)
            return data[1:3] + bytes([OK]) + self.transfers(count, data[3:], same=True)
        return b"\x01" if command == CONNECT else b"\x00"

    def transfers(self, count, data, same=False):
        """All transfers of a command, with one request for each or the same for all; returns the words read."""
        answer = b""
        for number in range(count):
            if number == 0 or not same:
                request, data = data[0], data[1:]
            if request & IS_READ:
                answer += struct.pack("<I", self.chip.transfer(request, 0))
            else:
                self.chip.transfer(request, *struct.unpack_from("<I", data))
                data = data[4:]
        return answer


if __name__ == "__main__":
    DebugProbe(DESCRIPTION).run()
