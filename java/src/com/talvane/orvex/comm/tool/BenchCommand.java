package com.talvane.orvex.comm.tool;

import com.talvane.orvex.comm.tool.OpenDevice.Pipe;
import com.talvane.orvex.comm.tool.OpenDevice.Transfer;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.concurrent.Callable;
import java.util.concurrent.TimeUnit;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Mixin;
import picocli.CommandLine.Option;

/** Measures the throughput and latency of a device. */
@Command(
        name = "bench",
        description = "Measures throughput and latency: of an endpoint that echoes what another one receives, or, with"
                + " only --out or --in, of one direction.")
final class BenchCommand implements Callable<Integer> {
    private static final int USUAL_SECONDS = 3;

    @Mixin
    private DeviceOptions device;

    @Mixin
    private JsonOption json;

    @ArgGroup(exclusive = false)
    private Ends ends = new Ends();

    @Option(names = "--interrupt", description = "Use interrupt endpoints.")
    private boolean interrupt;

    @Option(
            names = "--size",
            paramLabel = "N",
            defaultValue = "512",
            converter = Numbers.Size.class,
            description = "Bytes for each transfer (default: ${DEFAULT-VALUE}).")
    private int size;

    @Option(
            names = "--count",
            paramLabel = "N",
            converter = Numbers.Size.class,
            description = "End after N rounds.")
    private Integer count;

    @Option(
            names = "--seconds",
            paramLabel = "N",
            converter = Numbers.Size.class,
            description = "End after N seconds (default: 3, without --count).")
    private Integer seconds;

    private final Latencies latencies = new Latencies();
    private long bytesOut;
    private long bytesIn;

    private static final class Ends {
        @Option(
                names = "--out",
                paramLabel = "ADDRESS",
                converter = Numbers.OutEndpoint.class,
                description = "Endpoint to write to (default: 0x01, without --in).")
        private Integer out;

        @Option(
                names = "--in",
                paramLabel = "ADDRESS",
                converter = Numbers.InEndpoint.class,
                description = "Endpoint to read from (default: 0x81, without --out).")
        private Integer in;

        private Pipe pipe(Integer chosen, int usual, BenchCommand bench) {
            Integer endpoint = out == null && in == null ? Integer.valueOf(usual) : chosen;
            return endpoint == null ? null : new Pipe(endpoint, bench.interrupt, bench.device.timeout);
        }
    }

    @Override
    public Integer call() throws InterruptedException {
        Pipe out = ends.pipe(ends.out, 0x01, this);
        Pipe in = ends.pipe(ends.in, 0x81, this);
        try (StopRequest stop = new StopRequest();
                Session session = device.session();
                OpenDevice open = device.openPipes(session)) {
            long start = System.nanoTime();
            if (!rounds(open, out, in, start, stop)) {
                return 1;
            }
            show(open, System.nanoTime() - start);
            return 0;
        }
    }

    /** Makes all rounds; false if the device failed one. */
    private boolean rounds(OpenDevice open, Pipe out, Pipe in, long start, StopRequest stop)
            throws InterruptedException {
        try (ProgressBar bar = new ProgressBar(count != null ? count : limit())) {
            while (isToGoOn(start) && !stop.comesWithin(0)) {
                if (!round(open, out, in)) {
                    return false;
                }
                bar.show(count != null ? latencies.count() : System.nanoTime() - start);
            }
            return true;
        }
    }

    /** The maximum duration, in nanoseconds. */
    private long limit() {
        return TimeUnit.SECONDS.toNanos(seconds != null ? seconds : count != null ? Long.MAX_VALUE : USUAL_SECONDS);
    }

    private boolean isToGoOn(long start) {
        return System.nanoTime() - start < limit()
                && (count == null || latencies.count() < count);
    }

    /** Makes one measurement; false if the device did not move all of the bytes. */
    private boolean round(OpenDevice open, Pipe out, Pipe in) {
        long nanos = 0;
        if (out != null) {
            Transfer sent = open.write(out, new byte[size]);
            bytesOut += sent.data().length;
            nanos += sent.nanos();
            if (!WriteCommand.tookAll(sent, size)) {
                return false;
            }
        }
        if (in != null) {
            Transfer got = out == null ? open.read(in, size) : open.readAll(in, size);
            bytesIn += got.data().length;
            nanos += got.nanos();
            // Without a write, a read may return fewer bytes than requested.
            if (!gaveAll(got.data().length, out == null ? 1 : size)) {
                return false;
            }
        }
        latencies.add(nanos);
        return true;
    }

    /** Whether the device sent enough bytes; reports it if it did not. */
    private static boolean gaveAll(int bytes, int least) {
        if (bytes < least) {
            System.err.println("orvex-usb: the device sent only " + bytes + " of " + least + " bytes");
        }
        return bytes >= least;
    }

    private void show(OpenDevice open, long nanos) {
        if (json.isWanted()) {
            Map<String, Object> fields = new LinkedHashMap<>();
            fields.put("rounds", latencies.count());
            fields.put("size", size);
            fields.put("seconds", nanos / 1e9);
            fields.put("bytesOut", bytesOut);
            fields.put("bytesIn", bytesIn);
            fields.put("latency", latencies.fields());
            JsonOption.write(fields);
            return;
        }
        System.out.printf("%s: %d rounds of %d bytes in %.3f s%n", open.info().label(), latencies.count(), size,
                nanos / 1e9);
        System.out.printf("out      %d bytes, %s%n", bytesOut, Text.rate(bytesOut, nanos));
        System.out.printf("in       %d bytes, %s%n", bytesIn, Text.rate(bytesIn, nanos));
        System.out.printf("latency  %s%n", latencies);
        if (Terminal.isOut()) {
            latencies.histogram().forEach(System.out::println);
        }
    }
}
