// The common behaviour of the eight bulk and interrupt transfers: each test runs on every one of them.
#include <gmock/gmock.h>
#include <libusb.h>

#include "IoTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/TransferEngine.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "ground/SharedField.h"
#include "hid/HIDAccess.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

using Transfer = int32_t (*)(tagUSB_DEVICE_ACCESS_ENTRY*, int32_t endpoint, int32_t length, int32_t timeout,
                             uint8_t* buffer);

struct Operation {
    const char* name;
    Transfer run;
    bool reads;
    uint8_t type;
};

/// The extended calls, with a packet size that has no effect on one packet.
template <int32_t (*kFunction)(tagUSB_DEVICE_ACCESS_ENTRY*, int32_t, int32_t, int32_t, uint8_t*, int32_t,
                               int32_t)>
int32_t extended(tagUSB_DEVICE_ACCESS_ENTRY* entry, int32_t endpoint, int32_t length, int32_t timeout,
                 uint8_t* buffer) {
    return kFunction(entry, endpoint, length, timeout, buffer, 64, 0);
}

const Operation kOperations[] = {
    {"WriteBulk", LibUSB_WriteBulkPipe, false, LIBUSB_TRANSFER_TYPE_BULK},
    {"ReadBulk", LibUSB_ReadBulkPipe, true, LIBUSB_TRANSFER_TYPE_BULK},
    {"WriteInterrupt", LibUSB_WriteInterruptPipe, false, LIBUSB_TRANSFER_TYPE_INTERRUPT},
    {"ReadInterrupt", LibUSB_ReadInterruptPipe, true, LIBUSB_TRANSFER_TYPE_INTERRUPT},
    {"WriteBulkEx", extended<LibUSB_WriteBulkPipeEx>, false, LIBUSB_TRANSFER_TYPE_BULK},
    {"ReadBulkEx", extended<LibUSB_ReadBulkPipeEx>, true, LIBUSB_TRANSFER_TYPE_BULK},
    {"WriteInterruptEx", extended<LibUSB_WriteInterruptPipeEx>, false, LIBUSB_TRANSFER_TYPE_INTERRUPT},
    {"ReadInterruptEx", extended<LibUSB_ReadInterruptPipeEx>, true, LIBUSB_TRANSFER_TYPE_INTERRUPT},
};

/// One interface with an endpoint pair of each behaviour, of the operation's type: 1 sink and source, 4
/// silent, 5 stalling.
class Transfers : public IoTest, public ::testing::WithParamInterface<Operation> {
 protected:
    static constexpr int32_t kLength = 64;

    void SetUp() override {
        IoTest::SetUp();
        const std::string type = operation().type == LIBUSB_TRANSFER_TYPE_BULK ? "bulk" : "interrupt";
        const auto endpoint = [&](const char* address, const char* behaviour) {
            return R"({"address":")" + std::string(address) + R"(","type":")" + type + R"(","behaviour":")" +
                   behaviour + R"("})";
        };
        openTool(R"({"interfaces":[{"number":0,"endpoints":[)" + endpoint("0x01", "sink") + "," +
                 endpoint("0x81", "source") + "," + endpoint("0x04", "silent") + "," +
                 endpoint("0x84", "silent") + "," + endpoint("0x05", "stall") + "," +
                 endpoint("0x85", "stall") + "]}]}");
        bus.clearCalls();
    }

    static const Operation& operation() { return GetParam(); }
    int32_t run(int32_t endpoint, int32_t length = kLength, int32_t timeout = 1000) {
        return operation().run(&tool(), endpoint, length, timeout, buffer.data());
    }
    /// The address that the operation uses for an endpoint number.
    static uint8_t addressOf(int number) {
        return static_cast<uint8_t>(operation().reads ? number | 0x80 : number);
    }
    static std::string hex(uint8_t address) {
        char text[8];
        std::snprintf(text, sizeof text, "0x%02X", address);
        return text;
    }
    /// The padded packets of an interrupt write count as sent, however they ended.
    static bool countsShortPacketsAsFull() {
        return operation().run == extended<LibUSB_WriteInterruptPipeEx>;
    }
    int32_t submissionFailure() const { return operation().reads ? -113 : -112; }

    std::unique_ptr<BackgroundCall> blocked() {
        auto call = std::make_unique<BackgroundCall>([this] { return run(4, kLength, 0); });
        EXPECT_TRUE(eventually([&] { return bus.pending("tool", addressOf(4)) == 1; }));
        return call;
    }

    std::vector<uint8_t> buffer = std::vector<uint8_t>(kLength, 0x33);
};

