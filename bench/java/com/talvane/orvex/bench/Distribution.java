package com.talvane.orvex.bench;

import java.util.Arrays;

/** The times of one kind of call, in nanoseconds. */
final class Distribution {
    private static final int MOST = 1 << 22;

    private long[] times = new long[1 << 14];
    private int count;

    boolean isFull() {
        return count == MOST;
    }

    void add(long nanoseconds) {
        if (count == times.length) {
            times = Arrays.copyOf(times, count * 2);
        }
        times[count++] = nanoseconds;
    }

    /** Prints a line: name, then median, p99, p99.9, the largest and the mean time of a call. */
    void print(String name, int callsPerTime) {
        Arrays.sort(times, 0, count);
        System.out.printf("%s\t%.1f\t%.1f\t%.1f\t%.1f\t%.1f%n", name, at(0.5, callsPerTime), at(0.99, callsPerTime),
                at(0.999, callsPerTime), at(1, callsPerTime),
                Arrays.stream(times, 0, count).average().orElse(0) / callsPerTime);
    }

    private double at(double share, int callsPerTime) {
        return (double) times[Math.min(count - 1, (int) (share * count))] / callsPerTime;
    }
}
