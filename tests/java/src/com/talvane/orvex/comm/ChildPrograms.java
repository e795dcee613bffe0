package com.talvane.orvex.comm;

import com.talvane.orvex.comm.access.UsbDevice;
import com.talvane.orvex.comm.access.UsbSession;
import com.talvane.orvex.comm.access.UsbTimeoutException;
import com.talvane.orvex.comm.tool.ToolRun;
import java.io.IOException;
import java.lang.ref.WeakReference;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.HexFormat;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.CyclicBarrier;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;

/** Programs for {@link ChildVm}: tests that need a separate process. */
final class ChildPrograms {
    private static final int[] VENDORS = {UsbTest.VENDOR};

    private ChildPrograms() {
    }

    /**
     * Runs a program.
     *
     * @param args the name and the arguments of the program
     */
    public static void main(String[] args) throws Exception {
        if (args[0].equals("loadersAtOnce")) {
            loadersAtOnce(); // the first to load the library
            return;
        }
        if (args[0].equals("safeLayer")) {
            safeLayer();
            return;
        }
        if (args[0].equals("talk")) {
            talk(args[1]);
            return;
        }
        if (args[0].equals("fill")) {
            fill(args[1]);
            return;
        }
        ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess();
        switch (args[0]) {
            case "fresh" -> fresh(usb);
            case "everyMethod" -> EveryMethod.answers(usb, 0, 0).forEach((method, answer) ->
                    System.out.println(method + "=" + answer));
            case "version" -> say("version", usb.usbGetLibVersion());
            case "session" -> session(usb);
            case "withoutMemory" -> AllocationSweep.run(usb);
            case "leaveOpen" -> openBench(usb);
            case "openUnopenable" -> openUnopenable(usb);
            case "otherLoaders" -> otherLoaders(usb);
            case "leaveReading" -> leaveReading(usb);
            case "forgetHid" -> forgetHid(Arrays.copyOfRange(args, 1, args.length));
            default -> throw new IllegalArgumentException(args[0]);
        }
    }

    /** Makes the first calls after the library is loaded, and prints each result on a line. */
    private static void fresh(ORVEXCommUSBAccess usb) {
        say("version", usb.usbGetLibVersion());
        say("release", usb.usbRelease(0));
        say("count", usb.usbGetDeviceListCount(0));
        say("update without lists", usb.usbUpdateDeviceList(0, 0));
        say("release without lists", usb.usbReleaseDeviceList(0));
        say("open", usb.usbOpenDevice(0, 0));
        say("create before initialize", usb.usbCreateDeviceList2(0, VENDORS));
        say("initialize", usb.usbInitialize());
        say("initialize again", usb.usbInitialize());
        say("release another", usb.usbRelease(1));
        say("first list", usb.usbCreateDeviceList2(0, VENDORS));
        say("second list", usb.usbCreateDeviceList2(0, new int[0]));
        say("third list", usb.usbCreateDeviceList(0, 0xFFFE));
        say("update unknown", usb.usbUpdateDeviceList(3, 0));
        say("release unknown", usb.usbReleaseDeviceList(3));
        say("release first", usb.usbReleaseDeviceList(0));
        say("release", usb.usbRelease(0));
        say("release again", usb.usbRelease(0));
    }

    private static void say(String what, int result) {
        System.out.println(what + ": " + result);
    }

    private static void session(ORVEXCommUSBAccess usb) {
        usb.usbInitialize();
        usb.usbReleaseDeviceList(usb.usbCreateDeviceList2(0, VENDORS));
        usb.usbRelease(0);
    }

    /** A device is opened in the safe layer and closed, and transfers succeed and fail. */
    private static void safeLayer() throws Exception {
        try (UsbSession session = UsbSession.open();
                UsbDevice bench = session.list(VENDORS).find("BENCH00001").orElseThrow().open()) {
            say("written", bench.writeBulk(0x01, new byte[3], 0, 3, 30_000));
            bench.readBulk(0x84, new byte[64], 0, 64, 1);
        } catch (UsbTimeoutException e) {
            System.out.println(e.getMessage());
        }
    }

    /** Prints what transfers of a device come to; recorded to a file, unless that is called none. */
    private static void talk(String file) throws Exception {
        try (UsbSession session = UsbSession.open()) {
            if (!file.equals("none")) {
                session.record(Path.of(file));
            }
            UsbDevice bench = session.list(VENDORS).find("BENCH00001").orElseThrow().open();
            byte[] in = new byte[64];
            tell(() -> bench.writeBulk(0x01, new byte[] {1, 2, 3}, 0, 3, 30_000), in);
            tell(() -> bench.readBulk(0x81, in, 0, 64, 30_000), in);
            tell(() -> bench.writeBulk(0x05, new byte[] {1}, 0, 1, 30_000), in);
            tell(() -> bench.readBulk(0x85, in, 0, 64, 30_000), in);
            tell(() -> bench.readControl(0xC0, 3, 0, 0, 4, 30_000)[0], in);
            tell(() -> bench.readControl(0xC0, 2, 0x1234, 0x56, 3, 30_000)[2], in);
            tell(() -> bench.readControl(0xC0, 4, 0, 0, 4, 50)[0], in);
            tell(() -> bench.readBulk(0x84, in, 0, 64, 50), in);
            tell(() -> bench.readBulk(0x83, in, 0, 64, 30_000), in);
            tell(() -> bench.writeInterrupt(0x02, new byte[0], 0, 0, 30_000), in);
            tell(() -> bench.readInterrupt(0x82, in, 0, 64, 30_000), in);
        }
    }

