package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbDeviceInfo;
import java.time.LocalTime;
import java.time.format.DateTimeFormatter;
import java.util.List;

/**
 * The lines of {@code watch} for people: the devices that are present, then an event a line. On a terminal they have
 * a heading, columns that fit the devices, and colours; in a pipe each line has the same form.
 */
final class WatchLines {
    private static final DateTimeFormatter TIME = DateTimeFormatter.ofPattern("HH:mm:ss.SSS");
    private static final int USUAL_SERIAL = 16;

    private final boolean isTerminal = Terminal.isOut();
    private final String format;

    WatchLines(List<DeviceInfo> present) {
        int serial = present.stream().mapToInt(device -> device.line().serial().length()).max().orElse(0);
        format = isTerminal ? "%-12s  %s  %5s  %-9s  %-" + Math.max(USUAL_SERIAL, serial) + "s  %s"
                : "%s  %s  %3s  %s  %-" + USUAL_SERIAL + "s  %s";
    }

    /** Shows what is there before anything changes. */
    void showPresent(List<DeviceInfo> present) {
        if (isTerminal) {
            System.out.println(row("TIME", "EVENT  ", "INDEX", "ID", "SERIAL", "PRODUCT"));
        }
        present.forEach(device -> show("present", device));
        System.out.println(isTerminal
                ? String.format("Present: %d. Watching; Ctrl-C ends it.", present.size()) : "Watching; Ctrl-C ends it.");
    }

    /** Shows one event; the word for it is {@code present}, {@code arrived} or {@code left}. */
    void show(String event, DeviceInfo device) {
        UsbDeviceInfo line = device.line();
        System.out.println(row(LocalTime.now().format(TIME), coloured(event), Integer.toString(device.index()),
                String.format("%04X:%04X", line.vendorId(), line.productId()), Text.printable(line.serial()),
                Text.printable(line.product())));
    }

    private static String coloured(String event) {
        String padded = String.format("%-7s", event);
        return switch (event) {
            case "arrived" -> Terminal.Look.GOOD.of(padded);
            case "left" -> Terminal.Look.BAD.of(padded);
            default -> padded;
        };
    }

    private String row(String time, String event, String index, String id, String serial, String product) {
        return String.format(format, time, event, index, id, serial, product);
    }
}
