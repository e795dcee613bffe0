#include <gmock/gmock.h>
#include <libusb.h>

#include "BackgroundCall.h"
#include "FakeHid.h"
#include "HidHandling/HidDispatch.h"
#include "ListTest.h"
#include "MacOSXUSBAccess/io/ControlTransfers.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "ground/SharedField.h"
#include "hid/HIDAccess.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Bytes = std::vector<uint8_t>;

/// A list of one HID device, "tool".
class HidDispatch : public ListTest {
 protected:
    void SetUp() override {
        ListTest::SetUp();
        hid.devices = {{kVendor, 0x1001, "Talvane", "Echo Tool", "tool"}};
        hid.configuration = {9, 2, 9, 0, 0, 1, 0, 0x80, 50};
        startSession({deviceJson("tool")});
        list = createList({kVendor});
        ASSERT_EQ(1, tool().isHid);
    }
    void TearDown() override {
        if (!isReleased) {
            LibUSB_CloseDevice(&tool());
        }
        ListTest::TearDown();
    }

    tagUSB_DEVICE_ACCESS_ENTRY& tool() { return record(list, 0); }
    HIDAccess& access() { return *tool().pHIDAccess; }
    void open() {
        ASSERT_EQ(0, LibUSB_OpenDevice(&tool()));
        EXPECT_TRUE(eventually([&] { return loadShared(access().threadState) == kReadThreadRuns; }));
    }
    void expectSettings(int32_t packetSize, int32_t fillValue) {
        EXPECT_EQ(packetSize, access().packetSize);
        EXPECT_EQ(fillValue, access().fillValue);
        EXPECT_EQ(static_cast<uint32_t>(packetSize), tool().exPacketSize);
        EXPECT_EQ(static_cast<uint32_t>(fillValue), tool().exFillValue);
        EXPECT_EQ(64U, tool().packetSize);
        EXPECT_EQ(0x5AU, tool().fillValue);
    }

    FakeHid hid;
    uint32_t list = 0;
    bool isReleased = false;
    Bytes bytes = Bytes(1024, 0x11);
};

TEST_F(HidDispatch, OpenAndCloseAreThoseOfTheHidAccess) {
    EXPECT_EQ(0, HID_OpenDevice(&tool()));
    EXPECT_EQ(-105, HID_OpenDevice(&tool()));
    EXPECT_EQ(0, HID_CloseDevice(&tool()));
    EXPECT_EQ(-109, HID_CloseDevice(&tool()));
    hid.openResult = HidOpenResult::notFound;
    EXPECT_EQ(-131, HID_OpenDevice(&tool()));
}

TEST_F(HidDispatch, ControlPipesAreNotOfferedWhateverTheArguments) {
    EXPECT_EQ(-120, HID_WriteControlPipe(&tool(), 0, 1000, bytes.data()));
    EXPECT_EQ(-120, HID_ReadControlPipe(&tool(), -1, 0, nullptr));
    open();
    EXPECT_EQ(-120, HID_WriteControlPipe(&tool(), 0, 1000, bytes.data()));
    EXPECT_EQ(-120, HID_ReadControlPipe(&tool(), 7, 1000, bytes.data()));
}

TEST_F(HidDispatch, WritesUseTheStandingSettings) {
    open();
    access().SetPacketSize(512);
    access().SetFillValue(0);
    EXPECT_EQ(100, HID_WriteInterruptPipe(&tool(), 1, 100, 1000, bytes.data()));
    expectSettings(64, 0x5A);
    ASSERT_THAT(hid.sent(), SizeIs(2));
    EXPECT_EQ(0x5A, hid.sent()[1].back());
}

TEST_F(HidDispatch, ReadsUseTheStandingSettings) {
    open();
    access().SetPacketSize(512);
    EXPECT_EQ(-150, HID_ReadInterruptPipe(&tool(), 1, 64, 1, bytes.data()));
    expectSettings(64, 0x5A);
}

TEST_F(HidDispatch, ExWritesUseTheGivenSettings) {
    open();
    EXPECT_EQ(100, HID_WriteInterruptPipeEx(&tool(), 1, 100, 1000, bytes.data(), 512, 0xFF));
    expectSettings(512, 0xFF);
    ASSERT_THAT(hid.sent(), ElementsAre(SizeIs(512)));
    EXPECT_EQ(0xFF, hid.sent()[0].back());
}

