package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.talvane.orvex.comm.access.ListedDevice.Place;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.LongStream;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** The pauses between attempts to read a device, without one and without waiting. */
@Tag("memory")
class RetryTimesTest {
    private static final long MS = 1_000_000;
    /** Far enough below the greatest long that the times run over it. */
    private static final long START = Long.MAX_VALUE - 3_000 * MS;

    private final RetryTimes times = new RetryTimes();

    /** The milliseconds after the start at which attempts are due, when asked at every 50th. */
    private List<Long> due(int devices, long from, long to) {
        List<Long> due = new ArrayList<>();
        LongStream.iterate(from, ms -> ms < to, ms -> ms + 50)
                .filter(ms -> times.isDue(devices, START + ms * MS)).forEach(due::add);
        return due;
    }

    @Test
    void thePausesDoubleUpToAMinute() {
        assertEquals(List.of(), due(0, 0, 1000));
        assertEquals(List.of(1250L, 1750L, 2750L, 4750L, 8750L, 16750L, 32750L, 64750L, 124750L, 184750L),
                due(1, 1000, 200_000));
    }

    @Test
    void theyBeginAnewWithEachDeviceThatIsMore() {
        due(1, 0, 10_000);
        assertEquals(List.of(10_250L, 10_750L), due(2, 10_000, 11_000));
        assertEquals(List.of(11_750L), due(1, 11_000, 12_000));
        assertEquals(List.of(12_250L), due(2, 12_000, 12_500));
    }

    private static ListedDevice device(String text) {
        return new ListedDevice(null, 0, () -> { }, new Place(0, 0),
                "1:=6A5C:=1001:=0100:=" + text + ":=" + text + ":=?:=x:=b:=0:=0:=end");
    }

    @Test
    void aDeviceThatOpensIsTriedEightTimesAndOthersForEver() {
        ListedDevice opens = device("?");
        ListedDevice doesNot = device("<cannot_open>6A5C:1001");
        for (int i = 0; i < 8; i++) {
            assertTrue(times.isWorthwhile(opens));
            times.note(opens);
            times.note(doesNot);
        }
        assertFalse(times.isWorthwhile(opens));
        times.note(doesNot);
        assertTrue(times.isWorthwhile(doesNot));
        assertTrue(times.isWorthwhile(device("?")));
    }
}
