// The drop-in: asynchronous transfers.
#include <cstdlib>

#include "SimTest.h"

namespace simtest {
namespace {

class LibusbTransfers : public LibusbTest {
 protected:
    void SetUp() override {
        LibusbTest::SetUp();
        echo = open("ECHO0001");
        ASSERT_EQ(libusb_claim_interface(echo, 0), 0);
    }

    void set(const char* address, const Json& settings) {
        ask({{"op", "endpoint"}, {"device", "echo"}, {"address", address}, {"set", settings}});
    }

    void finish(const AsyncTransfer& transfer) {
        EXPECT_TRUE(eventually([&] {
            handleEvents(std::chrono::milliseconds(100));
            return !transfer.pending();
        }));
    }

    libusb_device_handle* echo = nullptr;
};

TEST_F(LibusbTransfers, ARoundTrip) {
    AsyncTransfer in(echo, 0x81, Bytes(64));
    AsyncTransfer out(echo, 0x01, counting(10));
    ASSERT_EQ(in.submit(), 0);
    ASSERT_EQ(out.submit(), 0);
    EXPECT_TRUE(in.pending()) << "callbacks come from event handling only";
    finish(in);
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(in.moved(), counting(10));
    EXPECT_EQ(out.raw->actual_length, 10);
    EXPECT_EQ(in.callbacks, 1);
}

TEST_F(LibusbTransfers, TheCallbackRunsOnTheThreadThatHandlesEvents) {
    EventThread events(context);
    AsyncTransfer in(echo, 0x81, Bytes(64));
    ASSERT_EQ(in.submit(), 0);
    bus.feed("echo", 0x81, counting(1));
    EXPECT_TRUE(eventually([&] { return !in.pending(); }));
    EXPECT_EQ(in.calledOn, events.id());
}

TEST_F(LibusbTransfers, ATransferInFlightIsBusy) {
    AsyncTransfer in(echo, 0x81, Bytes(64));
    ASSERT_EQ(in.submit(), 0);
    EXPECT_EQ(in.submit(), LIBUSB_ERROR_BUSY);
    bus.feed("echo", 0x81, counting(1));
    EXPECT_EQ(in.submit(), LIBUSB_ERROR_BUSY) << "until its callback has run";
    finish(in);
    EXPECT_EQ(in.submit(), 0);
    ASSERT_EQ(libusb_cancel_transfer(in.raw), 0);
    EXPECT_TRUE(eventually([&] {
        handleEvents();
        return in.callbacks == 2;
    }));
}

TEST_F(LibusbTransfers, ACancelledTransferCompletesThroughItsCallback) {
    AsyncTransfer in(echo, 0x81, Bytes(64));
    ASSERT_EQ(in.submit(), 0);
    EXPECT_EQ(libusb_cancel_transfer(in.raw), 0);
    EXPECT_TRUE(in.pending());
    EXPECT_EQ(libusb_cancel_transfer(in.raw), LIBUSB_ERROR_NOT_FOUND) << "already being cancelled";
    finish(in);
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_CANCELLED);
    EXPECT_EQ(in.callbacks, 1);
    EXPECT_EQ(libusb_cancel_transfer(in.raw), LIBUSB_ERROR_NOT_FOUND);
}

TEST_F(LibusbTransfers, ACancelThatComesTooLateFindsNothing) {
    AsyncTransfer in(echo, 0x81, Bytes(64));
    EXPECT_EQ(libusb_cancel_transfer(in.raw), LIBUSB_ERROR_NOT_FOUND);
    ASSERT_EQ(in.submit(), 0);
    bus.feed("echo", 0x81, counting(5));
    EXPECT_EQ(libusb_cancel_transfer(in.raw), LIBUSB_ERROR_NOT_FOUND);
    finish(in);
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_COMPLETED);
    EXPECT_EQ(in.moved(), counting(5));
}

TEST_F(LibusbTransfers, ATimeOutIsRealTime) {
    AsyncTransfer in(echo, 0x81, Bytes(64), 60);
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(in.submit(), 0);
    finish(in);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(60));
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_EQ(in.raw->actual_length, 0);
}

TEST_F(LibusbTransfers, ATimeOutTellsWhatWasMovedUntilThen) {
    set("0x01", {{"behaviour", "silent"}, {"limit", 3}});
    AsyncTransfer out(echo, 0x01, counting(10), 5);
    ASSERT_EQ(out.submit(), 0);
    finish(out);
    EXPECT_EQ(out.raw->status, LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_EQ(out.raw->actual_length, 3);
}

TEST_F(LibusbTransfers, ATimeOutOfZeroWaitsForEver) {
    AsyncTransfer in(echo, 0x81, Bytes(64), 0);
    AsyncTransfer clock(echo, 0x82, Bytes(64), 50, LIBUSB_TRANSFER_TYPE_INTERRUPT);
    ASSERT_EQ(in.submit(), 0);
    ASSERT_EQ(clock.submit(), 0);
    finish(clock);
    EXPECT_TRUE(in.pending());
    bus.feed("echo", 0x81, counting(1));
    finish(in);
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_COMPLETED);
}

