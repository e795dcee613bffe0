package com.talvane.orvex.bench;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import java.util.ArrayList;
import java.util.List;
import java.util.ServiceLoader;

/**
 * Times calls from Java. One run is one fork: script/bench starts several, each with its own warm-up, among the runs of
 * the programs that they are held against. Prints a line for each kind of call.
 */
public final class Bench {
    private static final int[] SIZES = {64, 512, 4096, 65_536, 1_048_576};
    /** Calls too short for the clock are timed by so many. */
    private static final int BATCH = 200;
    private static final int WARM_UP_CALLS = 20_000;

    private final long periodNanoseconds;

    private Bench(double seconds) {
        periodNanoseconds = (long) (seconds * 1e9);
    }

    /** A call that is timed; false when it failed. */
    interface Call {
        boolean run() throws Exception;
    }

    /**
     * Runs one subject: transfers, frame, open, lines, hid or flight.
     *
     * @param arguments the subject, and the seconds that each kind of call is timed for
     */
    public static void main(String[] arguments) throws Exception {
        Bench bench = new Bench(Double.parseDouble(arguments[1]));
        switch (arguments[0]) {
            case "transfers" -> bench.transfers();
            case "frame" -> bench.frame();
            case "open" -> bench.openDevices();
            case "lines" -> bench.lines();
            case "hid" -> new HidBench(bench).run();
            case "flight" -> new FlightBench(bench).run();
            default -> throw new IllegalArgumentException(arguments[0]);
        }
    }

    void time(String name, int callsPerTime, Call call) throws Exception {
        long warm = System.nanoTime() + periodNanoseconds / 4;
        for (int i = 0; i < WARM_UP_CALLS && System.nanoTime() < warm; ++i) {
            demand(name, call.run());
        }
        Distribution distribution = new Distribution();
        long end = System.nanoTime() + periodNanoseconds;
        long start;
        do {
            start = System.nanoTime();
            boolean worked = true;
            for (int i = 0; i < callsPerTime; ++i) {
                worked &= call.run();
            }
            distribution.add(System.nanoTime() - start);
            demand(name, worked);
        } while (start < end && !distribution.isFull());
        distribution.print(name, callsPerTime);
    }

    static void demand(String name, boolean worked) {
        if (!worked) {
            throw new IllegalStateException("a call failed: " + name);
        }
    }

    private void transfers() throws Exception {
        List<Binding> bindings = new ArrayList<>(List.of(new OrvexBinding()));
        ServiceLoader.load(Binding.class).forEach(bindings::add);
        for (int i = 0; i < bindings.size(); ++i) {
            bindings.get(i).open(i == 0 ? "JAVA0001" : "PEER0001");
        }
        for (int size : SIZES) {
            byte[] bytes = new byte[size];
            time("floor/" + size, size > 4096 ? 1 : BATCH, () -> Floor.pin(bytes) == size);
            for (int endpoint : new int[] {0x01, 0x81, 0x02, 0x82}) {
                for (Binding binding : bindings) {
                    boolean in = (endpoint & 0x80) != 0;
                    String kind = ((endpoint & 0x0F) == 1 ? "bulk" : "interrupt") + (in ? "_read/" : "_write/");
                    time(kind + size + "/" + binding.name(), 1, () -> size
                            == (in ? binding.read(endpoint, bytes) : binding.write(endpoint, bytes)));
                }
            }
        }
        for (Binding binding : bindings) {
            binding.close();
        }
    }

    /** Calls that answer at once: without a device, and on a HID device that offers no bulk pipe. */
    private void frame() throws Exception {
        try (OrvexBinding binding = new OrvexBinding()) {
            ORVEXCommUSBAccess usb = binding.usb();
            int list = binding.list();
            binding.open("HIDECHO2");
            int index = binding.index();
            time("empty_native_call", BATCH, () -> Floor.call(1, 2, 3) == 6);
            time("no_device", BATCH, () -> usb.usbResetPipe(list, 9999, 1) == -114);
            time("hid_reset_pipe", BATCH, () -> usb.usbResetPipe(list, index, 1) == -120);
            for (int size : SIZES) {
                byte[] bytes = new byte[size];
                int batch = size > 4096 ? 1 : BATCH;
                time("pin/" + size, batch, () -> Floor.pin(bytes) == size);
                time("no_device_with_array/" + size, batch,
                        () -> usb.usbWriteBulkPipe(list, 9999, 1, size, 1, bytes) == -114);
                time("hid_bulk_write/" + size, batch,
                        () -> usb.usbWriteBulkPipe(list, index, 1, size, 1, bytes) == -120);
            }
            usb.usbCloseDevice(list, index);
        }
    }

    /** A call that has to find its device among all that are open, and answers at once: the endpoint is none. */
    private void openDevices() throws Exception {
        try (OrvexBinding binding = new OrvexBinding()) {
            ORVEXCommUSBAccess usb = binding.usb();
            int list = binding.list();
            int count = usb.usbGetDeviceListCount(list);
            for (int i = 0; i < count; ++i) {
                OrvexBinding.demand(usb.usbOpenDevice(list, i), "open device " + i);
            }
            int[] next = {0};
            time("find_open_device/" + count, BATCH,
                    () -> usb.usbCancelPipeTransfer(list, next[0]++ % count, 0x10) == -109);
            for (int i = 0; i < count; ++i) {
                usb.usbCloseDevice(list, i);
            }
        }
    }

    /** The count and every information line of a list. */
    private void lines() throws Exception {
        try (OrvexBinding binding = new OrvexBinding()) {
            ORVEXCommUSBAccess usb = binding.usb();
            int list = binding.list();
            int count = usb.usbGetDeviceListCount(list);
            time("count/" + count, 1, () -> usb.usbGetDeviceListCount(list) == count);
            time("one_line/" + count, 1, () -> !usb.usbGetDeviceInfo(list, 0).isEmpty());
            time("every_line/" + count, 1, () -> {
                boolean all = true;
                for (int i = 0; i < count; ++i) {
                    all &= !usb.usbGetDeviceInfo(list, i).isEmpty();
                }
                return all;
            });
        }
    }
}
