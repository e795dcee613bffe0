package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.Arrays;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

class OpenCloseTest extends UsbTest {
    private static final int UNKNOWN_LIST = 1_000_000;

    private void assertWorks(Device device) {
        byte[] sent = pattern(10);
        byte[] echo = new byte[10];
        assertEquals(10, device.write(0x01, sent));
        assertEquals(10, device.read(0x81, echo));
        assertEquals(-1, Arrays.mismatch(sent, echo));
    }

    @Test
    void aDeviceOpensWorksAndCloses() {
        Device bench = openBench();
        assertWorks(bench);
        assertEquals(0, bench.close());
    }

    @Test
    void closeOfADeviceThatWasNeverOpenedFindsNoneAndDoesNoHarm() {
        Device bench = find(sessionWithList(), "BENCH00001");
        assertEquals(-114, bench.close());
        assertEquals(-114, usb.usbCloseDevice(UNKNOWN_LIST, 0));
        assertWorks(open(bench));
        assertEquals(0, bench.close());
    }

    @Test
    void aSecondOpenIsRefusedAndTheDeviceStaysOpen() {
        Device bench = openBench();
        assertEquals(-105, bench.open());
        assertWorks(bench);
        assertEquals(0, bench.close());
        assertEquals(-114, bench.close());
    }

    @Test
    void aDeviceOpensAgainAfterClose() {
        Device bench = openBench();
        for (int i = 0; i < 5; i++) {
            assertEquals(0, bench.close());
            assertEquals(0, bench.open());
            assertWorks(bench);
        }
    }

    @Test
    void twoDevicesAreOpenAtOnce() {
        Device bench = openBench();
        Device pair = open(find(bench.list(), "PAIR0002"));
        assertEquals(4, bench.write(0x01, pattern(4)));
        assertWorks(pair);
        assertEquals(4, bench.read(0x81, new byte[4]));
        assertEquals(0, pair.close());
        assertWorks(bench);
    }

    @Test
    void anAbsentDeviceDoesNotOpen() {
        Device bench = find(sessionWithList(), "BENCH00001");
        bus.unplug("bench");
        updateUntilPresent(bench, false);
        assertEquals(-131, bench.open());
        assertEquals(-114, bench.write(0x01, pattern(1)));
    }

    @Test
    void aDevicePulledSinceTheUpdateDoesNotOpen() {
        Device bench = find(sessionWithList(), "BENCH00001");
        bus.unplug("bench");
        await("open fails", () -> {
            int result = bench.open();
            if (result == 0) {
                bench.close();
            }
            return result == -107;
        });
        assertEquals(-114, bench.close());
    }

    @ParameterizedTest(name = "{0}")
    @CsvSource({"modem, MODEM006", "disk, DISK0007"})
    void aDeviceOfAnUnsupportedClassDoesNotOpen(String id, String serial) {
        bus.plug(id);
        Device device = find(sessionWithList(), serial);
        assertEquals(-158, device.open());
        assertEquals(-114, device.close());
    }

    @Test
    void closeAfterUnplugGivesTheDeviceBack() {
        Device bench = openBench();
        bus.unplug("bench");
        assertEquals(0, bench.close());
        assertEquals(-114, bench.close());
    }

    @Test
    void listAndSessionCanBeReleasedAfterUnplug() {
        Device bench = openBench();
        bus.unplug("bench");
        assertEquals(0, usb.usbReleaseDeviceList(bench.list()));
        assertEquals(0, usb.usbRelease(0));
        bus.plug("bench");
        assertWorks(open(find(sessionWithList(), "BENCH00001")));
    }

    @Test
    void aDeviceReplacedWhileOpenIsForgottenByAFailingClose() {
        Device bench = openBench();
        bus.unplug("bench");
        updateUntilPresent(bench, false);
        bus.plug("bench");
        updateUntilPresent(bench, true);
        assertEquals(-109, bench.write(0x01, pattern(1)));
        assertEquals(-109, usb.usbResetDevice(bench.list(), bench.index()));
        assertEquals(-109, bench.close());
        assertEquals(-114, bench.close());
        assertWorks(open(bench));
    }

