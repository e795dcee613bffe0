package com.talvane.orvex.bench;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;

/** The native methods of this library. */
final class OrvexBinding implements Binding {
    static final int VENDOR = 0x6A5C;
    private static final int TIMEOUT_MS = 30_000;
    private static final int BULK = 1;

    private final ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess();
    private final int session = demand(usb.usbInitialize(), "open a session");
    private final int list = demand(usb.usbCreateDeviceList2(session, new int[] {VENDOR}), "list the devices");
    private int index = -1;

    static int demand(int result, String what) {
        if (result < 0) {
            throw new IllegalStateException("cannot " + what + ": " + result);
        }
        return result;
    }

    ORVEXCommUSBAccess usb() {
        return usb;
    }

    int list() {
        return list;
    }

    int index() {
        return index;
    }

    @Override
    public String name() {
        return "java";
    }

    @Override
    public void open(String serialNumber) {
        int count = usb.usbGetDeviceListCount(list);
        for (index = 0; index < count; ++index) {
            if (usb.usbGetDeviceInfo(list, index).contains(":=" + serialNumber + ":=")) {
                demand(usb.usbOpenDevice(list, index), "open " + serialNumber);
                return;
            }
        }
        throw new IllegalStateException("no device " + serialNumber);
    }

    @Override
    public int write(int endpoint, byte[] bytes) {
        return (endpoint & 0x0F) == BULK
                ? usb.usbWriteBulkPipe(list, index, endpoint, bytes.length, TIMEOUT_MS, bytes)
                : usb.usbWriteInterruptPipe(list, index, endpoint, bytes.length, TIMEOUT_MS, bytes);
    }

    @Override
    public int read(int endpoint, byte[] bytes) {
        return (endpoint & 0x0F) == BULK
                ? usb.usbReadBulkPipe(list, index, endpoint, bytes.length, TIMEOUT_MS, bytes)
                : usb.usbReadInterruptPipe(list, index, endpoint, bytes.length, TIMEOUT_MS, bytes);
    }

    @Override
    public void close() {
        usb.usbReleaseDeviceList(list);
        usb.usbRelease(session);
    }
}
