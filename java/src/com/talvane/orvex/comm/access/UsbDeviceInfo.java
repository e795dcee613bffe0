package com.talvane.orvex.comm.access;

import com.talvane.orvex.comm.system.Ports;
import java.util.List;
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
    /** Where a device descriptor tells which texts there are. */
    private static final int MANUFACTURER_INDEX = 14;
    private static final int PRODUCT_INDEX = 15;
    private static final int SERIAL_INDEX = 16;
    private static final Pattern LINE = Pattern.compile(
            "([01]):=(\\p{XDigit}{4}):=(\\p{XDigit}{4}):=(\\p{XDigit}{4})"
                    + ":=(.*?):=(.*?):=(.*):=x:=([hub]):=([012]):=(\\d{1,9}):=end",
            Pattern.DOTALL);
    private static final Pattern UNPRINTABLE = Pattern.compile("[\\p{Cc}\\p{Cf}\\p{Cs}\\p{Zl}\\p{Zp}]");

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
            throw new IllegalArgumentException("not an information line: " + printable(line));
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

    /**
     * Whether the library could not open the device to read its texts: no permission, or on its way in or out.
     *
     * @return true when the texts are stand-ins
     */
    public boolean isUnopenable() {
        return manufacturer.startsWith("<cannot_open>");
    }

    /** Whether there is a serial number, and it could be read. */
    boolean hasSerial() {
        return !serial.isEmpty() && !isMissing(serial) && !(family == Family.INTERFACE && serial.startsWith("?_"));
    }

    /** A text that the device does not have, or that could not be read. */
    private static boolean isMissing(String text) {
        return text.equals("?");
    }

    /**
     * Whether the device has a text that could not be read.
     *
     * @param descriptor the device descriptor; empty when that could not be read either
     */
    boolean lacksText(byte[] descriptor) {
        if (isUnopenable() || descriptor.length <= SERIAL_INDEX) {
            return isUnopenable();
        }
        boolean isNamedByDevice = family != Family.INTERFACE;
        return descriptor[MANUFACTURER_INDEX] != 0 && isMissing(manufacturer)
                || descriptor[PRODUCT_INDEX] != 0 && isMissing(product) && isNamedByDevice
                || descriptor[SERIAL_INDEX] != 0 && !serial.isEmpty() && !hasSerial();
    }

    /** Whether this may tell of the same device as another line, but for texts that could not be read. */
    boolean mayBe(UsbDeviceInfo other) {
        boolean hasSameIds = vendorId == other.vendorId && productId == other.productId && release == other.release;
        return hasSameIds && (isUnopenable() || (family == other.family && interfaceNumber == other.interfaceNumber
                && (isMissing(manufacturer) || manufacturer.equals(other.manufacturer))
                && (isMissing(product) || product.equals(other.product))
                && (!hasSerial() || serial.equals(other.serial))));
    }

    /** Whether this tells of an interface of that composite device. */
    boolean isInterfaceOf(UsbDeviceInfo composite) {
        return family == Family.INTERFACE && composite.family == Family.COMPOSITE && vendorId == composite.vendorId
                && productId == composite.productId && serial.startsWith(composite.serial + "_");
    }

    /**
     * Asks the system where the device is plugged in; it is also what keeps devices apart that have no serial number.
     *
     * @return the port as Linux names it, such as 1-4.2: port 2 of a hub at port 4 of bus 1. Several when other devices
     *         look the same. None when the device is absent, simulated in memory, or the system does not tell, as those
     *         other than Linux
     */
    public List<String> ports() {
        return present ? Ports.of(vendorId, productId, hasSerial() ? serial : "", isUnopenable()) : List.of();
    }

    /**
     * Names the device for people.
     *
     * @param index its place in the list
     * @return the serial number without control characters, or the place in the list when there is none
     */
    public String label(int index) {
        return hasSerial() ? printable(serial) : "device " + index;
    }

    /**
     * Names the device for people.
     *
     * @return such as "6A5C:1001 ECHO0001 (Talvane, Echo Tool)", without control characters
     */
    @Override
    public String toString() {
        return printable(String.format("%04X:%04X %s (%s, %s)%s", vendorId, productId, serial, manufacturer, product,
                present ? "" : ", absent"));
    }

    /**
     * Makes a text of a device fit for a terminal or a log: it may hold anything.
     *
     * @param text the text
     * @return the text with a question mark for each character that ends a line, controls a terminal, turns the
     *         direction of the text around it, or is invisible
     */
    public static String printable(String text) {
        return UNPRINTABLE.matcher(text).replaceAll("?");
    }
}
