package com.talvane.orvex.comm;

import com.talvane.orvex.comm.access.UsbDevice;
import com.talvane.orvex.comm.access.UsbSession;
import java.util.concurrent.TimeUnit;

/** Opens the HID tool and does not close it, in a class loader that is discarded afterwards. */
public final class ForgottenHid {
    private ForgottenHid() {
    }

    /**
     * Opens the tool as soon as its driver allows it.
     *
     * @param how raw, or released: the session is ended with the device still open, or safe: through the safe layer
     */
    public static void open(String how) throws Exception {
        if (how.equals("safe")) {
            openSafely();
            return;
        }
        ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess();
        usb.usbInitialize();
        Device hid = listed(usb);
        hid.open();
        while (HidTest.write(hid) != 0) {
            hid.close();
            hid.open();
        }
        if (how.equals("released")) {
            usb.usbRelease(0);
        }
    }

    private static Device listed(ORVEXCommUSBAccess usb) throws InterruptedException {
        while (true) {
            int list = usb.usbCreateDeviceList2(0, new int[] {UsbTest.VENDOR});
            for (int i = 0; i < usb.usbGetDeviceListCount(list); i++) {
                Device device = new Device(usb, list, i);
                if (device.field(7).equals(HidTest.SERIAL) && device.field(9).equals("h")) {
                    return device;
                }
            }
            usb.usbReleaseDeviceList(list);
            TimeUnit.MILLISECONDS.sleep(10);
        }
    }

    private static void openSafely() throws Exception {
        UsbSession session = UsbSession.open();
        UsbDevice hid = null;
        while (hid == null) {
            hid = session.everything().stream().anyMatch(info -> info.isHid() && info.serial().equals(HidTest.SERIAL))
                    ? session.list(UsbTest.VENDOR).find(HidTest.SERIAL).orElseThrow()
                    : null;
        }
        hid.open();
    }
}
