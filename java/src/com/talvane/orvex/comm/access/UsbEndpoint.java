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
}
