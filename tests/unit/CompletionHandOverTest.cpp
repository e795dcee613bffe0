// A transfer that another thread completes after its waiter has checked it and before the waiter handles
// events. The tests force that gap: a hook holds the waiter at the entry of libusb_handle_events until the
// transfer has ended.
#include <libusb.h>

#include "Gate.h"
#include "HotplugUsb/HotplugUsb.h"
#include "IoTest.h"
#include "MacOSXUSBAccess/io/Transfers.h"
#include "MacOSXUSBAccess/lists/ListCreation.h"
#include "MacOSXUSBAccess/records/CompletionHandOver.h"
#include "ground/SharedField.h"

namespace {

using Clock = std::chrono::steady_clock;

class CompletionHandOver : public IoTest {
 protected:
    /// Holds every waiter that enters event handling from now on, until the gate is opened.
    void holdWaiters(Gate& gate) {
        bus.onCall("libusb_handle_events", [&gate] { gate.pass(); });
    }
    void letWaitersPass() { bus.onCall("libusb_handle_events", {}); }
    bool hasEnded(uint8_t address) { return loadShared(transferRecord(address).isPending) == 0; }

    /// A read whose waiter is in the gap.
    std::unique_ptr<BackgroundCall> heldRead(Gate& gate) {
        holdWaiters(gate);
        auto read = blockedRead(0x81);
        EXPECT_TRUE(eventually([&] { return gate.arrivals() == 1; }));
        return read;
    }
    /// Releases a held waiter whose three bytes have arrived meanwhile.
    static void expectWakesUp(Gate& gate, BackgroundCall& held) {
        const auto letGo = Clock::now();
        gate.open();
        EXPECT_EQ(3, held.result());
        EXPECT_LT(Clock::now() - letGo, std::chrono::seconds(10));
    }

    /// One read whose data arrives, and is taken by the event thread, while its waiter is in the gap.
    void readThroughTheGap() {
        Gate gate;
        const auto read = heldRead(gate);
        bus.feed("tool", 0x81, {1, 2, 3});
        ASSERT_TRUE(eventually([&] { return hasEnded(0x81); }));
        letWaitersPass();
        gate.open();
        EXPECT_EQ(3, read->result());
    }
};

/// The same wait with plain libusb calls: a flag that the completion sets and that is checked before event
/// handling.
class PlainWait {
 public:
    PlainWait(libusb_context* context, libusb_device_handle* handle)
        : context_(context), transfer_(libusb_alloc_transfer(0)) {
        libusb_fill_bulk_transfer(transfer_, handle, 0x81, buffer_, sizeof buffer_, onEnd, this, 0);
        EXPECT_EQ(0, libusb_submit_transfer(transfer_));
    }
    ~PlainWait() { libusb_free_transfer(transfer_); }
    PlainWait(const PlainWait&) = delete;
    PlainWait& operator=(const PlainWait&) = delete;

    void wait() {
        while (!ended.load()) {
            libusb_handle_events(context_);
        }
    }
    std::atomic<bool> ended{false};

 private:
    static void LIBUSB_CALL onEnd(libusb_transfer* transfer) {
        static_cast<PlainWait*>(transfer->user_data)->ended.store(true);
    }

    libusb_context* context_;
    libusb_transfer* transfer_;
    uint8_t buffer_[64] = {};
};

}  // namespace

TEST_F(CompletionHandOver, WithoutItAWaiterSleepsUntilTheHandlersPeriodEnds) {
    openTool();
    deinitHotplugUsb();
    Gate gate;
    holdWaiters(gate);
    std::atomic<bool> stop{false};
    BackgroundCall handler([&] {
        while (!stop.load()) {
            timeval period{5, 0};
            libusb_handle_events_timeout_completed(context, &period, nullptr);
        }
        return 0;
    });
    PlainWait wait(context, tool().hDevice);
    BackgroundCall waiter([&] {
        wait.wait();
        return 0;
    });
    ASSERT_TRUE(eventually([&] { return gate.arrivals() == 1; }));
    bus.feed("tool", 0x81, {1, 2, 3});
    ASSERT_TRUE(eventually([&] { return wait.ended.load(); }));
    const auto letGo = Clock::now();
    gate.open();
    waiter.result();
    EXPECT_GT(Clock::now() - letGo, std::chrono::seconds(1)) << "this stall is what the hand-over takes away";
    stop.store(true);
    libusb_interrupt_event_handler(context);
}

TEST_F(CompletionHandOver, WakesAWaiterBehindTheEventThreadAtOnce) {
    openTool();
    constexpr int kRounds = 10;  // each would take up to a second
    const auto start = Clock::now();
    for (int round = 0; round < kRounds; ++round) {
        readThroughTheGap();
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(4));
}

