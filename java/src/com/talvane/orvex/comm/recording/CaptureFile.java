package com.talvane.orvex.comm.recording;

import java.io.Closeable;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.FileAttribute;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.HashSet;
import java.util.Set;

/**
 * A capture in the form of the Linux kernel's usbmon with headers of 64 bytes, as pcapng. Submission and completion of
 * a transfer are written together, when it is over. Each is a whole block in the file at once, so a program that
 * crashes loses nothing.
 *
 * <p>Threads: any.
 */
final class CaptureFile implements Closeable {
    /** Longer data do not fit into a packet: programs refuse to read packets above 256 KiB. */
    static final int MOST_DATA = 128 * 1024;

    private static final int LINK_TYPE = 220;
    private static final int SECTION = 0x0A0D0D0A;
    private static final int BYTE_ORDER = 0x1A2B3C4D;
    private static final int PACKET = 6;
    private static final int HEADER_BYTES = 64;
    private static final int PACKET_BYTES = 32 + HEADER_BYTES;
    private static final byte[] WRITER = "orvex-usb-access".getBytes(StandardCharsets.US_ASCII);
    private static final int IN_PROGRESS = -115;
    private static final long SECOND = 1_000_000_000;

    private final RandomAccessFile file;
    private final Set<RecordedDevice> devices = new HashSet<>();
    private long urb;
    private long transfers;
    private long bytes;
    private boolean ended;

    /** Creates the file, which only its owner can read, or empties the one that is there. It has no contents yet. */
    CaptureFile(Path path) throws IOException {
        boolean hasOwners = path.getFileSystem().supportedFileAttributeViews().contains("posix");
        FileAttribute<?>[] rights = hasOwners
                ? new FileAttribute<?>[] {PosixFilePermissions.asFileAttribute(
                        PosixFilePermissions.fromString("rw-------"))}
                : new FileAttribute<?>[0];
        Files.newByteChannel(path, Set.of(StandardOpenOption.CREATE, StandardOpenOption.WRITE,
                StandardOpenOption.TRUNCATE_EXISTING), rights).close();
        // Unlike a channel, it is not closed when its thread is interrupted.
        file = new RandomAccessFile(path.toFile(), "rw");
    }

    /** Writes what comes before the packets. */
    synchronized void begin(long number) throws IOException {
        urb = number;
        int size = 36 + WRITER.length;
        ByteBuffer header = littleEndian(size + 32);
        header.putInt(SECTION).putInt(size).putInt(BYTE_ORDER).putInt(1).putLong(-1);
        header.putShort((short) 4).putShort((short) WRITER.length).put(WRITER); // the program; a multiple of 4 long
        header.putInt(0).putInt(size);
        header.putInt(1).putInt(32).putInt(LINK_TYPE).putInt(0);
        header.putInt(1 << 16 | 9).putInt(9); // times are in units of 10 to the power of -9 seconds
        header.putInt(0).putInt(32);
        append(header);
    }

    private static ByteBuffer littleEndian(int size) {
        return ByteBuffer.allocate(size).order(ByteOrder.LITTLE_ENDIAN);
    }

    /** Writes a transfer, with as many of its data as it holds. Does nothing after the end. */
    synchronized void write(Exchange exchange) throws IOException {
        if (ended) {
            return;
        }
        int whole = exchange.isIn() ? exchange.moved() : exchange.asked();
        int pieces = Math.max((whole + MOST_DATA - 1) / MOST_DATA, 1);
        ByteBuffer blocks = littleEndian(pieces * 2 * (PACKET_BYTES + 4) + exchange.data().length);
        for (int at = 0; at < pieces * MOST_DATA; at += MOST_DATA) {
            putPiece(blocks, exchange, at, at + MOST_DATA >= whole);
            urb++;
        }
        append(blocks.flip());
        devices.add(exchange.device());
        transfers += pieces;
        bytes += exchange.moved();
    }

    /** The part of a transfer from an offset on, each packet with the length of what is left. */
    private void putPiece(ByteBuffer blocks, Exchange exchange, int at, boolean isLast) {
        boolean isIn = exchange.isIn();
        int held = Math.min(Math.max(exchange.data().length - at, 0), MOST_DATA);
        int moved = Math.min(Math.max(exchange.moved() - at, 0), MOST_DATA);
        long began = isIn && at > 0 ? exchange.ended() : exchange.began();
        putPacket(blocks, exchange, 'S', began, IN_PROGRESS, exchange.asked() - at, at, isIn ? 0 : held);
        int status = isLast ? exchange.status() : Exchange.COMPLETED;
        putPacket(blocks, exchange, 'C', exchange.ended(), status, moved, at, isIn ? held : 0);
    }

    private void putPacket(ByteBuffer blocks, Exchange exchange, char event, long time, int status, int length, int at,
            int held) {
        int size = HEADER_BYTES + held;
        int padding = -size & 3;
        int block = PACKET_BYTES + held + padding;
        blocks.putInt(PACKET).putInt(block).putInt(0);
        blocks.putInt((int) (time >> 32)).putInt((int) time).putInt(size).putInt(size);
        boolean hasSetup = event == 'S' && exchange.setup() != null;
        int noData = exchange.isIn() ? '<' : '>';
        blocks.putLong(urb).put((byte) event).put((byte) exchange.kind()).put((byte) exchange.endpoint());
        blocks.put((byte) exchange.device().address()).putShort((short) exchange.device().bus());
        blocks.put((byte) (hasSetup ? 0 : '-')).put((byte) (held > 0 || length == 0 ? 0 : noData));
        blocks.putLong(time / SECOND).putInt((int) (time % SECOND / 1000));
        blocks.putInt(status).putInt(length).putInt(held);
        blocks.put(hasSetup ? exchange.setup() : new byte[8]).put(new byte[16]);
        blocks.put(exchange.data(), held > 0 ? at : 0, held).put(new byte[padding]).putInt(block);
    }

    /** Ends the recording when this fails; of blocks that do not fit whole nothing is kept. */
    private void append(ByteBuffer blocks) throws IOException {
        long before = file.getFilePointer();
        try {
            file.write(blocks.array(), 0, blocks.limit());
        } catch (IOException e) {
            ended = true;
            try (file) {
                file.setLength(before);
            } catch (IOException second) {
                e.addSuppressed(second);
            }
            throw e;
        }
    }

    synchronized Recorder.Counts counts() {
        return new Recorder.Counts(devices.size(), transfers, bytes);
    }

    @Override
    public synchronized void close() throws IOException {
        ended = true;
        file.close();
    }
}
