package com.talvane.orvex.bench;

/** What a native method with a byte array costs when it does nothing at all. */
final class Floor {
    static {
        System.load(System.getProperty("orvex.bench.floor"));
    }

    private Floor() {
    }

    /** Pins the array and releases it with copy-back, as the native methods of the library do. */
    static native int pin(byte[] bytes);

    /** Nothing. */
    static native int call(int one, int two, int three);
}
