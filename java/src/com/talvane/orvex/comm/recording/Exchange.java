package com.talvane.orvex.comm.recording;

/**
 * A transfer that is over.
 *
 * @param device   where
 * @param kind     1 interrupt, 2 control, 3 bulk
 * @param endpoint the address; bit 0x80 is set when the device sends. 0x00 or 0x80 for a control transfer
 * @param setup    the 8 bytes of a control request; null for other transfers
 * @param asked    the number of bytes to be moved
 * @param data     the bytes for the device, {@code asked} of them, or those that came from it
 * @param moved    the number of bytes that moved
 * @param status   0, or the negative error number of Linux
 * @param began    in nanoseconds since 1970
 * @param ended    likewise
 */
record Exchange(RecordedDevice device, int kind, int endpoint, byte[] setup, int asked, byte[] data, int moved,
        int status, long began, long ended) {
    static final int INTERRUPT = 1;
    static final int CONTROL = 2;
    static final int BULK = 3;
    static final int COMPLETED = 0;
    static final int CANCELLED = -2;
    static final int GONE = -19;
    static final int STALLED = -32;
    static final int FAILED = -71;

    private static final int IN = 0x80;
    private static final int TYPE_BITS = 0x60;
    private static final int GET_DESCRIPTOR = 6;
    private static final int TEXT = 3;

    boolean isIn() {
        return (endpoint & IN) != 0;
    }

    /** A request that every device understands. */
    boolean isStandardRequest() {
        return setup != null && (setup[0] & TYPE_BITS) == 0;
    }

    /** The request for a string descriptor. */
    boolean isText() {
        return isStandardRequest() && setup[1] == GET_DESCRIPTOR && setup[3] == TEXT;
    }

    Exchange withData(byte[] bytes) {
        return new Exchange(device, kind, endpoint, setup, asked, bytes, moved, status, began, ended);
    }

    Exchange withStatus(int other) {
        return new Exchange(device, kind, endpoint, setup, asked, data, moved, other, began, ended);
    }
}
