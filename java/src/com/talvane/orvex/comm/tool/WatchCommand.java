package com.talvane.orvex.comm.tool;

import java.time.Instant;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.Callable;
import java.util.concurrent.TimeUnit;
import java.util.function.BiConsumer;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Shows devices that are plugged in or unplugged, with one list that is kept as long as the session. */
@Command(
        name = "watch",
        description = "Shows the attached devices, then each that is plugged in or unplugged, until Ctrl-C.")
final class WatchCommand implements Callable<Integer> {
    private static final int PERIOD_MS = 100;

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
            BiConsumer<String, DeviceInfo> show = showPresent(known);
            // An error of standard output means that nobody reads it any more.
            while (left > 0 && System.nanoTime() - start < limit && !System.out.checkError()
                    && !stop.comesWithin(PERIOD_MS)) {
                session.update();
                List<DeviceInfo> now = session.devices();
                left -= showChanges(known, now, show);
                known = now;
            }
            if (count != null && left > 0 && System.nanoTime() - start >= limit) {
                throw new IllegalStateException(
                        String.format("only %d of %d changes within %d s", count - left, count, seconds));
            }
        }
        return 0;
    }

    /** Shows the devices that are there; gives what shows an event, by the word for it and its device. */
    private BiConsumer<String, DeviceInfo> showPresent(List<DeviceInfo> present) {
        if (json.isWanted()) {
            present.forEach(device -> showJson("present", device));
            JsonOption.write(Map.of("event", "watching"));
            return WatchCommand::showJson;
        }
        WatchLines lines = new WatchLines(present);
        lines.showPresent(present);
        return lines::show;
    }

    /** Devices keep their index, so the two lists differ only in presence and at the end. */
    private static int showChanges(List<DeviceInfo> before, List<DeviceInfo> now,
            BiConsumer<String, DeviceInfo> show) {
        int changes = 0;
        for (DeviceInfo device : now) {
            boolean was = device.index() < before.size() && before.get(device.index()).line().present();
            if (was != device.line().present()) {
                show.accept(was ? "left" : "arrived", device);
                changes++;
            }
        }
        return changes;
    }

    private static void showJson(String event, DeviceInfo device) {
        Map<String, Object> fields = new LinkedHashMap<>();
        fields.put("event", event);
        fields.put("time", Instant.now().toString());
        fields.putAll(device.fields());
        JsonOption.write(fields);
    }
}
