package com.talvane.orvex.comm.access;

import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.List;
import java.util.stream.IntStream;

/**
 * An endpoint of a device, as it was read when the device was listed.
 *
 * @param address    its USB address; bit 0x80 is set when the device sends
 * @param packetSize wMaxPacketSize
 * @param attributes bmAttributes; the low two bits are the kind: 2 bulk, 3 interrupt
 * @param isIn       whether the device sends
 */
public record UsbEndpoint(int address, int packetSize, int attributes, boolean isIn) {
    /** As many bytes as the raw endpoint list can have. */
    public static final int MOST_BYTES = 128;

    private static final int PACKET_SIZE_BITS = 0x7FF;
    private static final int KIND_BITS = 3;
    private static final int INTERRUPT = 3;

    /**
     * Reads a raw endpoint list.
     *
     * @param bytes as the library has stored them
     * @param count for how many endpoints
     * @return the endpoints
     */
    public static List<UsbEndpoint> parse(byte[] bytes, int count) {
        ByteBuffer numbers = ByteBuffer.wrap(bytes).order(ByteOrder.LITTLE_ENDIAN);
        return IntStream.range(0, count)
                .mapToObj(i -> new UsbEndpoint(
                        numbers.getShort(), numbers.getShort(), numbers.getShort(), numbers.getShort() != 0))
                .toList();
    }

    /**
     * The length of a full packet: the packet size without the bits that tell how many packets fit into a microframe.
     *
     * @return the number of bytes, 0 to 2047
     */
    public int packetBytes() {
        return packetSize & PACKET_SIZE_BITS;
    }

    /**
     * Whether it is an interrupt endpoint.
     *
     * @return true for an interrupt endpoint, false for any other
     */
    public boolean isInterrupt() {
        return (attributes & KIND_BITS) == INTERRUPT;
    }

    /**
     * Names the endpoint for people.
     *
     * @return such as "endpoint 0x81, bulk in, 512 bytes"
     */
    @Override
    public String toString() {
        return String.format("endpoint 0x%02X, %s %s, %d bytes", address & 0xFF, isInterrupt() ? "interrupt" : "bulk",
                isIn ? "in" : "out", packetBytes());
    }
}
