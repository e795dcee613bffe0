package com.talvane.orvex.comm;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.HexFormat;
import java.util.List;

/** A capture in the form of usbmon, as a test reads it. */
public final class Capture {
    /** The bytes before the first packet. */
    public static final int HEADER_BYTES = 84;
    private static final int BEFORE_USBMON = 28;
    private static final int USBMON_BYTES = 64;

    private Capture() {
    }

    /** A packet: its fields in the order of the file, and its data. */
    public record Packet(long time, long urb, char event, int kind, int endpoint, int address, int bus, char setupFlag,
            char dataFlag, long seconds, int micros, int status, int length, int held, String setup, String rest,
            String data) {
        /** Such as "S bulk 0x01 3 010203" of a submission and "C bulk 0x01 0 3" of a completion, with its status. */
        @Override
        public String toString() {
            String what = String.format("%c %s 0x%02X", event, List.of("iso", "interrupt", "control", "bulk").get(kind),
                    endpoint);
            return (what + (event == 'S' ? "" : " " + status) + " " + length + (setupFlag == 0 ? " " + setup : "")
                    + (data.isEmpty() ? "" : " " + data)).strip();
        }
    }

    /** The packets of a file that has nothing else behind its header. */
    public static List<Packet> packets(Path file) throws IOException {
        ByteBuffer bytes = ByteBuffer.wrap(Files.readAllBytes(file)).order(ByteOrder.LITTLE_ENDIAN);
        bytes.position(HEADER_BYTES);
        List<Packet> packets = new ArrayList<>();
        while (bytes.hasRemaining()) {
            packets.add(packet(bytes));
        }
        return packets;
    }

    private static Packet packet(ByteBuffer bytes) {
        int start = bytes.position();
        demand(bytes.getInt() == 6, "a packet");
        int size = bytes.getInt();
        demand(bytes.getInt() == 0, "of the first interface");
        long time = (long) bytes.getInt() << 32 | bytes.getInt() & 0xFFFFFFFFL;
        int captured = bytes.getInt();
        demand(bytes.getInt() == captured, "whole");
        demand(size == BEFORE_USBMON + (captured + 3) / 4 * 4 + 4, "of the right size");
        Packet packet = new Packet(time, bytes.getLong(), (char) bytes.get(), bytes.get(), bytes.get() & 0xFF,
                bytes.get(), bytes.getShort(), (char) bytes.get(), (char) bytes.get(), bytes.getLong(), bytes.getInt(),
                bytes.getInt(), bytes.getInt(), bytes.getInt(), hex(bytes, 8), hex(bytes, 16),
                hex(bytes, captured - USBMON_BYTES));
        while (bytes.position() < start + size - 4) {
            demand(bytes.get() == 0, "padded with zeroes");
        }
        demand(bytes.getInt() == size, "of the same size at its end");
        return packet;
    }

    private static void demand(boolean isTrue, String what) {
        if (!isTrue) {
            throw new AssertionError("a block is not " + what);
        }
    }

    private static String hex(ByteBuffer from, int count) {
        byte[] bytes = new byte[count];
        from.get(bytes);
        return HexFormat.of().formatHex(bytes);
    }
}
