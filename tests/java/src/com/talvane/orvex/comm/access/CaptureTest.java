package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertThrows;

import com.talvane.orvex.comm.Capture;
import com.talvane.orvex.comm.Capture.Packet;
import com.talvane.orvex.comm.access.UsbRecording.Without;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.HexFormat;
import java.util.List;
import org.junit.jupiter.api.io.TempDir;

/** A test that reads the recording of a session back. */
abstract class CaptureTest extends AccessTest {
    static final int BRIEF = 20;
    /** Device, configuration in two steps, languages and three texts. */
    static final int DESCRIPTOR_PACKETS = 14;
    static final String STATUS_OF_DEVICE = "S control 0x80 2 8000000000000200";

    @TempDir
    Path folder;

    final Path file() {
        return folder.resolve("bug.pcapng");
    }

    /** Some work with devices. */
    @FunctionalInterface
    interface Work {
        void run() throws Exception;
    }

    /** The packets of a recording of some work. */
    final List<Packet> packets(Work work, Without... leftOut) throws Exception {
        UsbRecording recording = session().record(file(), leftOut);
        work.run();
        recording.close();
        return Capture.packets(file());
    }

    static List<String> lines(List<Packet> packets) {
        return packets.stream().map(Packet::toString).toList();
    }

    /** The transfers of some work with an open device, without its descriptors. */
    final List<String> transfers(Work work, Without... leftOut) throws Exception {
        List<String> lines = lines(packets(work, leftOut));
        return lines.subList(DESCRIPTOR_PACKETS, lines.size());
    }

    static void fails(Class<? extends Exception> type, Work work) {
        assertThrows(type, work::run);
    }

    static String hex(byte... bytes) {
        return HexFormat.of().formatHex(bytes);
    }

    static String text(String descriptor) {
        return String.format("%02x03", 2 + 2 * descriptor.length())
                + hex(descriptor.getBytes(StandardCharsets.UTF_16LE));
    }

    static String flags(List<Packet> packets, int at) {
        return "" + packets.get(at).dataFlag() + packets.get(at + 1).dataFlag();
    }
}
