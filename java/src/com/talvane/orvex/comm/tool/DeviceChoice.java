package com.talvane.orvex.comm.tool;

import java.util.List;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Which device a command works on. */
final class DeviceChoice {
    @Mixin
    private VendorOptions from;

    @ArgGroup(multiplicity = "1")
    private Choice choice;

    private static final class Choice {
        @Option(names = "--serial", paramLabel = "S", description = "The device with this serial number.")
        private String serial;

        @Option(
                names = "--index",
                paramLabel = "N",
                converter = Numbers.Count.class,
                description = "The device at this place in the list.")
        private Integer index;

        private boolean fits(DeviceInfo device) {
            return serial != null ? serial.equals(device.line().serial()) : index == device.index();
        }

        @Override
        public String toString() {
            return serial != null ? "serial number " + serial : "index " + index;
        }
    }

    Session session() {
        return new Session(from.vendors());
    }

    DeviceInfo find(Session session) {
        List<DeviceInfo> found = session.devices().stream().filter(choice::fits).toList();
        if (found.isEmpty()) {
            throw new IllegalStateException("no device with " + choice + " (orvex-usb list shows the devices)");
        }
        if (found.size() > 1) {
            throw new IllegalStateException(found.size() + " devices have " + choice + "; choose one with --index");
        }
        return found.get(0);
    }
}
