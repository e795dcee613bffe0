package com.talvane.orvex.comm;

import com.talvane.orvex.comm.AllocationSweep.Step;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Set;
import java.util.function.IntSupplier;
import java.util.function.Supplier;

/** The steps of an {@link AllocationSweep}: every method, in every state in which it may allocate. */
final class AllocationSteps {
    private static final Set<String> NONE = Set.of();
    private static final Set<String> NO_MEMORY = Set.of("-11");
    /** No memory for the transfer records; none to enter the device. */
    private static final Set<String> NOT_OPENED = Set.of("-107", "-11");
    private static final Set<String> NOT_WRITTEN = Set.of("-112");
    private static final Set<String> NOT_READ = Set.of("-113");
    private static final int[] ONE_VENDOR = {UsbTest.VENDOR};
    private static final int[] OTHER_VENDOR = {UsbTest.OTHER_VENDOR};
    private static final String BENCH = "BENCH00001";
    private static final String HID = AllocationSweep.HID_SERIAL;
    private static final int LENGTH = 64;

    private final AllocationSweep sweep;
    private final ORVEXCommUSBAccess usb;
    private final List<Step> steps = new ArrayList<>();
    private Device device;
    private int unknownList = 1_000_000;

    AllocationSteps(AllocationSweep sweep) {
        this.sweep = sweep;
        this.usb = sweep.usb;
    }

    List<Step> all() {
        sessions();
        lists();
        updates();
        opens();
        closes();
        questions();
        transfers();
        unknownLists();
        return steps;
    }

    private void add(String name, Set<String> shortages, Runnable before, IntSupplier action) {
        addText(name, shortages, before, () -> String.valueOf(action.getAsInt()));
    }

    private void addText(String name, Set<String> shortages, Runnable before, Supplier<String> action) {
        steps.add(new Step(name, shortages, before, action, null));
    }

    /** An open in a list of which a device was open before: it leaves nothing that a close does not take back. */
    private void addOpen(String what, Runnable before) {
        steps.add(new Step("usbOpenDevice, " + what, NOT_OPENED, before, () -> String.valueOf(device.open()),
                () -> device.close()));
    }

    /** The result of a call, and its effect. */
    private static String withBytes(int answer, byte[] bytes) {
        return answer + " " + Arrays.toString(bytes);
    }

    private void withDevice(String serial) {
        sweep.beginWithList();
        device = sweep.find(serial);
    }

    private void withOpen(String serial) {
        device = sweep.open(serial);
    }

    private void sessions() {
        add("usbInitialize", NO_MEMORY, () -> { }, usb::usbInitialize);
        add("usbInitialize, again", NONE, usb::usbInitialize, usb::usbInitialize);
        add("usbGetLibVersion", NONE, () -> { }, usb::usbGetLibVersion);
        add("usbRelease", NONE, sweep::beginWithList, sweep::releaseSession);
        add("usbRelease, an open device", NONE, () -> withOpen(BENCH), sweep::releaseSession);
        add("usbRelease, an open HID device", NONE, () -> withOpen(HID), () -> {
            int closed = device.close();
            return closed == 0 ? sweep.releaseSession() : closed;
        });
    }

    private void lists() {
        addText("usbCreateDeviceList2", NO_MEMORY, usb::usbInitialize,
                () -> sweep.newList(usb.usbCreateDeviceList2(0, AllocationSweep.VENDORS)));
        addText("usbCreateDeviceList2, one vendor watched", NO_MEMORY, () -> {
            usb.usbInitialize();
            sweep.newList(usb.usbCreateDeviceList2(0, ONE_VENDOR));
        }, () -> sweep.newList(usb.usbCreateDeviceList2(0, AllocationSweep.VENDORS)));
        addText("usbCreateDeviceList2, there already", NONE, sweep::beginWithList,
                () -> sweep.newList(usb.usbCreateDeviceList2(0, AllocationSweep.VENDORS)));
        addText("usbCreateDeviceList", NO_MEMORY, usb::usbInitialize,
                () -> sweep.newList(usb.usbCreateDeviceList(0, UsbTest.VENDOR)));
        addText("usbCreateDeviceList, all vendors", NO_MEMORY, sweep::beginWithList,
                () -> sweep.newList(usb.usbCreateDeviceList(0, UsbTest.ANY_VENDOR)));
        add("usbReleaseDeviceList", NONE, () -> {
            usb.usbInitialize();
            sweep.newList(usb.usbCreateDeviceList2(0, OTHER_VENDOR));
        }, sweep::releaseList);
        add("usbReleaseDeviceList, an open device", NONE, () -> {
            usb.usbInitialize();
            sweep.newList(usb.usbCreateDeviceList2(0, OTHER_VENDOR));
            sweep.find("COMP0003").open();
        }, sweep::releaseList);
    }

    private void addUpdate(String what, Runnable news) {
        add("usbUpdateDeviceList, " + what, NO_MEMORY, () -> {
            withDevice(BENCH);
            news.run();
            sweep.awaitNews();
        }, () -> usb.usbUpdateDeviceList(sweep.list(), 0));
    }

