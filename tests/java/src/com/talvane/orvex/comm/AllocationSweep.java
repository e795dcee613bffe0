package com.talvane.orvex.comm;

import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;
import java.util.function.BooleanSupplier;
import java.util.function.Supplier;
import java.util.stream.Collectors;
import java.util.stream.IntStream;

/**
 * Memory that runs out in every method of the library: a step is done once with all memory, and then once for each
 * allocation that it made, which fails. The step has to answer what it may answer without memory, and, done again right
 * afterwards, what it answered with all of it; a device that is plugged in then has to be noticed, another one has to
 * open, and at the session's end nothing may be left over. A program for {@link ChildVm}.
 */
final class AllocationSweep {
    static final int[] VENDORS = {UsbTest.VENDOR, UsbTest.OTHER_VENDOR};
    private static final long DEADLINE_SECONDS = 20;
    /** Texts that are too long for a C++ string without an allocation. */
    static final String HID_SERIAL = "HIDT0021-with-a-long-serial-number";
    private static final String HID_TEXTS =
            String.format("{\"product\": \"HID Tool with a long name\", \"serial\": \"%s\"}", HID_SERIAL);
    private static final List<String> PLUGGED_AT_FIRST = List.of("bench", "pair", "composite", "stranger");
    private static final List<String> TO_GIVE_BACK = List.of("transfers not freed", "hid devices open");
    /** Calls of libusb, and those that take them back. */
    private static final Map<String, String> TAKEN_BACK_BY = Map.of(
            "libusb_init", "libusb_exit",
            "libusb_open", "libusb_close",
            "libusb_ref_device", "libusb_unref_device",
            "libusb_hotplug_register_callback", "libusb_hotplug_deregister_callback");

    final ORVEXCommUSBAccess usb;
    final Bus bus = Bus.connect();
    /** The lists of the running session, in the order in which they were made. */
    private final List<Integer> lists = new ArrayList<>();
    private int points;

    /**
     * A step of the sweep.
     *
     * @param name      the method, and after a comma the special case
     * @param shortages what it may answer without memory besides what it answers with it; none for a step that
     *                  allocates nothing
     * @param before    the preparation
     * @param action    the call or the calls whose allocations fail; gives the answer
     * @param undo      takes the action back, so that it can be done again in the same session; null when nothing can
     */
    record Step(String name, Set<String> shortages, Runnable before, Supplier<String> action, Runnable undo) {
        String method() {
            return name.split(",")[0];
        }
    }

    /** The final result of a step, and the number of its allocations in the first run. */
    private record Outcome(String answer, int allocations) {
    }

    /** The result of a step without a failure, and the visible state afterwards. */
    private record Rehearsal(Outcome outcome, List<String> afterwards) {
    }

    private AllocationSweep(ORVEXCommUSBAccess usb) {
        this.usb = usb;
    }

    /** Says for each step at how many points memory ran out, and in the end for all. */
    static void run(ORVEXCommUSBAccess usb) {
        AllocationSweep sweep = new AllocationSweep(usb);
        List<Step> steps = new AllocationSteps(sweep).all();
        check(methodsOf(steps).equals(nativeMethods()), "steps are there for " + methodsOf(steps) + " only");
        steps.forEach(sweep::tryStep);
        System.out.println(sweep.points + " points of memory running out");
    }

    private static Set<String> methodsOf(List<Step> steps) {
        return steps.stream().map(Step::method).collect(Collectors.toSet());
    }

    /** The names of all native methods. */
    static Set<String> nativeMethods() {
        return Arrays.stream(ORVEXCommUSBAccess.class.getDeclaredMethods())
                .filter(method -> Modifier.isNative(method.getModifiers()))
                .map(Method::getName)
                .collect(Collectors.toSet());
    }

    private void tryStep(Step step) {
        Rehearsal rehearsal = perform(step, null, 0, 0);
        int last = rehearsal.outcome().allocations();
        check(step.shortages().isEmpty() == (last == 0), step.name() + " allocates " + last + " times");
        int each = step.undo() == null ? 1 : Math.max(last, 1);
        for (int first = 1; first <= last; first += each) {
            perform(step, rehearsal, first, first + each - 1);
        }
        System.out.println(step.name() + ": " + last);
        points += last;
    }

    /** Does a step on a fresh bus, with one of these allocations failing after the other; from 0 to 0 none does. */
    private Rehearsal perform(Step step, Rehearsal rehearsal, int first, int last) {
        int failing = first;
        try {
            plugDevices();
            step.before().run();
            while (failing < last) {
                tryOnce(step, rehearsal, failing++);
                step.undo().run();
            }
            Outcome outcome = tryOnce(step, rehearsal, failing);
            List<String> seen = afterwards();
            endSession();
            if (rehearsal != null) {
                check(seen.equals(rehearsal.afterwards()), "leaves " + seen + " and not " + rehearsal.afterwards());
            }
            return new Rehearsal(outcome, seen);
        } catch (AssertionError | RuntimeException e) {
            throw new AssertionError(step.name() + ", allocation " + failing + ": " + e.getMessage(), e);
        }
    }

