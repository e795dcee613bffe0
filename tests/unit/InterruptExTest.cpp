// The interrupt calls that send whole packets.
#include <gmock/gmock.h>
#include <libusb.h>

#include <numeric>

#include "IoTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class InterruptEx : public IoTest {
 protected:
    void SetUp() override {
        IoTest::SetUp();
        openTool();
        std::iota(buffer.begin(), buffer.end(), uint8_t{0});
        bus.clearCalls();
    }

    int32_t write(int32_t length, int32_t packetSize = 64, int32_t fillValue = 0xFF, int32_t timeout = 1000) {
        return LibUSB_WriteInterruptPipeEx(&tool(), 0x02, length, timeout, buffer.data(), packetSize,
                                           fillValue);
    }
    int32_t read(int32_t length, int32_t packetSize, int32_t timeout = 1000) {
        return LibUSB_ReadInterruptPipeEx(&tool(), 0x02, length, timeout, buffer.data(), packetSize, 0);
    }
    std::vector<simbus::Bytes> sent() { return bus.received("tool", 0x02); }

    /// `count` bytes of the buffer from `from` on, padded to the packet size.
    simbus::Bytes packet(size_t from, size_t count, size_t packetSize, uint8_t fill) const {
        simbus::Bytes bytes(packetSize, fill);
        std::copy_n(buffer.begin() + static_cast<std::ptrdiff_t>(from), count, bytes.begin());
        return bytes;
    }

    std::vector<uint8_t> buffer = std::vector<uint8_t>(4096);
};

}  // namespace

TEST_F(InterruptEx, PadsTheLastPacketWithTheFillValue) {
    EXPECT_EQ(130, write(130));
    EXPECT_THAT(sent(),
                ElementsAre(packet(0, 64, 64, 0xFF), packet(64, 64, 64, 0xFF), packet(128, 2, 64, 0xFF)));
}

TEST_F(InterruptEx, PadsNothingWhenThePacketsAreFull) {
    EXPECT_EQ(128, write(128));
    EXPECT_THAT(sent(), ElementsAre(packet(0, 64, 64, 0), packet(64, 64, 64, 0)));
}

TEST_F(InterruptEx, PadsAPacketOfOneByte) {
    EXPECT_EQ(1, write(1, 64, 0));
    EXPECT_THAT(sent(), ElementsAre(packet(0, 1, 64, 0)));
}

TEST_F(InterruptEx, UsesTheLowByteOfTheFillValue) {
    EXPECT_EQ(1, write(1, 64, 0x1A5));
    EXPECT_EQ(1, write(1, 64, -1));
    EXPECT_THAT(sent(), ElementsAre(packet(0, 1, 64, 0xA5), packet(0, 1, 64, 0xFF)));
}

TEST_F(InterruptEx, TakesThePacketSizesFrom64To1024) {
    EXPECT_EQ(1500, write(1500, 1024, 0xEE));
    EXPECT_THAT(sent(), ElementsAre(packet(0, 1024, 1024, 0), packet(1024, 476, 1024, 0xEE)));
    for (const int32_t wrong : {63, 1025, 0, -64}) {
        EXPECT_EQ(-114, write(100, wrong));
        EXPECT_EQ(-114, read(100, wrong));
    }
    EXPECT_EQ(2U, callsOf("libusb_submit_transfer"));
}

TEST_F(InterruptEx, SendsNothingForALengthBelowOne) {
    EXPECT_EQ(0, write(0));
    EXPECT_EQ(0, write(-1));
    EXPECT_EQ(0, write(-1000));
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
}

TEST_F(InterruptEx, NeedsABufferForOneByteAndNoneForNothing) {
    EXPECT_EQ(-112, LibUSB_WriteInterruptPipeEx(&tool(), 0x02, 1, 1000, nullptr, 64, 0));
    EXPECT_EQ(0, LibUSB_WriteInterruptPipeEx(&tool(), 0x02, 0, 1000, nullptr, 64, 0));
    EXPECT_EQ(0U, callsOf("libusb_submit_transfer"));
}