    private void updates() {
        Bus bus = sweep.bus;
        add("usbUpdateDeviceList", NONE, sweep::beginWithList, () -> usb.usbUpdateDeviceList(sweep.list(), 0));
        addUpdate("a new device", () -> bus.plug("dual"));
        addUpdate("one of several interfaces gone", () -> bus.unplug("composite"));
        addUpdate("a device gone and back", () -> replace("bench", "bench"));
        addUpdate("several interfaces gone and back", () -> replace("composite", "composite"));
        addUpdate("an open device gone and back", () -> {
            device.open();
            replace("bench", "bench");
        });
        addUpdate("a HID device gone and back", () -> replace("hid", "hid"));
        addUpdate("another device in its place", () -> replace("bench", "twofold"));
    }

    private void replace(String pulled, String plugged) {
        sweep.bus.unplug(pulled);
        sweep.bus.plug(plugged);
    }

    private void opens() {
        add("usbOpenDevice, the first of a list", NOT_OPENED, () -> withDevice(BENCH), () -> device.open());
        addOpen("one interface of several", () -> {
            withOpen(BENCH);
            device = sweep.find("COMP0003_01");
        });
        add("usbOpenDevice, open already", NONE, () -> withOpen(BENCH), () -> device.open());
        addOpen("gone and back while open", () -> {
            withOpen(BENCH);
            sweep.bus.unplug("bench");
            sweep.bus.plug("bench");
            sweep.awaitNews();
            usb.usbUpdateDeviceList(sweep.list(), 0);
        });
        // A HID device counts as open even if it could not be opened: a write shows the difference.
        addText("usbOpenDevice, HID", Set.of("0 -109", "-11 -114"), () -> withDevice(HID), () -> {
            int opened = device.open();
            int written = device.writeInterrupt(0x01, new byte[LENGTH]);
            if (written < 0) {
                device.close();
            }
            return opened + " " + written;
        });
    }

    private void closes() {
        add("usbCloseDevice", NONE, () -> withOpen(BENCH), () -> device.close());
        add("usbCloseDevice, HID", NONE, () -> withOpen(HID), () -> device.close());
        add("usbResetDevice", NONE, () -> withOpen(BENCH), () -> usb.usbResetDevice(device.list(), device.index()));
        add("usbRestartDevice", NONE, () -> withDevice(BENCH),
                () -> usb.usbRestartDevice(device.list(), device.index()));
        add("usbResetPipe", NONE, () -> withOpen(BENCH),
                () -> usb.usbResetPipe(device.list(), device.index(), 0x81));
        add("usbCancelPipeTransfer", NONE, () -> withOpen(BENCH), () -> device.cancel(0x81));
    }

    private void questions() {
        add("usbGetDeviceListCount", NONE, sweep::beginWithList, () -> usb.usbGetDeviceListCount(sweep.list()));
        addText("usbGetDeviceInfo", NONE, () -> withDevice(BENCH), () -> device.line());
        addText("usbGetChangeInfo", NONE, () -> withDevice(BENCH),
                () -> usb.usbGetChangeInfo(device.list(), device.index()));
        Set<String> nothingGiven = Set.of(withBytes(-11, new byte[1]));
        addText("usbGetEndpointList", nothingGiven, () -> withDevice(BENCH), () -> {
            byte[] bytes = new byte[1];
            return withBytes(usb.usbGetEndpointList(device.list(), device.index(), bytes), bytes);
        });
        for (int type : new int[] {1, 2, 3, 5}) {
            int index = type == 3 ? 3 : 0x81;
            addText("usbGetDeviceDescriptor, type " + type, nothingGiven, () -> withDevice(BENCH), () -> {
                byte[] bytes = new byte[1];
                return withBytes(usb.usbGetDeviceDescriptor(
                        device.list(), device.index(), type, index, LENGTH, bytes), bytes);
            });
        }
    }

    /** In an array that is too short the library works on a copy; otherwise it allocates nothing. */
    private void transfers() {
        transfers("", new byte[1], NOT_WRITTEN, NOT_READ);
        transfers(", a whole array", new byte[LENGTH + 1], NONE, NONE);
        byte[] store = {0x40, 1, 0, 0, 0, 0, 4, 0};
        byte[] ask = {(byte) 0xC0, 2, 0x34, 0x12, 0x56, 0, 3, 0};
        controls("", store, NOT_WRITTEN, ask, NOT_READ);
        controls(", a whole array", Arrays.copyOf(store, LENGTH), NONE, Arrays.copyOf(ask, LENGTH), NONE);
    }

    private void controls(String what, byte[] store, Set<String> notWritten, byte[] ask, Set<String> notRead) {
        Runnable open = () -> withOpen(BENCH);
        add("usbWriteControlPipe" + what, notWritten, open, () -> device.controlWrite(store));
        add("usbReadControlPipe" + what, notRead, open, () -> device.controlRead(ask));
    }

