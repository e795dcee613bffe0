package com.talvane.orvex.comm.access;

/** Control requests as the raw calls take them, and numbers that have to lie within bounds. */
final class Setup {
    /** Bytes of the setup packet, at the head of the data. */
    static final int PACKET_BYTES = 8;
    /** The direction bit of an endpoint address and of a request type: set for what the device sends. */
    static final int IN = 0x80;
    private static final int OCTET = 0xFF;
    private static final int WORD = 0xFFFF;

    private Setup() {
    }

    /** The setup packet with the data, or the room for it, behind it; type and length are right. */
    static byte[] bytes(int requestType, int request, int value, int index, byte[] data) {
        withinHex("request", request, 0, OCTET);
        withinHex("value", value, 0, WORD);
        withinHex("index", index, 0, WORD);
        byte[] bytes = new byte[PACKET_BYTES + data.length];
        bytes[0] = (byte) requestType;
        bytes[1] = (byte) request;
        putWord(bytes, 2, value);
        putWord(bytes, 4, index);
        putWord(bytes, 6, data.length);
        System.arraycopy(data, 0, bytes, PACKET_BYTES, data.length);
        return bytes;
    }

    /** The same for a request that gets up to {@code length} bytes from the device. */
    static byte[] forRead(int requestType, int request, int value, int index, int length) {
        within("length", length, 0, WORD);
        withinHex("request type", requestType, IN, OCTET);
        return bytes(requestType, request, value, index, new byte[length]);
    }

    /** The same for a request that sends data to the device. */
    static byte[] forWrite(int requestType, int request, int value, int index, byte[] data) {
        withinHex("request type", requestType, 0, IN - 1);
        within("length", data.length, 0, WORD);
        return bytes(requestType, request, value, index, data);
    }

    private static void putWord(byte[] bytes, int at, int word) {
        bytes[at] = (byte) word;
        bytes[at + 1] = (byte) (word >> 8);
    }

    static void within(String name, int number, int least, int greatest) {
        if (number < least || number > greatest) {
            throw new IllegalArgumentException(
                    String.format("%s %d is not within %d to %d", name, number, least, greatest));
        }
    }

    /** The same for what people write in hexadecimal: ids, addresses, bytes of a request. */
    static void withinHex(String name, int number, int least, int greatest) {
        if (number < least || number > greatest) {
            String form = greatest > OCTET ? "0x%04X" : "0x%02X";
            String told = number < 0 ? Integer.toString(number) : String.format(form, number);
            throw new IllegalArgumentException(
                    String.format("%s %s is not within " + form + " to " + form, name, told, least, greatest));
        }
    }

    /** A time-out that may be {@link Deadline#FOREVER}. */
    static void timeout(int milliseconds) {
        if (milliseconds < 0) {
            throw new IllegalArgumentException(
                    String.format("time-out %d is neither FOREVER nor 1 ms or more", milliseconds));
        }
    }

    /** A time-out that has to end. */
    static void endingTimeout(int milliseconds) {
        if (milliseconds < 1) {
            String told = milliseconds == Deadline.FOREVER ? "FOREVER" : Integer.toString(milliseconds);
            throw new IllegalArgumentException(
                    "time-out " + told + " is not 1 ms or more: only a read may wait for ever");
        }
    }
}