TEST_F(InterruptEx, ChecksThePacketSizeBehindReadinessAndBeforeTheHidBranch) {
    tool().isHid = 1;
    const auto lines = debugLinesOf([&] {
        EXPECT_EQ(-114, write(100, 63));
        EXPECT_EQ(-114, read(100, 1025));
    });
    EXPECT_THAT(lines, ElementsAre("[checkBulkTransferReady] isHid == true",
                                   "[checkBulkTransferReady] isHid == true"));
    tool().isHid = 0;
    LibUSB_CloseDevice(&tool());
    EXPECT_EQ(-109, write(100, 63));
    EXPECT_EQ(-109, read(100, 63));
}

TEST_F(InterruptEx, CountsAShortPacketAsFull) {
    setBehaviour("0x02", R"({"limit":10})");
    EXPECT_EQ(130, write(130));
    EXPECT_THAT(sent(), ElementsAre(::testing::SizeIs(10), ::testing::SizeIs(10), ::testing::SizeIs(10)));
}

TEST_F(InterruptEx, ForgetsEarlierPacketsWhenALaterOneIsNotSubmitted) {
    bus.failCall("libusb_submit_transfer", 2, LIBUSB_ERROR_NO_MEM);
    EXPECT_EQ(-112, write(192));
    EXPECT_EQ(LIBUSB_ERROR_NO_MEM, tool().lastResult);
    EXPECT_EQ(1U, sent().size());
    EXPECT_EQ(2U, callsOf("libusb_submit_transfer"));
}

TEST_F(InterruptEx, ForgetsEarlierPacketsWhenALaterOneTimesOut) {
    std::atomic<int> submissions{0};
    bus.onCall("libusb_submit_transfer", [&] {
        if (++submissions == 3) {
            setBehaviour("0x02", R"({"behaviour":"silent"})");
        }
    });
    EXPECT_EQ(-150, write(300, 64, 0, 50));
    EXPECT_EQ(2U, sent().size());
    EXPECT_EQ(3, submissions.load());
}

TEST_F(InterruptEx, SendsEachPacketWithTheTimeOutOfItsOwn) {
    std::vector<unsigned int> timeouts;
    bus.onCall("libusb_submit_transfer", [&] { timeouts.push_back(libusbTransfer(0x02).timeout); });
    EXPECT_EQ(130, write(130, 64, 0, 777));
    EXPECT_THAT(timeouts, ElementsAre(777U, 777U, 777U));
}

TEST_F(InterruptEx, LeavesTheCallersBufferAlone) {
    const auto before = buffer;
    write(130);
    EXPECT_EQ(before, buffer);
}

TEST_F(InterruptEx, WritesToTheOutEndpointWhateverTheDirectionBit) {
    EXPECT_EQ(64, LibUSB_WriteInterruptPipeEx(&tool(), 0x82, 64, 1000, buffer.data(), 64, 0));
    EXPECT_EQ(1U, sent().size());
    EXPECT_EQ(-109, LibUSB_WriteInterruptPipeEx(&tool(), 0x12, 64, 1000, buffer.data(), 64, 0));
    EXPECT_EQ(-109, LibUSB_ReadInterruptPipeEx(&tool(), 0x92, 64, 1000, buffer.data(), 64, 0));
}

TEST_F(InterruptEx, ReadsInOneTransferWhateverThePacketSize) {
    ASSERT_EQ(128, write(128));
    buffer.assign(buffer.size(), 0);
    bus.clearCalls();
    EXPECT_EQ(64, read(64, 1024));
    EXPECT_EQ(64, read(64, 64));
    EXPECT_EQ(2U, callsOf("libusb_submit_transfer"));
    EXPECT_EQ(64, libusbTransfer(0x82).length);
    EXPECT_EQ(-150, read(64, 64, 20));
    EXPECT_EQ(0, read(0, 64, 20) * 0) << "a length of 0 is a transfer like any other";
    EXPECT_EQ(4U, callsOf("libusb_submit_transfer"));
}
