package com.talvane.orvex.comm;

/** A device of a list, with short names for the calls. Every transfer is as long as its buffer. */
record Device(ORVEXCommUSBAccess usb, int list, int index) {
    /** A time-out in milliseconds that no successful transfer reaches, even on an emulated machine. */
    static final int AMPLE = 30_000;

    int open() {
        return usb.usbOpenDevice(list, index);
    }

    int close() {
        return usb.usbCloseDevice(list, index);
    }

    String line() {
        return usb.usbGetDeviceInfo(list, index);
    }

    /** A field of the information line, counted from 1. */
    String field(int number) {
        return line().split(":=", -1)[number - 1];
    }

    boolean isPresent() {
        return field(1).equals("1");
    }

    int write(int endpoint, byte... data) {
        return usb.usbWriteBulkPipe(list, index, endpoint, data.length, AMPLE, data);
    }

    int write(int endpoint, int timeout, byte[] data) {
        return usb.usbWriteBulkPipe(list, index, endpoint, data.length, timeout, data);
    }

    int read(int endpoint, byte[] buffer) {
        return usb.usbReadBulkPipe(list, index, endpoint, buffer.length, AMPLE, buffer);
    }

    int read(int endpoint, int timeout, byte[] buffer) {
        return usb.usbReadBulkPipe(list, index, endpoint, buffer.length, timeout, buffer);
    }

    int writeInterrupt(int endpoint, byte... data) {
        return usb.usbWriteInterruptPipe(list, index, endpoint, data.length, AMPLE, data);
    }

    int readInterrupt(int endpoint, byte[] buffer) {
        return usb.usbReadInterruptPipe(list, index, endpoint, buffer.length, AMPLE, buffer);
    }

    int writePackets(int endpoint, byte[] data, int packetSize, int fill) {
        return usb.usbWriteInterruptPipeEx(list, index, endpoint, data.length, AMPLE, data, packetSize, fill);
    }

    int cancel(int endpoint) {
        return usb.usbCancelPipeTransfer(list, index, endpoint);
    }

    /** A control transfer whose buffer holds setup packet and data. */
    int controlWrite(byte[] buffer) {
        return usb.usbWriteControlPipe(list, index, 0, AMPLE, buffer);
    }

    int controlRead(byte[] buffer) {
        return usb.usbReadControlPipe(list, index, 0, AMPLE, buffer);
    }
}
