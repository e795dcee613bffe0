package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.ByteBuffer;
import java.util.Arrays;

/** A test on the HID tool of the scenario, whose reports come back as they were sent. */
abstract class HidTest extends UsbTest {
    static final String ID = "hid";
    static final String SERIAL = "HIDT0021";
    static final int IN = 0x81;
    static final int OUT = 0x01;
    static final int REPORT = 64;
    /** The time-out of a read that should find nothing, in milliseconds; short, because a waiting read is busy. */
    static final int BRIEF = 300;

    /** A session with a list in which the host's HID driver has this device, which is plugged in now. */
    final Device plugHid(String id, String serial) {
        bus.plug(id);
        return listed(serial, "h");
    }

    final Device plugHid() {
        return plugHid(ID, SERIAL);
    }

    /** The same, open. */
    final Device openHid() {
        return openWorking(plugHid());
    }

    /** The HID tool with reports of a given size, and other changes. */
    final void change(int reportBytes, String rest) {
        bus.change(ID, String.format("{\"interfaces\": [{\"hid\": {\"input\": %1$d, \"output\": %1$d}, \"endpoints\": ["
                + "{\"address\": %2$d, \"type\": \"interrupt\", \"interval\": 1},"
                + "{\"address\": %3$d, \"type\": \"interrupt\", \"interval\": 1}]}] %4$s}", reportBytes, IN, OUT, rest));
    }

    /** A list of a new session in which a device has this type; its driver may attach a moment after the device. */
    final Device listed(String serial, String type) {
        openSession();
        await(serial + " is listed with type " + type, () -> {
            int list = usb.usbCreateDeviceList(0, ANY_VENDOR);
            boolean settled = find(list, serial).field(9).equals(type);
            usb.usbReleaseDeviceList(list);
            return settled;
        });
        return find(list(VENDOR, OTHER_VENDOR), serial);
    }

    /** Opens a device that was found a moment ago. A HID device opens also when its driver is not ready yet. */
    final Device openWorking(Device device) {
        await("the HID driver lets the device be opened", () -> {
            assertEquals(0, device.open());
            boolean open = write(device) == 0;
            if (!open) {
                assertEquals(-109, device.close());
            }
            return open;
        });
        return closeAtTheEnd(device);
    }

    static int write(Device device, byte... data) {
        return device.writeInterrupt(OUT, data);
    }

    static int read(Device device, byte[] buffer) {
        return device.readInterrupt(IN, buffer);
    }

    static int read(Device d, byte[] buffer, int timeout) {
        return d.usb().usbReadInterruptPipe(d.list(), d.index(), IN, buffer.length, timeout, buffer);
    }

    static int writeEx(Device device, byte[] data, int packetSize, int fill) {
        return device.writePackets(OUT, data, packetSize, fill);
    }

    static int readEx(Device d, byte[] buffer, int packetSize) {
        return readEx(d, buffer, Device.AMPLE, packetSize);
    }

    static int readEx(Device d, byte[] buffer, int timeout, int packetSize) {
        return d.usb().usbReadInterruptPipeEx(d.list(), d.index(), IN, buffer.length, timeout, buffer, packetSize, 0);
    }

    /** Sets another report size, which takes effect at the next open. */
    static void reopenWith(Device device, int packetSize) {
        assertEquals(0, writeEx(device, new byte[0], packetSize, 0));
        assertEquals(0, device.close());
        assertEquals(0, device.open());
    }

    /** Reports that begin with their number. */
    static byte[] numbered(int first, int count) {
        ByteBuffer reports = ByteBuffer.allocate(count * REPORT);
        for (int i = 0; i < count; i++) {
            reports.putInt(i * REPORT, first + i);
        }
        return reports.array();
    }

    static byte[] filled(byte[] data, int size, int fill) {
        byte[] report = new byte[size];
        Arrays.fill(report, (byte) fill);
        System.arraycopy(data, 0, report, 0, data.length);
        return report;
    }
}
