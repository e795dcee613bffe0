// Control transfers and resets.
#include <gmock/gmock.h>
#include <libusb.h>

#include "IoTest.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

/// Vendor requests of "tool": 1 replies 01 02 03 04, 2 stores and fetches, 3 stalls, 4 never answers.
class ControlTransfers : public IoTest {
 protected:
    void SetUp() override {
        IoTest::SetUp();
        openTool(R"({"control":[
            {"requestType":"0xC0","request":1,"reply":"01020304"},
            {"requestType":"0x40","request":2,"store":"slot"}, {"requestType":"0xC0","request":2,"fetch":"slot"},
            {"request":3,"stall":true}, {"request":4,"silent":true}]})");
        bus.clearCalls();
    }

    int32_t read(std::vector<uint8_t>& buffer, int32_t timeout = 1000) {
        return LibUSB_ReadControlPipe(&tool(), 0, timeout, buffer.data());
    }
    int32_t write(std::vector<uint8_t>& buffer, int32_t timeout = 1000) {
        return LibUSB_WriteControlPipe(&tool(), 0, timeout, buffer.data());
    }

    std::vector<uint8_t> getFour{0xC0, 1, 0, 0, 0, 0, 4, 0, 9, 9, 9, 9};
    std::vector<uint8_t> stalling{0xC0, 3, 0, 0, 0, 0, 4, 0, 9, 9, 9, 9};
    std::vector<uint8_t> silent{0xC0, 4, 0, 0, 0, 0, 4, 0, 9, 9, 9, 9};
};

}  // namespace

TEST_F(ControlTransfers, PutTheAnswerBehindTheSetupPacket) {
    EXPECT_EQ(4, read(getFour));
    EXPECT_THAT(getFour, ElementsAre(0xC0, 1, 0, 0, 0, 0, 4, 0, 1, 2, 3, 4));
}

TEST_F(ControlTransfers, SendTheDataBehindTheSetupPacket) {
    std::vector<uint8_t> out{0x40, 2, 0, 0, 0, 0, 3, 0, 7, 8, 9};
    EXPECT_EQ(3, write(out)) << "the data stage only is counted";
    std::vector<uint8_t> back{0xC0, 2, 0, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(3, read(back));
    EXPECT_THAT(std::vector<uint8_t>(back.begin() + 8, back.begin() + 12), ElementsAre(7, 8, 9, 0));
}

TEST_F(ControlTransfers, TakeTheDirectionFromTheSetupPacket) {
    EXPECT_EQ(4, write(getFour));
    EXPECT_EQ(1, getFour[8]);
}

TEST_F(ControlTransfers, ReachStandardRequestsOfTheDevice) {
    std::vector<uint8_t> getDescriptor{0x80, 6, 0, 1, 0, 0, 18, 0};
    getDescriptor.resize(26);
    EXPECT_EQ(18, read(getDescriptor));
    EXPECT_EQ(18, getDescriptor[8]);
    EXPECT_EQ(0x5C, getDescriptor[16]);
}

TEST_F(ControlTransfers, ReadTheLengthAsLittleEndian16Bits) {
    std::vector<uint8_t> large{0xC0, 1, 0, 0, 0, 0, 0x02, 0x01};
    large.resize(8 + 0x102);
    EXPECT_EQ(4, read(large));
    EXPECT_EQ(8 + 0x102, libusbTransfer(0).length);
    EXPECT_EQ(8 + 0xFFFF, controlBufferBytes(std::vector<uint8_t>{0, 0, 0, 0, 0, 0, 0xFF, 0xFF}.data()));
}

TEST_F(ControlTransfers, FillTheLibusbTransferOfEndpointZero) {
    EXPECT_EQ(4, read(getFour, 654));
    const libusb_transfer& transfer = libusbTransfer(0);
    EXPECT_EQ(tool().hDevice, transfer.dev_handle);
    EXPECT_EQ(0, transfer.endpoint);
    EXPECT_EQ(LIBUSB_TRANSFER_TYPE_CONTROL, transfer.type);
    EXPECT_EQ(654U, transfer.timeout);
    EXPECT_EQ(getFour.data(), transfer.buffer);
    EXPECT_EQ(12, transfer.length);
}

TEST_F(ControlTransfers, CountAStallAsNothingMoved) {
    EXPECT_EQ(0, read(stalling));
    EXPECT_EQ(LIBUSB_TRANSFER_STALL, transferRecord(0).status);
    EXPECT_EQ(4, read(getFour));
}

TEST_F(ControlTransfers, CountATimeOutAsNothingMoved) {
    EXPECT_EQ(0, read(silent, 50)) << "never -150";
    EXPECT_EQ(LIBUSB_TRANSFER_TIMED_OUT, transferRecord(0).status);
    EXPECT_EQ(0, write(silent, 50));
    EXPECT_EQ(4, read(getFour));
}

TEST_F(ControlTransfers, CountALostDeviceAsNothingMoved) {
    BackgroundCall call([&] { return read(silent, 0); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0) == 1; }));
    bus.unplug("tool");
    EXPECT_EQ(0, call.result());
}

TEST_F(ControlTransfers, CanBeCancelledOnEndpointZero) {
    BackgroundCall call([&] { return read(silent, 0); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0) == 1; }));
    EXPECT_EQ(0, LibUSB_CancelPipeTransfer(&tool(), 0));
    EXPECT_EQ(0, call.result());
}

