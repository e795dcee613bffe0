// The drop-in: event handlers, waiters, and what wakes them.
#include "SimTest.h"

namespace simtest {
namespace {

class LibusbEvents : public LibusbTest {
 protected:
    bool handlerSleeps() {
        return eventually([&] { return libusb_event_handler_active(context) != 0; });
    }
};

TEST_F(LibusbEvents, WithNothingToDoTheTimeIsWaitedFor) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(handleEvents(std::chrono::milliseconds(30)), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(30));
}

TEST_F(LibusbEvents, ATimeThatIsNoneIsInvalid) {
    timeval negative{-1, 0};
    timeval tooMany{0, 1000000};
    EXPECT_EQ(libusb_handle_events_timeout(context, &negative), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_handle_events_timeout_completed(context, &tooMany, nullptr), LIBUSB_ERROR_INVALID_PARAM);
}

TEST_F(LibusbEvents, ASetFlagIsNotWaitedOn) {
    int completed = 1;
    EXPECT_EQ(libusb_handle_events_completed(context, &completed), 0);
    timeval hour{3600, 0};
    EXPECT_EQ(libusb_handle_events_timeout_completed(context, &hour, &completed), 0);
    EventThread events(context, hour);
    ASSERT_TRUE(handlerSleeps());
    EXPECT_EQ(libusb_handle_events_completed(context, &completed), 0)
        << "also while another thread handles events";
}

TEST_F(LibusbEvents, OneThreadHandlesEventsAtATime) {
    EXPECT_EQ(libusb_event_handler_active(context), 0);
    EXPECT_EQ(libusb_event_handling_ok(context), 1);
    EXPECT_EQ(libusb_try_lock_events(context), 0);
    EXPECT_EQ(libusb_event_handler_active(context), 1);
    std::thread([&] { EXPECT_EQ(libusb_try_lock_events(context), 1); }).join();
    libusb_unlock_events(context);
    std::thread([&] {
        libusb_lock_events(context);
        EXPECT_EQ(libusb_event_handler_active(context), 1);
        libusb_unlock_events(context);
    }).join();
    EXPECT_EQ(libusb_event_handler_active(context), 0);
}

TEST_F(LibusbEvents, LockEventsWaitsForTheHandlerToLeave) {
    ASSERT_EQ(libusb_try_lock_events(context), 0);
    std::atomic<bool> got{false};
    std::thread other([&] {
        libusb_lock_events(context);
        got = true;
        libusb_unlock_events(context);
    });
    EXPECT_FALSE(got);
    libusb_unlock_events(context);
    other.join();
    EXPECT_TRUE(got);
}

TEST_F(LibusbEvents, AWaiterSleepsUntilTheHandlerLeaves) {
    libusb_lock_events(context);
    auto waiter = std::async(std::launch::async, [&] { return libusb_handle_events(context); });
    EXPECT_EQ(waiter.wait_for(aWhile), std::future_status::timeout);
    // A late waiter handles events itself then, so it is asked to leave until it has left.
    libusb_unlock_events(context);
    EXPECT_TRUE(eventually([&] {
        libusb_interrupt_event_handler(context);
        return waiter.wait_for(std::chrono::milliseconds(1)) == std::future_status::ready;
    }));
    EXPECT_EQ(waiter.get(), 0);
}

TEST_F(LibusbEvents, AWaiterLeavesWhenItsTimeIsUp) {
    libusb_lock_events(context);
    std::thread([&] {
        timeval time{0, 20000};
        EXPECT_EQ(libusb_handle_events_timeout(context, &time), 0);
    }).join();
    libusb_unlock_events(context);
}

TEST_F(LibusbEvents, AWaiterWhoseTimeIsUpSeesToTimeOutsItself) {
    AsyncTransfer in(open("ECHO0001"), 0x81, Bytes(64), 1);
    libusb_lock_events(context);
    ASSERT_EQ(in.submit(), 0);
    std::thread([&] {
        timeval time{0, 20000};
        libusb_handle_events_timeout(context, &time);
    }).join();
    EXPECT_EQ(libusb_cancel_transfer(in.raw), LIBUSB_ERROR_NOT_FOUND) << "cancelled already";
    libusb_unlock_events(context);
    handleEvents();
    EXPECT_EQ(in.raw->status, LIBUSB_TRANSFER_TIMED_OUT);
}

TEST_F(LibusbEvents, WaitersCanWaitByThemselves) {
    libusb_lock_event_waiters(context);
    timeval time{0, 1000};
    EXPECT_EQ(libusb_wait_for_event(context, &time), 1) << "time is up";
    timeval bad{-1, 0};
    EXPECT_EQ(libusb_wait_for_event(context, &bad), LIBUSB_ERROR_INVALID_PARAM);
    std::thread handler([&] {
        libusb_lock_events(context);
        libusb_unlock_events(context);  // takes the waiters' lock before it wakes them
    });
    EXPECT_EQ(libusb_wait_for_event(context, nullptr), 0);
    libusb_unlock_event_waiters(context);
    handler.join();
}

TEST_F(LibusbEvents, AnInterruptMakesTheHandlerReturn) {
    auto handler = std::async(std::launch::async, [&] { return libusb_handle_events(context); });
    ASSERT_TRUE(handlerSleeps());
    libusb_interrupt_event_handler(context);
    EXPECT_EQ(handler.get(), 0);
}

TEST_F(LibusbEvents, AnInterruptBeforehandMakesTheNextHandlerReturnAtOnce) {
    libusb_interrupt_event_handler(context);
    EXPECT_EQ(libusb_handle_events(context), 0);
    const auto begin = std::chrono::steady_clock::now();
    handleEvents(std::chrono::milliseconds(20));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20)) << "once only";
}