TEST_F(HidDispatch, AReadAfterAnExReadTakesReportsOf64BytesAgain) {
    open();
    EXPECT_EQ(-150, HID_ReadInterruptPipeEx(&tool(), 1, 128, 1, bytes.data(), 128, 0));
    expectSettings(128, 0);
    EXPECT_EQ(-150, HID_ReadInterruptPipe(&tool(), 1, 64, 1, bytes.data()));
    expectSettings(64, 0x5A);
    hid.deliver(Bytes(64, 0x78));
    EXPECT_EQ(-150, HID_ReadInterruptPipe(&tool(), 1, 128, 20, bytes.data())) << "one report is 64 bytes";
    EXPECT_EQ(0x78, bytes[63]);
    EXPECT_EQ(0x11, bytes[64]);
}

TEST_F(HidDispatch, ThePipeNumberHasNoEffect) {
    open();
    EXPECT_EQ(64, HID_WriteInterruptPipe(&tool(), 1, 64, 1000, bytes.data()));
    EXPECT_EQ(64, HID_WriteInterruptPipe(&tool(), 2, 64, 1000, bytes.data()));
    EXPECT_THAT(hid.sent(), ElementsAre(Bytes(64, 0x11), Bytes(64, 0x11)));
}

TEST_F(HidDispatch, ResultsOfTheHidAccessComeThrough) {
    EXPECT_EQ(-109, HID_WriteInterruptPipe(&tool(), 1, 1, 1000, bytes.data()));
    EXPECT_EQ(-109, HID_WriteInterruptPipeEx(&tool(), 1, 1, 1000, bytes.data(), 64, 0));
    open();
    hid.sendsBeforeFailure = 0;
    EXPECT_EQ(-112, HID_WriteInterruptPipe(&tool(), 1, 1, 1000, bytes.data()));
    EXPECT_EQ(-112, HID_WriteInterruptPipeEx(&tool(), 1, 1, 1000, bytes.data(), 64, 0));
    EXPECT_EQ(0, HID_WriteInterruptPipe(&tool(), 1, 0, 1000, bytes.data()));
    EXPECT_EQ(-150, HID_ReadInterruptPipe(&tool(), 1, 64, 0, bytes.data()));
}

using HidRecord = HidDispatch;

TEST_F(HidRecord, OpensThroughTheHidInterfaceAndMakesNoTransferRecords) {
    bus.clearCalls();
    tool().kernelDriverDetached = 1;
    const auto lines = debugLinesOf([&] { open(); });
    EXPECT_THAT(lines, IsEmpty());
    EXPECT_EQ(1U, tool().isOpen);
    EXPECT_EQ(0U, tool().kernelDriverDetached);
    EXPECT_EQ(nullptr, tool().hDevice);
    EXPECT_TRUE(tool().callbackInfos.empty());
    EXPECT_EQ(0U, callsOf("libusb_open"));
    EXPECT_TRUE(hid.isOpen());
}

TEST_F(HidRecord, CountsAsOpenEvenWhenTheHidOpenFails) {
    for (const HidOpenResult failure : {HidOpenResult::notFound, HidOpenResult::notOpenable}) {
        hid.openResult = failure;
        EXPECT_EQ(0, LibUSB_OpenDevice(&tool()));
        EXPECT_EQ(1U, tool().isOpen);
        EXPECT_TRUE(tool().callbackInfos.empty());
        EXPECT_EQ(-109, LibUSB_WriteInterruptPipe(&tool(), 1, 64, 100, bytes.data()));
        EXPECT_EQ(-150, LibUSB_ReadInterruptPipe(&tool(), 1, 64, 5, bytes.data()));
        EXPECT_EQ(-109, LibUSB_CloseDevice(&tool())) << "the HID close's own answer";
        EXPECT_EQ(0U, tool().isOpen);
    }
}

