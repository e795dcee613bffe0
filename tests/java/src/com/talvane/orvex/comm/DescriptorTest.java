package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.HexFormat;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

class DescriptorTest extends UsbTest {
    private static final int DEVICE = 1;
    private static final int CONFIGURATION = 2;
    private static final int STRING = 3;
    private static final int INTERFACE = 4;
    private static final int ENDPOINT = 5;
    private static final byte UNTOUCHED = 0x77;

    private Device device;
    private final byte[] buffer = new byte[600];

    private int get(int type, int index, int size) {
        Arrays.fill(buffer, UNTOUCHED);
        return usb.usbGetDeviceDescriptor(device.list(), device.index(), type, index, size, buffer);
    }

    private void assertGot(byte... expected) {
        byte[] whole = new byte[buffer.length];
        Arrays.fill(whole, UNTOUCHED);
        System.arraycopy(expected, 0, whole, 0, expected.length);
        assertArrayEquals(whole, buffer);
    }

    private static byte[] hex(String text) {
        return HexFormat.of().parseHex(text.replace(" ", ""));
    }

    private void choose(String serial) {
        device = find(sessionWithList(), serial);
    }

    @ParameterizedTest(name = "size {0}")
    @ValueSource(ints = {18, 8, 0, 100})
    void theDeviceDescriptorIsGivenWholeWhateverTheSize(int size) {
        choose("BENCH00001");
        assertEquals(18, get(DEVICE, 0, size));
        byte[] descriptor = Arrays.copyOf(buffer, 18);
        assertGot(descriptor);
        assertArrayEquals(hex("12 01"), Arrays.copyOf(descriptor, 2));
        assertArrayEquals(hex("5C6A 0110 0001"), Arrays.copyOfRange(descriptor, 8, 14));
    }

    @Test
    void theConfigurationIsGivenWithAllThatBelongsToIt() {
        choose("PAIR0002");
        assertEquals(32, get(CONFIGURATION, 0, 512));
        assertArrayEquals(hex("09 02 2000 01 01"), Arrays.copyOf(buffer, 6));
        assertArrayEquals(
                hex("09 04 00 00 02 FF 00 00 00  07 05 81 02 4000 00  07 05 01 02 4000 00"),
                Arrays.copyOfRange(buffer, 9, 32));
        assertEquals(UNTOUCHED, buffer[32]);
    }

    @Test
    void theConfigurationIsCutToTheSize() {
        choose("PAIR0002");
        assertEquals(9, get(CONFIGURATION, 0, 9));
        assertEquals(UNTOUCHED, buffer[9]);
    }

    @ParameterizedTest(name = "size {0} gives {1}")
    @CsvSource({"11, 10, 'BENCH00001\0'", "10, 10, 'BENCH0000\0'", "2, 2, 'B\0'", "1, 1, ''", "0, 0, ''"})
    void aTextIsGivenWithAZeroByteAndCutToTheSize(int size, int result, String stored) {
        choose("BENCH00001");
        assertEquals(result, get(STRING, 3, size));
        assertGot(stored.getBytes(StandardCharsets.US_ASCII));
    }

    @Test
    void textsAreManufacturerProductAndSerialNumber() {
        choose("BENCH00001");
        assertEquals(7, get(STRING, 1, 128));
        assertGot("Talvane\0".getBytes(StandardCharsets.US_ASCII));
        assertEquals(10, get(STRING, 2, 128));
        assertGot("Bench Tool\0".getBytes(StandardCharsets.US_ASCII));
    }

    @Test
    void aTextHasOneByteForEachCharacter() {
        bus.plug("latin");
        choose("LATIN017");
        assertEquals(4, get(STRING, 1, 128));
        assertGot(hex("43 61 66 E9 00"));
    }

    @ParameterizedTest(name = "size {0} gives {1} bytes")
    @CsvSource({"0, 7", "7, 7", "20, 7", "-1, 7", "6, 6", "1, 1"})
    void anEndpointIsFoundByItsAddress(int size, int bytes) {
        choose("PAIR0002");
        assertEquals(bytes, get(ENDPOINT, 0x81, size));
        assertGot(Arrays.copyOf(hex("07 05 81 02 4000 00"), bytes));
        assertEquals(bytes, get(ENDPOINT, (byte) 0x81, size));
        assertEquals(bytes, get(ENDPOINT, 0x01, size));
        assertGot(Arrays.copyOf(hex("07 05 01 02 4000 00"), bytes));
    }

    @Test
    void anUnknownEndpointIsNotAvailable() {
        choose("PAIR0002");
        assertEquals(-131, get(ENDPOINT, 0x82, 7));
        assertGot();
    }

    @ParameterizedTest(name = "type {0} index {1}")
    @CsvSource({"0, 0", "4, 0", "6, 0", "-1, 0", "3, 0", "3, 4", "3, -1"})
    void otherTypesAndTextsAreRefused(int type, int index) {
        choose("PAIR0002");
        assertEquals(-114, get(type, index, 64));
        assertGot();
    }

    @Test
    void descriptorsAreGivenAlsoWhileTheDeviceIsOpenAndWhenItIsGone() {
        choose("PAIR0002");
        open(device);
        assertEquals(18, get(DEVICE, 0, 18));
        bus.unplug("pair");
        updateUntilPresent(device, false);
        assertEquals(18, get(DEVICE, 0, 18));
        assertEquals(2, usb.usbGetEndpointList(device.list(), device.index(), null));
    }

