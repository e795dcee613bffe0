package com.talvane.orvex.comm.access;

import java.util.Comparator;

/** An endpoint of a device with the transfers of its kind. */
record Pipe(UsbDevice device, UsbEndpoint endpoint) {
    /** Throws IllegalArgumentException when the device has no such endpoint in that direction. */
    static Pipe of(UsbDevice device, int address, boolean isIn) throws UsbException {
        return device.endpoints().stream()
                .filter(endpoint -> (endpoint.address() & 0xFF) == address && endpoint.isIn() == isIn)
                .max(Comparator.comparing(UsbEndpoint::packetBytes))
                .map(endpoint -> new Pipe(device, endpoint))
                .orElseThrow(() -> new IllegalArgumentException(String.format("%s has no %s endpoint 0x%02X",
                        device.label(), isIn ? "IN" : "OUT", address)));
    }

    /** The number of bytes in a full packet, 1 at least. */
    int packet() {
        return Math.max(endpoint.packetBytes(), 1);
    }

    int read(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        int address = endpoint.address() & 0xFF;
        return endpoint.isInterrupt()
                ? device.readInterrupt(address, buffer, offset, length, timeout)
                : device.readBulk(address, buffer, offset, length, timeout);
    }

    int write(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        return endpoint.isInterrupt()
                ? device.writeInterrupt(endpoint.address(), buffer, offset, length, timeout)
                : device.writeBulk(endpoint.address(), buffer, offset, length, timeout);
    }

    void writeFully(byte[] buffer, int offset, int length, int timeout) throws UsbException {
        device.writeFully(endpoint.address(), buffer, offset, length, timeout);
    }

    @Override
    public String toString() {
        return endpoint + " of " + device.label();
    }
}
