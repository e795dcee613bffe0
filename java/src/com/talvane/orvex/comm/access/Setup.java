package com.talvane.orvex.comm.access;

/** Control requests as the raw calls take them, and numbers that have to lie within bounds. */
final class Setup {
    private static final int OCTET = 0xFF;
    private static final int WORD = 0xFFFF;

    private Setup() {
    }

    /** The setup packet with the data, or the room for it, behind it. */
    static byte[] bytes(int requestType, int request, int value, int index, byte[] data) {
        within("request type", requestType, 0, OCTET);
        within("request", request, 0, OCTET);
        within("value", value, 0, WORD);
        within("index", index, 0, WORD);
        within("length", data.length, 0, WORD);
        byte[] bytes = new byte[Connection.SETUP_BYTES + data.length];
        bytes[0] = (byte) requestType;
        bytes[1] = (byte) request;
        putWord(bytes, 2, value);
        putWord(bytes, 4, index);
        putWord(bytes, 6, data.length);
        System.arraycopy(data, 0, bytes, Connection.SETUP_BYTES, data.length);
        return bytes;
    }

    private static void putWord(byte[] bytes, int at, int word) {
        bytes[at] = (byte) word;
        bytes[at + 1] = (byte) (word >> 8);
    }

    static int within(String name, int number, int least, int greatest) {
        if (number < least || number > greatest) {
            throw new IllegalArgumentException(
                    String.format("%s %d is not within %d to %d", name, number, least, greatest));
        }
        return number;
    }
}
