package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Map;
import java.util.Set;
import java.util.TreeMap;
import java.util.TreeSet;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

class SessionTest extends UsbTest {
    @Test
    void theFirstCallsOfAFreshProcess() throws Exception {
        ChildVm.Outcome child = new ChildVm().run("fresh");
        assertEquals(0, child.status(), child.err());
        assertEquals("""
                version: 347
                release: -116
                count: 0
                update without lists: -104
                release without lists: -104
                open: -114
                create before initialize: -116
                initialize: 0
                initialize again: -115
                release another: -116
                first list: 0
                second list: 1
                third list: 2
                update unknown: -103
                release unknown: -103
                release first: 0
                release: 0
                release again: -116
                """, child.out());
    }

    @Test
    void theVersionIs347InEveryState() {
        assertEquals(347, usb.usbGetLibVersion());
        assertEquals(0, usb.usbInitialize());
        assertEquals(347, usb.usbGetLibVersion());
        assertEquals(0, usb.usbRelease(0));
        assertEquals(347, usb.usbGetLibVersion());
    }

    @Test
    void aSecondInitializeIsRefusedAndTheSessionStays() {
        Device bench = openBench();
        assertEquals(-115, usb.usbInitialize());
        assertEquals(3, bench.write(0x01, pattern(3)));
    }

    @Test
    void releaseWithAnotherIdIsRefusedAndTheSessionStays() {
        assertEquals(0, usb.usbInitialize());
        assertEquals(-116, usb.usbRelease(1));
        assertEquals(-116, usb.usbRelease(-1));
        assertEquals(-115, usb.usbInitialize());
    }

    @Test
    void releaseOfNoSessionDoesNotEndTheOldOneAgain() {
        assertEquals(0, usb.usbInitialize());
        assertEquals(0, usb.usbRelease(0));
        assertEquals(0, usb.usbRelease(-1));
        assertEquals(0, usb.usbRelease(-1));
        assertEquals(0, usb.usbInitialize());
    }

    @Test
    void aNewSessionCanFollow() {
        for (int i = 0; i < 3; i++) {
            Device bench = open("BENCH00001");
            assertEquals(3, bench.write(0x03, pattern(3)));
            assertEquals(0, bench.close());
            assertEquals(0, usb.usbReleaseDeviceList(bench.list()));
            assertEquals(0, usb.usbRelease(0));
        }
    }

    @Test
    void listsNeedTheIdOfTheOpenSession() {
        assertEquals(-116, usb.usbCreateDeviceList(0, VENDOR));
        assertEquals(-116, usb.usbCreateDeviceList2(0, new int[] {VENDOR}));
        assertEquals(0, usb.usbInitialize());
        assertEquals(-116, usb.usbCreateDeviceList(1, VENDOR));
        assertEquals(-116, usb.usbCreateDeviceList2(1, new int[] {VENDOR}));
        assertEquals(-116, usb.usbCreateDeviceList2(1, null));
    }

    @Test
    void countingNeedsNoSession() {
        int list = sessionWithList();
        int count = usb.usbGetDeviceListCount(list);
        assertTrue(count > 0);
        assertEquals(0, usb.usbRelease(0));
        assertEquals(count, usb.usbGetDeviceListCount(list));
        assertEquals(0, usb.usbGetDeviceListCount(1_000_000));
    }

    @Test
    void afterReleaseDevicesDoNotOpenAndTransfersFindNoneOpen() {
        Device bench = openBench();
        Device pair = find(bench.list(), "PAIR0002");
        assertEquals(0, usb.usbRelease(0));

        assertEquals(-107, pair.open());
        assertEquals(-109, bench.write(0x01, pattern(8)));
        assertEquals(-109, bench.read(0x81, new byte[8]));
        assertEquals(-109, bench.controlRead(ControlTransferTest.setup(0xC0, 2, 0x1234, 0x56, 3)));
        assertEquals(-109, bench.cancel(0x81));
        assertEquals(0, usb.usbUpdateDeviceList(bench.list(), 0));
        assertEquals(0, usb.usbReleaseDeviceList(bench.list()));
    }

