package com.talvane.orvex.comm;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.talvane.orvex.comm.recording.RecordedUsb;
import com.talvane.orvex.comm.recording.Recorder;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.Future;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Tag;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** Raw calls that are recorded. */
@Tag("memory")
class RecordedUsbTest extends UsbTest {
    private static final int AMPLE = 30_000;
    private static final int DESCRIPTOR_PACKETS = 14;

    @TempDir
    private Path folder;
    private Path file;
    private Recorder recorder;
    private final RecordedUsb recorded = new RecordedUsb();
    private final byte[] bytes = new byte[256];
    private int list;
    private int bench;

    @BeforeEach
    void begin() throws Exception {
        list = sessionWithList();
        bench = devices(list).indexOf(find(list, "BENCH00001"));
        file = folder.resolve("bug.pcapng");
        recorder = new Recorder(file, false, false, failure -> { });
    }

    private void open(int index) {
        recorded.begin(recorder);
        assertEquals(0, recorded.usbOpenDevice(list, index));
        closeAtTheEnd(devices(list).get(index));
    }

    private List<String> lines() throws Exception {
        recorder.close();
        List<String> lines = Capture.packets(file).stream().map(Capture.Packet::toString).toList();
        return lines.subList(Math.min(DESCRIPTOR_PACKETS, lines.size()), lines.size());
    }

    @Test
    void packetsOfOneSizeAreTransfers() throws Exception {
        open(bench);
        bytes[64] = 9;
        assertEquals(65, recorded.usbWriteInterruptPipeEx(list, bench, 0x86, 65, AMPLE, bytes, 64, 0x17));
        assertEquals(-150, recorded.usbWriteInterruptPipeEx(list, bench, 0x07, 65, 20, bytes, 64, 0x17));
        assertEquals(0, recorded.usbWriteInterruptPipeEx(list, bench, 0x06, 0, AMPLE, bytes, 64, 0));
        assertEquals(-114, recorded.usbWriteInterruptPipeEx(list, bench, 0x06, 1, AMPLE, bytes, 63, 0));
        assertEquals(-150, recorded.usbReadInterruptPipeEx(list, bench, 0x06, 64, 20, bytes, 64, 0));
        assertEquals(List.of("S interrupt 0x06 64 " + "00".repeat(64), "C interrupt 0x06 0 64",
                "S interrupt 0x06 64 09" + "17".repeat(63), "C interrupt 0x06 0 64",
                "S interrupt 0x07 64 " + "00".repeat(64), "C interrupt 0x07 -2 0",
                "S interrupt 0x86 64", "C interrupt 0x86 -2 0"), lines());
    }

    @Test
    void theCallsWithPacketSizesOfBulkPipesAreRecordedAlike() throws Exception {
        open(bench);
        bytes[0] = 5;
        assertEquals(1, recorded.usbWriteBulkPipeEx(list, bench, 0x81, 1, AMPLE, bytes, 0, 0));
        assertEquals(1, recorded.usbReadBulkPipeEx(list, bench, 0x01, 64, AMPLE, bytes, 0, 0));
        assertEquals(List.of("S bulk 0x01 1 05", "C bulk 0x01 0 1", "S bulk 0x81 64", "C bulk 0x81 0 1 05"), lines());
    }

    @Test
    void nothingThatDoesNotReachTheBusIsRecorded() throws Exception {
        assertEquals(-114, recorded.usbWriteBulkPipe(list, bench, 0x01, 1, AMPLE, bytes));
        open(bench);
        assertEquals(-112, recorded.usbWriteBulkPipe(list, bench, 0x01, 1, AMPLE, null));
        assertEquals(-112, recorded.usbWriteBulkPipe(list, bench, 0x01, -1, AMPLE, bytes));
        assertEquals(-112, recorded.usbWriteInterruptPipe(list, bench, 0x02, -1, AMPLE, bytes));
        assertEquals(-113, recorded.usbReadInterruptPipe(list, bench, 0x82, 1, AMPLE, null));
        assertEquals(1, recorded.usbWriteBulkPipe(list, bench, 0x01, 1, AMPLE, new byte[0]));
        recorded.usbReadControlPipe(list, bench, 0, AMPLE, new byte[7]);
        recorded.usbCancelPipeTransfer(list, bench, 0x81);
        recorded.usbCloseDevice(list, bench);
        assertEquals(-114, recorded.usbReadBulkPipe(list, bench, 0x81, 1, AMPLE, bytes));
        assertEquals(-114, recorded.usbReadControlPipe(list, bench, 0, AMPLE, bytes));
        assertEquals(-114, recorded.usbWriteInterruptPipeEx(list, bench, 0x06, 1, AMPLE, bytes, 64, 0));
        assertEquals(-114, recorded.usbOpenDevice(list, 99));
        recorded.usbCloseDevice(list, 99);
        recorded.usbReadControlPipe(list, 99, 0, AMPLE, bytes);
        recorded.usbCancelPipeTransfer(list, 99, 0x81);
        assertEquals(List.of(), lines());
    }

