package com.talvane.orvex.comm.tool;

import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** What the information line of a device tells. */
record DeviceInfo(
        int index,
        boolean present,
        int vendorId,
        int productId,
        int release,
        String manufacturer,
        String product,
        String serial,
        char type,
        int family,
        int interfaceNumber) {

    private static final Pattern LINE = Pattern.compile(
            "([01]):=(\\p{XDigit}{4}):=(\\p{XDigit}{4}):=(\\p{XDigit}{4})"
                    + ":=(.*?):=(.*?):=(.*):=x:=([hub]):=([012]):=(\\d+):=end",
            Pattern.DOTALL);

    static DeviceInfo parse(int index, String line) {
        Matcher m = LINE.matcher(line);
        if (!m.matches()) {
            throw new IllegalArgumentException("device " + index + " has an unreadable information line: " + line);
        }
        return new DeviceInfo(
                index,
                m.group(1).equals("1"),
                Integer.parseInt(m.group(2), 16),
                Integer.parseInt(m.group(3), 16),
                Integer.parseInt(m.group(4), 16),
                m.group(5),
                m.group(6),
                m.group(7),
                m.group(8).charAt(0),
                Integer.parseInt(m.group(9)),
                Integer.parseInt(m.group(10)));
    }

    boolean isHid() {
        return type == 'h';
    }

    /** Whether the library could not open it to read its texts. */
    boolean isUnopenable() {
        return manufacturer.startsWith("<cannot_open>");
    }

    String typeText() {
        return switch (type) {
            case 'h' -> "HID";
            case 'u' -> "unsupported";
            default -> "bulk";
        };
    }

    String familyText() {
        return switch (family) {
            case 1 -> "composite";
            case 2 -> "interface " + interfaceNumber;
            default -> "whole";
        };
    }

    /** For messages: the serial number, or the place in the list when the device has none. */
    String label() {
        return serial.equals("?") || serial.isEmpty() ? "device " + index : Text.printable(serial);
    }
}