    /** Records 12 MiB to a file. */
    private static void fill(String file) throws Exception {
        try (UsbSession session = UsbSession.open()) {
            session.record(Path.of(file));
            UsbDevice bench = session.list(VENDORS).find("BENCH00001").orElseThrow().open();
            for (int i = 0; i < 12; i++) {
                System.out.println(bench.writeBulk(0x03, new byte[1 << 20], 0, 1 << 20, 30_000));
            }
        }
    }

    private static void tell(Callable<Number> transfer, byte[] in) {
        try {
            System.out.println(transfer.call() + " " + HexFormat.of().formatHex(in));
        } catch (Exception e) {
            System.out.println(e);
        }
    }

    /** Loads the class in two more class loaders, while the first has its session. */
    private static void otherLoaders(ORVEXCommUSBAccess usb) throws Exception {
        say("initialize", usb.usbInitialize());
        URL[] jar = {ChildVm.productJar().toUri().toURL()};
        for (int i = 0; i < 2; ++i) {
            Class<?> again = new URLClassLoader(jar, ClassLoader.getPlatformClassLoader())
                    .loadClass(ORVEXCommUSBAccess.class.getName());
            Object access = again.getConstructor().newInstance();
            say("initialize", (int) again.getMethod("usbInitialize").invoke(access));
            say("release", (int) again.getMethod("usbRelease", int.class).invoke(access, 0));
        }
        say("release", usb.usbRelease(0));
    }

    /** The class in three class loaders at the same time, each with a session beside those of the others. */
    private static void loadersAtOnce() throws Exception {
        int loaders = 3;
        URL[] jar = {ChildVm.productJar().toUri().toURL()};
        CyclicBarrier all = new CyclicBarrier(loaders);
        ExecutorService pool = Executors.newFixedThreadPool(loaders);
        List<Future<String>> answers = Stream.generate(() -> pool.submit(() -> {
            Class<?> type = new URLClassLoader(jar, ClassLoader.getPlatformClassLoader())
                    .loadClass(ORVEXCommUSBAccess.class.getName());
            all.await();
            Object access = type.getConstructor().newInstance();
            Object opened = type.getMethod("usbInitialize").invoke(access);
            all.await();
            return opened + " " + type.getMethod("usbRelease", int.class).invoke(access, 0);
        })).limit(loaders).toList();
        try {
            for (Future<String> answer : answers) {
                System.out.println(answer.get(60, TimeUnit.SECONDS));
            }
        } finally {
            pool.shutdownNow(); // one that failed is not waited for by the others
        }
    }

    /** Discards a class loader whose library has a HID device open, and waits until the library is unloaded. */
    private static void forgetHid(String[] ways) throws Exception {
        try (Bus bus = Bus.connect()) {
            bus.plug(HidTest.ID);
        }
        URL[] jars = {ChildVm.productJar().toUri().toURL(), ChildVm.testsJar().toUri().toURL()};
        for (String how : ways) {
            WeakReference<ClassLoader> loader = new WeakReference<>(forgottenLoader(jars, how));
            System.out.print(how + ": " + libraries() + " libraries, then ");
            while (loader.get() != null || libraries() > 1) {
                System.gc();
                TimeUnit.MILLISECONDS.sleep(1);
            }
            System.out.println(libraries());
        }
    }

    private static ClassLoader forgottenLoader(URL[] jars, String how) throws Exception {
        ClassLoader loader = new URLClassLoader(jars, ClassLoader.getPlatformClassLoader());
        loader.loadClass(ForgottenHid.class.getName()).getMethod("open", String.class).invoke(null, how);
        return loader;
    }

    /** How many copies of the native library this process has in memory. */
    private static long libraries() throws IOException {
        try (Stream<String> maps = Files.lines(Path.of("/proc/self/maps"))) {
            return maps.filter(map -> map.contains("libUSBAccessLink_3_47"))
                    .map(map -> map.substring(map.indexOf('/'))).distinct().count();
        }
    }

    /** Opens the tool with an endpoint of every kind, in a session that is not released. */
    private static Device openBench(ORVEXCommUSBAccess usb) {
        usb.usbInitialize();
        int list = usb.usbCreateDeviceList2(0, VENDORS);
        Device device = new Device(usb, list, 0);
        while (!device.line().isEmpty() && !device.field(7).equals("BENCH00001")) {
            device = new Device(usb, list, device.index() + 1);
        }
        say("open", device.open());
        return device;
    }

    /** Opens the device that the list could not open, asks the tool why, and ends as its list does. */
    private static void openUnopenable(ORVEXCommUSBAccess usb) {
        usb.usbInitialize();
        int list = usb.usbCreateDeviceList2(0, VENDORS);
        Device device = new Device(usb, list, 0);
        while (!device.field(5).startsWith("<cannot_open>")) {
            device = new Device(usb, list, device.index() + 1);
        }
        say("open", device.open());
        usb.usbReleaseDeviceList(list);
        usb.usbRelease(0);
        System.out.print(ToolRun.of(new byte[0], "doctor").out());
        ToolRun listed = ToolRun.of(new byte[0], "list");
        System.out.print(listed.out());
        System.err.print(listed.err());
        System.exit(listed.status());
    }

    /** Ends while a read waits at the device. */
    private static void leaveReading(ORVEXCommUSBAccess usb) throws InterruptedException {
        Device device = openBench(usb);
        Thread reader = new Thread(() -> device.read(0x84, 0, new byte[64]));
        reader.setDaemon(true);
        reader.start();
        try (Bus bus = Bus.connect()) {
            while (bus.pending("bench", 0x84) == 0) {
                TimeUnit.MILLISECONDS.sleep(1);
            }
        }
    }
}
