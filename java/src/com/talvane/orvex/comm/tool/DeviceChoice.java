package com.talvane.orvex.comm.tool;

import java.util.List;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** The options that select the device of a command. */
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
                description = "The device with this index in the list.")
        private Integer index;

        @Option(
                names = {"-d", "--device"},
                paramLabel = "VID:PID",
                converter = Numbers.Ids.Converter.class,
                description = "The device with these vendor and product ids, in hexadecimal.")
        private Numbers.Ids ids;

        private boolean fits(DeviceInfo device) {
            if (ids != null) {
                return ids.equals(new Numbers.Ids(device.line().vendorId(), device.line().productId()));
            }
            return serial != null ? serial.equals(device.line().serial()) : index == device.index();
        }

        @Override
        public String toString() {
            return ids != null ? "the ids " + ids : serial != null ? "serial number " + serial : "index " + index;
        }
    }

    private Vendors vendors() {
        return choice.ids == null ? from.vendors() : new Vendors(List.of(choice.ids.vendor()));
    }

    Session session() {
        return new Session(vendors());
    }

    DeviceInfo find(Session session) {
        List<DeviceInfo> found = session.devices().stream().filter(choice::fits).toList();
        if (found.isEmpty()) {
            throw new IllegalStateException("no device with " + choice + " of " + vendors()
                    + " (orvex-usb list --all shows those of every vendor)");
        }
        if (found.size() > 1) {
            throw new IllegalStateException(found.size() + " devices have " + choice + "; choose one with "
                    + (choice.ids == null ? "--index" : "--serial or --index"));
        }
        return found.get(0);
    }
}
