package com.talvane.orvex.comm.access;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.io.ByteArrayOutputStream;
import java.lang.reflect.InvocationHandler;
import java.lang.reflect.Proxy;
import java.nio.ByteBuffer;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;

/** Code that uses the interface UsbDevice works with another implementation, without a bus. */
@Tag("memory")
class UsbStubTest {
    private static final int INTERRUPT_OUT = 0x02;
    private static final byte[] SENT_BY_THE_DEVICE = {1, 2, 3};

    private final List<String> called = new ArrayList<>();
    private final List<Integer> asked = new ArrayList<>();
    private final ByteArrayOutputStream written = new ByteArrayOutputStream();
    private final UsbDevice device = (UsbDevice) Proxy.newProxyInstance(
            UsbDevice.class.getClassLoader(), new Class<?>[] {UsbDevice.class},
            (proxy, method, arguments) -> answer(method.getName(), arguments));

    private Object answer(String method, Object[] arguments) throws UsbException {
        called.add(method);
        return switch (method) {
            case "endpoints" -> List.of(
                    new UsbEndpoint(0x81, 64, 2, true), new UsbEndpoint(0x82, 8, 3, true),
                    new UsbEndpoint(0x01, 64, 2, false), new UsbEndpoint(INTERRUPT_OUT, 8, 3, false),
                    new UsbEndpoint(0x83, 100, 2, true));
            case "label" -> "STUB";
            case "readBulk", "readInterrupt" -> {
                asked.add((Integer) arguments[3]);
                System.arraycopy(SENT_BY_THE_DEVICE, 0, (byte[]) arguments[1], (int) arguments[2], 3);
                yield 3;
            }
            case "writeBulk", "writeInterrupt" -> {
                written.write((byte[]) arguments[1], (int) arguments[2], (int) arguments[3]);
                yield arguments[3];
            }
            case "writeFully" -> {
                if ((int) arguments[0] == INTERRUPT_OUT) {
                    throw new UsbTimeoutException("a write", 2);
                }
                written.write((byte[]) arguments[1], (int) arguments[2], (int) arguments[3]);
                yield null;
            }
            default -> throw new UnsupportedOperationException(method);
        };
    }

    @Test
    void streamsStandOnAnyDevice() throws Exception {
        byte[] got = new byte[64];
        assertEquals(3, new UsbInput(device, 0x81, 1000).read(got));
        assertArrayEquals(SENT_BY_THE_DEVICE, Arrays.copyOf(got, 3));
        assertEquals(1, new UsbInput(device, 0x82, 1000).read());
        new UsbOutput(device, 0x01, 1000).write(new byte[] {7, 8});
        assertArrayEquals(new byte[] {7, 8}, written.toByteArray());
    }

    @Test
    void futuresStandOnAnyDevice() throws Exception {
        UsbAsync async = new UsbAsync(device);
        assertArrayEquals(SENT_BY_THE_DEVICE, async.readAsync(0x82, 64, 1000).get(30, TimeUnit.SECONDS));
        CompletableFuture<Integer> write = async.writeAsync(0x01, new byte[] {7, 8}, 1000);
        assertEquals(2, write.get(30, TimeUnit.SECONDS));
        assertFalse(write.cancel(true));
        assertArrayEquals(new byte[] {7, 8}, written.toByteArray());
    }

    @Test
    void anEndpointIsReadAndWrittenByTheMethodsOfItsKind() throws Exception {
        new UsbInput(device, 0x81, 1000).read();
        new UsbInput(device, 0x82, 1000).read();
        UsbAsync async = new UsbAsync(device, Runnable::run);
        async.writeAsync(0x01, new byte[1], 1000).get();
        async.writeAsync(0x02, new byte[1], 1000).get();
        called.removeIf("endpoints"::equals);
        assertEquals(List.of("readBulk", "readInterrupt", "writeBulk", "writeInterrupt"), called);
    }

    @Test
    void aStreamReadsWholePackets() throws Exception {
        UsbInput input = new UsbInput(device, 0x83, 1000);
        assertEquals(3, input.read(new byte[250]));
        assertEquals(3, input.read(new byte[100]));
        assertEquals(3, input.read(new byte[99]));
        assertEquals(List.of(200, 100, 16_300), asked);
    }

    @Test
    void aBufferOfWhichAPartWasWrittenBeginsWithTheRest() throws Exception {
        ByteBuffer source = ByteBuffer.wrap(new byte[9]).position(3);
        assertThrows(UsbTimeoutException.class, () -> new UsbOutput(device, INTERRUPT_OUT, 1000).write(source));
        assertEquals(5, source.position());
    }

    @Test
    void anEndpointThatIsNotThereIsTold() {
        assertEquals("STUB has no IN endpoint 0x8F",
                assertThrows(IllegalArgumentException.class, () -> new UsbInput(device, 0x8F, 1000)).getMessage());
        assertEquals("STUB has no OUT endpoint 0x0F",
                assertThrows(IllegalArgumentException.class, () -> new UsbOutput(device, 0x0F, 1000)).getMessage());
    }

    @Test
    void aDeviceIsInNoDoubtUnlessItSaysSo() throws Throwable {
        assertEquals(UsbDoubt.NONE, InvocationHandler.invokeDefault(device, UsbDevice.class.getMethod("doubt")));
    }

    @Test
    void aListenerNeedNotCareHowItsReadsEnd() {
        UsbInputListener listener = bytes -> { };
        listener.ended(null);
    }
}
