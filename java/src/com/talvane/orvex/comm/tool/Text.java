package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbDeviceInfo;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.IntStream;

/** Text for a terminal. */
final class Text {
    private static final int DUMP_WIDTH = 16;

    private Text() {
    }

    /** Replaces control characters: a device's strings must not control the terminal. */
    static String printable(String text) {
        return UsbDeviceInfo.printable(text);
    }

    /** Replaces line ends, so that a string cannot forge a second line; all other characters stay unchanged. */
    static String oneLine(String text) {
        return text.replaceAll("[\\n\\r\\x0B\\f\\x85\\u2028\\u2029]", "?");
    }

    /** Formats rows as lines with aligned columns; the first row is the heading. */
    static List<String> table(List<List<String>> rows) {
        int columns = rows.get(0).size();
        int[] widths = IntStream.range(0, columns)
                .map(c -> rows.stream().mapToInt(row -> row.get(c).length()).max().orElse(0))
                .toArray();
        return rows.stream()
                .map(row -> IntStream.range(0, columns)
                        .mapToObj(c -> row.get(c) + " ".repeat(widths[c] - row.get(c).length()))
                        .collect(Collectors.joining("  "))
                        .stripTrailing())
                .toList();
    }

    /** A number of bytes and the time that they took. */
    static String took(long bytes, long nanos) {
        return String.format("%d bytes in %.3f ms", bytes, nanos / 1e6);
    }

    /** The throughput. */
    static String rate(long bytes, long nanos) {
        return String.format("%.0f bytes a second", bytes * 1e9 / Math.max(1, nanos));
    }

    /** A hex dump, sixteen bytes a line: offset, hexadecimal, ASCII. */
    static List<String> hexDump(byte[] data) {
        List<String> lines = new ArrayList<>();
        for (int offset = 0; offset < data.length; offset += DUMP_WIDTH) {
            StringBuilder hex = new StringBuilder();
            StringBuilder ascii = new StringBuilder();
            for (int i = offset; i < Math.min(offset + DUMP_WIDTH, data.length); i++) {
                hex.append(String.format("%02X ", data[i]));
                ascii.append(data[i] >= ' ' && data[i] < 0x7F ? (char) data[i] : '.');
            }
            lines.add(String.format("  %08X  %-48s |%s|", offset, hex, ascii));
        }
        return lines;
    }
}