    private void transfers(String what, byte[] bytes, Set<String> notWritten, Set<String> notRead) {
        Runnable open = () -> withOpen(BENCH);
        Runnable openHid = () -> withOpen(HID);
        Runnable openAndFeed = () -> {
            withOpen(BENCH);
            device.writeInterrupt(0x02, new byte[LENGTH]);
        };
        Runnable openHidAndFeed = () -> {
            withOpen(HID);
            device.writeInterrupt(0x01, new byte[LENGTH]);
        };
        add("usbWriteBulkPipe" + what, notWritten, open, () -> usb.usbWriteBulkPipe(
                device.list(), device.index(), 0x03, LENGTH, Device.AMPLE, bytes));
        add("usbReadBulkPipe" + what, notRead, open, () -> usb.usbReadBulkPipe(
                device.list(), device.index(), 0x83, LENGTH, Device.AMPLE, bytes));
        add("usbWriteBulkPipeEx" + what, notWritten, open, () -> usb.usbWriteBulkPipeEx(
                device.list(), device.index(), 0x03, LENGTH, Device.AMPLE, bytes, LENGTH, 0));
        add("usbReadBulkPipeEx" + what, notRead, open, () -> usb.usbReadBulkPipeEx(
                device.list(), device.index(), 0x83, LENGTH, Device.AMPLE, bytes, LENGTH, 0));
        interruptWrites(what, 0x06, bytes, notWritten, open);
        interruptReads(what, 0x82, bytes, notRead, openAndFeed);
        interruptWrites(", HID" + what, 0x01, bytes, notWritten, openHid);
        interruptReads(", HID" + what, 0x81, bytes, notRead, openHidAndFeed);
    }

    private void interruptWrites(String what, int out, byte[] bytes, Set<String> notWritten, Runnable open) {
        add("usbWriteInterruptPipe" + what, notWritten, open, () -> usb.usbWriteInterruptPipe(
                device.list(), device.index(), out, LENGTH, Device.AMPLE, bytes));
        add("usbWriteInterruptPipeEx" + what, notWritten, open, () -> usb.usbWriteInterruptPipeEx(
                device.list(), device.index(), out, LENGTH + 1, Device.AMPLE, bytes, LENGTH, 0));
    }

    private void interruptReads(String what, int in, byte[] bytes, Set<String> notRead, Runnable openAndFeed) {
        add("usbReadInterruptPipe" + what, notRead, openAndFeed, () -> usb.usbReadInterruptPipe(
                device.list(), device.index(), in, LENGTH, Device.AMPLE, bytes));
        add("usbReadInterruptPipeEx" + what, notRead, openAndFeed, () -> usb.usbReadInterruptPipeEx(
                device.list(), device.index(), in, LENGTH, Device.AMPLE, bytes, LENGTH, 0));
    }

    /** The look-up of an unknown list handle adds an entry to the map. */
    private void unknownList(String method, IntSupplier call) {
        add(method + ", an unknown list", Set.of("-114"), sweep::beginWithList, () -> {
            ++unknownList;
            return call.getAsInt();
        });
    }

    private void unknownLists() {
        byte[] bytes = new byte[LENGTH];
        unknownList("usbCloseDevice", () -> usb.usbCloseDevice(unknownList, 0));
        unknownList("usbResetDevice", () -> usb.usbResetDevice(unknownList, 0));
        unknownList("usbResetPipe", () -> usb.usbResetPipe(unknownList, 0, 1));
        unknownList("usbCancelPipeTransfer", () -> usb.usbCancelPipeTransfer(unknownList, 0, 1));
        unknownList("usbWriteControlPipe", () -> usb.usbWriteControlPipe(unknownList, 0, 0, 1, bytes));
        unknownList("usbReadControlPipe", () -> usb.usbReadControlPipe(unknownList, 0, 0, 1, bytes));
        unknownList("usbWriteBulkPipe", () -> usb.usbWriteBulkPipe(unknownList, 0, 1, 1, 1, bytes));
        unknownList("usbReadBulkPipe", () -> usb.usbReadBulkPipe(unknownList, 0, 1, 1, 1, bytes));
        unknownList("usbWriteBulkPipeEx", () -> usb.usbWriteBulkPipeEx(unknownList, 0, 1, 1, 1, bytes, LENGTH, 0));
        unknownList("usbReadBulkPipeEx", () -> usb.usbReadBulkPipeEx(unknownList, 0, 1, 1, 1, bytes, LENGTH, 0));
        unknownList("usbWriteInterruptPipe", () -> usb.usbWriteInterruptPipe(unknownList, 0, 1, 1, 1, bytes));
        unknownList("usbReadInterruptPipe", () -> usb.usbReadInterruptPipe(unknownList, 0, 1, 1, 1, bytes));
        unknownList("usbWriteInterruptPipeEx",
                () -> usb.usbWriteInterruptPipeEx(unknownList, 0, 1, 1, 1, bytes, LENGTH, 0));
        unknownList("usbReadInterruptPipeEx",
                () -> usb.usbReadInterruptPipeEx(unknownList, 0, 1, 1, 1, bytes, LENGTH, 0));
    }
}
