package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.Capture;
import com.talvane.orvex.comm.Capture.Packet;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.attribute.PosixFilePermissions;
import java.time.Instant;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Recordings of a session: which packets are in the file. */
@Tag("memory")
class UsbCaptureTest extends CaptureTest {
    @Test
    void theFileBeginsAsACaptureOfUsbmon() throws Exception {
        packets(() -> { });
        assertEquals("0a0d0d0a34000000" + "4d3c2b1a01000000ffffffffffffffff"
                + "04001000" + hex("orvex-usb-access".getBytes(StandardCharsets.US_ASCII)) + "00000000" + "34000000"
                + "0100000020000000" + "dc00000000000000" + "0900010009000000" + "00000000" + "20000000",
                hex(Files.readAllBytes(file())));
        assertEquals("rw-------", PosixFilePermissions.toString(Files.getPosixFilePermissions(file())));
    }

    @Test
    void theDescriptorsOfADeviceComeFirst() throws Exception {
        byte[] device = device(BENCH).descriptor(1, 0);
        byte[] configuration = device(BENCH).descriptor(2, 0);
        int size = configuration.length;
        assertEquals(List.of(
                "S control 0x80 18 8006000100001200", "C control 0x80 0 18 " + hex(device),
                "S control 0x80 9 8006000200000900",
                "C control 0x80 0 9 " + hex(Arrays.copyOf(configuration, 9)),
                "S control 0x80 " + size + " 800600020000" + String.format("%02x00", size),
                "C control 0x80 0 " + size + " " + hex(configuration),
                "S control 0x80 255 800600030000ff00", "C control 0x80 0 4 04030904",
                "S control 0x80 255 800601030904ff00", "C control 0x80 0 16 " + text("Talvane"),
                "S control 0x80 255 800602030904ff00", "C control 0x80 0 22 " + text("Bench Tool"),
                "S control 0x80 255 800603030904ff00", "C control 0x80 0 22 " + text(BENCH)),
                lines(packets(() -> open(BENCH))));
    }

    @Test
    void everyTransferIsInTheFile() throws Exception {
        byte[] in = new byte[64];
        List<String> lines = transfers(() -> {
            UsbDevice bench = open(BENCH);
            write(bench, 0x01, new byte[] {1, 2, 3});
            read(bench, 0x81, in);
            bench.writeInterrupt(0x02, in, 0, 2, AMPLE);
            bench.readInterrupt(0x82, in, 0, 64, AMPLE);
            bench.writeControl(0x40, 1, 0x1234, 0x5678, new byte[] {7, 8}, AMPLE);
            bench.readControl(0xC0, 2, 0x1234, 0x56, 9, AMPLE);
            bench.writeControl(0x40, 1, 0, 0, new byte[0], AMPLE);
            write(bench, 0x01, new byte[0]);
            bench.readControl(0x80, 6, 0x0100, 0, 2, AMPLE);
        });
        assertEquals(List.of(
                "S bulk 0x01 3 010203", "C bulk 0x01 0 3",
                "S bulk 0x81 64", "C bulk 0x81 0 3 010203",
                "S interrupt 0x02 2 0102", "C interrupt 0x02 0 2",
                "S interrupt 0x82 64", "C interrupt 0x82 0 2 0102",
                "S control 0x00 2 4001341278560200 0708", "C control 0x00 0 2",
                "S control 0x80 9 c002341256000900", "C control 0x80 0 3 a1b2c3",
                "S control 0x00 0 4001000000000000", "C control 0x00 0 0",
                "S bulk 0x01 0", "C bulk 0x01 0 0",
                "S control 0x80 2 8006000100000200", "C control 0x80 0 2 1201"), lines);
    }

