package example;

import com.talvane.orvex.comm.access.UsbDevice;
import com.talvane.orvex.comm.access.UsbDeviceGoneException;
import com.talvane.orvex.comm.access.UsbDeviceList;
import com.talvane.orvex.comm.access.UsbException;
import com.talvane.orvex.comm.access.UsbSession;
import java.nio.charset.StandardCharsets;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;

/** Prints the text that one device sends, whenever it is plugged in. */
public final class Monitor {
    private static final int VENDOR = 0x6A5C;
    private static final int ENDPOINT = 0x81;
    private static final int PAUSE_MS = 100;

    private final UsbDeviceList tools;
    private final String serial;
    /** The device, each time that it may have come. */
    private final BlockingQueue<UsbDevice> found = new LinkedBlockingQueue<>();

    private Monitor(UsbDeviceList tools, String serial) {
        this.tools = tools;
        this.serial = serial;
    }

    public static void main(String[] arguments) throws UsbException, InterruptedException {
        if (arguments.length != 1) {
            System.err.println("usage: Monitor SERIAL");
            System.exit(2);
        }
        try (UsbSession session = UsbSession.open()) {
            Monitor monitor = new Monitor(session.list(VENDOR), arguments[0]);
            // Listen first, then look, so that the device is not missed in between.
            session.onChange(change -> monitor.note(change.device()));
            monitor.run();
        }
    }

    private void note(UsbDevice device) {
        if (device.isPresent() && device.info().serial().equals(serial)) {
            found.add(device);
        }
    }

    private void run() throws UsbException, InterruptedException {
        System.out.println("waiting for " + serial);
        tools.find(serial).ifPresent(found::add);
        while (true) {
            UsbDevice device = found.take();
            if (opens(device)) {
                listen(device);
                note(device); // It may be back already.
            }
        }
    }

    /** Tries until the device has left: it may be on its way in or out, or be used by another program for a while. */
    private static boolean opens(UsbDevice device) throws InterruptedException {
        while (device.isPresent()) {
            try {
                device.open();
                return true;
            } catch (UsbException e) {
                Thread.sleep(PAUSE_MS);
            }
        }
        return false;
    }

    private void listen(UsbDevice device) throws UsbException {
        System.out.println(serial + " is there");
        byte[] packet = new byte[64];
        try (device) {
            while (true) {
                int length = device.readBulk(ENDPOINT, packet, 0, packet.length, UsbDevice.FOREVER);
                System.out.print(new String(packet, 0, length, StandardCharsets.US_ASCII));
                System.out.flush();
            }
        } catch (UsbDeviceGoneException e) {
            System.out.println(serial + " has left");
        }
    }
}