TEST_F(LibusbTransfers, ATimeOutNeedsSomebodyToHandleEvents) {
    AsyncTransfer in(echo, 0x81, Bytes(64), 1);
    ASSERT_EQ(in.submit(), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));  // until the transfer has timed out
    bus.feed("echo", 0x81, counting(5));
    finish(in);
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_COMPLETED) << "nobody looked at the clock before the data came";
}

TEST_F(LibusbTransfers, TheShorterTimeOutEndsFirst) {
    std::vector<int> order;
    AsyncTransfer slow(echo, 0x81, Bytes(64), 80);
    AsyncTransfer fast(echo, 0x81, Bytes(64), 20);
    slow.onCallback = [&] { order.push_back(80); };
    fast.onCallback = [&] { order.push_back(20); };
    ASSERT_EQ(slow.submit(), 0);
    ASSERT_EQ(fast.submit(), 0);
    finish(slow);
    EXPECT_THAT(order, testing::ElementsAre(20, 80));
}

TEST_F(LibusbTransfers, ASleepingHandlerHearsOfANewTimeOut) {
    EventThread events(context, {3600, 0});
    EXPECT_TRUE(eventually([&] { return libusb_event_handler_active(context) != 0; }));
    AsyncTransfer in(echo, 0x81, Bytes(64), 20);
    ASSERT_EQ(in.submit(), 0);
    EXPECT_TRUE(eventually([&] { return !in.pending(); }));
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_TIMED_OUT);
}

TEST_F(LibusbTransfers, UnplugCompletesWithNoDevice) {
    AsyncTransfer in(echo, 0x81, Bytes(64));
    AsyncTransfer other(echo, 0x82, Bytes(64), 0, LIBUSB_TRANSFER_TYPE_INTERRUPT);
    ASSERT_EQ(in.submit(), 0);
    ASSERT_EQ(other.submit(), 0);
    bus.unplug("echo");
    EXPECT_EQ(libusb_cancel_transfer(in.raw), LIBUSB_ERROR_NO_DEVICE);
    finish(in);
    finish(other);
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_EQ(other.raw->status, LIBUSB_TRANSFER_NO_DEVICE);
    EXPECT_EQ(in.submit(), LIBUSB_ERROR_NO_DEVICE);
}

TEST_F(LibusbTransfers, StallAndOverflow) {
    set("0x82", {{"behaviour", "stall"}});
    AsyncTransfer stalled(echo, 0x82, Bytes(64), 0, LIBUSB_TRANSFER_TYPE_INTERRUPT);
    AsyncTransfer small(echo, 0x81, Bytes(4));
    ASSERT_EQ(stalled.submit(), 0);
    ASSERT_EQ(small.submit(), 0);
    bus.feed("echo", 0x81, counting(64));
    finish(stalled);
    finish(small);
    EXPECT_EQ(stalled.raw->status, LIBUSB_TRANSFER_STALL);
    EXPECT_EQ(small.raw->status, LIBUSB_TRANSFER_OVERFLOW);
}

TEST_F(LibusbTransfers, AnEndpointThatIsNotThereIsAnInputOutputError) {
    AsyncTransfer transfer(echo, 0x85, Bytes(64));
    EXPECT_EQ(transfer.submit(), LIBUSB_ERROR_IO);
    AsyncTransfer wrongType(echo, 0x81, Bytes(64), 0, LIBUSB_TRANSFER_TYPE_INTERRUPT);
    EXPECT_EQ(wrongType.submit(), LIBUSB_ERROR_IO);
    AsyncTransfer bulkOnInterrupt(echo, 0x02, counting(4));
    EXPECT_EQ(bulkOnInterrupt.submit(), 0) << "this way round the kernel does not mind";
    finish(bulkOnInterrupt);
}

TEST_F(LibusbTransfers, AnUnclaimedInterfaceIsClaimedByTheWay) {
    auto* one = open("DOUBLE01");
    auto* other = open("DOUBLE01");
    AsyncTransfer out(one, 0x01, counting(3));
    ASSERT_EQ(out.submit(), 0);
    finish(out);
    EXPECT_EQ(libusb_claim_interface(other, 0), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_set_configuration(other, 1), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_release_interface(one, 0), LIBUSB_ERROR_NOT_FOUND) << "the program did not claim it";
    AsyncTransfer refused(other, 0x01, counting(3));
    EXPECT_EQ(refused.submit(), LIBUSB_ERROR_IO);
}

TEST_F(LibusbTransfers, ReleasingAnInterfaceStopsItsTransfers) {
    AsyncTransfer in(echo, 0x81, Bytes(64));
    ASSERT_EQ(in.submit(), 0);
    ASSERT_EQ(libusb_release_interface(echo, 0), 0);
    finish(in);
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_COMPLETED) << "so it is shown when nobody asked for a cancel";
    EXPECT_EQ(in.raw->actual_length, 0);
}

