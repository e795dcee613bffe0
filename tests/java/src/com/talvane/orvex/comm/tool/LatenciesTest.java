package com.talvane.orvex.comm.tool;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import org.junit.jupiter.api.Test;

class LatenciesTest {
    private static Latencies upTo(int greatest, int perNumber) {
        Latencies latencies = new Latencies();
        for (int i = greatest; i > 0; i--) {
            for (int j = 0; j < perNumber; j++) {
                latencies.add(i * 1_000_000L);
            }
        }
        return latencies;
    }

    @Test
    void medianAndShareAndGreatestAreTold() {
        assertEquals("median 50.000 ms, p99 99.000 ms, p99.9 100.000 ms, max 100.000 ms", upTo(100, 1).toString());
        assertEquals("median 1.000 ms, p99 1.000 ms, p99.9 1.000 ms, max 1.000 ms", upTo(1, 1).toString());
        assertEquals("median 1000.000 ms, p99 1980.000 ms, p99.9 1998.000 ms, max 2000.000 ms", upTo(2000, 1).toString());
        assertEquals("median 0.000 ms, p99 0.000 ms, p99.9 0.000 ms, max 0.000 ms", new Latencies().toString());
    }

    @Test
    void ofVeryManyAFairChoiceIsKept() {
        Latencies many = upTo(300, 10_000);
        assertEquals(3_000_000, many.count());
        String told = many.toString();
        assertTrue(told.matches("median 1(4[5-9]|5[0-5])\\.000 ms, p99 29[5-9]\\.000 ms, p99\\.9 300\\.000 ms, max 300\\.000 ms"), told);
    }
}
