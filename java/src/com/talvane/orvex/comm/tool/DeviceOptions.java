package com.talvane.orvex.comm.tool;

import java.util.List;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Which device a command works on, and for how long it waits. */
final class DeviceOptions {
    @Mixin
    VendorOptions from;

    @ArgGroup(multiplicity = "1")
    Choice choice;

    @Option(
            names = "--timeout",
            paramLabel = "MS",
            defaultValue = "1000",
            converter = Numbers.Count.class,
            description = "Time-out of each transfer in milliseconds, 0 waits for ever (default: ${DEFAULT-VALUE}).")
    int timeout;

    static final class Choice {
        @Option(names = "--serial", paramLabel = "S", description = "The device with this serial number.")
        String serial;

        @Option(
                names = "--index",
                paramLabel = "N",
                converter = Numbers.Count.class,
                description = "The device at this place in the list.")
        Integer index;

        boolean fits(DeviceInfo device) {
            return serial != null ? serial.equals(device.serial()) : index == device.index();
        }

        @Override
        public String toString() {
            return serial != null ? "serial number " + serial : "index " + index;
        }
    }

    Session session() {
        return new Session(from.vendors);
    }

    /** Opens the chosen device. */
    OpenDevice open(Session session) {
        List<DeviceInfo> found = session.devices().stream().filter(choice::fits).toList();
        if (found.isEmpty()) {
            throw new IllegalStateException("no device with " + choice + " (orvex-usb list shows the devices)");
        }
        if (found.size() > 1) {
            throw new IllegalStateException(found.size() + " devices have " + choice + "; choose one with --index");
        }
        return session.open(found.get(0));
    }
}