TEST_F(HidRecord, OpenStillRefusesAsForEveryRecord) {
    open();
    EXPECT_EQ(-105, LibUSB_OpenDevice(&tool()));
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    tool().isUnsupportedClass = 1;
    EXPECT_EQ(-158, LibUSB_OpenDevice(&tool()));
    tool().isPresent = 0;
    EXPECT_EQ(-131, LibUSB_OpenDevice(&tool()));
}

TEST_F(HidRecord, ClosesThroughTheHidInterface) {
    open();
    bus.clearCalls();
    EXPECT_THAT(debugLinesOf([&] { EXPECT_EQ(0, LibUSB_CloseDevice(&tool())); }), IsEmpty());
    EXPECT_EQ(0U, tool().isOpen);
    EXPECT_FALSE(hid.isOpen());
    EXPECT_EQ(0U, callsOf("libusb_release_interface"));
    EXPECT_EQ(-109, LibUSB_CloseDevice(&tool()));
}

TEST_F(HidRecord, MovesReportsThroughTheInterruptCalls) {
    open();
    EXPECT_EQ(130, LibUSB_WriteInterruptPipe(&tool(), 1, 130, 1000, bytes.data()));
    EXPECT_THAT(hid.sent(), SizeIs(3));
    hid.deliver(Bytes(64, 0x33));
    EXPECT_EQ(64, LibUSB_ReadInterruptPipe(&tool(), 0x81, 64, 1000, bytes.data()));
    EXPECT_EQ(Bytes(64, 0x33), Bytes(bytes.begin(), bytes.begin() + 64));
    hid.deliver(Bytes(64, 0x44));
    EXPECT_EQ(64, LibUSB_ReadInterruptPipeEx(&tool(), 0x81, 64, 1000, bytes.data(), 64, 0));
    EXPECT_EQ(0x44, bytes[0]);
    EXPECT_EQ(130, LibUSB_WriteInterruptPipeEx(&tool(), 1, 130, 1000, bytes.data(), 1024, 0xFF));
    EXPECT_THAT(hid.sent().back(), SizeIs(1024));
}

TEST_F(HidRecord, APacketSizeOutside64To1024IsRefusedAndChangesNothing) {
    open();
    for (const int32_t size : {63, 1025, 0, -64}) {
        EXPECT_EQ(-114, LibUSB_WriteInterruptPipeEx(&tool(), 1, 64, 100, bytes.data(), size, 1));
        EXPECT_EQ(-114, LibUSB_ReadInterruptPipeEx(&tool(), 1, 64, 100, bytes.data(), size, 1));
    }
    EXPECT_EQ(64, access().packetSize);
    EXPECT_EQ(0U, tool().exFillValue);
    EXPECT_THAT(hid.sent(), IsEmpty());
}

TEST_F(HidRecord, WithoutABufferForItsBytesACallFailsAsASubmission) {
    open();
    EXPECT_EQ(-112, LibUSB_WriteInterruptPipe(&tool(), 1, 64, 100, nullptr));
    EXPECT_EQ(-112, LibUSB_WriteInterruptPipe(&tool(), 1, 1, 100, nullptr));
    EXPECT_EQ(-113, LibUSB_ReadInterruptPipe(&tool(), 1, 64, 100, nullptr));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, tool().lastResult);
    EXPECT_EQ(-112, LibUSB_WriteInterruptPipeEx(&tool(), 1, 64, 100, nullptr, 64, 0));
    EXPECT_EQ(-113, LibUSB_ReadInterruptPipeEx(&tool(), 1, 64, 100, nullptr, 64, 0));
    EXPECT_EQ(0, LibUSB_WriteInterruptPipe(&tool(), 1, 0, 100, nullptr));
}