    /** Plugs in the devices in a fixed order, on which the order of lists depends. */
    private void plugDevices() {
        bus.reset();
        bus.change("hid", HID_TEXTS);
        PLUGGED_AT_FIRST.forEach(bus::unplug);
        PLUGGED_AT_FIRST.forEach(bus::plug);
        bus.plug("hid");
        bus.plug("hidpair");
    }

    /** Does a step with one of its allocations failing and, when it fails by that, once more. */
    private Outcome tryOnce(Step step, Rehearsal rehearsal, int failing) {
        Map<String, Integer> before = held();
        MissingMemory.watch(failing);
        String answer = step.action().get();
        int allocations = MissingMemory.endWatch();
        check(allocations >= failing, "was not reached");
        if (rehearsal != null && !answer.equals(rehearsal.outcome().answer())) {
            check(step.shortages().contains(answer), "answers " + answer);
            held().forEach((what, count) -> check(count <= before.get(what), "keeps " + what));
            answer = step.action().get();
            check(answer.equals(rehearsal.outcome().answer()), "again, answers " + answer);
        }
        return new Outcome(answer, allocations);
    }

    /** The number of libusb and HID objects that the library holds at the moment. */
    private Map<String, Integer> held() {
        Map<String, Integer> held = new TreeMap<>();
        TAKEN_BACK_BY.forEach((call, back) -> held.put(call, bus.calls(call) - bus.calls(back)));
        TO_GIVE_BACK.forEach(things -> held.put(things, bus.tally(things)));
        return held;
    }

    /** The state that a caller sees: the lists, a device that is plugged in, and whether devices work. */
    private List<String> afterwards() {
        List<String> seen = new ArrayList<>(lines());
        usb.usbInitialize();
        newList(usb.usbCreateDeviceList2(0, VENDORS));
        bus.plug("spare");
        await("the new device is noticed", () -> {
            updateLists();
            return lines().stream().anyMatch(line -> line.contains("SPARE005"));
        });
        seen.addAll(lines());
        devices().forEach(device -> seen.add("close " + device.close()));
        Device pair = find("PAIR0002");
        check(pair.open() == 0 && pair.write(0x01, new byte[64]) == 64 && pair.close() == 0, "a device does not work");
        Device hid = find(HID_SERIAL);
        check(hid.open() == 0 && hid.writeInterrupt(0x01, new byte[64]) == 64 && hid.close() == 0,
                "a HID device does not work");
        return seen;
    }

    private void endSession() {
        lists.forEach(list -> check(usb.usbReleaseDeviceList(list) == 0, "a list cannot be released"));
        check(releaseSession() == 0, "the session cannot be ended");
        check(bus.violations().isEmpty(), "wrong calls of libusb: " + bus.violations());
        TO_GIVE_BACK.forEach(things -> check(bus.tally(things) == 0, things));
    }

    // ------------------------------------------------------------------------- parts of steps

    /** Begins a session with the list of both vendors, in which no device is open. */
    void beginWithList() {
        usb.usbInitialize();
        newList(usb.usbCreateDeviceList2(0, VENDORS));
    }

    /** The answer of a call that makes a list; a handle, whose number does not matter, is a list of the session. */
    String newList(int handle) {
        if (handle < 0) {
            return String.valueOf(handle);
        }
        if (!lists.contains(handle)) {
            lists.add(handle);
        }
        return "a list";
    }

    /** The first list of the session. */
    int list() {
        return lists.get(0);
    }

    int releaseList() {
        return usb.usbReleaseDeviceList(lists.remove(0));
    }

    int releaseSession() {
        lists.clear();
        return usb.usbRelease(0);
    }

    Device find(String serial) {
        return devices().stream().filter(device -> device.field(7).equals(serial)).findFirst().orElseThrow();
    }

    /** Opens a device of a new session. */
    Device open(String serial) {
        beginWithList();
        Device device = find(serial);
        check(device.open() == 0, serial + " does not open");
        return device;
    }

    /** Comes back when the library has noticed all that happened on the bus until now: news come in their order. */
    void awaitNews() {
        int other = usb.usbCreateDeviceList2(0, new int[] {0x6A5E});
        newList(other);
        bus.plug("loner");
        await("the last of the news comes", () -> {
            usb.usbUpdateDeviceList(other, 0);
            return usb.usbGetDeviceListCount(other) > 0;
        });
    }

    private void updateLists() {
        lists.forEach(list -> check(usb.usbUpdateDeviceList(list, 0) == 0, "a list cannot be updated"));
    }

    private List<Device> devices() {
        return lists.stream().flatMap(list -> IntStream.range(0, usb.usbGetDeviceListCount(list))
                .mapToObj(index -> new Device(usb, list, index))).toList();
    }

    private List<String> lines() {
        return devices().stream().map(Device::line).toList();
    }

    private static void check(boolean condition, String otherwise) {
        if (!condition) {
            throw new AssertionError(otherwise);
        }
    }

    private static void await(String what, BooleanSupplier condition) {
        long deadline = System.nanoTime() + TimeUnit.SECONDS.toNanos(DEADLINE_SECONDS);
        while (!condition.getAsBoolean()) {
            check(System.nanoTime() < deadline, "waited in vain: " + what);
            LockSupport.parkNanos(TimeUnit.MILLISECONDS.toNanos(1));
        }
    }
}
