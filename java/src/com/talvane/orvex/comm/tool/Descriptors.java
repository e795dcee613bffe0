package com.talvane.orvex.comm.tool;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.List;
import java.util.Map;
import java.util.function.IntFunction;

/** Shows descriptors as text: the name, the bytes and the fields of each. It accepts any bytes, also invalid ones. */
final class Descriptors {
    private static final HexFormat HEX = HexFormat.ofDelimiter(" ").withUpperCase();

    private static final List<String> TRANSFER_TYPES = List.of("control", "isochronous", "bulk", "interrupt");

    private static final Map<Integer, String> CLASSES = Map.ofEntries(
            Map.entry(0x00, "defined by the interfaces"), Map.entry(0x01, "audio"), Map.entry(0x02, "communications"),
            Map.entry(0x03, "HID"), Map.entry(0x05, "physical"), Map.entry(0x06, "image"),
            Map.entry(0x07, "printer"), Map.entry(0x08, "mass storage"), Map.entry(0x09, "hub"),
            Map.entry(0x0A, "CDC data"), Map.entry(0x0B, "smart card"), Map.entry(0x0E, "video"),
            Map.entry(0xDC, "diagnostic"), Map.entry(0xE0, "wireless"), Map.entry(0xEF, "miscellaneous"),
            Map.entry(0xFE, "application"), Map.entry(0xFF, "vendor"));

    /** A number of one or two bytes, low byte first, and its format. */
    record Field(String name, int size, IntFunction<String> text) {
        static Field octet(String name, IntFunction<String> text) {
            return new Field(name, 1, text);
        }

        static Field octet(String name) {
            return octet(name, Integer::toString);
        }

        static Field word(String name, IntFunction<String> text) {
            return new Field(name, 2, text);
        }
    }

    /** The fields of a descriptor after length and type. */
    record Layout(String name, List<Field> fields) {
        Layout(String name, Field... fields) {
            this(name, List.of(fields));
        }
    }

    private static final Map<Integer, Layout> LAYOUTS = Map.of(
            1, new Layout("Device",
                    Field.word("bcdUSB", Descriptors::release),
                    Field.octet("bDeviceClass", Descriptors::deviceClass),
                    Field.octet("bDeviceSubClass"),
                    Field.octet("bDeviceProtocol"),
                    Field.octet("bMaxPacketSize0"),
                    Field.word("idVendor", Descriptors::id),
                    Field.word("idProduct", Descriptors::id),
                    Field.word("bcdDevice", Descriptors::release),
                    Field.octet("iManufacturer"),
                    Field.octet("iProduct"),
                    Field.octet("iSerialNumber"),
                    Field.octet("bNumConfigurations")),
            2, new Layout("Configuration",
                    Field.word("wTotalLength", Integer::toString),
                    Field.octet("bNumInterfaces"),
                    Field.octet("bConfigurationValue"),
                    Field.octet("iConfiguration"),
                    Field.octet("bmAttributes", Descriptors::power),
                    Field.octet("bMaxPower", units -> units + "  " + 2 * units + " mA")),
            4, new Layout("Interface",
                    Field.octet("bInterfaceNumber"),
                    Field.octet("bAlternateSetting"),
                    Field.octet("bNumEndpoints"),
                    Field.octet("bInterfaceClass", Descriptors::deviceClass),
                    Field.octet("bInterfaceSubClass"),
                    Field.octet("bInterfaceProtocol"),
                    Field.octet("iInterface")),
            5, new Layout("Endpoint",
                    Field.octet("bEndpointAddress", a -> String.format("0x%02X  %s", a, direction(a))),
                    Field.octet("bmAttributes", a -> String.format("0x%02X  %s", a, transferType(a))),
                    Field.word("wMaxPacketSize", Integer::toString),
                    Field.octet("bInterval")),
            0x0B, new Layout("Interface association"),
            0x30, new Layout("SuperSpeed endpoint companion"));

    private static final int INTERFACE = 4;

    private Descriptors() {
    }

    /** Shows a sequence of descriptors, up to the first invalid length. */
    static List<String> describe(byte[] bytes) {
        List<String> lines = new ArrayList<>();
        int length;
        int interfaceClass = 0;
        int interfaceSubClass = 0;
        for (int at = 0; at < bytes.length; at += length) {
            length = bytes[at] & 0xFF;
            if (length < 2) {
                lines.add("Not a descriptor: length " + length);
                lines.addAll(Text.hexDump(Arrays.copyOfRange(bytes, at, bytes.length)));
                break;
            }
            byte[] one = Arrays.copyOfRange(bytes, at, Math.min(at + length, bytes.length));
            if (one.length >= 7 && one[1] == INTERFACE) {
                interfaceClass = one[5] & 0xFF;
                interfaceSubClass = one[6] & 0xFF;
            }
            addDescriptor(lines, one, length, layoutOf(one, interfaceClass, interfaceSubClass));
        }
        return lines;
    }

    private static Layout layoutOf(byte[] bytes, int interfaceClass, int interfaceSubClass) {
        int type = bytes.length > 1 ? bytes[1] & 0xFF : 0;
        Layout known = LAYOUTS.get(type);
        return known != null ? known : ClassDescriptors.layout(bytes, interfaceClass, interfaceSubClass)
                .orElseGet(() -> new Layout(String.format("Type 0x%02X", type)));
    }

    private static void addDescriptor(List<String> lines, byte[] bytes, int length, Layout layout) {
        String cut = bytes.length < length ? ", cut after " + bytes.length + " of " + length + " bytes" : "";
        lines.add(layout.name() + cut + ": " + HEX.formatHex(bytes));
        int at = 2;
        for (Field field : layout.fields()) {
            if (at + field.size() > bytes.length) {
                break;
            }
            int value = bytes[at] & 0xFF | (field.size() == 2 ? (bytes[at + 1] & 0xFF) << 8 : 0);
            lines.add(String.format("  %-20s %s", field.name(), field.text().apply(value)));
            at += field.size();
        }
    }

    static String direction(int address) {
        return (address & 0x80) != 0 ? "IN" : "OUT";
    }

    static String transferType(int attributes) {
        return TRANSFER_TYPES.get(attributes & 3);
    }

    private static String deviceClass(int number) {
        return String.format("0x%02X  %s", number, CLASSES.getOrDefault(number, "unknown"));
    }

    private static String id(int number) {
        return String.format("0x%04X", number);
    }

    static String release(int number) {
        return String.format("0x%04X  %X.%02X", number, number >> 8, number & 0xFF);
    }

    private static String power(int attributes) {
        return String.format("0x%02X  %s powered%s", attributes, (attributes & 0x40) != 0 ? "self" : "bus",
                (attributes & 0x20) != 0 ? ", can wake the host" : "");
    }
}
