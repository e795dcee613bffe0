package com.talvane.orvex.bench;

import com.sun.management.OperatingSystemMXBean;
import com.talvane.orvex.comm.access.UsbDevice;
import com.talvane.orvex.comm.access.UsbException;
import com.talvane.orvex.comm.access.UsbSession;
import com.talvane.orvex.comm.access.UsbTimeoutException;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.net.StandardProtocolFamily;
import java.net.UnixDomainSocketAddress;
import java.nio.ByteBuffer;
import java.nio.channels.SocketChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicLong;

/**
 * HID reports through the safe layer: question and answer, a stream of reports, reports that come while the read has
 * waited for long, and the processor time of a read that waits.
 */
final class HidBench {
    private static final int REPORT = 64;
    private static final int REPORTS_IN = 0x82;
    private static final int TIMEOUT_MS = 30_000;
    private static final int WAIT_MS = 2000;
    /** Longer than a read waits without a pause. */
    private static final int SILENCE_MS = 30;
    private static final int LATE_REPORTS = 200;

    private final Bench bench;
    private final byte[] report = new byte[REPORT];

    HidBench(Bench bench) {
        this.bench = bench;
    }

    void run() throws Exception {
        try (OrvexBinding raw = new OrvexBinding()) {
            raw.open("HIDECHO2");
            lateReports("raw", () -> raw.read(REPORTS_IN, report) == REPORT);
            raw.usb().usbCloseDevice(raw.list(), raw.index());
        }
        try (UsbSession session = UsbSession.open()) {
            try (UsbDevice echo = open(session, "HIDECHO2")) {
                bench.time("hid_round_trip/safe", 1, () -> write(echo) && read(echo));
                lateReports("safe", () -> read(echo));
            }
            try (UsbDevice source = open(session, "HIDSRC02")) {
                bench.time("hid_report_in/safe", 1, () -> read(source));
            }
            try (UsbDevice sink = open(session, "HIDSINK2")) {
                bench.time("hid_report_out/safe", 1, () -> write(sink));
                waitingRead(sink);
            }
        }
    }

    private static UsbDevice open(UsbSession session, String serial) throws UsbException {
        return session.list(OrvexBinding.VENDOR).find(serial).orElseThrow().open();
    }

    private boolean write(UsbDevice device) throws UsbException {
        return device.writeReports(report, 0, REPORT, TIMEOUT_MS) == REPORT;
    }

    private boolean read(UsbDevice device) throws UsbException {
        return device.readReports(report, 0, REPORT, TIMEOUT_MS) == REPORT;
    }

    /** The time from the moment when a report is put on the bus until the read that has waited for it is back. */
    private void lateReports(String way, Bench.Call read) throws Exception {
        String place = System.getenv("SIMBUS_SOCKET");
        if (place == null) {
            return;
        }
        Distribution distribution = new Distribution();
        try (SocketChannel bus = SocketChannel.open(StandardProtocolFamily.UNIX)) {
            bus.connect(UnixDomainSocketAddress.of(Path.of(place)));
            for (int i = 0; i < LATE_REPORTS; ++i) {
                AtomicLong sent = new AtomicLong();
                Thread sender = new Thread(() -> sent.set(feedLater(bus)));
                sender.start();
                Bench.demand("hid_late_report", read.run());
                long arrived = System.nanoTime();
                sender.join();
                distribution.add(arrived - sent.get());
            }
        }
        distribution.print("hid_late_report/" + way, 1);
    }

    /** Waits, feeds a report, and returns the time just before. */
    private static long feedLater(SocketChannel bus) {
        try {
            // Not a whole number of pauses: the reports have to come at every moment of one.
            TimeUnit.MICROSECONDS.sleep(SILENCE_MS * 1000 + (long) (Math.random() * 10_000));
            String feed = "{\"op\":\"feed\",\"device\":\"echo2\",\"address\":\"0x81\",\"data\":\""
                    + "00".repeat(REPORT) + "\"}\n";
            long before = System.nanoTime();
            bus.write(StandardCharsets.UTF_8.encode(feed));
            bus.read(ByteBuffer.allocate(1024));
            return before;
        } catch (IOException | InterruptedException e) {
            throw new IllegalStateException(e);
        }
    }

    /** What the whole process uses while one read waits: with the library's read thread, without the JVM's start. */
    private void waitingRead(UsbDevice silent) throws UsbException {
        OperatingSystemMXBean system = ManagementFactory.getPlatformMXBean(OperatingSystemMXBean.class);
        long start = System.nanoTime();
        long used = system.getProcessCpuTime();
        try {
            silent.readReports(report, 0, REPORT, WAIT_MS);
        } catch (UsbTimeoutException e) {
            Distribution share = new Distribution();
            share.add(100_000 * (system.getProcessCpuTime() - used) / (System.nanoTime() - start));
            share.print("hid waiting read (% of a core)/safe", 1000);
        }
    }
}
