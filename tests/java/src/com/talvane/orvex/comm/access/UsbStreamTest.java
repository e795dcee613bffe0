package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.BufferedOutputStream;
import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.ClosedChannelException;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.Future;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Endpoints as streams and channels. */
class UsbStreamTest extends AccessTest {
    private static final int BRIEF = 50;

    private UsbDevice bench;

    private UsbInput input(int endpoint) throws UsbException {
        bench = bench == null ? open(BENCH) : bench;
        return new UsbInput(bench, endpoint, AMPLE);
    }

    private UsbOutput output(int endpoint) throws UsbException {
        bench = bench == null ? open(BENCH) : bench;
        return new UsbOutput(bench, endpoint, AMPLE);
    }

    private List<Integer> sizes(int endpoint) {
        return bus.received("bench", endpoint).stream().map(packet -> packet.length).toList();
    }

    @ParameterizedTest
    @ValueSource(ints = {0x01, 0x02})
    void whatIsWrittenIsReadInPiecesOfAnySize(int endpoint) throws IOException {
        UsbInput in = input(endpoint | 0x80);
        output(endpoint).write(pattern(300));
        byte[] got = new byte[300];
        assertEquals(1, got[0] = (byte) in.read());
        assertEquals(10, in.read(got, 1, 10));
        assertEquals(289, in.available());
        assertEquals(289, in.read(got, 11, 289));
        assertArrayEquals(pattern(300), got);
        assertEquals(0, in.read(got, 0, 0));
    }

    @Test
    void aReadGetsBytesOfOneMessageAndPassesOverEmptyPackets() throws IOException {
        UsbInput in = input(0x81);
        write(bench, 0x01, pattern(3));
        write(bench, 0x01, new byte[0]);
        write(bench, 0x01, pattern(5));
        byte[] got = new byte[512];
        assertEquals(3, in.read(got));
        assertEquals(5, in.read(got));
    }

    @Test
    void aReadGetsNoMoreThanWhatIsLeftOfAPacket() throws IOException {
        UsbInput in = input(0x81);
        write(bench, 0x01, pattern(5));
        assertEquals(3, in.read(new byte[3]));
        byte[] got = new byte[10];
        assertEquals(2, in.read(got));
        assertArrayEquals(Arrays.copyOf(Arrays.copyOfRange(pattern(5), 3, 5), 10), got);
    }

    @Test
    void aChannelTellsOfEmptyPackets() throws IOException {
        UsbInput in = input(0x81);
        write(bench, 0x01, pattern(3));
        write(bench, 0x01, new byte[0]);
        write(bench, 0x01, pattern(70));
        ByteBuffer target = ByteBuffer.allocate(600).position(20).slice();
        assertEquals(3, in.read(target));
        assertEquals(0, in.read(target));
        assertEquals(70, in.read(target));
        assertArrayEquals(pattern(70), Arrays.copyOfRange(target.array(), 23, 93));
        assertEquals(0, in.read(ByteBuffer.allocate(0)));
    }

    @ParameterizedTest
    @ValueSource(ints = {10, 1000})
    void directBuffersAreReadInto(int size) throws IOException {
        UsbInput in = input(0x81);
        write(bench, 0x01, pattern(30));
        ByteBuffer target = ByteBuffer.allocateDirect(size);
        int read = in.read(target);
        assertEquals(Math.min(size, 30), read);
        assertEquals(read, target.position());
        assertEquals(pattern(30)[read - 1], target.get(read - 1));
    }

    @Test
    void dataStreamsWorkOnTop() throws IOException {
        UsbInput in = input(0x81);
        DataOutputStream out = new DataOutputStream(new BufferedOutputStream(output(0x01)));
        out.writeInt(42);
        out.writeUTF("a tool");
        out.flush();
        assertEquals(List.of(12), sizes(0x01));
        DataInputStream data = new DataInputStream(in);
        assertEquals(42, data.readInt());
        assertEquals("a tool", data.readUTF());
    }