INSTANTIATE_TEST_SUITE_P(All, Transfers, ::testing::ValuesIn(kOperations),
                         [](const auto& operation) { return std::string(operation.param.name); });

}  // namespace

TEST_P(Transfers, MovesDataAndReturnsTheCount) {
    EXPECT_EQ(kLength, run(1));
    if (operation().reads) {
        std::vector<uint8_t> expected(kLength);
        for (size_t i = 0; i < expected.size(); ++i) {
            expected[i] = static_cast<uint8_t>(i);
        }
        EXPECT_EQ(expected, buffer);
    } else {
        EXPECT_THAT(bus.received("tool", 1), ElementsAre(buffer));
    }
}

TEST_P(Transfers, FillsTheLibusbTransfer) {
    run(1, kLength, 4321);
    const libusb_transfer& transfer = libusbTransfer(addressOf(1));
    EXPECT_EQ(tool().hDevice, transfer.dev_handle);
    EXPECT_EQ(addressOf(1), transfer.endpoint);
    EXPECT_EQ(operation().type, transfer.type);
    EXPECT_EQ(4321U, transfer.timeout);
    EXPECT_EQ(kLength, transfer.length);
    EXPECT_EQ(&tool(), transfer.user_data);
    EXPECT_EQ(&InternalTransferCallback, transfer.callback);
    EXPECT_EQ(0, transfer.flags);
    EXPECT_EQ(0, transfer.num_iso_packets);
}

TEST_P(Transfers, ANegativeTimeOutIsTakenAsAnUnsignedNumber) {
    run(1, kLength, -1);
    EXPECT_EQ(0xFFFFFFFFU, libusbTransfer(addressOf(1)).timeout);
}

TEST_P(Transfers, LeavesTheOutcomeInTheTransferRecord) {
    setBehaviour(hex(addressOf(1)), R"({"limit":10})");
    EXPECT_EQ(countsShortPacketsAsFull() ? kLength : 10, run(1));
    const tagUSB_CALLBACK_INFO& record = transferRecord(addressOf(1));
    EXPECT_EQ(0, record.isPending);
    EXPECT_EQ(LIBUSB_TRANSFER_COMPLETED, record.status);
    EXPECT_EQ(kLength, record.length);
    EXPECT_EQ(10, record.actualLength);
}

TEST_P(Transfers, IsPendingWhenLibusbGetsIt) {
    int32_t pending = -1;
    bus.onCall("libusb_submit_transfer",
               [&] { pending = loadShared(transferRecord(addressOf(1)).isPending); });
    EXPECT_EQ(kLength, run(1));
    EXPECT_EQ(1, pending);
}

TEST_P(Transfers, SetsOrClearsTheDirectionBit) {
    EXPECT_EQ(kLength, run(0x01));
    EXPECT_EQ(kLength, run(0x81));
    EXPECT_EQ(kLength, run(static_cast<int8_t>(0x81)));
    EXPECT_EQ(addressOf(1), libusbTransfer(addressOf(1)).endpoint);
    EXPECT_EQ(nullptr, libusbTransfer(static_cast<uint8_t>(addressOf(1) ^ 0x80)).dev_handle)
        << "the other direction was never used";
}

TEST_P(Transfers, AnswersNotOpenForAnEndpointNumberAboveFifteen) {
    for (const int32_t endpoint : {0x10, 0x7F, 0x90, -1}) {
        EXPECT_EQ(-109, run(endpoint));
    }
    EXPECT_EQ(32U, tool().callbackInfos.size());
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
}

TEST_P(Transfers, AnswersNotOpenAndLogsItOnAClosedRecord) {
    LibUSB_CloseDevice(&tool());
    tool().isHid = 1;  // has no effect
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-109, run(1)); });
    EXPECT_THAT(lines, ElementsAre("[checkBulkTransferReady] not acquired"));
    tool().isHid = 0;
}

