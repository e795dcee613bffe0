package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.talvane.orvex.comm.ORVEXCommUSBAccess;
import com.talvane.orvex.comm.access.Connection.ReportFormat;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** What the raw calls are given for a transfer, on raw calls that move all bytes, some of them slowly. */
@Tag("memory")
class TransfersTest {
    private static final int IN = 0x81;
    private static final int PACKET = 64;

    private final List<byte[]> given = new ArrayList<>();
    private int slowMs;
    private final ORVEXCommUSBAccess usb = new ORVEXCommUSBAccess() {
        @Override
        public int usbReadBulkPipe(int list, int index, int endpoint, int length, int timeout, byte[] buffer) {
            return move(length, buffer);
        }

        @Override
        public int usbWriteBulkPipe(int list, int index, int endpoint, int length, int timeout, byte[] buffer) {
            return move(length, buffer);
        }
    };
    private final Transfers transfers = new Transfers(new Connection(usb,
            new Target(0, 0, false, "TOOL", () -> false, () -> false), ReportFormat.ofVendor(0),
            Map.of(IN, new UsbEndpoint(IN, PACKET, 2, true))));

    private int move(int length, byte[] bytes) {
        given.add(bytes);
        Deadline end = new Deadline(Math.max(slowMs, 1));
        while (!end.isOver()) {
            Thread.onSpinWait();
        }
        return length;
    }

    private byte[] readInto(byte[] buffer, int offset, int length) throws UsbException {
        transfers.read(ORVEXCommUSBAccess::usbReadBulkPipe, IN, buffer, offset, length, 1000);
        return given.get(given.size() - 1);
    }

    @Test
    void wholePacketsAreReadIntoTheArrayItself() throws UsbException {
        byte[] buffer = new byte[2 * PACKET];
        assertSame(buffer, readInto(buffer, 0, 2 * PACKET));
        assertEquals(PACKET, readInto(buffer, PACKET, PACKET).length);
    }

    @Test
    void aPartOfAPacketIsReadIntoAWholeOne() {
        byte[] buffer = new byte[PACKET + 1];
        assertThrows(UsbOverflowException.class, () -> readInto(buffer, 0, PACKET + 1));
        assertEquals(2 * PACKET, given.get(0).length);
    }

    @Test
    void anArrayIsWrittenItselfAndAPartOfItAsACopy() throws UsbException {
        byte[] bytes = new byte[10];
        transfers.write(ORVEXCommUSBAccess::usbWriteBulkPipe, 1, bytes, 0, 10, 1000);
        transfers.write(ORVEXCommUSBAccess::usbWriteBulkPipe, 1, bytes, 0, 9, 1000);
        assertSame(bytes, given.get(0));
        assertNotSame(bytes, given.get(1));
    }

    @Test
    void whatHasAllMovedWhenTheTimeIsOverIsInTime() throws UsbException {
        slowMs = 30;
        transfers.readFully(IN, new byte[PACKET], 0, PACKET, 10);
        transfers.writeFully(1, new byte[PACKET], 0, PACKET, 10);
        assertEquals(2, given.size());
    }
}