    @Test
    void aTimeOutLosesNothing() throws IOException {
        bench = open(BENCH);
        UsbInput in = new UsbInput(bench, 0x81, EXPIRING);
        assertThrows(UsbTimeoutException.class, in::read);
        write(bench, 0x01, pattern(2));
        assertEquals(1, in.read());
        assertEquals(2, in.read());
        UsbOutput silent = new UsbOutput(bench, 0x04, BRIEF);
        assertThrows(UsbTimeoutException.class, () -> silent.write(1));
    }

    @Test
    void theEndOfAMessageIsSentWhereAFullPacketWasTheLast() throws IOException {
        UsbOutput out = output(0x03);
        int packet = bench.endpoints().stream()
                .filter(endpoint -> endpoint.address() == 0x03).findFirst().orElseThrow().packetBytes();
        out.endMessage();
        out.write(pattern(packet));
        out.write(new byte[0]);
        out.endMessage();
        out.endMessage();
        out.write(pattern(3));
        out.write(new byte[0]);
        out.endMessage();
        assertEquals(List.of(packet, 0, 3), sizes(0x03));
    }

    @Test
    void aBufferIsWrittenFromItsPositionOn() throws IOException {
        UsbOutput out = output(0x03);
        ByteBuffer source = ByteBuffer.wrap(pattern(20)).position(5);
        assertEquals(15, out.write(source));
        assertFalse(source.hasRemaining());
        assertArrayEquals(Arrays.copyOfRange(pattern(20), 5, 20), bus.received("bench", 0x03).get(0));
        UsbOutput stalled = output(0x05);
        source.position(5);
        assertThrows(UsbStalledException.class, () -> stalled.write(source));
        assertEquals(5, source.position());
    }

    @Test
    void afterACloseNothingMoves() throws IOException {
        UsbInput in = input(0x81);
        UsbOutput out = output(0x01);
        write(bench, 0x01, pattern(2));
        assertEquals(1, in.read());
        assertTrue(in.isOpen() && out.isOpen());
        in.close();
        out.close();
        assertFalse(in.isOpen() || out.isOpen());
        assertEquals(2, in.read());
        assertThrows(ClosedChannelException.class, in::read);
        assertThrows(ClosedChannelException.class, () -> in.read(new byte[512]));
        assertThrows(ClosedChannelException.class, () -> out.write(1));
        assertThrows(ClosedChannelException.class, out::endMessage);
        assertTrue(bench.isOpen());
    }

    @Test
    void aPulledDeviceIsTold() throws Exception {
        UsbInput in = input(0x84);
        Future<Integer> read = whileWaiting("bench", 0x84, in::read);
        bench.close();
        failure(IllegalStateException.class, read);
    }

    @Test
    void whatCannotBeIsRefused() throws IOException {
        assertEquals("input from endpoint 0x81, bulk in, 512 bytes of BENCH00001",
                input(0x81).toString().replace(" 64 bytes", " 512 bytes"));
        assertTrue(output(0x02).toString().startsWith("output to endpoint 0x02, interrupt out, "));
        assertThrows(IllegalArgumentException.class, () -> input(0x01));
        assertThrows(IllegalArgumentException.class, () -> input(0x8F));
        assertThrows(IllegalArgumentException.class, () -> output(0x81));
        assertThrows(IllegalArgumentException.class, () -> new UsbInput(bench, 0x81, -1));
        assertThrows(IllegalArgumentException.class, () -> new UsbOutput(bench, 0x01, UsbDevice.FOREVER));
    }

    /** Most of the time is spent in the bus; the test checks that the stream adds no second copy. */
    @Test
    @Tag("memory")
    void aStreamReadsAMegabyteWithOneTransfer() throws IOException {
        UsbInput in = input(0x83);
        byte[] bytes = new byte[1 << 20];
        assertEquals(bytes.length, in.read(bytes));
        assertEquals(bytes.length, in.read(ByteBuffer.wrap(bytes)));
        assertEquals(0, in.available());
    }

    @Test
    void oneByteIsAPacketOfItsOwn() throws IOException {
        UsbOutput out = output(0x03);
        out.write(0x1FF);
        out.write(7);
        assertArrayEquals(new byte[] {(byte) 0xFF}, bus.received("bench", 0x03).get(0));
        assertArrayEquals(new byte[] {7}, bus.received("bench", 0x03).get(1));
    }
}
