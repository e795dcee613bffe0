package com.talvane.orvex.comm;

/** Makes allocations of the native library fail, in a virtual machine that preloads libmissing_memory.so. */
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