    @Test
    void aListOfAnEndedSessionIsNotUsedAgain() {
        int old = sessionWithList();
        assertEquals(0, usb.usbRelease(0));
        openSession();
        int fresh = list(VENDOR, OTHER_VENDOR);
        assertNotEquals(old, fresh);
        open(find(fresh, "BENCH00001"));
    }

    @Test
    @Tag("memory")
    void aFailureOfLibusbToStartIsPassedOnAndLeavesNoSession() {
        bus.failNext("libusb_init", -99);
        assertEquals(-99, usb.usbInitialize());
        assertEquals(-116, usb.usbRelease(0));
        assertEquals(0, usb.usbInitialize());
    }

    /** Every method but usbInitialize returns the same without a session, except for some. */
    private static void assertAnswers(String ofMost, Map<String, String> ofSome, Map<String, String> answers) {
        Map<String, String> expected = new TreeMap<>(answers);
        expected.replaceAll((method, answer) -> ofMost);
        expected.putAll(Map.of("usbGetLibVersion", "347", "usbRelease", "-116", "usbCreateDeviceList", "-116",
                "usbCreateDeviceList2", "-116", "usbGetChangeInfo", ""));
        expected.putAll(ofSome);
        assertEquals(expected, new TreeMap<>(answers));
        Set<String> others = new TreeSet<>(AllocationSweep.nativeMethods());
        others.remove("usbInitialize");
        assertEquals(others, new TreeSet<>(answers.keySet()));
    }

    @Test
    void beforeTheFirstSessionNoMethodFindsAnything() throws Exception {
        ChildVm.Outcome child = new ChildVm().run("everyMethod");
        assertEquals(0, child.status(), child.err());
        Map<String, String> answers = child.out().lines().map(line -> line.split("=", 2))
                .collect(Collectors.toMap(line -> line[0], line -> line[1]));
        assertAnswers("-114", Map.of("usbUpdateDeviceList", "-104", "usbReleaseDeviceList", "-104",
                "usbGetDeviceListCount", "0", "usbGetDeviceInfo", ""), answers);
    }

    @Test
    void afterASessionNoMethodFindsAListThatNeverWas() {
        sessionWithList();
        assertEquals(0, usb.usbRelease(0));
        assertAnswers("-114", Map.of("usbUpdateDeviceList", "-103", "usbReleaseDeviceList", "-103",
                "usbGetDeviceListCount", "0", "usbGetDeviceInfo", ""), EveryMethod.answers(usb, 1_000_000, 0));
    }

    /** The results for the first tool of a list whose session has ended. */
    private static Map<String, String> stillKnown(Device bench, Map<String, String> more) {
        Map<String, String> answers = new TreeMap<>(Map.of("usbUpdateDeviceList", "0", "usbReleaseDeviceList", "0",
                "usbGetDeviceListCount", "4", "usbGetDeviceInfo", bench.line(), "usbGetDeviceDescriptor", "18",
                "usbGetEndpointList", "14", "usbOpenDevice", "-107", "usbRestartDevice", "-120"));
        answers.putAll(more);
        return answers;
    }

    @Test
    void afterASessionItsListsAreReadableAndNothingOpens() {
        Device bench = find(sessionWithList(), "BENCH00001");
        Map<String, String> expected = stillKnown(bench, Map.of());
        assertEquals(0, usb.usbRelease(0));
        assertAnswers("-114", expected, EveryMethod.answers(usb, bench.list(), bench.index()));
    }

    @Test
    void afterASessionWhatWasOpenIsNot() {
        Device bench = openBench();
        Map<String, String> expected = stillKnown(bench, Map.of("usbResetPipe", "-120"));
        assertEquals(0, usb.usbRelease(0));
        assertAnswers("-109", expected, EveryMethod.answers(usb, bench.list(), bench.index()));
    }
}
