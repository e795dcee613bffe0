package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.Capture;
import com.talvane.orvex.comm.Capture.Packet;
import com.talvane.orvex.comm.access.UsbRecording.Without;
import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.logging.Filter;
import java.util.logging.Logger;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Recordings of a session: what is left out, and how they end. */
@Tag("memory")
class UsbCaptureEndsTest extends CaptureTest {
    @Test
    void serialNumbersAreLeftOut() throws Exception {
        byte[] in = new byte[64];
        byte[] secret = ("<" + BENCH + BENCH + ">").getBytes(StandardCharsets.US_ASCII);
        byte[] wide = BENCH.getBytes(StandardCharsets.UTF_16LE);
        UsbDevice bench = open(BENCH);
        List<String> lines = lines(packets(() -> {
            write(bench, 0x01, secret);
            read(bench, 0x81, in);
            write(bench, 0x01, wide);
            bench.writeControl(0x00, 9, 1, 0, new byte[0], AMPLE);
        }, Without.SERIAL_NUMBERS));
        String zeroes = "30".repeat(10);
        String wideZeroes = "3000".repeat(10);
        assertEquals("C control 0x80 0 22 1603" + wideZeroes, lines.get(13));
        assertEquals(List.of("S bulk 0x01 22 3c" + zeroes + zeroes + "3e", "C bulk 0x01 0 22",
                "S bulk 0x81 64", "C bulk 0x81 0 22 3c" + zeroes + zeroes + "3e",
                "S bulk 0x01 20 " + wideZeroes, "C bulk 0x01 0 20"), lines.subList(14, 20));
        assertArrayEquals(secret, Arrays.copyOf(in, secret.length));
        assertEquals("C control 0x80 0 16 " + text("Talvane"), lines.get(9));
    }

    /** It may be in other data by chance. */
    @Test
    void aShortSerialNumberIsLeftOutOfTextsOnly() throws Exception {
        bus.change("spare", "{\"serial\": \"@\"}");
        bus.plug("spare");
        UsbDevice spare = device("@");
        List<Packet> packets = packets(() -> {
            spare.open();
            write(spare, 0x01, new byte[] {'@'});
        }, Without.SERIAL_NUMBERS);
        assertEquals(hex(spare.descriptor(1, 0)), packets.get(1).data());
        assertEquals(hex(spare.descriptor(2, 0)), packets.get(5).data());
        assertEquals("04033000", packets.get(13).data());
        assertEquals("40", packets.get(14).data());
    }

    /** One that times out takes a second each time. */
    @Test
    void theFirstConfigurationThatIsNotThereIsTheLastThatIsAskedFor() throws Exception {
        String configuration = "{\"interfaces\": [{}]}";
        bus.change("spare", "{\"configurations\": " + List.of(configuration, configuration, configuration)
                + ", \"control\": [{\"requestType\": 128, \"request\": 6, \"value\": 513, \"stall\": true}]}");
        bus.plug("spare");
        List<String> setups = packets(() -> open("SPARE005"), Without.SERIAL_NUMBERS).stream()
                .map(Packet::setup).filter(setup -> setup.startsWith("8006") && setup.startsWith("02", 6)).toList();
        assertEquals(List.of("8006000200000900", setups.get(1), "8006010200000900"), setups);
    }

    @Test
    void dataAreLeftOut() throws Exception {
        List<Packet> packets = packets(() -> {
            UsbDevice bench = open(BENCH);
            write(bench, 0x01, new byte[] {1, 2});
            read(bench, 0x81, new byte[64]);
            bench.readControl(0xC0, 2, 0x1234, 0x56, 9, AMPLE);
            bench.readControl(0x80, 0, 0, 0, 2, AMPLE);
            bench.writeControl(0x00, 9, 1, 0, new byte[0], AMPLE);
        }, Without.DATA);
        assertEquals("C control 0x80 0 22 " + text(BENCH), packets.get(13).toString());
        assertEquals(List.of("S bulk 0x01 2", "C bulk 0x01 0 2", "S bulk 0x81 64", "C bulk 0x81 0 2",
                "S control 0x80 9 c002341256000900", "C control 0x80 0 3", STATUS_OF_DEVICE,
                "C control 0x80 0 2 0000", "S control 0x00 0 0009010000000000", "C control 0x00 0 0"),
                lines(packets).subList(DESCRIPTOR_PACKETS, packets.size()));
        assertEquals(">>", flags(packets, DESCRIPTOR_PACKETS));
        assertEquals("<<", flags(packets, DESCRIPTOR_PACKETS + 2));
        assertEquals(0, packets.get(DESCRIPTOR_PACKETS).held());
    }

