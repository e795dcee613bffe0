// Opening and closing at awkward moments: transfers still running, a device that came back, no memory.
#include <gmock/gmock.h>
#include <libusb.h>

#include <set>

#include "CallOrder.h"
#include "Gate.h"
#include "IoTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"
#include "MacOSXUSBAccess/records/TransferRecords.h"
#include "ground/SharedField.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class OpenGuards : public IoTest {
 protected:
    int32_t readSource() {
        uint8_t bytes[8] = {};
        return LibUSB_ReadBulkPipe(&tool(), 0x83, sizeof bytes, 1000, bytes);
    }

    /// Unplugs the device, plugs it in again and updates its list.
    void replug() {
        unplugAndWait("tool", list());
        plugAndWait("tool", list());
        ASSERT_EQ(0, LibUSB_UpdateDeviceList(list(), 0));
    }
};

}  // namespace

TEST_F(OpenGuards, AnOpenWithoutMemoryForTransfersIsUndone) {
    for (const unsigned nth : {1U, 2U, 17U, 32U}) {
        openTool();
        LibUSB_CloseDevice(&tool());
        bus.clearCalls();
        bus.failCall("libusb_alloc_transfer", nth, LIBUSB_ERROR_NO_MEM);
        EXPECT_EQ(-107, LibUSB_OpenDevice(&tool()));
        EXPECT_EQ(LIBUSB_ERROR_NO_MEM, tool().lastResult);
        EXPECT_EQ(nullptr, tool().hDevice);
        EXPECT_THAT(tool().callbackInfos, IsEmpty());
        EXPECT_EQ(1U, callsOf("libusb_close"));
        EXPECT_EQ(0, LibUSB_OpenDevice(&tool()));
        LibUSB_ReleaseDeviceList(list());
        endSession();
    }
}

TEST_F(OpenGuards, CloseEndsAReadThatBlocks) {
    openTool();
    const auto read = blockedRead();
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_EQ(0, read->result());
    EXPECT_EQ(0U, bus.pending("tool", 0x84));
    EXPECT_THAT(tool().callbackInfos, IsEmpty());
    EXPECT_EQ(0, LibUSB_OpenDevice(&tool()));
    EXPECT_EQ(8, readSource());
}

TEST_F(OpenGuards, CloseEndsReadsOnSeveralEndpoints) {
    openTool();
    const auto first = blockedRead(0x84);
    const auto second = blockedRead(0x81);
    const auto third = blockedRead(0x82);
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_EQ(0, first->result());
    EXPECT_EQ(0, second->result());
    EXPECT_EQ(0, third->result());
}

TEST_F(OpenGuards, AReadEndedByACloseTellsWhatItGot) {
    openTool();
    setBehaviour("0x84", R"({"limit":5})");
    const auto read = blockedRead();
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_EQ(5, read->result());
}

TEST_F(OpenGuards, CloseFreesNothingBeforeTheReaderHasLeft) {
    openTool();
    Gate gate;  // holds the reader before event handling, so that other threads complete its transfer
    bus.onCall("libusb_handle_events", [&] { gate.pass(); });
    const auto read = blockedRead();
    ASSERT_TRUE(eventually([&] { return gate.arrivals() == 1; }));
    BackgroundCall close([&] { return LibUSB_CloseDevice(&tool()); });
    ASSERT_TRUE(eventually([&] { return loadShared(transferRecord(0x84).isPending) == 0; }));
    const uint64_t rounds = callsOf("libusb_handle_events_timeout_completed");
    ASSERT_TRUE(eventually([&] { return callsOf("libusb_handle_events_timeout_completed") > rounds + 20; }));
    EXPECT_FALSE(close.hasReturned());
    EXPECT_EQ(0U, callsOf("libusb_free_transfer"));
    gate.open();
    EXPECT_EQ(0, close.result());
    EXPECT_EQ(0, read->result());
    EXPECT_EQ(32U, callsOf("libusb_free_transfer"));
}

TEST_F(OpenGuards, CloseGivesUpOnATransferThatDoesNotComeBack) {
    openTool();
    const auto read = blockedRead();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_FALSE(read->hasReturned());
    EXPECT_NE(nullptr, tool().hDevice) << "what libusb still uses stays";
    EXPECT_EQ(32U, tool().callbackInfos.size());
    EXPECT_EQ(-109, readSource());
    bus.clearFaults();
    EXPECT_EQ(0, LibUSB_OpenDevice(&tool())) << "tried again, and this time it came back";
    EXPECT_EQ(0, read->result());
    EXPECT_EQ(8, readSource());
}

TEST_F(OpenGuards, OpenWaitsForNoTransferThatDoesNotComeBack) {
    openTool();
    const auto read = blockedRead();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    EXPECT_EQ(-107, LibUSB_OpenDevice(&tool()));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, tool().lastResult);
    EXPECT_FALSE(read->hasReturned());
    bus.clearFaults();
    EXPECT_EQ(0, LibUSB_OpenDevice(&tool()));
    EXPECT_EQ(0, read->result());
}

TEST_F(OpenGuards, ADeviceThatCameBackMustBeOpenedAgain) {
    openTool();
    replug();
    EXPECT_EQ(0U, tool().isOpen);
    EXPECT_EQ(-109, readSource());
    EXPECT_EQ(-109, LibUSB_CloseDevice(&tool()));
    EXPECT_EQ(0, LibUSB_OpenDevice(&tool()));
    EXPECT_EQ(8, readSource());
}