TEST_F(HidRecord, EveryOtherTransferIsNotOffered) {
    open();
    EXPECT_EQ(-120, LibUSB_WriteBulkPipe(&tool(), 1, 64, 100, bytes.data()));
    EXPECT_EQ(-120, LibUSB_ReadBulkPipe(&tool(), 1, 64, 100, bytes.data()));
    EXPECT_EQ(-120, LibUSB_WriteBulkPipeEx(&tool(), 1, 64, 100, bytes.data(), 64, 0));
    EXPECT_EQ(-120, LibUSB_ReadBulkPipeEx(&tool(), 1, 64, 100, bytes.data(), 64, 0));
    EXPECT_EQ(-120, LibUSB_WriteControlPipe(&tool(), 0, 100, bytes.data()));
    EXPECT_EQ(-120, LibUSB_ReadControlPipe(&tool(), 0, 100, bytes.data()));
    EXPECT_EQ(-120, LibUSB_CancelPipeTransfer(&tool(), 0x81));
    EXPECT_EQ(-120, LibUSB_ResetDevice(&tool()));
}

TEST_F(HidRecord, WhileClosedEveryTransferIsRefusedAsNotOpen) {
    EXPECT_EQ(-109, LibUSB_ReadInterruptPipe(&tool(), 1, 64, 100, bytes.data()));
    EXPECT_EQ(-109, LibUSB_WriteInterruptPipeEx(&tool(), 1, 64, 100, bytes.data(), 1, 0));
    EXPECT_EQ(-109, LibUSB_WriteBulkPipe(&tool(), 1, 64, 100, bytes.data()));
    EXPECT_EQ(-109, LibUSB_ResetDevice(&tool()));
}

TEST_F(HidRecord, ADevicePulledWhileOpenIsOpenedAnew) {
    open();
    HIDAccess* before = tool().pHIDAccess;
    unplugAndUpdate("tool", list);
    plugAndUpdate("tool", list);
    EXPECT_EQ(0U, tool().isOpen);
    open();
    EXPECT_EQ(before, tool().pHIDAccess);
    EXPECT_THAT(hid.calls(),
                ElementsAre("open", "start", "stop", "stopCallersLoop", "close", "open", "start"));
}

TEST_F(HidRecord, ACloseAfterTheDeviceCameBackEndsWhatWasOpen) {
    open();
    unplugAndUpdate("tool", list);
    plugAndUpdate("tool", list);
    EXPECT_TRUE(hid.isOpen());
    EXPECT_EQ(-109, LibUSB_CloseDevice(&tool()));
    EXPECT_FALSE(hid.isOpen());
}

TEST_F(HidRecord, OfAnEndedSessionIsNotOpened) {
    endSession();
    EXPECT_EQ(-107, LibUSB_OpenDevice(&tool()));
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, tool().lastResult);
    EXPECT_THAT(hid.calls(), IsEmpty());
    isReleased = true;
}

TEST_F(HidRecord, StaysOpenBeyondTheEndOfItsSession) {
    open();
    endSession();
    EXPECT_EQ(1U, tool().isOpen);
    EXPECT_EQ(64, LibUSB_WriteInterruptPipe(&tool(), 1, 64, 1000, bytes.data()));
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_FALSE(hid.isOpen());
    isReleased = true;
}

TEST_F(HidRecord, TheReleaseOfItsListDoesNotCloseTheHidAccess) {
    open();
    HIDAccess* hidAccess = tool().pHIDAccess;
    auto& entry = tool();
    LibUSB_ReleaseDeviceList(list);
    isReleased = true;
    EXPECT_TRUE(hid.isOpen());
    hid.deliver(Bytes(64, 0x55));
    EXPECT_EQ(64, hidAccess->GetIncomingData(bytes.data(), 64));
    EXPECT_EQ(-109, LibUSB_ReadInterruptPipe(&entry, 1, 64, 1000, bytes.data()));
    EXPECT_EQ(-109, LibUSB_CloseDevice(&entry)) << "and yet it is the caller's late close";
    EXPECT_FALSE(hid.isOpen());
}

TEST_F(HidRecord, AReadThatIsStillWaitingOutlivesCloseAndList) {
    open();
    auto& entry = tool();
    BackgroundCall reading([&] { return LibUSB_ReadInterruptPipe(&entry, 1, 64, 300, bytes.data()); });
    EXPECT_TRUE(eventually([&] { return privateSide(entry).activeCalls.load() == 1; }));
    EXPECT_EQ(0, LibUSB_CloseDevice(&entry));
    LibUSB_ReleaseDeviceList(list);
    EXPECT_EQ(-150, reading.result());
    isReleased = true;
}

}  // namespace
