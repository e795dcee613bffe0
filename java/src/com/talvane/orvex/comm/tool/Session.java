package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.UsbAccessCode;
import com.talvane.orvex.comm.access.UsbEndpoint;
import com.talvane.orvex.comm.recording.RecordedUsb;
import com.talvane.orvex.comm.recording.Recorder;
import java.util.Arrays;
import java.util.List;
import java.util.stream.IntStream;

/**
 * A session with one device list, for the duration of a command. Closing it releases both. It uses the raw class, so
 * that users who look for a fault see the results of the native methods.
 */
final class Session implements AutoCloseable {
    private static final String SIMULATED = "ORVEX_USB_SIMULATED";
    private static final String SHARED_BUS = "SIMBUS_BUS";

    private static final int EVERY_VENDOR = -1;
    private static final int MOST_DESCRIPTOR_BYTES = 512;

    /** Null when the command is not recorded. */
    private static Recorder recorder;

    private final RecordedUsb usb = new RecordedUsb();
    private final int id;
    private final int list;

    Session(Vendors vendors) {
        if (isSimulated()) {
            System.err.println("The USB bus is simulated"
                    + (System.getenv(SHARED_BUS) != null ? " by simbus run."
                            : ". On real hardware: orvex-usb list (without --simulate)."));
        }
        usb.begin(recorder);
        id = UsbFailure.check("open a session", usb.usbInitialize());
        list = vendors.isEvery() ? usb.usbCreateDeviceList(id, EVERY_VENDOR)
                : usb.usbCreateDeviceList2(id, vendors.toArray());
        if (list < 0) {
            usb.usbRelease(id);
            throw new UsbFailure("list the devices", list);
        }
    }

    /** Has the sessions from now on recorded; null for no more. A process runs one command. */
    static void recordTo(Recorder to) {
        recorder = to;
    }

    /** Whether the launcher was told to simulate the bus, or {@code simbus run} has started it. */
    static boolean isSimulated() {
        return System.getenv(SIMULATED) != null || System.getenv(SHARED_BUS) != null;
    }

    /** The information line of each device. */
    List<String> lines() {
        return IntStream.range(0, usb.usbGetDeviceListCount(list))
                .mapToObj(index -> usb.usbGetDeviceInfo(list, index))
                .toList();
    }

    /** Every device of the list, including absent ones. */
    List<DeviceInfo> devices() {
        List<String> lines = lines();
        return IntStream.range(0, lines.size()).mapToObj(index -> DeviceInfo.parse(index, lines.get(index))).toList();
    }

    /** Updates the list with the devices that were plugged in or unplugged since. */
    void update() {
        UsbFailure.check("update the list", usb.usbUpdateDeviceList(list, 0));
    }

    /** A descriptor that the library read when the device was listed; empty if it has none. */
    byte[] descriptor(DeviceInfo device, int type, int index) {
        byte[] buffer = new byte[MOST_DESCRIPTOR_BYTES];
        int size = usb.usbGetDeviceDescriptor(list, device.index(), type, index, buffer.length, buffer);
        if (size == UsbAccessCode.NOT_AVAILABLE.code()) {
            return new byte[0];
        }
        return Arrays.copyOf(buffer, UsbFailure.check("descriptor of " + device.label(), size));
    }

    /** The endpoints of the device, or of the interface if it is one of a composite device. */
    List<UsbEndpoint> endpoints(DeviceInfo device) {
        byte[] bytes = new byte[UsbEndpoint.MOST_BYTES];
        int count = usb.usbGetEndpointList(list, device.index(), bytes);
        return UsbEndpoint.parse(bytes, UsbFailure.check("endpoints of " + device.label(), count));
    }

    OpenDevice open(DeviceInfo device) {
        return new OpenDevice(usb, list, device);
    }

    @Override
    public void close() {
        usb.usbReleaseDeviceList(list);
        usb.usbRelease(id);
    }
}