    @Test
    void theFieldsOfPacketsAreThoseOfUsbmon() throws Exception {
        Instant before = Instant.now().minusMillis(1);
        List<Packet> packets = packets(() -> {
            write(open(PAIR), 0x01, new byte[] {1});
            write(open(BENCH), 0x01, new byte[0]);
            fails(UsbTimeoutException.class, () -> device(BENCH).readBulk(0x84, new byte[64], 0, 64, BRIEF));
        });
        for (int i = 0; i < packets.size(); i += 2) {
            Packet start = packets.get(i);
            Packet end = packets.get(i + 1);
            assertEquals(start.urb(), end.urb());
            assertEquals(packets.get(0).urb() + i / 2, start.urb());
            assertTrue(start.time() <= end.time() && (i == 0 || packets.get(i - 1).time() <= start.time()));
            assertEquals(start.time(), start.seconds() * 1_000_000_000 + start.micros() * 1000L + start.time() % 1000);
            assertEquals(-115, start.status());
            assertEquals("00".repeat(16), start.rest() + "");
            assertEquals("00".repeat(8), end.setup());
            assertEquals('-', end.setupFlag());
            assertEquals(start.data().length() / 2, start.held());
            assertEquals(1, start.bus());
            assertEquals(i <= DESCRIPTOR_PACKETS ? 1 : 2, start.address());
        }
        Packet first = packets.get(0);
        assertFalse(Instant.ofEpochSecond(first.seconds(), first.micros() * 1000L).isBefore(before));
        assertFalse(Instant.ofEpochSecond(first.seconds()).isAfter(Instant.now()));
        assertEquals("<\0", flags(packets, 0));
        assertEquals("\0>", flags(packets, DESCRIPTOR_PACKETS));
        assertEquals("\0\0", flags(packets, packets.size() - 4));
        assertEquals("<\0", flags(packets, packets.size() - 2));
        assertTrue(packets.get(packets.size() - 1).time() - packets.get(packets.size() - 3).time() >= BRIEF * 900_000L);
    }

    @Test
    void aFailureIsWhatItWasOnTheBus() throws Exception {
        List<String> lines = transfers(() -> {
            UsbDevice bench = open(BENCH);
            fails(UsbStalledException.class, () -> read(bench, 0x85, new byte[64]));
            fails(UsbStalledException.class, () -> write(bench, 0x05, new byte[] {1}));
            fails(UsbStalledException.class, () -> bench.readControl(0xC0, 3, 0, 0, 4, AMPLE));
            fails(UsbTimeoutException.class, () -> bench.readControl(0xC0, 4, 0, 0, 4, BRIEF));
            fails(UsbTimeoutException.class, () -> bench.readBulk(0x84, new byte[64], 0, 64, BRIEF));
        });
        assertEquals(List.of(
                "S bulk 0x85 64", "C bulk 0x85 -32 0",
                "S control 0x80 2 8200000085000200", "C control 0x80 0 2 0100",
                "S bulk 0x05 1 01", "C bulk 0x05 -32 0",
                "S control 0x80 2 8200000005000200", "C control 0x80 0 2 0100",
                "S control 0x80 4 c003000000000400", "C control 0x80 -32 0",
                STATUS_OF_DEVICE, "C control 0x80 0 2 0000",
                "S control 0x80 4 c004000000000400", "C control 0x80 -2 0",
                STATUS_OF_DEVICE, "C control 0x80 0 2 0000",
                "S bulk 0x84 64", "C bulk 0x84 -2 0"), lines);
    }

    @Test
    void anEmptyPacketIsOne() throws Exception {
        UsbDevice bench = open(BENCH);
        List<String> lines = transfers(() -> {
            write(bench, 0x01, new byte[0]);
            assertEquals(0, read(bench, 0x81, new byte[64]));
        });
        assertEquals(List.of("S bulk 0x01 0", "C bulk 0x01 0 0", "S bulk 0x81 64", "C bulk 0x81 0 0",
                "S control 0x80 2 8200000081000200", "C control 0x80 0 2 0000"), lines);
    }

    @Test
    void aDeviceThatIsPulledIsGone() throws Exception {
        UsbDevice bench = open(BENCH);
        List<String> lines = transfers(() -> {
            bus.unplug("bench");
            fails(UsbDeviceGoneException.class, () -> read(bench, 0x84, new byte[64]));
        });
        assertEquals(List.of("S bulk 0x84 64", "C bulk 0x84 -19 0", STATUS_OF_DEVICE, "C control 0x80 -19 0"), lines);
    }