TEST_P(Transfers, AnswersNotOpenAndLogsItWithoutTransferRecords) {
    LibUSB_CloseDevice(&tool());
    tool().isOpen = 1;
    const auto lines = debugLinesOf([&] { EXPECT_EQ(-109, run(1)); });
    EXPECT_THAT(lines, ElementsAre("[checkBulkTransferReady] cbInfo map is empty"));
    tool().isOpen = 0;
}

TEST_P(Transfers, AFailedSubmissionIsToldAndKeepsLibusbsCode) {
    bus.failCall("libusb_submit_transfer", 1, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(submissionFailure(), run(1));
    EXPECT_EQ(LIBUSB_ERROR_NO_DEVICE, tool().lastResult);
    EXPECT_EQ(0, transferRecord(addressOf(1)).isPending);
    EXPECT_EQ(kLength, run(1)) << "the endpoint is as good as before";
}

TEST_P(Transfers, AnEndpointThatTheDeviceDoesNotHaveIsAFailedSubmission) {
    EXPECT_EQ(submissionFailure(), run(7));
    EXPECT_EQ(LIBUSB_ERROR_IO, tool().lastResult);
}

TEST_P(Transfers, ATimeOutIsToldAndCancelsNothing) {
    EXPECT_EQ(-150, run(4, kLength, 50));
    EXPECT_EQ(0U, bus.pending("tool", addressOf(4))) << "libusb has finished it";
    EXPECT_EQ(0U, callsOf("libusb_cancel_transfer"));
    EXPECT_EQ(LIBUSB_TRANSFER_TIMED_OUT, transferRecord(addressOf(4)).status);
}

TEST_P(Transfers, ATimeOutHidesTheBytesThatWereMoved) {
    setBehaviour(hex(addressOf(4)), R"({"limit":7})");
    EXPECT_EQ(-150, run(4, kLength, 50));
    EXPECT_EQ(7, transferRecord(addressOf(4)).actualLength);
}

TEST_P(Transfers, AStallIsNoError) {
    EXPECT_EQ(countsShortPacketsAsFull() ? kLength : 0, run(5));
    EXPECT_EQ(LIBUSB_TRANSFER_STALL, transferRecord(addressOf(5)).status);
}

TEST_P(Transfers, AWaitWithoutTimeOutEndsWithTheTransfer) {
    const auto call = blocked();
    EXPECT_EQ(0U, libusbTransfer(addressOf(4)).timeout);
    setBehaviour(hex(addressOf(4)),
                 operation().reads ? R"({"behaviour":"source"})" : R"({"behaviour":"sink"})");
    EXPECT_EQ(kLength, call->result());
}

TEST_P(Transfers, ALostDeviceIsNoError) {
    const auto call = blocked();
    bus.unplug("tool");
    EXPECT_EQ(countsShortPacketsAsFull() ? kLength : 0, call->result());
    EXPECT_EQ(LIBUSB_TRANSFER_NO_DEVICE, transferRecord(addressOf(4)).status);
}

TEST_P(Transfers, ASecondTransferOnABusyAddressIsRefusedAndHarmsNothing) {
    const auto call = blocked();
    EXPECT_EQ(submissionFailure(), run(4));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, tool().lastResult);
    EXPECT_EQ(1U, callsOf("libusb_submit_transfer"));
    EXPECT_FALSE(call->hasReturned());
    EXPECT_EQ(1, loadShared(transferRecord(addressOf(4)).isPending));
    LibUSB_CancelPipeTransfer(&tool(), addressOf(4));
}

TEST_P(Transfers, OtherEndpointsWorkWhileOneWaits) {
    const auto call = blocked();
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(kLength, run(1));
    }
    EXPECT_FALSE(call->hasReturned());
    LibUSB_CancelPipeTransfer(&tool(), addressOf(4));
}

TEST_P(Transfers, MakesNothingPerTransfer) {
    for (int round = 0; round < 50; ++round) {
        ASSERT_EQ(kLength, run(1));
    }
    EXPECT_EQ(50U, callsOf("libusb_submit_transfer"));
    EXPECT_EQ(0U, callsOf("libusb_alloc_transfer"));
    EXPECT_EQ(0U, callsOf("libusb_free_transfer"));
}

