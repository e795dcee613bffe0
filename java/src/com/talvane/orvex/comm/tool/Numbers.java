package com.talvane.orvex.comm.tool;

import java.nio.ByteBuffer;
import java.util.HexFormat;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.TypeConversionException;

/**
 * Numbers on the command line: decimal, or hexadecimal with 0x. Vendor and product ids are always hexadecimal, as in
 * every list of USB devices.
 */
final class Numbers {
    private static final Pattern NUMBER = Pattern.compile("\\d+|0[xX](?<hexadecimal>\\p{XDigit}+)");

    private static final Pattern ID = Pattern.compile("(?:0[xX])?(\\p{XDigit}{1,4})");

    private Numbers() {
    }

    private static int within(String text, int least, int greatest) {
        Matcher number = NUMBER.matcher(text);
        try {
            if (number.matches()) {
                String hexadecimal = number.group("hexadecimal");
                int value = hexadecimal == null ? Integer.parseInt(text) : Integer.parseInt(hexadecimal, 16);
                if (value >= least && value <= greatest) {
                    return value;
                }
            }
        } catch (NumberFormatException e) {
            // Too large for an int: reported below.
        }
        throw new TypeConversionException(
                String.format("'%s' is not a number from %d to %d (0x%X)", text, least, greatest, greatest));
    }

    private static int id(String text) {
        Matcher id = ID.matcher(text);
        if (!id.matches()) {
            throw new TypeConversionException("'" + text + "' is not an id, up to four hexadecimal digits");
        }
        return Integer.parseInt(id.group(1), 16);
    }

    /** A vendor id. */
    static final class Id implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return id(text);
        }
    }

    /** The ids of a device, such as 6A5C:1001. */
    record Ids(int vendor, int product) {
        @Override
        public String toString() {
            return String.format("%04X:%04X", vendor, product);
        }

        /** Parses the two ids. */
        static final class Converter implements ITypeConverter<Ids> {
            @Override
            public Ids convert(String text) {
                String[] parts = text.split(":", 2);
                if (parts.length < 2) {
                    throw new TypeConversionException("'" + text + "' is not two ids with a colon between them");
                }
                return new Ids(id(parts[0]), id(parts[1]));
            }
        }
    }

    /** A 16-bit field of a control request. */
    static final class Word implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return within(text, 0, 0xFFFF);
        }
    }

    /** The address of an OUT endpoint. */
    static final class OutEndpoint implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return endpoint(text, "OUT", 0x01);
        }
    }

    /** The address of an IN endpoint. */
    static final class InEndpoint implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return endpoint(text, "IN", 0x81);
        }
    }

    /**
     * Rejects an address of the other direction: the library would change its direction bit and use another endpoint.
     */
    private static int endpoint(String text, String direction, int least) {
        int greatest = least | 0x0F;
        int address = within(text, 0, 0xFF);
        if (address < least || address > greatest) {
            throw new TypeConversionException(String.format("'%s' is not an %s endpoint, 0x%02X to 0x%02X", text,
                    direction, least, greatest));
        }
        return address;
    }

    /** An endpoint address, or one byte of a control request. */
    static final class Octet implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return within(text, 0, 0xFF);
        }
    }

    /** Milliseconds, a count or an index. */
    static final class Count implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return within(text, 0, Integer.MAX_VALUE);
        }
    }

    /** A number of bytes that one transfer may move. */
    static final class Size implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return within(text, 1, 1 << 24);
        }
    }

    /** The size of a HID device's reports. */
    static final class PacketSize implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return within(text, 64, 1024);
        }
    }

    /** Bytes, as pairs of hexadecimal digits; spaces and colons between them are allowed. */
    static final class Hex implements ITypeConverter<ByteBuffer> {
        @Override
        public ByteBuffer convert(String text) {
            try {
                return ByteBuffer.wrap(HexFormat.of().parseHex(text.replaceAll("[\\s:]", "")));
            } catch (IllegalArgumentException e) {
                throw new TypeConversionException("'" + text + "' is not pairs of hexadecimal digits");
            }
        }
    }
}