TEST_F(OpenGuards, AnOpenAfterAReplugFreesTheOldHandleAndTransfers) {
    openTool();
    replug();
    bus.clearCalls();
    const auto lines = debugLinesOf([&] { EXPECT_EQ(0, LibUSB_OpenDevice(&tool())); });
    EXPECT_EQ(2U, lines.size()) << "not a word in the log about the old one";
    EXPECT_EQ(1U, callsOf("libusb_close"));
    EXPECT_EQ(32U, callsOf("libusb_free_transfer"));
    EXPECT_EQ(32U, callsOf("libusb_alloc_transfer"));
}

TEST_F(OpenGuards, AListReleaseFreesTheHandleOfADeviceThatCameBack) {
    openTool();
    replug();
    bus.clearCalls();
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
    EXPECT_EQ(1U, callsOf("libusb_close"));
    EXPECT_EQ(32U, callsOf("libusb_free_transfer"));
}

TEST_F(OpenGuards, AnUnplugEndsAReadThatBlocks) {
    openTool();
    const auto read = blockedRead();
    bus.unplug("tool");
    EXPECT_EQ(0, read->result());
    EXPECT_EQ(-113, readSource());
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, tool().lastResult);
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
}

TEST_F(OpenGuards, AnUnplugEndsAWriteThatBlocks) {
    openTool();
    uint8_t bytes[64] = {};
    BackgroundCall write([&] { return LibUSB_WriteBulkPipe(&tool(), 0x04, sizeof bytes, 0, bytes); });
    ASSERT_TRUE(eventually([&] { return bus.pending("tool", 0x04) == 1; }));
    bus.unplug("tool");
    EXPECT_EQ(0, write.result());
}

TEST_F(OpenGuards, AnUnpluggedDeviceIsNotOpenedThroughItsOldRecord) {
    openTool();
    LibUSB_CloseDevice(&tool());
    bus.unplug("tool");
    EXPECT_EQ(-107, LibUSB_OpenDevice(&tool())) << "no update has looked yet";
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, tool().lastResult);
}

TEST_F(OpenGuards, AListReleaseClosesAnOpenRecordAndKeepsItAside) {
    openTool();
    auto& entry = tool();
    const auto read = blockedRead();
    const auto lines = debugLinesOf([&] { EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list())); });
    EXPECT_EQ(0, read->result());
    EXPECT_THAT(lines, ::testing::Contains("[tlvn_libusb_close] tool: 1.256 interface: 0 dev: " +
                                           lines.front().substr(lines.front().rfind(' ') + 1)));
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(0, 0));
    uint8_t byte = 0;
    EXPECT_EQ(-109, LibUSB_ReadBulkPipe(&entry, 0x83, 1, 1000, &byte))
        << "a late call, on a record that lives";
    EXPECT_EQ(-109, LibUSB_CancelPipeTransfer(&entry, 0x84));
    EXPECT_EQ(-131, LibUSB_OpenDevice(&entry));
    EXPECT_EQ(-109, LibUSB_CloseDevice(&entry));
}

TEST_F(OpenGuards, AListReleaseKeepsARecordAsideWhoseTransferDoesNotComeBack) {
    openTool();
    auto& entry = tool();
    const auto read = blockedRead();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    const CallOrder order(bus, {"libusb_cancel_transfer", "libusb_unref_device"});
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
    EXPECT_EQ("libusb_unref_device", order.seen().back()) << "it is waited for once";
    EXPECT_EQ(nullptr, LibUSB_GetDeviceFromIndex(0, 0));
    EXPECT_FALSE(read->hasReturned());
    bus.clearFaults();
    endSession();
    EXPECT_EQ(0, read->result()) << "the session's end cut it off";
    EXPECT_EQ(nullptr, entry.hDevice);
}

TEST_F(OpenGuards, EveryEndpointAddressHasALaneOfItsOwn) {
    openTool();
    std::set<EndpointLane*> lanes;
    for (const unsigned direction : {0x00U, 0x80U}) {
        for (unsigned number = 0; number < 16; ++number) {
            EXPECT_TRUE(lanes.insert(laneOf(tool(), static_cast<uint8_t>(direction | number))).second)
                << direction << " " << number;
        }
    }
    EXPECT_EQ(0U, lanes.count(nullptr));
}

/// A thread whose call is refused reads the record first; the record must not be deleted until it has left.
TEST_F(OpenGuards, ATransferThatWillBeRefusedCountsAsInsideTheRecord) {
    openTool();
    for (const uint8_t address : {uint8_t{0x81}, uint8_t{0x10}}) {
        const EndpointTurn first(tool(), 0x81);
        const EndpointTurn refused(tool(), address);
        EXPECT_TRUE(first.isAlone() && first.isCounted());
        EXPECT_FALSE(refused.isAlone());
        EXPECT_TRUE(refused.isCounted());
        EXPECT_EQ(1, privateSide(tool()).activeCalls.load());
    }
    EXPECT_FALSE(someThreadIsInside(tool()));
}

TEST_F(OpenGuards, ATransferCountsAsInsideTheRecordUntilItHasLeft) {
    openTool();
    {
        const EndpointTurn turn(tool(), 0x81);
        EXPECT_TRUE(someThreadIsInside(tool()));
        EXPECT_EQ(0, privateSide(tool()).activeCalls.load());
    }
    EXPECT_FALSE(someThreadIsInside(tool()));
    EXPECT_TRUE(EndpointTurn(tool(), 0x81).isAlone());
}

TEST_F(OpenGuards, ATransferOnAClosedRecordCountsAsNobody) {
    openTool();
    ASSERT_EQ(0, LibUSB_CloseDevice(&tool()));
    const EndpointTurn turn(tool(), 0x81);
    EXPECT_FALSE(turn.isCounted() || turn.isAlone() || someThreadIsInside(tool()));
    EXPECT_EQ(nullptr, turn.lane()->record);
}
