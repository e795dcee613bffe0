// A thread checks whether its transfer is done and only then starts to handle events. If another thread
// completes the transfer in between, the first one sleeps although its transfer is finished.
// Deliberate: libusb behaves like this and programs must cope with it, so the drop-in does the same.
#include "SimTest.h"

namespace simtest {
namespace {

class LibusbLostWakeup : public LibusbTest {
 protected:
    void SetUp() override {
        LibusbTest::SetUp();
        in = std::make_unique<AsyncTransfer>(open("ECHO0001"), 0x81, Bytes(64));
    }
    void TearDown() override {
        in.reset();
        LibusbTest::TearDown();
    }

    // Runs `what` at the waiter's call of libusb_handle_events, after its check of the flag.
    void inTheGap(std::function<void()> what) {
        bus.onCall("libusb_handle_events", [this, what = std::move(what)] {
            bus.onCall("libusb_handle_events", {});
            what();
            gapIsOver = true;
        });
    }

    // Runs the waiter's loop, as programs write it, on a thread of its own.
    std::future<void> startWaiter() {
        EXPECT_EQ(in->submit(), 0);
        return std::async(std::launch::async, [this] {
            while (in->pending()) {
                libusb_handle_events(context);
            }
        });
    }

    // In the gap, the event thread handles the completion and sleeps again.
    void completeInTheGap(EventThread& events) {
        in->onCallback = [&] { passOfCompletion = events.passes(); };
        inTheGap([&] {
            bus.feed("echo", 0x81, counting(1));
            EXPECT_TRUE(eventually([&] { return !in->pending(); }));
            EXPECT_TRUE(eventually([&] { return events.passes() > passOfCompletion; }));
            EXPECT_TRUE(eventually([&] { return libusb_event_handler_active(context) != 0; }));
        });
    }

    // True when the waiter handles events, and still does a while later.
    bool sleeps(const std::future<void>& waiter) {
        return eventually([&] { return gapIsOver.load(); }) &&
               waiter.wait_for(aWhile) == std::future_status::timeout;
    }

    std::unique_ptr<AsyncTransfer> in;
    std::atomic<bool> gapIsOver{false};
    int passOfCompletion = 0;
};

TEST_F(LibusbLostWakeup, AWaiterSleepsOverACompletionThatAnotherThreadHandledInTheGap) {
    EventThread events(context, {3600, 0});
    completeInTheGap(events);
    auto waiter = startWaiter();
    EXPECT_TRUE(sleeps(waiter)) << "though its transfer is done";
    EXPECT_FALSE(in->pending());

    // An interrupt makes the handler leave, which wakes the waiter.
    EXPECT_TRUE(eventually([&] {
        libusb_interrupt_event_handler(context);
        return waiter.wait_for(std::chrono::milliseconds(1)) == std::future_status::ready;
    }));
}

TEST_F(LibusbLostWakeup, TheHandlersPeriodBoundsTheSleep) {
    // Long enough for the waiter to find the handler active instead of becoming the handler itself.
    EventThread events(context, {3, 0});
    completeInTheGap(events);
    auto waiter = startWaiter();
    EXPECT_EQ(waiter.wait_for(deadline), std::future_status::ready);
}

TEST_F(LibusbLostWakeup, AWaiterThatBecomesTheHandlerSleepsAsLongAsAHandlerDoes) {
    inTheGap([&] {
        bus.feed("echo", 0x81, counting(1));
        handleEvents();  // completes it; from now on nobody handles events
        EXPECT_FALSE(in->pending());
    });
    auto waiter = startWaiter();
    EXPECT_TRUE(sleeps(waiter));
    libusb_interrupt_event_handler(context);
    EXPECT_EQ(waiter.wait_for(deadline), std::future_status::ready);
}

TEST_F(LibusbLostWakeup, AnInterruptInTheGapKeepsTheNextHandlerFromSleeping) {
    inTheGap([&] {
        bus.feed("echo", 0x81, counting(1));
        handleEvents();
        libusb_interrupt_event_handler(context);
    });
    EXPECT_EQ(startWaiter().wait_for(deadline), std::future_status::ready);
}

TEST_F(LibusbLostWakeup, TheFlagArgumentClosesTheGap) {
    EventThread events(context, {3600, 0});
    int completed = 0;
    in->onCallback = [&] { __atomic_store_n(&completed, 1, __ATOMIC_RELEASE); };
    bus.onCall("libusb_handle_events_completed", [&] {
        bus.feed("echo", 0x81, counting(1));
        EXPECT_TRUE(eventually([&] { return !in->pending(); }));
        EXPECT_TRUE(eventually([&] { return libusb_event_handler_active(context) != 0; }));
    });
    ASSERT_EQ(in->submit(), 0);
    auto waiter =
        std::async(std::launch::async, [&] { return libusb_handle_events_completed(context, &completed); });
    EXPECT_EQ(waiter.wait_for(deadline), std::future_status::ready);
}

}  // namespace
}  // namespace simtest
