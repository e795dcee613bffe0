package com.talvane.orvex.comm.tool;

import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Random;
import java.util.TreeMap;

/**
 * A collection of durations in nanoseconds. It keeps a random sample of limited size, so a run of hours needs no more
 * memory than a short one.
 */
final class Latencies {
    private static final int MOST_KEPT = 1 << 20;

    private static final int BAR_WIDTH = 40;

    private final Random random = new Random();
    private long[] kept = new long[1 << 10];
    private long count;
    private long max;

    void add(long nanos) {
        max = Math.max(max, nanos);
        long place = count < MOST_KEPT ? count : (long) (random.nextDouble() * (count + 1));
        count++;
        if (place >= MOST_KEPT) {
            return;
        }
        if (place == kept.length) {
            kept = Arrays.copyOf(kept, 2 * kept.length);
        }
        kept[(int) place] = nanos;
    }

    long count() {
        return count;
    }

    /** In seconds. */
    Map<String, Object> fields() {
        long[] sorted = sorted();
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("p50", at(sorted, 0.5) / 1e3);
        fields.put("p99", at(sorted, 0.99) / 1e3);
        fields.put("p999", at(sorted, 0.999) / 1e3);
        fields.put("max", max / 1e9);
        return fields;
    }

    /** A bar for each power of two: the share of the durations in that range. Empty without durations. */
    List<String> histogram() {
        Map<Integer, Long> counts = new TreeMap<>();
        long[] sorted = sorted();
        for (long nanos : sorted) {
            counts.merge(Long.SIZE - Long.numberOfLeadingZeros(nanos), 1L, Long::sum);
        }
        return counts.entrySet().stream()
                .map(entry -> {
                    double share = (double) entry.getValue() / sorted.length;
                    String bar = "#".repeat((int) Math.ceil(BAR_WIDTH * share));
                    return String.format("  < %12.6f ms  %-" + BAR_WIDTH + "s  %5.1f %%",
                            Math.scalb(1.0, entry.getKey()) / 1e6, bar, 100 * share);
                })
                .toList();
    }

    private long[] sorted() {
        long[] sorted = Arrays.copyOf(kept, (int) Math.min(count, MOST_KEPT));
        Arrays.sort(sorted);
        return sorted;
    }

    /** For example "median 0.010 ms, p99 0.020 ms, p99.9 0.090 ms, max 0.100 ms". */
    @Override
    public String toString() {
        long[] sorted = sorted();
        return String.format("median %.3f ms, p99 %.3f ms, p99.9 %.3f ms, max %.3f ms", at(sorted, 0.5),
                at(sorted, 0.99), at(sorted, 0.999), max / 1e6);
    }

    private static double at(long[] sorted, double share) {
        return sorted.length == 0 ? 0 : sorted[(int) Math.ceil(share * sorted.length) - 1] / 1e6;
    }
}