    @Test
    void aReadThatIsInterruptedOrClosedIsCancelled() throws Exception {
        UsbDevice bench = open(BENCH);
        List<String> lines = transfers(() -> {
            Thread.currentThread().interrupt();
            fails(UsbInterruptedException.class, () -> read(bench, 0x81, new byte[64]));
            Thread.interrupted();
            Thread[] reader = new Thread[1];
            Future<Integer> interrupted = onAnotherThread(() -> {
                reader[0] = Thread.currentThread();
                return read(bench, 0x84, new byte[64]);
            });
            await("the read is under way", () -> bus.pending("bench", 0x84) == 1);
            reader[0].interrupt();
            failure(UsbInterruptedException.class, interrupted);
            Future<Integer> closed = onAnotherThread(() -> read(bench, 0x84, new byte[64]));
            await("the read is under way", () -> bus.pending("bench", 0x84) == 1);
            bench.close();
            failure(IllegalStateException.class, closed);
        });
        assertEquals(List.of("S bulk 0x84 64", "C bulk 0x84 -2 0", "S bulk 0x84 64", "C bulk 0x84 -2 0"),
                lines.stream().filter(line -> line.contains("0x84")).toList());
        assertFalse(lines.stream().anyMatch(line -> line.matches("C .* (-19|-32) .*")), lines::toString);
    }

    @Test
    void longDataAreInSeveralPackets() throws Exception {
        int piece = 128 * 1024;
        byte[] out = pattern(2 * piece + 64);
        byte[] in = new byte[out.length];
        List<Packet> packets = packets(() -> {
            UsbDevice bench = open(BENCH);
            write(bench, 0x03, out);
            write(bench, 0x03, Arrays.copyOf(out, piece));
            assertEquals(in.length, read(bench, 0x83, in));
        });
        List<Packet> moved = packets.subList(DESCRIPTOR_PACKETS, packets.size());
        String sent = hex(out);
        assertEquals(List.of(
                "S bulk 0x03 " + out.length + " " + sent.substring(0, 2 * piece), "C bulk 0x03 0 " + piece,
                "S bulk 0x03 " + (piece + 64) + " " + sent.substring(2 * piece, 4 * piece), "C bulk 0x03 0 " + piece,
                "S bulk 0x03 64 " + sent.substring(4 * piece), "C bulk 0x03 0 64",
                "S bulk 0x03 " + piece + " " + sent.substring(0, 2 * piece), "C bulk 0x03 0 " + piece),
                lines(moved.subList(0, 8)));
        List<Packet> got = moved.subList(8, moved.size());
        assertEquals(List.of(in.length, piece, in.length - piece, piece, in.length - 2 * piece, 64),
                got.stream().map(Packet::length).toList());
        assertEquals(hex(in), got.get(1).data() + got.get(3).data() + got.get(5).data());
        assertEquals(got.get(1).time(), got.get(2).time());
        assertEquals(moved.get(0).time(), moved.get(2).time());
        assertEquals(7, moved.stream().map(Packet::urb).distinct().count());
    }

