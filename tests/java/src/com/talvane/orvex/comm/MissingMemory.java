package com.talvane.orvex.comm;

/** Allocations of the native library that fail on demand: in a virtual machine that was started with what does it. */
final class MissingMemory {
    static {
        System.load(System.getenv("LD_PRELOAD"));
    }

    private MissingMemory() {
    }

    /**
     * Counts the allocations that the native library makes on the calling thread from now on.
     *
     * @param failing which of them fails, counted from 1; 0 for none
     */
    static native void watch(int failing);

    /**
     * Ends the count; nothing fails any more.
     *
     * @return how many allocations there were, with the one that failed
     */
    static native int endWatch();
}
