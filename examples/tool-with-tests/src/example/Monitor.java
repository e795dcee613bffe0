package example;

import com.talvane.orvex.comm.access.UsbDevice;
import com.talvane.orvex.comm.access.UsbDeviceGoneException;
import com.talvane.orvex.comm.access.UsbDeviceList;
import com.talvane.orvex.comm.access.UsbException;
import com.talvane.orvex.comm.access.UsbSession;
import java.nio.charset.StandardCharsets;
import java.util.Optional;

/** Prints the text that one device sends, whenever it is plugged in. */
public final class Monitor {
    private static final int VENDOR = 0x6A5C;
    private static final int ENDPOINT = 0x81;
    private static final int LOOKS_MS = 100;

    private final UsbDeviceList tools;
    private final String serial;

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
            new Monitor(session.list(VENDOR), arguments[0]).run();
        }
    }

    private void run() throws UsbException, InterruptedException {
        System.out.println("waiting for " + serial);
        while (true) {
            tools.update();
            Optional<UsbDevice> found = tools.find(serial);
            if (found.isPresent() && opens(found.get())) {
                listen(found.get());
            }
            Thread.sleep(LOOKS_MS);
        }
    }

    /** A device on its way in or out does not open; one that stays does so at a later look. */
    private static boolean opens(UsbDevice device) {
        try {
            device.open();
            return true;
        } catch (UsbException e) {
            return false;
        }
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
