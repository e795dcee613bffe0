package com.talvane.orvex.comm.tool;

import java.nio.ByteBuffer;
import java.util.HexFormat;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import picocli.CommandLine.ITypeConverter;
import picocli.CommandLine.TypeConversionException;

/** Numbers as people write them on a command line: decimal, or hexadecimal with 0x in front. */
final class Numbers {
    private static final Pattern NUMBER = Pattern.compile("\\d+|0[xX](?<hexadecimal>\\p{XDigit}+)");

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
            // too great for an int: told below
        }
        throw new TypeConversionException(
                String.format("'%s' is not a number from %d to %d (0x%X)", text, least, greatest, greatest));
    }

    /** A vendor id, or two bytes of a control request. */
    static final class Word implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return within(text, 0, 0xFFFF);
        }
    }

    /** An endpoint address, or one byte of a control request. */
    static final class Octet implements ITypeConverter<Integer> {
        @Override
        public Integer convert(String text) {
            return within(text, 0, 0xFF);
        }
    }

    /** Milliseconds, or a place in a list. */
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

    /** Bytes, as pairs of hexadecimal digits; blanks and colons between them are allowed. */
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