TEST_F(CompletionHandOver, WakesTwoWaitersThatStoodInTheGapTogether) {
    openTool();
    const auto start = Clock::now();
    for (int round = 0; round < 10; ++round) {
        Gate gate;
        holdWaiters(gate);
        const auto bulk = blockedRead(0x81);
        const auto interrupt = blockedRead(0x82);
        ASSERT_TRUE(eventually([&] { return gate.arrivals() == 2; }));
        bus.feed("tool", 0x81, {1});
        bus.feed("tool", 0x82, {1, 2});
        ASSERT_TRUE(eventually([&] { return hasEnded(0x81) && hasEnded(0x82); }));
        letWaitersPass();
        gate.open();
        EXPECT_EQ(1, bulk->result());
        EXPECT_EQ(2, interrupt->result());
    }
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(4));
}

TEST_F(CompletionHandOver, WakesAWaiterThatBecomesTheOnlyHandler) {
    openTool();
    deinitHotplugUsb();  // no event thread: a handler sleeps for up to a minute
    Gate gate;
    const auto held = heldRead(gate);
    letWaitersPass();
    const auto handler = blockedRead(0x84);  // this thread handles events, and completes both
    bus.feed("tool", 0x81, {1, 2, 3});
    ASSERT_TRUE(eventually([&] { return hasEnded(0x81); }));
    ASSERT_EQ(0, LibUSB_CancelPipeTransfer(&tool(), 0x84));
    EXPECT_EQ(0, handler->result());
    expectWakesUp(gate, *held);
}

/// During a listing libusb itself handles events while it waits for its requests.
TEST_F(CompletionHandOver, WakesAWaiterWhoseTransferAListingHasCompleted) {
    openTool();
    deinitHotplugUsb();  // no event thread: a handler sleeps for up to a minute
    Gate gate;
    const auto held = heldRead(gate);
    bus.feed("tool", 0x81, {1, 2, 3});
    LibUSB_CreateDeviceList(context, 0xFFFFFFFF);
    ASSERT_TRUE(hasEnded(0x81));
    letWaitersPass();
    expectWakesUp(gate, *held);
}

TEST_F(CompletionHandOver, InterruptsNobodyOnceEveryWaiterHasSeenItsEnd) {
    openTool();
    for (int round = 0; round < 5; ++round) {
        readThroughTheGap();
    }
    deinitHotplugUsb();
    bus.clearCalls();
    uint8_t bytes[8] = {};
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(8, LibUSB_ReadBulkPipe(&tool(), 0x83, 8, 1000, bytes));
    }
    EXPECT_EQ(0U, callsOf("libusb_interrupt_event_handler")) << "a count that was not taken back";
}

TEST_F(CompletionHandOver, AnAddressIsFreeWhenItsThreadHasSeenTheEnd) {
    openTool();
    Gate gate;
    const auto first = heldRead(gate);
    bus.feed("tool", 0x81, {1, 2, 3});
    ASSERT_TRUE(eventually([&] { return hasEnded(0x81); }));
    letWaitersPass();
    uint8_t bytes[64] = {};
    EXPECT_EQ(-113, LibUSB_ReadBulkPipe(&tool(), 0x81, sizeof bytes, 100, bytes));
    EXPECT_EQ(LIBUSB_ERROR_BUSY, tool().lastResult);
    gate.open();
    EXPECT_EQ(3, first->result());
    EXPECT_EQ(-150, LibUSB_ReadBulkPipe(&tool(), 0x81, sizeof bytes, 20, bytes));
}

TEST_F(CompletionHandOver, ATransferThatIsNeverSubmittedCountsNothing) {
    openTool();
    deinitHotplugUsb();
    bus.failCall("libusb_submit_transfer", 1, LIBUSB_ERROR_IO, 3);
    uint8_t bytes[8] = {};
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(-113, LibUSB_ReadBulkPipe(&tool(), 0x83, 8, 1000, bytes));
    }
    bus.clearCalls();
    ASSERT_EQ(8, LibUSB_ReadBulkPipe(&tool(), 0x83, 8, 1000, bytes));
    EXPECT_EQ(0U, callsOf("libusb_interrupt_event_handler"));
}

TEST_F(CompletionHandOver, AContextThatKeepsFailingDoesNotEndTheWait) {
    openTool();
    const auto read = blockedRead(0x81);
    bus.failCall("libusb_handle_events", 1, LIBUSB_ERROR_OTHER, 50);
    bus.failCall("libusb_handle_events_timeout_completed", 1, LIBUSB_ERROR_OTHER, 50);
    bus.feed("tool", 0x81, {1, 2});
    EXPECT_EQ(2, read->result());
}

TEST_F(CompletionHandOver, TellsLibusbsCode) {
    openTool();
    bus.failCall("libusb_handle_events", 1, LIBUSB_ERROR_IO);
    EXPECT_EQ(LIBUSB_ERROR_IO, handleEvents(context));
}

TEST_F(CompletionHandOver, ANullContextNeverReachesLibusb) {
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, handleEvents(nullptr));
    EXPECT_EQ(LIBUSB_ERROR_INVALID_PARAM, handleEventsFor(nullptr, timeval{0, 0}));
    EXPECT_TRUE(bus.calls().empty());
}
