// Cancelling a transfer from another thread.
#include <gmock/gmock.h>
#include <libusb.h>

#include "Gate.h"
#include "HotplugUsb/HotplugUsb.h"
#include "IoTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "ground/SharedField.h"

using ::testing::ElementsAre;

namespace {
using Cancel = IoTest;
}

TEST_F(Cancel, WakesTheBlockedThreadWithWhatWasMoved) {
    openTool();
    setBehaviour("0x84", R"({"limit":11})");
    const auto read = blockedRead();
    EXPECT_EQ(0, LibUSB_CancelPipeTransfer(&tool(), 0x84));
    EXPECT_EQ(11, read->result());
    EXPECT_EQ(LIBUSB_TRANSFER_CANCELLED, transferRecord(0x84).status);
}

TEST_F(Cancel, OfNothingTellsLibusbsCode) {
    openTool();
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, LibUSB_CancelPipeTransfer(&tool(), 0x84));
    uint8_t byte = 0;
    EXPECT_EQ(1, LibUSB_ReadBulkPipe(&tool(), 0x83, 1, 1000, &byte));
    EXPECT_EQ(LIBUSB_ERROR_NOT_FOUND, LibUSB_CancelPipeTransfer(&tool(), 0x83));
}

TEST_F(Cancel, TakesTheAddressExactlyAsGiven) {
    openTool();
    uint8_t bytes[64] = {};
    BackgroundCall write([&] { return LibUSB_WriteBulkPipe(&tool(), 0x04, sizeof bytes, 0, bytes); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0x04) == 1; }));
    const auto read = blockedRead(0x84);
    EXPECT_EQ(0, LibUSB_CancelPipeTransfer(&tool(), 0x04));
    EXPECT_EQ(0, write.result());
    EXPECT_FALSE(read->hasReturned());
    EXPECT_EQ(1U, bus.pending("tool", 0x84));
    EXPECT_EQ(0, LibUSB_CancelPipeTransfer(&tool(), static_cast<int8_t>(0x84)));
    EXPECT_EQ(0, read->result());
}

TEST_F(Cancel, OfAnEndpointNumberAboveFifteenFindsNone) {
    openTool();
    EXPECT_EQ(-109, LibUSB_CancelPipeTransfer(&tool(), 0x10));
    EXPECT_EQ(-109, LibUSB_CancelPipeTransfer(&tool(), 0x94));
    EXPECT_EQ(0U, callsOf("libusb_cancel_transfer"));
    EXPECT_EQ(32U, tool().callbackInfos.size());
}

TEST_F(Cancel, PassesOnWhatLibusbSays) {
    openTool();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, LibUSB_CancelPipeTransfer(&tool(), 0x84));
}

TEST_F(Cancel, DoesNotWait) {
    openTool();
    deinitHotplugUsb();  // now only the reader handles events, and it is held
    Gate gate;
    bus.onCall("libusb_handle_events", [&] { gate.pass(); });
    const auto read = blockedRead();
    EXPECT_EQ(0, LibUSB_CancelPipeTransfer(&tool(), 0x84));
    EXPECT_EQ(1, loadShared(transferRecord(0x84).isPending));
    gate.open();
    EXPECT_EQ(0, read->result());
}

TEST_F(Cancel, NeedsAnOpenRecordThatIsNotHid) {
    openTool();
    tool().isHid = 1;
    const auto hid = debugLinesOf([&] { EXPECT_EQ(-120, LibUSB_CancelPipeTransfer(&tool(), 0x84)); });
    EXPECT_THAT(hid, ElementsAre("[checkBulkTransferReady] isHid == true"));
    tool().isHid = 0;
    LibUSB_CloseDevice(&tool());
    const auto closed = debugLinesOf([&] { EXPECT_EQ(-109, LibUSB_CancelPipeTransfer(&tool(), 0x84)); });
    EXPECT_THAT(closed, ElementsAre("[checkBulkTransferReady] not acquired"));
    tool().isOpen = 1;
    const auto empty = debugLinesOf([&] { EXPECT_EQ(-109, LibUSB_CancelPipeTransfer(&tool(), 0x84)); });
    EXPECT_THAT(empty, ElementsAre("[checkBulkTransferReady] cbInfo map is empty"));
    tool().isOpen = 0;
}
