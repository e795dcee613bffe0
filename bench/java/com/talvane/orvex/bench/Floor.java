package com.talvane.orvex.bench;

/** The cost of native methods that do nothing. */
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