    @Test
    void endpointsAreListedInFourNumbersEach() {
        choose("PAIR0002");
        Arrays.fill(buffer, UNTOUCHED);
        assertEquals(2, usb.usbGetEndpointList(device.list(), device.index(), buffer));
        assertGot(hex("81 00 40 00 02 00 01 00  01 00 40 00 02 00 00 00"));
    }

    @ParameterizedTest
    @ValueSource(strings = {"BENCH00001", "PAIR0002", "COMP0003"})
    void descriptorsAndEndpointsAreThoseThatTheHostKnows(String serial) throws IOException {
        choose(serial);
        open(device);
        assertDescriptorsAreKnownToTheHost(serial);
    }

    @ParameterizedTest
    @CsvSource({"dual, DUAL0020", "settings, SETT0018", "raw, RAWB0019"})
    void aDeviceWithMoreThanItsInterfaceIsDescribedAndWorks(String id, String serial) throws IOException {
        bus.plug(id);
        choose(serial);
        open(device);
        assertDescriptorsAreKnownToTheHost(serial);
        assertEquals(2, usb.usbGetEndpointList(device.list(), device.index(), null));
        assertEquals(5, device.write(0x01, pattern(5)));
        byte[] echo = new byte[64];
        assertEquals(5, device.read(0x81, echo));
        assertArrayEquals(Arrays.copyOf(pattern(5), 64), echo);
    }

    private void assertDescriptorsAreKnownToTheHost(String serial) throws IOException {
        byte[] known = bus.isMemory() ? ownDescriptors() : kernelsDescriptors(serial);
        int length = get(CONFIGURATION, 0, 512);
        byte[] configuration = Arrays.copyOf(buffer, length);
        assertEquals(18, get(DEVICE, 0, 18));
        assertArrayEquals(Arrays.copyOf(known, 18), Arrays.copyOf(buffer, 18));
        assertArrayEquals(Arrays.copyOfRange(known, 18, known.length), configuration);

        byte[] endpoints = endpointsOfTheFirstInterface(configuration);
        byte[] listed = new byte[endpoints.length];
        assertEquals(endpoints.length / 8, usb.usbGetEndpointList(device.list(), device.index(), listed));
        assertArrayEquals(endpoints, listed);
    }

    /** The device descriptor and the first configuration, from the device itself. */
    private byte[] ownDescriptors() {
        byte[] first = ControlTransferTest.setup(0x80, 6, 0x0100, 0, 18);
        byte[] second = ControlTransferTest.setup(0x80, 6, 0x0200, 0, 512);
        assertEquals(18, device.controlRead(first));
        int length = device.controlRead(second);
        return ByteBuffer.allocate(18 + length).put(first, 8, 18).put(second, 8, length).array();
    }

    /** The same from the kernel, which has all configurations. */
    private static byte[] kernelsDescriptors(String serial) throws IOException {
        try (DirectoryStream<Path> devices = Files.newDirectoryStream(Path.of("/sys/bus/usb/devices"))) {
            for (Path folder : devices) {
                Path file = folder.resolve("serial");
                if (Files.exists(file) && Files.readString(file).strip().equals(serial)) {
                    byte[] all = Files.readAllBytes(folder.resolve("descriptors"));
                    int first = ByteBuffer.wrap(all).order(ByteOrder.LITTLE_ENDIAN).getShort(18 + 2);
                    return Arrays.copyOf(all, 18 + first);
                }
            }
        }
        throw new AssertionError("the kernel has no " + serial);
    }

    /** Eight bytes for each endpoint before the second interface: address, packet size, attributes, direction. */
    private static byte[] endpointsOfTheFirstInterface(byte[] configuration) {
        ByteArrayOutputStream endpoints = new ByteArrayOutputStream();
        int interfaces = 0;
        for (int at = 0; at < configuration.length; at += configuration[at]) {
            interfaces += configuration[at + 1] == INTERFACE ? 1 : 0;
            if (configuration[at + 1] == ENDPOINT && interfaces == 1) {
                byte address = configuration[at + 2];
                endpoints.writeBytes(new byte[] {address, 0, configuration[at + 4], configuration[at + 5],
                    configuration[at + 3], 0, (byte) (address < 0 ? 1 : 0), 0});
            }
        }
        return endpoints.toByteArray();
    }

    @Test
    void endpointsAreCountedWithoutABuffer() {
        choose("BENCH00001");
        assertEquals(14, usb.usbGetEndpointList(device.list(), device.index(), null));
    }

    @Test
    void aDeviceWithoutEndpointsListsNone() {
        bus.plug("loader");
        choose("LOAD0008");
        assertEquals(0, usb.usbGetEndpointList(device.list(), device.index(), buffer));
    }

    @Test
    void shortBuffersGetWhatFits() {
        choose("PAIR0002");
        byte[] tiny = new byte[10];
        assertEquals(2, usb.usbGetEndpointList(device.list(), device.index(), tiny));
        assertArrayEquals(hex("81 00 40 00 02 00 01 00  01 00"), tiny);

        assertEquals(18, usb.usbGetDeviceDescriptor(device.list(), device.index(), DEVICE, 0, 8, tiny));
        assertEquals(18, tiny[0]);
        assertEquals(32, usb.usbGetDeviceDescriptor(device.list(), device.index(), CONFIGURATION, 0, 512, tiny));
        assertEquals(9, tiny[0]);
        assertEquals(8, usb.usbGetDeviceDescriptor(device.list(), device.index(), STRING, 3, 1 << 20, new byte[3]));
        assertEquals(7, usb.usbGetDeviceDescriptor(device.list(), device.index(), ENDPOINT, 0x81, 7, new byte[0]));
    }
}
