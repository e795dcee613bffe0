// A write of many packets while its device is closed, released, detached or cancelled.
#include <gtest/gtest.h>
#include <libusb.h>

#include "IoTest.h"
#include "MacOSXUSBAccess/io/OpenClose.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListUpdate.h"
#include "MacOSXUSBAccess/records/DeviceListChain.h"

namespace {

constexpr int32_t kPackets = 1000;
constexpr int32_t kPacketBytes = 64;

int g_movedBytes = -1;

/// For its lifetime every transfer completes at once with so many bytes moved: the linker redirects the
/// library's submissions here.
struct CompletingSubmissions {
    explicit CompletingSubmissions(int movedBytes) { g_movedBytes = movedBytes; }
    ~CompletingSubmissions() { g_movedBytes = -1; }
    CompletingSubmissions(const CompletingSubmissions&) = delete;
    CompletingSubmissions& operator=(const CompletingSubmissions&) = delete;
};

class PacketWrite : public IoTest {
 protected:
    void SetUp() override {
        IoTest::SetUp();
        openTool();
    }

    /// A write without time-out; the device takes two packets and ten bytes of the third.
    std::unique_ptr<BackgroundCall> blockedWrite() {
        bus.onCall("libusb_submit_transfer", [this] {
            if (++submissions_ == 3) {
                setBehaviour("0x02", R"({"behaviour":"silent","limit":10})");
            }
        });
        bus.clearCalls();
        auto write = std::make_unique<BackgroundCall>([this] {
            return LibUSB_WriteInterruptPipeEx(&tool(), 0x02, kPackets * kPacketBytes, 0, bytes_.data(),
                                               kPacketBytes, 0);
        });
        EXPECT_TRUE(eventually([&] { return bus.pending("tool", 0x02) == 1; }));
        return write;
    }
    void expectEndedInTheThirdPacket(BackgroundCall& write) {
        EXPECT_EQ(2 * kPacketBytes + 10, write.result()) << "what was really moved";
        EXPECT_EQ(3U, callsOf("libusb_submit_transfer")) << "nothing goes out behind it";
        EXPECT_LE(1U, callsOf("libusb_cancel_transfer")) << "again and again until it is back";
    }

 private:
    std::vector<uint8_t> bytes_ = std::vector<uint8_t>(kPackets * kPacketBytes, 0xAB);
    std::atomic<int> submissions_{0};
};

}  // namespace

extern "C" {

int __real_libusb_submit_transfer(libusb_transfer* transfer);
int __wrap_libusb_submit_transfer(libusb_transfer* transfer);

int __wrap_libusb_submit_transfer(libusb_transfer* transfer) {
    if (g_movedBytes < 0) {
        return __real_libusb_submit_transfer(transfer);
    }
    transfer->status = LIBUSB_TRANSFER_COMPLETED;
    transfer->actual_length = g_movedBytes;
    transfer->callback(transfer);
    return LIBUSB_SUCCESS;
}
}

TEST_F(PacketWrite, EndsWithTheClose) {
    const auto write = blockedWrite();
    EXPECT_EQ(0, LibUSB_CloseDevice(&tool()));
    expectEndedInTheThirdPacket(*write);
    EXPECT_EQ(nullptr, tool().hDevice);
    EXPECT_EQ(0, LibUSB_OpenDevice(&tool())) << "the interface is free";
}

TEST_F(PacketWrite, EndsWithTheReleaseOfItsList) {
    const auto write = blockedWrite();
    EXPECT_EQ(0, LibUSB_ReleaseDeviceList(list()));
    expectEndedInTheThirdPacket(*write);
}

TEST_F(PacketWrite, EndsWithTheSession) {
    const auto write = blockedWrite();
    endSession();
    expectEndedInTheThirdPacket(*write);
    EXPECT_EQ(1U, callsOf("libusb_exit"));
}

TEST_F(PacketWrite, GoesOnBehindAPacketThatIsCancelled) {
    const auto write = blockedWrite();
    EXPECT_EQ(0, LibUSB_CancelPipeTransfer(&tool(), 0x02));
    ASSERT_TRUE(eventually([&] { return callsOf("libusb_submit_transfer") == 4; }));
    setBehaviour("0x02", R"({"behaviour":"sink"})");
    EXPECT_EQ(kPackets * kPacketBytes, write->result()) << "the packet counts as sent";
    EXPECT_EQ(static_cast<uint64_t>(kPackets), callsOf("libusb_submit_transfer"));
}

/// The thread waits in the context of its list, which it looks up for each packet.
TEST_F(PacketWrite, ThatDoesNotComeBackKeepsTheContextOfItsList) {
    const auto write = blockedWrite();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    tagUSB_DEVICE_LIST& list = *tool().pDeviceList;
    libusb_context* ended = context;
    endSession();
    EXPECT_EQ(0U, callsOf("libusb_exit"));
    EXPECT_EQ(ended, list.pContext);
    EXPECT_FALSE(isOfRunningSession(list));
    EXPECT_EQ(-107, LibUSB_OpenDevice(&tool())) << "its session is over";
    EXPECT_FALSE(write->hasReturned());
    bus.clearFaults();
    EXPECT_EQ(0, libusb_cancel_transfer(&libusbTransfer(0x02)));
    EXPECT_EQ(2 * kPacketBytes + 10, write->result());
    EXPECT_EQ(3U, callsOf("libusb_submit_transfer"));
    expectsViolations = true;  // the context is given up on purpose
}

TEST_F(PacketWrite, OfAnotherListOfTheSessionIsCutOffAllTheSame) {
    const auto write = blockedWrite();
    bus.failCall("libusb_cancel_transfer", 1, LIBUSB_ERROR_OTHER, kForEver);
    tagUSB_DEVICE_LIST& other = *record(createList({kVendor, kSecondVendor}), 0).pDeviceList;
    endSession();
    EXPECT_EQ(nullptr, other.pContext) << "nothing of this one runs in it";
    bus.clearFaults();
    EXPECT_EQ(0, libusb_cancel_transfer(&libusbTransfer(0x02)));
    write->result();
    expectsViolations = true;  // the context is given up on purpose
}

/// libusb never moves more than it was given; if it reported that, a whole packet would count as the whole
/// length.
TEST_F(PacketWrite, CreditsTheWholeLengthForAPacketThatMovedMore) {
    uint8_t bytes[2 * kPacketBytes + 2] = {};
    const auto creditOf = [&](int32_t length, int32_t moved) {
        const CompletingSubmissions completed(moved);
        return LibUSB_WriteInterruptPipeEx(&tool(), 0x02, length, 1000, bytes, kPacketBytes, 0);
    };
    EXPECT_EQ(128, creditOf(128, 64));
    EXPECT_EQ(128, creditOf(128, 128)) << "no more than the length";
    EXPECT_EQ(128 + 128, creditOf(128, 129));
    EXPECT_EQ(130 + 130 + 2, creditOf(130, 131)) << "a padded last packet counts for its bytes";
}
