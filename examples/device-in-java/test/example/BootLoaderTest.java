package example;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTimeoutPreemptively;

import com.talvane.orvex.comm.access.UsbDevice;
import com.talvane.orvex.comm.access.UsbDeviceList;
import com.talvane.orvex.comm.access.UsbException;
import com.talvane.orvex.comm.access.UsbSession;
import com.talvane.orvex.comm.access.UsbStalledException;
import java.time.Duration;
import java.util.Arrays;
import java.util.Optional;
import java.util.Random;
import java.util.UUID;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** The boot loader, and in the same program the host that uses it; the bus is that of simbus run. */
class BootLoaderTest {
    private static final int VENDOR = 0x1209;
    private static final int OUT = 0x21;
    private static final int IN = 0xA1;
    private static final int DOWNLOAD = 1;
    private static final int UPLOAD = 2;
    private static final int GET_STATUS = 3;
    private static final int GET_STATE = 5;
    private static final int MANIFESTING = 6;
    private static final int BLOCK = 64;
    private static final int PATIENCE = 10_000; // ms

    private final String serial = UUID.randomUUID().toString();
    private BootLoader program;
    private CompletableFuture<Void> itsEnd;
    private UsbSession session;
    private UsbDevice device;

    @BeforeEach
    void startTheDevice() throws Exception {
        program = new BootLoader(serial);
        itsEnd = CompletableFuture.runAsync(program::run);
        session = UsbSession.open();
        device = assertTimeoutPreemptively(Duration.ofMillis(PATIENCE), this::find).open();
    }

    private UsbDevice find() throws UsbException {
        UsbDeviceList list = session.list(VENDOR);
        Optional<UsbDevice> found = list.find(serial);
        while (found.isEmpty()) {
            list.update();
            found = list.find(serial);
        }
        return found.get();
    }

    @AfterEach
    void removeTheDevice() throws Exception {
        device.close();
        session.close();
        program.close();
        itsEnd.get(PATIENCE, TimeUnit.MILLISECONDS);
    }

    private byte[] read(int request, int value, int length) throws UsbException {
        return device.readControl(IN, request, value, 0, length, PATIENCE);
    }

    @Test
    void keepsTheFirmwareThatItGets() throws Exception {
        byte[] firmware = new byte[BLOCK + BLOCK / 2];
        new Random(1).nextBytes(firmware);
        for (int block = 0; block * BLOCK < firmware.length; block++) {
            byte[] data = Arrays.copyOfRange(firmware, block * BLOCK, Math.min((block + 1) * BLOCK, firmware.length));
            assertEquals(data.length, device.writeControl(OUT, DOWNLOAD, block, 0, data, PATIENCE));
        }
        device.writeControl(OUT, DOWNLOAD, 2, 0, new byte[0], PATIENCE);
        assertEquals(MANIFESTING, read(GET_STATE, 0, 1)[0]);
        read(GET_STATUS, 0, 6);
        assertArrayEquals(Arrays.copyOf(firmware, BLOCK), read(UPLOAD, 0, BLOCK));
        assertArrayEquals(Arrays.copyOfRange(firmware, BLOCK, firmware.length), read(UPLOAD, 1, BLOCK));
    }

    @Test
    void stallsWhatItDoesNotKnow() {
        assertThrows(UsbStalledException.class, () -> read(99, 0, 1));
    }

    @Test
    void stallsWhenItHasEnded() throws Exception {
        program.close();
        itsEnd.get(PATIENCE, TimeUnit.MILLISECONDS);
        assertThrows(UsbStalledException.class, () -> read(GET_STATE, 0, 1));
    }
}
