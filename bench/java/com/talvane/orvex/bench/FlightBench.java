package com.talvane.orvex.bench;

import com.talvane.orvex.comm.access.UsbDevice;
import com.talvane.orvex.comm.access.UsbException;
import com.talvane.orvex.comm.access.UsbSession;
import java.time.Duration;
import jdk.jfr.FlightRecorder;
import jdk.jfr.Recording;

/**
 * What the events for Java's flight recorder cost a bulk write of 64 bytes in the safe layer: before the first recording,
 * and while a recording runs that has them disabled, drops them as too short, or keeps them. The question that the layer
 * asks for each transfer, whether there has been a recording, is timed alone, too.
 */
final class FlightBench {
    private static final String EVENT = "com.talvane.orvex.Transfer";
    private static final String WRITE = "flight_bulk_write_64/";
    private static final int TIMEOUT_MS = 30_000;
    private static final int BATCH = 200;
    private static final int SETTLING_CALLS = 500_000;

    private final Bench bench;
    private final byte[] bytes = new byte[64];

    FlightBench(Bench bench) {
        this.bench = bench;
    }

    void run() throws Exception {
        try (UsbSession session = UsbSession.open();
                UsbDevice sink = session.list(OrvexBinding.VENDOR).find("JAVA0001").orElseThrow().open()) {
            bench.time("flight_question/alone", BATCH, () -> !FlightRecorder.isInitialized());
            time("no_recording", sink);
            try (Recording recording = new Recording()) {
                recording.disable(EVENT);
                recording.start();
                time("disabled", sink);
                recording.enable(EVENT).withThreshold(Duration.ofHours(1));
                time("below_threshold", sink);
                recording.enable(EVENT).withoutThreshold();
                time("recorded", sink);
            }
        }
    }

    /** After as many calls as the compiler needs to take in what has changed. */
    private void time(String way, UsbDevice sink) throws Exception {
        for (int i = 0; i < SETTLING_CALLS; ++i) {
            Bench.demand(way, write(sink));
        }
        bench.time(WRITE + way, 1, () -> write(sink));
    }

    private boolean write(UsbDevice device) throws UsbException {
        return device.writeBulk(0x01, bytes, 0, bytes.length, TIMEOUT_MS) == bytes.length;
    }
}