TEST_P(Transfers, ANullBufferIsAFailedSubmission) {
    EXPECT_EQ(submissionFailure(), operation().run(&tool(), 1, kLength, 1000, nullptr));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, tool().lastResult);
    EXPECT_EQ(submissionFailure(), operation().run(&tool(), 1, 1, 1000, nullptr));
    EXPECT_EQ(0, operation().run(&tool(), 1, 0, 1000, nullptr)) << "nothing to move, nothing needed";
    EXPECT_EQ(kLength, run(1));
}

TEST_P(Transfers, ANegativeLengthNeverReachesLibusb) {
    const int32_t result = run(1, -1);
    EXPECT_EQ(countsShortPacketsAsFull() ? 0 : submissionFailure(), result);
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
    EXPECT_EQ(kLength, run(1));
}

TEST_P(Transfers, OnAHidRecordIsLogged) {
    tool().isHid = 1;
    tool().pHIDAccess = newHIDAccess(kVendor, 0x1001, "tool", 64, 0x5A);
    const auto lines = debugLinesOf([&] { run(1); });
    EXPECT_EQ("[checkBulkTransferReady] isHid == true", lines.front());
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
    tool().isHid = 0;
}

TEST_P(Transfers, OfBulkKindAreRefusedOnAHidRecord) {
    if (operation().type == LIBUSB_TRANSFER_TYPE_BULK) {
        tool().isHid = 1;
        EXPECT_EQ(-120, run(1));
        tool().isHid = 0;
    }
}

namespace {
using TransferEngine = IoTest;
}

TEST_F(TransferEngine, ReadinessLooksAtOpenThenHidThenRecords) {
    startSession({deviceJson("tool")});
    auto& entry = record(createList({kVendor}), 0);
    entry.isHid = 1;
    EXPECT_EQ(-109, checkBulkTransferReady(&entry));
    entry.isOpen = 1;
    EXPECT_EQ(-120, checkBulkTransferReady(&entry));
    entry.isHid = 0;
    EXPECT_EQ(-109, checkBulkTransferReady(&entry));
    entry.isOpen = 0;
    ASSERT_EQ(0, LibUSB_OpenDevice(&entry));
    EXPECT_THAT(debugLinesOf([&] { EXPECT_EQ(0, checkBulkTransferReady(&entry)); }), IsEmpty());
}

TEST_F(TransferEngine, ACompletionWithoutARecordInsertsNothing) {
    openTool();
    libusb_transfer transfer{};
    transfer.user_data = &tool();
    transfer.endpoint = 0x55;
    InternalTransferCallback(&transfer);
    EXPECT_EQ(32U, tool().callbackInfos.size());
}

TEST_F(TransferEngine, ReadsWhatWasWrittenPacketByPacket) {
    openTool();
    uint8_t sent[3] = {1, 2, 3};
    uint8_t received[64] = {};
    EXPECT_EQ(3, LibUSB_WriteBulkPipe(&tool(), 1, 3, 1000, sent));
    EXPECT_EQ(2, LibUSB_WriteBulkPipe(&tool(), 1, 2, 1000, sent));
    EXPECT_EQ(3, LibUSB_ReadBulkPipe(&tool(), 1, 64, 1000, received));
    EXPECT_EQ(2, LibUSB_ReadBulkPipe(&tool(), 1, 64, 1000, received));
    EXPECT_EQ(-150, LibUSB_ReadBulkPipe(&tool(), 1, 64, 20, received));
}

TEST_F(TransferEngine, AStallAfterSomeBytesTellsThem) {
    openTool();
    setBehaviour("0x84", R"({"limit":9})");
    const auto read = blockedRead();
    setBehaviour("0x84", R"({"behaviour":"stall"})");
    EXPECT_EQ(9, read->result());
}

TEST_F(TransferEngine, TheBulkExtendedCallsIgnorePacketSizeAndFillValue) {
    openTool();
    uint8_t bytes[100] = {};
    for (const int32_t packetSize : {-1, 0, 63, 1025}) {
        EXPECT_EQ(100, LibUSB_WriteBulkPipeEx(&tool(), 3, 100, 1000, bytes, packetSize, 0xFF));
        EXPECT_EQ(100, LibUSB_ReadBulkPipeEx(&tool(), 3, 100, 1000, bytes, packetSize, 0xFF));
    }
    EXPECT_EQ(100U, bus.received("tool", 3).front().size());
}