    @Test
    void aDeviceReplacedWhileOpenOpensAgainWithoutClose() {
        Device bench = openBench();
        bus.unplug("bench");
        updateUntilPresent(bench, false);
        bus.plug("bench");
        updateUntilPresent(bench, true);
        assertWorks(open(bench));
    }

    @Test
    void resetNeedsAnOpenDeviceAndKeepsItOpen() {
        assertEquals(-114, usb.usbResetDevice(UNKNOWN_LIST, 0));
        Device bench = find(sessionWithList(), "BENCH00001");
        assertEquals(-114, usb.usbResetDevice(bench.list(), bench.index()));
        open(bench);
        assertEquals(0, usb.usbResetDevice(bench.list(), bench.index()));
        assertWorks(bench);
    }

    @Test
    void restartIsNotOffered() {
        Device bench = find(sessionWithList(), "BENCH00001");
        assertEquals(-120, usb.usbRestartDevice(bench.list(), bench.index()));
        open(bench);
        assertEquals(-120, usb.usbRestartDevice(bench.list(), bench.index()));
        assertEquals(-114, usb.usbRestartDevice(UNKNOWN_LIST, 0));
    }

    @Test
    void pipeResetIsNotOffered() {
        Device bench = find(sessionWithList(), "BENCH00001");
        assertEquals(-114, usb.usbResetPipe(bench.list(), bench.index(), 0x81));
        open(bench);
        assertEquals(-120, usb.usbResetPipe(bench.list(), bench.index(), 0x81));
        assertEquals(-120, usb.usbResetPipe(bench.list(), bench.index(), 0x99));
    }

    @ParameterizedTest(name = "{0} failing gives {2}")
    @Tag("memory")
    @CsvSource({"libusb_open, -3, -107", "libusb_claim_interface, -6, -108"})
    void aFailedOpenLeavesTheDeviceClosedAndALaterOneStartsAfresh(String call, int code, int result) {
        Device bench = find(sessionWithList(), "BENCH00001");
        bus.failNext(call, code);
        assertEquals(result, bench.open());
        assertEquals(-114, bench.write(0x01, pattern(1)));
        assertEquals(-114, bench.close());
        assertWorks(open(bench));
    }

    @Test
    @Tag("memory")
    void aDeviceInAnotherConfigurationIsSetToTheFirst() {
        bus.plug("twofold");
        Device device = find(sessionWithList(), "TWO00014");
        bus.clearCalls();
        assertWorks(open(device));
        assertEquals(1, bus.calls("libusb_set_configuration"));
    }

    @Test
    @Tag("memory")
    void aFailureToSetTheConfigurationLeavesTheDeviceClosed() {
        bus.plug("twofold");
        Device device = find(sessionWithList(), "TWO00014");
        bus.failNext("libusb_set_configuration", -9);
        assertEquals(-130, device.open());
        assertEquals(-114, device.close());
        assertWorks(open(device));
    }

    @Test
    @Tag("memory")
    void aDeviceInTheFirstConfigurationIsNotSet() {
        bus.clearCalls();
        openBench();
        assertEquals(0, bus.calls("libusb_set_configuration"));
    }

    @Test
    @Tag("memory")
    void aDeviceWhoseConfigurationCannotBeReadIsNotSet() {
        bus.plug("twofold");
        Device device = find(sessionWithList(), "TWO00014");
        bus.clearCalls();
        bus.failNext("libusb_get_configuration", -1);
        open(device);
        assertEquals(0, bus.calls("libusb_set_configuration"));
    }

    @Test
    @Tag("memory")
    void theKernelDriverIsAskedForButNeverDetached() {
        Device bench = find(sessionWithList(), "BENCH00001");
        bus.clearCalls();
        open(bench);
        assertEquals(0, bench.close());
        assertEquals(1, bus.calls("libusb_kernel_driver_active"));
        assertEquals(0, bus.calls("libusb_detach_kernel_driver"));
        assertEquals(0, bus.calls("libusb_attach_kernel_driver"));
    }

    @Test
    @Tag("memory")
    void closeSucceedsWhenTheInterfaceCannotBeReleased() {
        Device bench = openBench();
        bus.failNext("libusb_release_interface", -1);
        assertEquals(0, bench.close());
        assertWorks(open(bench));
    }
}
