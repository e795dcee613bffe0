package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import java.util.Collection;
import java.util.List;
import java.util.stream.IntStream;

/** A session with one device list, for as long as a command runs. Closing it gives back both. */
final class Session implements AutoCloseable {
    private static final String SIMULATED = "ORVEX_USB_SIMULATED";

    private final ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess();
    private final int id;
    private final int list;

    Session(Collection<Integer> vendors) {
        if (System.getenv(SIMULATED) != null) {
            System.err.println("The USB bus is simulated. On real hardware: orvex-usb list (without --simulate).");
        }
        id = UsbFailure.check("open a session", usb.usbInitialize());
        list = usb.usbCreateDeviceList2(id, vendors.stream().mapToInt(Integer::intValue).toArray());
        if (list < 0) {
            usb.usbRelease(id);
            throw new UsbFailure("list the devices", list);
        }
    }

    /** The information line of each device. */
    List<String> lines() {
        return IntStream.range(0, usb.usbGetDeviceListCount(list))
                .mapToObj(index -> usb.usbGetDeviceInfo(list, index))
                .toList();
    }

    /** Every device of the list, also those that are absent. */
    List<DeviceInfo> devices() {
        List<String> lines = lines();
        return IntStream.range(0, lines.size()).mapToObj(index -> DeviceInfo.parse(index, lines.get(index))).toList();
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
