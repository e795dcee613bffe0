package com.talvane.orvex.comm.access;

import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * What the information line of a device tells.
 *
 * <p>The texts are the device's own and may hold anything, also the {@code :=} between the fields. The line is read
 * from both ends, so that no text can pass for another field; but where one text ends and the next begins cannot be
 * told then. A {@code :=} too many is taken to belong to the serial number, and {@link #isAmbiguous} says so: the
 * string descriptors ({@link UsbDevice#descriptor}) tell the texts apart.
 *
 * @param present         whether the device was there at the latest update
 * @param vendorId        vendor id
 * @param productId       product id
 * @param release         release number of the device (bcdDevice)
 * @param manufacturer    the text, {@code ?} when the device has none
 * @param product         likewise; of an interface of a composite device, the name of the interface
 * @param serial          likewise; of an interface of a composite device, with an underscore and its number behind it
 * @param kind            how it is driven
 * @param family          what it is a part of
 * @param interfaceNumber number of the interface; 0 for a whole device
 */
public record UsbDeviceInfo(
        boolean present,
        int vendorId,
        int productId,
        int release,
        String manufacturer,
        String product,
        String serial,
        Kind kind,
        Family family,
        int interfaceNumber) {

    private static final String SEPARATOR = ":=";
    private static final Pattern LINE = Pattern.compile(
            "([01]):=(\\p{XDigit}{4}):=(\\p{XDigit}{4}):=(\\p{XDigit}{4})"
                    + ":=(.*?):=(.*?):=(.*):=x:=([hub]):=([012]):=(\\d{1,9}):=end",
            Pattern.DOTALL);

    /** How a device is driven. */
    public enum Kind {
        /** By reports. */
        HID,
        /** By bulk, interrupt and control transfers. */
        PIPES,
        /** Not at all: its class is not supported. */
        UNSUPPORTED
    }

    /** What an entry of the list stands for. */
    public enum Family {
        /** A device that is not composite. */
        WHOLE,
        /** A composite device. */
        COMPOSITE,
        /** An interface of a composite device. */
        INTERFACE
    }

    /**
     * Reads an information line.
     *
     * @param line as the library gives it
     * @return what it tells
     * @throws IllegalArgumentException when it is not a whole information line
     */
    public static UsbDeviceInfo parse(String line) {
        Matcher m = LINE.matcher(line);
        if (!m.matches()) {
            throw new IllegalArgumentException("not an information line: " + line);
        }
        return new UsbDeviceInfo(
                m.group(1).equals("1"),
                Integer.parseInt(m.group(2), 16),
                Integer.parseInt(m.group(3), 16),
                Integer.parseInt(m.group(4), 16),
                m.group(5),
                m.group(6),
                m.group(7),
                switch (m.group(8)) {
                    case "h" -> Kind.HID;
                    case "u" -> Kind.UNSUPPORTED;
                    default -> Kind.PIPES;
                },
                Family.values()[Integer.parseInt(m.group(9))],
                Integer.parseInt(m.group(10)));
    }

    /**
     * Whether the three texts may be cut in the wrong places.
     *
     * @return true when they have a {@code :=} among them that is not one of the line's own
     */
    public boolean isAmbiguous() {
        return serial.contains(SEPARATOR);
    }

    /**
     * Whether the device is of a kind.
     *
     * @return true for a HID device
     */
    public boolean isHid() {
        return kind == Kind.HID;
    }

    /** Whether both may tell of one device, of which the library could not read the texts once. */
    boolean isOfSameType(UsbDeviceInfo other) {
        return vendorId == other.vendorId && productId == other.productId && release == other.release
                && family == other.family && interfaceNumber == other.interfaceNumber;
    }

    /**
     * Whether the library could not open the device to read its texts: no permission, or on its way in or out.
     *
     * @return true when the texts are stand-ins
     */
    public boolean isUnopenable() {
        return manufacturer.startsWith("<cannot_open>");
    }

    /**
     * Names the device for people.
     *
     * @param index its place in the list
     * @return the serial number without control characters, or the place in the list when there is none
     */
    public String label(int index) {
        return serial.equals("?") || serial.isEmpty() ? "device " + index : serial.replaceAll("\\p{Cc}", "?");
    }

    /**
     * Names the device for people.
     *
     * @return such as "6A5C:1001 ECHO0001 (Talvane, Echo Tool)", without control characters
     */
    @Override
    public String toString() {
        return String.format("%04X:%04X %s (%s, %s)%s", vendorId, productId, serial, manufacturer, product,
                present ? "" : ", absent").replaceAll("\\p{Cc}", "?");
    }
}
