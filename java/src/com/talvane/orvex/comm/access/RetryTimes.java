package com.talvane.orvex.comm.access;

import java.util.HashMap;
import java.util.Map;
import java.util.concurrent.TimeUnit;

/** When devices that could not be read are tried again, and until when. Threads: under the session lock. */
final class RetryTimes {
    private static final long FIRST_PAUSE_NANOS = TimeUnit.MILLISECONDS.toNanos(250);
    private static final long LONGEST_PAUSE_NANOS = TimeUnit.MINUTES.toNanos(1);
    /** How often a device is tried that opens, but never gives one of its texts. */
    private static final int MOST_TRIES = 8;

    /** How many there were at the latest question. */
    private int known;
    private long pause;
    private long next;
    private final Map<ListedDevice, Integer> tries = new HashMap<>();

    /**
     * Whether to try now. The pauses begin anew when there are more devices than before.
     *
     * @param count how many devices there are to try
     * @param now   as of System.nanoTime
     */
    boolean isDue(int count, long now) {
        boolean isMore = count > known;
        known = count;
        boolean isDue = count > 0 && !isMore && now - next >= 0;
        if (isMore || isDue) {
            pause = isMore ? FIRST_PAUSE_NANOS : Math.min(2 * pause, LONGEST_PAUSE_NANOS);
            next = now + pause;
        }
        return isDue;
    }

    /** Whether it makes sense to try a device, whose user may give the rights for it at any time. */
    boolean isWorthwhile(ListedDevice device) {
        return device.info().isUnopenable() || tries.getOrDefault(device, 0) < MOST_TRIES;
    }

    void note(ListedDevice device) {
        tries.merge(device, 1, Integer::sum);
    }
}