    @Test
    void aSessionHasOneRecordingAtATime() throws Exception {
        UsbRecording first = session().record(file());
        Path other = folder.resolve("other");
        assertThrows(IllegalStateException.class, () -> session().record(other));
        assertTrue(Files.notExists(other));
        first.close();
        UsbRecording second = session().record(other);
        first.close();
        write(open(PAIR), 0x01, new byte[] {1});
        assertEquals(8, second.transfers());
        assertEquals(0, first.transfers());
        session().close();
        second.close();
        assertEquals(16, Capture.packets(other).size());
        assertThrows(IllegalStateException.class, () -> session().record(file()));
    }

    @Test
    @Tag("linux")
    void theEndOfTheSessionClosesTheFile() throws Exception {
        session().record(file());
        assertTrue(isOpen(file()));
        session().close();
        assertFalse(isOpen(file()));
    }

    private static boolean isOpen(Path file) throws IOException {
        boolean isOpen = false;
        for (File each : new File("/proc/self/fd").listFiles()) {
            isOpen |= each.getCanonicalPath().equals(file.toString());
        }
        return isOpen;
    }

    @Test
    void aFileThatCannotBeCreatedIsSaid() throws Exception {
        assertThrows(NoSuchFileException.class, () -> session().record(folder.resolve("none/a")));
        session().record(file()).close();
    }

    @Test
    @Tag("linux")
    void aFullDiskEndsTheRecordingAndNoTransfer() throws Exception {
        BlockingQueue<String> log = new LinkedBlockingQueue<>();
        Logger logger = Logger.getLogger("com.talvane.orvex.comm.access");
        Filter filter = logger.getFilter();
        logger.setFilter(entry -> !log.add(entry.getLevel() + " " + entry.getMessage()));
        try {
            fillTheDisk(log);
        } finally {
            logger.setFilter(filter);
        }
    }

    private void fillTheDisk(BlockingQueue<String> log) throws Exception {
        UsbRecording recording = session().record(Path.of("/dev/full"));
        UsbDevice bench = open(BENCH);
        assertEquals(3, write(bench, 0x01, new byte[3]));
        assertEquals(3, read(bench, 0x81, new byte[64]));
        assertEquals(0, recording.transfers());
        assertEquals("WARNING the recording ends here: No space left on device", next(log));
        for (int i = 0; i < 2; i++) {
            assertTrue(assertThrows(IOException.class, recording::close).getMessage()
                    .startsWith("the recording has ended early: "));
        }
        UsbRecording next = session().record(Path.of("/dev/full"));
        session().close();
        assertThrows(IOException.class, next::close);
        assertEquals("WARNING the recording ends here: No space left on device", next(log));
        assertNull(log.poll());
    }

    @Test
    @Tag("linux")
    @Tag("programs")
    void otherProgramsReadTheFileAlike() throws Exception {
        List<Packet> packets = packets(() ->
                fails(UsbStalledException.class, () -> read(open(BENCH), 0x85, new byte[64])));
        Path tool = Path.of(System.getProperty("orvex.usb.library")).resolveSibling("tests/record/list_capture");
        Process list = new ProcessBuilder(tool.toString(), file().toString()).redirectErrorStream(true).start();
        List<String> read = new String(list.getInputStream().readAllBytes(), StandardCharsets.UTF_8).lines().toList();
        assertEquals(IntStream.range(0, packets.size()).mapToObj(i -> i + 1 + " " + listed(packets.get(i))).toList(),
                read);
    }

    private static String listed(Packet packet) {
        return String.format("%d %c %d 0x%02x %d %d %d %d x%s x%s", packet.time(), packet.event(), packet.kind(),
                packet.endpoint(), packet.address(), packet.bus(), packet.status(), packet.length(),
                packet.setupFlag() == 0 ? packet.setup() : "", packet.data());
    }
}
