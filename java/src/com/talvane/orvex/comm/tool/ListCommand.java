package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbDeviceInfo;
import java.util.ArrayList;
import java.util.List;
import java.util.function.UnaryOperator;
import java.util.stream.Collectors;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Lists the attached devices. */
@Command(name = "list", description = "Lists the attached devices.")
final class ListCommand implements Runnable {
    @Mixin
    private VendorOptions from;

    @ArgGroup
    private Form form = new Form();

    /** The output formats other than the table. */
    private static final class Form {
        @Option(
                names = "--raw",
                description = "Show the information lines of the library, with a ? for each line end in a device's"
                        + " strings, and on a terminal for each control character.")
        private boolean raw;

        @Option(
                names = "--json",
                description = "Show a JSON array of objects with the fields of the information lines.")
        private boolean json;
    }

    @Override
    public void run() {
        try (Session session = new Session(from.vendors())) {
            if (form.raw) {
                UnaryOperator<String> safe = Terminal.isOut() ? Text::printable : Text::oneLine;
                session.lines().stream().map(safe).forEach(System.out::println);
            } else if (form.json) {
                System.out.println(session.devices().stream()
                        .map(device -> Json.object(device.fields()))
                        .collect(Collectors.joining(",\n ", "[", "]")));
            } else {
                show(session.devices());
            }
        }
    }

    private void show(List<DeviceInfo> devices) {
        if (devices.isEmpty()) {
            Vendors vendors = from.vendors();
            System.out.println("No devices of " + vendors + " were found"
                    + (vendors.isEvery() ? "." : "; list --all shows those of every vendor."));
            return;
        }
        List<List<String>> rows = new ArrayList<>();
        rows.add(List.of("INDEX", "ID", "RELEASE", "TYPE", "PART", "SERIAL", "MANUFACTURER", "PRODUCT"));
        for (DeviceInfo d : devices) {
            rows.add(List.of(
                    Integer.toString(d.index()),
                    String.format("%04X:%04X", d.line().vendorId(), d.line().productId()),
                    String.format("%04X", d.line().release()),
                    d.typeText(),
                    d.familyText(),
                    Text.printable(d.line().serial()),
                    Text.printable(d.line().manufacturer()),
                    Text.printable(d.line().product())));
        }
        Text.table(rows).forEach(System.out::println);
        devices.stream()
                .map(DeviceInfo::line)
                .filter(UsbDeviceInfo::isUnopenable)
                .findFirst()
                .ifPresent(ListCommand::explain);
    }

    private static void explain(UsbDeviceInfo device) {
        System.err.printf("""
                %s: no permission, or just being plugged in or unplugged. On Linux a udev rule grants permission:
                %s
                (orvex-usb doctor shows details)
                """, Text.printable(device.manufacturer()), UdevRules.usb(device.vendorId()));
    }
}
