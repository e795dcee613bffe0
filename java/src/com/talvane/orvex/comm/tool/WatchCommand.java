package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.access.UsbDeviceInfo;
import java.time.Instant;
import java.time.LocalTime;
import java.time.format.DateTimeFormatter;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.Callable;
import java.util.concurrent.TimeUnit;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Shows devices that are plugged in or unplugged, with one list that is kept as long as the session. */
@Command(
        name = "watch",
        description = "Shows the attached devices, then each that is plugged in or unplugged, until Ctrl-C.")
final class WatchCommand implements Callable<Integer> {
    private static final int PERIOD_MS = 100;
    private static final DateTimeFormatter TIME = DateTimeFormatter.ofPattern("HH:mm:ss.SSS");

    @Mixin
    private VendorOptions from;

    @Mixin
    private JsonOption json;

    @Option(
            names = "--seconds",
            paramLabel = "N",
            converter = Numbers.Count.class,
            description = "End after N seconds; a failure if --count is given and not reached.")
    private Integer seconds;

    @Option(
            names = "--count",
            paramLabel = "N",
            converter = Numbers.Count.class,
            description = "End after N changes.")
    private Integer count;

    @Override
    public Integer call() throws InterruptedException {
        long start = System.nanoTime();
        long limit = seconds == null ? Long.MAX_VALUE : TimeUnit.SECONDS.toNanos(seconds);
        long left = count == null ? Long.MAX_VALUE : count;
        try (StopRequest stop = new StopRequest(); Session session = new Session(from.vendors())) {
            List<DeviceInfo> known = session.devices();
            known.forEach(device -> show("present", device));
            if (json.isWanted()) {
                JsonOption.write(Map.of("event", "watching"));
            } else {
                System.out.println("Watching; Ctrl-C ends it.");
            }
            // Nobody may be reading any more; then nobody would end it either.
            while (left > 0 && System.nanoTime() - start < limit && !System.out.checkError()
                    && !stop.comesWithin(PERIOD_MS)) {
                session.update();
                List<DeviceInfo> now = session.devices();
                left -= showChanges(known, now);
                known = now;
            }
            if (count != null && left > 0 && System.nanoTime() - start >= limit) {
                throw new IllegalStateException(
                        String.format("only %d of %d changes within %d s", count - left, count, seconds));
            }
        }
        return 0;
    }

    /** A record keeps its place, so the two lists differ in presence and at the end only. */
    private int showChanges(List<DeviceInfo> before, List<DeviceInfo> now) {
        int changes = 0;
        for (DeviceInfo device : now) {
            boolean was = device.index() < before.size() && before.get(device.index()).line().present();
            if (was != device.line().present()) {
                show(was ? "left" : "arrived", device);
                changes++;
            }
        }
        return changes;
    }

    private void show(String what, DeviceInfo device) {
        UsbDeviceInfo line = device.line();
        if (json.isWanted()) {
            Map<String, Object> fields = new LinkedHashMap<>();
            fields.put("event", what);
            fields.put("time", Instant.now().toString());
            fields.putAll(device.fields());
            JsonOption.write(fields);
            return;
        }
        System.out.println(String.format("%s  %-7s  %3d  %04X:%04X  %-16s  %s", LocalTime.now().format(TIME), what,
                device.index(), line.vendorId(), line.productId(), Text.printable(line.serial()),
                Text.printable(line.product())));
    }
}