    @Test
    void reportsAreInterruptTransfers() throws Exception {
        UsbDevice hid = pluggedHid();
        byte[] in = new byte[100];
        List<String> lines = lines(packets(() -> {
            hid.open();
            hid.writeReports(pattern(70), 0, 70, AMPLE);
            hid.readReports(in, 0, 100, AMPLE);
            fails(UsbTimeoutException.class, () -> hid.readReports(in, 0, 64, BRIEF));
            bus.unplug("hid");
            fails(UsbException.class, () -> hid.writeReports(in, 0, 1, AMPLE));
        }));
        byte[] configuration = hid.descriptor(2, 0);
        assertEquals(List.of(
                "S control 0x80 18 8006000100001200", "C control 0x80 0 18 " + hex(hid.descriptor(1, 0)),
                "S control 0x80 41 8006000200002900", "C control 0x80 0 41 " + hex(configuration),
                "S control 0x80 4 8006000300000400", "C control 0x80 0 4 04030904",
                "S control 0x80 16 8006010309041000", "C control 0x80 0 16 " + text("Talvane"),
                "S control 0x80 18 8006020309041200", "C control 0x80 0 18 " + text("HID Tool"),
                "S control 0x80 18 8006030309041200", "C control 0x80 0 18 " + text(HID),
                "S interrupt 0x01 64 " + hex(pattern(64)), "C interrupt 0x01 0 64",
                "S interrupt 0x01 64 414243444546" + "5a".repeat(58), "C interrupt 0x01 0 64",
                "S interrupt 0x81 64", "C interrupt 0x81 0 64 " + hex(pattern(64)),
                "S interrupt 0x81 36", "C interrupt 0x81 0 36 414243444546" + "5a".repeat(30),
                "S interrupt 0x01 64 " + hex(in).substring(0, 2) + "5a".repeat(63), "C interrupt 0x01 -32 0"), lines);
    }

    @Test
    void reportsWithoutAnEndpointAreRequests() throws Exception {
        bus.change("hid", "{\"vendorId\": \"0x6A5D\", \"interfaces\": [{\"number\": 0, \"class\": 255, \"endpoints\":"
                + " [{\"address\": \"0x02\", \"type\": \"interrupt\", \"interval\": 1}]}, {\"number\": 1, \"hid\":"
                + " {\"input\": 512, \"output\": 512}, \"endpoints\":"
                + " [{\"address\": \"0x83\", \"type\": \"interrupt\", \"interval\": 1},"
                + " {\"address\": \"0x04\", \"type\": \"bulk\"}]}, {\"number\": 2, \"class\": 3, \"endpoints\":"
                + " [{\"address\": \"0x05\", \"type\": \"interrupt\", \"interval\": 1}]}]}");
        UsbDevice hid = pluggedHid();
        List<String> lines = lines(packets(() -> {
            hid.open();
            hid.writeReports(new byte[] {7}, 0, 1, AMPLE);
            bus.feed("hid", 0x83, pattern(512));
            hid.readReports(new byte[1], 0, 1, AMPLE);
        }));
        assertEquals(List.of("S control 0x00 512 2109000201000002 07" + "00".repeat(511), "C control 0x00 0 512",
                "S interrupt 0x83 1", "C interrupt 0x83 0 1 01"), lines.subList(lines.size() - 4, lines.size()));
    }

    @Test
    void devicesThatAreOpenAlreadyAreRecordedOnceWithTheirDescriptors() throws Exception {
        UsbDevice bench = open(BENCH);
        device(PAIR);
        try (UsbRecording recording = session().record(file())) {
            assertEquals("recording of 1 devices, 7 transfers, 207 bytes", recording.toString());
            write(bench, 0x01, new byte[] {1});
            assertEquals(1, recording.devices());
            assertEquals(8, recording.transfers());
            assertEquals(208, recording.bytes());
            bench.close();
            bench.open();
            open(PAIR);
            assertEquals(2, recording.devices());
            assertEquals(15, recording.transfers());
        }
        write(bench, 0x01, new byte[] {2});
        assertEquals(30, Capture.packets(file()).size());
        assertEquals(30, packets(() -> write(bench, 0x01, new byte[] {3})).size());
    }

    @Test
    void anInterfaceOfACompositeDeviceHasTheDescriptorsOfTheWhole() throws Exception {
        UsbDevice child = list().devices().stream().filter(device -> device.info().family() == UsbDeviceInfo.Family.INTERFACE)
                .findFirst().orElseThrow();
        List<Packet> packets = packets(child::open);
        assertEquals(hex(list().find("COMP0003").orElseThrow().descriptor(2, 0)), packets.get(5).data());
        assertEquals(text("COMP0003"), packets.get(13).data());
    }
}