TEST_F(LibusbEvents, OpeningADeviceMakesTheHandlerReturn) {
    auto handler = std::async(std::launch::async, [&] { return libusb_handle_events(context); });
    ASSERT_TRUE(handlerSleeps());
    open("ECHO0001");
    EXPECT_EQ(handler.get(), 0);
}

TEST_F(LibusbEvents, ClosingADeviceTakesTheEventsLockFromTheHandler) {
    auto* echo = open("ECHO0001");
    EventThread events(context, {3600, 0});
    ASSERT_TRUE(handlerSleeps());
    const int passes = events.passes();
    close(echo);
    EXPECT_TRUE(eventually([&] { return events.passes() > passes; }));
}

TEST_F(LibusbEvents, ADeviceMayBeClosedFromACallback) {
    auto* echo = open("ECHO0001");
    AsyncTransfer out(echo, 0x01, counting(1));
    out.onCallback = [&] { close(echo); };
    ASSERT_EQ(out.submit(), 0);
    handleEvents();
    EXPECT_EQ(out.callbacks, 1);
}

TEST_F(LibusbEvents, ACompletionCallbackHoldsTheWaitersLock) {
    AsyncTransfer out(open("ECHO0001"), 0x01, counting(1));
    std::atomic<bool> inCallback{false};
    std::atomic<bool> gotLock{false};
    std::thread other;
    out.onCallback = [&] {
        inCallback = true;
        std::this_thread::sleep_for(aWhile);  // observes that the other thread does not get the lock
        EXPECT_FALSE(gotLock);
    };
    other = std::thread([&] {
        EXPECT_TRUE(eventually([&] { return inCallback.load(); }));
        libusb_lock_event_waiters(context);
        gotLock = true;
        libusb_unlock_event_waiters(context);
    });
    ASSERT_EQ(out.submit(), 0);
    handleEvents();
    other.join();
    EXPECT_TRUE(gotLock);
}

TEST_F(LibusbEvents, SeveralThreadsMoveDataAtOnce) {
    EventThread events(context);
    auto* echo = open("ECHO0001");
    const auto roundTrips = [&](std::uint8_t number, std::uint8_t type) {
        for (int i = 0; i < 300; ++i) {
            AsyncTransfer in(echo, number | 0x80U, Bytes(64), 0, type);
            AsyncTransfer out(echo, number, counting(16, static_cast<unsigned>(i)), 0, type);
            ASSERT_EQ(in.submit(), 0);
            ASSERT_EQ(out.submit(), 0);
            ASSERT_TRUE(eventually([&] { return !in.pending() && !out.pending(); }));
            ASSERT_EQ(in.moved(), counting(16, static_cast<unsigned>(i)));
        }
    };
    std::thread other([&] { roundTrips(2, LIBUSB_TRANSFER_TYPE_INTERRUPT); });
    roundTrips(1, LIBUSB_TRANSFER_TYPE_BULK);
    other.join();
}

}  // namespace
}  // namespace simtest