    /** What a raw call tells is an empty packet, also after a stall. */
    @Test
    void whatNobodyAsksAboutIsWhatTheCallTells() throws Exception {
        open(bench);
        assertEquals(0, recorded.usbReadBulkPipe(list, bench, 0x85, 64, AMPLE, bytes));
        assertEquals(0, recorded.usbWriteBulkPipe(list, bench, 0x05, 1, AMPLE, bytes));
        bus.failNext("libusb_submit_transfer", -1);
        assertEquals(-112, recorded.usbWriteBulkPipe(list, bench, 0x01, 1, AMPLE, bytes));
        assertEquals(1, recorded.usbWriteBulkPipe(list, bench, 0x01, 1, AMPLE, bytes));
        assertEquals(0, recorded.usbReadBulkPipe(list, bench, 0x85, 64, AMPLE, bytes));
        assertEquals(List.of("S bulk 0x85 64", "C bulk 0x85 0 0", "S bulk 0x05 1 00", "C bulk 0x05 -32 0",
                "S bulk 0x01 1 00", "C bulk 0x01 -71 0", "S bulk 0x01 1 00", "C bulk 0x01 0 1",
                "S bulk 0x85 64", "C bulk 0x85 0 0"), lines());
    }

    /** The answer to a question about the endpoint, in two bytes behind its setup packet. */
    private int ask(int endpoint) {
        byte[] question = {(byte) 0x82, 0, 0, 0, (byte) endpoint, 0, 2, 0, 0, 0};
        return recorded.usbReadControlPipe(list, bench, 0, AMPLE, question);
    }

    @Test
    void aQuestionTellsWhatBecameOfTheTransferBefore() throws Exception {
        open(bench);
        bus.failNext("libusb_submit_transfer", -1);
        recorded.usbWriteBulkPipe(list, bench, 0x01, 1, AMPLE, bytes);
        assertEquals(2, ask(0x01));
        recorded.usbReadBulkPipe(list, bench, 0x85, 64, AMPLE, bytes);
        bus.failNext("libusb_submit_transfer", -4);
        assertEquals(-113, ask(0x85));
        recorded.usbReadBulkPipe(list, bench, 0x85, 64, AMPLE, bytes);
        assertEquals(2, ask(0x85));
        assertEquals(2, ask(0x85));
        String halted = "C control 0x80 0 2 0100";
        assertEquals(List.of("S bulk 0x01 1 00", "C bulk 0x01 -71 0",
                "S control 0x80 2 8200000001000200", "C control 0x80 0 2 0000",
                "S bulk 0x85 64", "C bulk 0x85 -19 0", "S control 0x80 2 8200000085000200", "C control 0x80 -19 0",
                "S bulk 0x85 64", "C bulk 0x85 -32 0", "S control 0x80 2 8200000085000200", halted,
                "S control 0x80 2 8200000085000200", halted), lines());
    }

    @Test
    void aControlWriteThatIsRefusedHasStalled() throws Exception {
        open(bench);
        byte[] request = {0x40, 3, 0, 0, 0, 0, 1, 0, 7};
        assertEquals(0, recorded.usbWriteControlPipe(list, bench, 0, 0, request));
        assertEquals(0, recorded.usbWriteControlPipe(list, bench, 0, AMPLE, request));
        byte[] cut = {0x40, 1, 0, 0, 0, 0, 2, 0, 7};
        assertEquals(2, recorded.usbWriteControlPipe(list, bench, 0, AMPLE, cut));
        assertEquals(List.of("S control 0x00 1 4003000000000100 07", "C control 0x00 -32 0",
                "S control 0x00 1 4003000000000100 07", "C control 0x00 -32 0",
                "S control 0x00 2 4001000000000200 0700", "C control 0x00 0 2"), lines());
    }