TEST_F(ControlTransfers, TellAFailedSubmission) {
    bus.failCall("libusb_submit_transfer", 1, LIBUSB_ERROR_IO, 2);
    EXPECT_EQ(-113, read(getFour));
    EXPECT_EQ(LIBUSB_ERROR_IO, tool().lastResult);
    tool().lastResult = 0;
    EXPECT_EQ(-112, write(getFour));
    EXPECT_EQ(LIBUSB_ERROR_IO, tool().lastResult);
    EXPECT_EQ(0, transferRecord(0).isPending);
    EXPECT_EQ(4, read(getFour));
}

TEST_F(ControlTransfers, WithoutABufferAreFailedSubmissions) {
    EXPECT_EQ(4, read(getFour));
    EXPECT_EQ(-113, LibUSB_ReadControlPipe(&tool(), 0, 100, nullptr));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, tool().lastResult);
    EXPECT_EQ(-112, LibUSB_WriteControlPipe(&tool(), 0, 100, nullptr));
    EXPECT_EQ(1U, callsOf("libusb_submit_transfer"));
    EXPECT_EQ(12, libusbTransfer(0).length) << "the length of the transfer before stays";
}

TEST_F(ControlTransfers, ShareEndpointZeroWithTheOtherTransfers) {
    BackgroundCall call([&] { return read(silent, 0); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0) == 1; }));
    uint8_t byte = 0;
    EXPECT_EQ(-112, LibUSB_WriteBulkPipe(&tool(), 0, 1, 100, &byte));
    EXPECT_EQ(-112, write(getFour));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, tool().lastResult);
    LibUSB_CancelPipeTransfer(&tool(), 0);
}

TEST_F(ControlTransfers, DoNotUseTheirSecondArgument) {
    for (const int32_t ignored : {0, 1, -1, 0x7FFFFFFF}) {
        EXPECT_EQ(4, LibUSB_ReadControlPipe(&tool(), ignored, 1000, getFour.data()));
    }
}

TEST_F(ControlTransfers, NeedAnOpenRecordThatIsNotHid) {
    tool().isHid = 1;
    const auto hid = debugLinesOf([&] {
        EXPECT_EQ(-120, read(getFour));
        EXPECT_EQ(-120, write(getFour));
    });
    EXPECT_THAT(
        hid, ElementsAre("[checkBulkTransferReady] isHid == true", "[checkBulkTransferReady] isHid == true"));
    tool().isHid = 0;
    LibUSB_CloseDevice(&tool());
    const auto closed = debugLinesOf([&] {
        EXPECT_EQ(-109, read(getFour));
        EXPECT_EQ(-109, write(getFour));
    });
    EXPECT_THAT(closed, ElementsAre("[checkBulkTransferReady] not acquired",
                                    "[checkBulkTransferReady] not acquired"));
    tool().isOpen = 1;
    const auto empty = debugLinesOf([&] { EXPECT_EQ(-109, read(getFour)); });
    EXPECT_THAT(empty, ElementsAre("[checkBulkTransferReady] cbInfo map is empty"));
    tool().isOpen = 0;
}

TEST_F(ControlTransfers, ResetOfADevicePassesEveryCodeOfLibusbOn) {
    EXPECT_EQ(0, LibUSB_ResetDevice(&tool()));
    for (const int code :
         {LIBUSB_ERROR_IO, LIBUSB_ERROR_INVALID_PARAM, LIBUSB_ERROR_ACCESS, LIBUSB_ERROR_NO_DEVICE,
          LIBUSB_ERROR_NOT_FOUND, LIBUSB_ERROR_BUSY, LIBUSB_ERROR_TIMEOUT, LIBUSB_ERROR_OVERFLOW,
          LIBUSB_ERROR_PIPE, LIBUSB_ERROR_INTERRUPTED, LIBUSB_ERROR_NO_MEM, LIBUSB_ERROR_NOT_SUPPORTED,
          LIBUSB_ERROR_OTHER}) {
        bus.failCall("libusb_reset_device", 1, code);
        EXPECT_EQ(code, LibUSB_ResetDevice(&tool()));
    }
    EXPECT_EQ(4, read(getFour)) << "the device stays open";
}

TEST_F(ControlTransfers, ResetOfADeviceNeedsAnOpenRecordThatIsNotHid) {
    tool().isHid = 1;
    EXPECT_THAT(debugLinesOf([&] { EXPECT_EQ(-120, LibUSB_ResetDevice(&tool())); }), IsEmpty());
    tool().isHid = 0;
    LibUSB_CloseDevice(&tool());
    tool().isHid = 1;
    EXPECT_THAT(debugLinesOf([&] { EXPECT_EQ(-109, LibUSB_ResetDevice(&tool())); }), IsEmpty());
    tool().isHid = 0;
    EXPECT_EQ(0U, callsOf("libusb_reset_device"));
}

TEST_F(ControlTransfers, ResetOfAPipeAndRestartAreNeverOffered) {
    EXPECT_EQ(-120, LibUSB_ResetPipe(&tool(), 0x81));
    EXPECT_EQ(-120, LibUSB_RestartDevice(&tool()));
    LibUSB_CloseDevice(&tool());
    EXPECT_EQ(-120, LibUSB_ResetPipe(&tool(), 0x81));
    EXPECT_EQ(-120, LibUSB_RestartDevice(&tool()));
    EXPECT_EQ(0U, callsOf("libusb_reset_device"));
}