TEST_F(LibusbTransfers, ATransferMayBeSubmittedAgainFromItsCallback) {
    AsyncTransfer in(echo, 0x81, Bytes(64));
    in.onCallback = [&] {
        if (in.callbacks < 2) {
            EXPECT_EQ(in.submit(), 0);
        }
    };
    ASSERT_EQ(in.submit(), 0);
    for (int i = 0; i < 3; ++i) {
        bus.feed("echo", 0x81, counting(1));
    }
    EXPECT_TRUE(eventually([&] {
        handleEvents();
        return in.callbacks == 3;
    }));
}

TEST_F(LibusbTransfers, AnEndlessSourceDoesNotKeepTheHandler) {
    set("0x81", {{"behaviour", "source"}});
    AsyncTransfer in(echo, 0x81, Bytes(64));
    bool more = true;
    in.onCallback = [&] {
        if (more) {
            EXPECT_EQ(in.submit(), 0);
        }
    };
    ASSERT_EQ(in.submit(), 0);
    handleEvents();
    EXPECT_GT(in.callbacks, 1);
    more = false;
    const int before = in.callbacks;
    handleEvents();
    EXPECT_EQ(in.callbacks, before + 1);
}

TEST_F(LibusbTransfers, FlagsAreKept) {
    AsyncTransfer in(echo, 0x81, Bytes(64));
    in.raw->flags = LIBUSB_TRANSFER_SHORT_NOT_OK;
    ASSERT_EQ(in.submit(), 0);
    bus.feed("echo", 0x81, counting(5));
    finish(in);
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_ERROR);

    const auto kept = bus.tally("transfers not freed");
    static int callbacks = 0;
    callbacks = 0;
    libusb_transfer* transfer = libusb_alloc_transfer(0);
    libusb_fill_bulk_transfer(
        transfer, echo, 0x01, static_cast<unsigned char*>(std::calloc(1, 8)), 8,
        [](libusb_transfer*) { ++callbacks; }, nullptr, 0);
    transfer->flags = LIBUSB_TRANSFER_FREE_BUFFER | LIBUSB_TRANSFER_FREE_TRANSFER;
    ASSERT_EQ(libusb_submit_transfer(transfer), 0);
    handleEvents();
    EXPECT_EQ(callbacks, 1);
    EXPECT_EQ(bus.tally("transfers not freed"), kept);
}

TEST_F(LibusbTransfers, WhatTheKernelRefusesIsRefused) {
    AsyncTransfer out(echo, 0x01, counting(64));
    out.raw->flags = LIBUSB_TRANSFER_ADD_ZERO_PACKET;
    EXPECT_EQ(out.submit(), LIBUSB_ERROR_NOT_SUPPORTED);
    AsyncTransfer isochronous(echo, 0x01, counting(64), 0, LIBUSB_TRANSFER_TYPE_ISOCHRONOUS);
    EXPECT_EQ(isochronous.submit(), LIBUSB_ERROR_NOT_SUPPORTED);
    AsyncTransfer shortControl(echo, 0, Bytes(4), 0, LIBUSB_TRANSFER_TYPE_CONTROL);
    EXPECT_EQ(shortControl.submit(), LIBUSB_ERROR_IO);
    AsyncTransfer longControl(echo, 0, Bytes(4096 + 9), 0, LIBUSB_TRANSFER_TYPE_CONTROL);
    EXPECT_EQ(longControl.submit(), LIBUSB_ERROR_INVALID_PARAM);
    AsyncTransfer lyingControl(echo, 0, Bytes{0xC0, 2, 0, 0, 0, 0, 9, 0}, 0, LIBUSB_TRANSFER_TYPE_CONTROL);
    EXPECT_EQ(lyingControl.submit(), LIBUSB_ERROR_IO);
}

TEST_F(LibusbTransfers, AnAsynchronousControlTransfer) {
    AsyncTransfer control(echo, 0, Bytes{0xC0, 2, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0}, 0,
                          LIBUSB_TRANSFER_TYPE_CONTROL);
    ASSERT_EQ(control.submit(), 0);
    finish(control);
    EXPECT_EQ(control.raw->actual_length, 4);
    EXPECT_EQ(control.buffer[8], 0x0A);
    EXPECT_EQ(control.buffer[11], 0x0D);
}

// Concurrent cancels, time-outs and completions: every submission gets exactly one callback.
TEST_F(LibusbTransfers, EveryTransferCompletesOnceWhateverMeets) {
    EventThread events(context);
    for (int round = 0; round < 200; ++round) {
        AsyncTransfer in(echo, 0x81, Bytes(64), 1);
        ASSERT_EQ(in.submit(), 0);
        std::thread feeder([&] { bus.feed("echo", 0x81, counting(1)); });
        libusb_cancel_transfer(in.raw);
        feeder.join();
        ASSERT_TRUE(eventually([&] { return !in.pending(); }));
        AsyncTransfer drain(echo, 0x81, Bytes(64), 1);
        ASSERT_EQ(drain.submit(), 0);
        ASSERT_TRUE(eventually([&] { return !drain.pending(); }));
        ASSERT_EQ(in.callbacks, 1);
    }
}

}  // namespace
}  // namespace simtest