    @Test
    void aCancelEndsATransferAsOnTheBus() throws Exception {
        open(bench);
        Future<Integer> read = onAnotherThread(() -> recorded.usbReadBulkPipe(list, bench, 0x84, 64, 0, new byte[64]));
        await("the read is under way", () -> bus.pending("bench", 0x84) == 1);
        assertEquals(0, recorded.usbCancelPipeTransfer(list, bench, 0x84));
        assertEquals(0, result(read));
        assertEquals(List.of("S bulk 0x84 64", "C bulk 0x84 -2 0"), lines());
    }

    @Test
    void anEndpointThatNoDeviceCanHaveIsNotRecorded() throws Exception {
        open(bench);
        assertEquals(-109, recorded.usbWriteBulkPipe(list, bench, 0x10, 1, AMPLE, bytes));
        assertEquals(-109, recorded.usbReadBulkPipe(list, bench, 0x91, 1, AMPLE, bytes));
        assertEquals(-109, recorded.usbWriteInterruptPipeEx(list, bench, 0x12, 1, AMPLE, bytes, 64, 0));
        assertEquals(List.of(), lines());
    }

    @Test
    void aDeviceThatAnswersNoRequestHasTheDescriptorsThatWereListed() throws Exception {
        bus.failNext("libusb_submit_transfer", -1);
        open(bench);
        recorder.close();
        List<String> lines = Capture.packets(file).stream().map(Capture.Packet::toString).toList();
        assertEquals(12, lines.size(), lines::toString);
        assertEquals("S control 0x80 18 8006000100001200", lines.get(0));
        assertEquals("S control 0x80 116 8006000200007400", lines.get(2));
        assertEquals("S control 0x80 22 8006030309041600", lines.get(10));
    }

    /** Plugs a device in. Returns its index. */
    private int plugged(String id, String productId) {
        bus.plug(id);
        updateUntil("it is there", list,
                () -> devices(list).stream().anyMatch(each -> each.line().contains(":=" + productId + ":=")));
        return usb.usbGetDeviceListCount(list) - 1;
    }

    private List<String> requests() throws Exception {
        recorder.close();
        return Capture.packets(file).stream().filter(packet -> packet.event() == 'S').map(Capture.Packet::setup).toList();
    }

    @Test
    void aDeviceWithoutTextsIsAskedForNone() throws Exception {
        recorder = new Recorder(file, true, false, failure -> { });
        open(plugged("nameless", "1008"));
        assertEquals(List.of("8006000100001200", "8006000200000900", "8006000200001200", "800600030000ff00"), requests());
    }

    @ParameterizedTest
    @CsvSource({"nameless,1008", "mute,1009"})
    void aDeviceThatDoesNotAnswerIsDescribedAsListedWithoutTextsThatAreNotKnown(String id, String productId)
            throws Exception {
        int index = plugged(id, productId);
        bus.failNext("libusb_submit_transfer", -1);
        open(index);
        assertEquals(List.of("8006000100001200", "8006000200001200", "8006000300000400"), requests());
    }

    @Test
    void aDeviceWithoutLanguagesIsAskedInEnglish() throws Exception {
        int mute = plugged("mute", "1009");
        open(mute);
        assertEquals(List.of("8006000100001200", "8006000200000900", "8006000200001200", "800600030000ff00",
                "800601030904ff00", "800602030904ff00", "800603030904ff00"), requests());
    }

    @Test
    void aTextThatTheDeviceRefusesIsRefused() throws Exception {
        recorder = new Recorder(file, true, false, failure -> { });
        bus.fail("libusb_submit_transfer", 7, -9);
        open(bench);
        recorder.close();
        assertEquals("C control 0x80 -32 0", Capture.packets(file).get(13).toString());
    }

    @Test
    void everyConfigurationIsDescribed() throws Exception {
        open(plugged("dual", "1010"));
        assertEquals(List.of("8006000100001200", "8006000200000900", "8006000200002000", "8006010200000900",
                "8006010200001900"), requests().subList(0, 5));
    }

    @Test
    void aDeviceOfWhichNothingIsKnownIsASimpleOne() throws Exception {
        bus.failNext("libusb_get_active_config_descriptor", -5);
        int nameless = plugged("nameless", "1008");
        bus.fail("libusb_submit_transfer", 2, -1);
        open(nameless);
        assertEquals(List.of("8006000100001200", "8006000200002200", "8006000300000400"), requests());
        assertEquals("C control 0x80 0 34 09022200010100803209040000010300000009211101000122000007058103400" + "00a",
                Capture.packets(file).get(3).toString());
    }
}
