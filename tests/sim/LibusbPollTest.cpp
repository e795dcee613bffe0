// The drop-in: descriptors for a program's own event loop.
#include <poll.h>

#include "SimTest.h"

namespace simtest {
namespace {

class LibusbPoll : public LibusbTest {
 protected:
    // True when one of the context's descriptors becomes readable within the time.
    bool readable(std::chrono::milliseconds time = std::chrono::milliseconds(0)) {
        std::vector<pollfd> fds;
        const libusb_pollfd** all = libusb_get_pollfds(context);
        for (const libusb_pollfd** each = all; *each != nullptr; ++each) {
            fds.push_back({(*each)->fd, (*each)->events, 0});
        }
        libusb_free_pollfds(all);
        return poll(fds.data(), fds.size(), static_cast<int>(time.count())) > 0;
    }
};

TEST_F(LibusbPoll, AreReadableWhileThereIsSomethingToHandle) {
    EXPECT_FALSE(readable());
    auto* echo = open("ECHO0001");
    EXPECT_TRUE(readable());
    handleEvents();
    EXPECT_FALSE(readable());

    AsyncTransfer transfer(echo, 0x81, Bytes(64));
    EXPECT_EQ(transfer.submit(), 0);
    EXPECT_FALSE(readable(aWhile));
    bus.feed("echo", 0x81, counting(8));
    EXPECT_TRUE(readable(deadline));
    EXPECT_TRUE(transfer.pending());
    handleEvents();
    EXPECT_FALSE(transfer.pending());
    EXPECT_EQ(transfer.moved(), counting(8));
    EXPECT_FALSE(readable());

    libusb_interrupt_event_handler(context);
    EXPECT_TRUE(readable());
    handleEvents();
    bus.plug("away");
    EXPECT_TRUE(readable(deadline));
    handleEvents();
    EXPECT_FALSE(readable());
}

TEST_F(LibusbPoll, SeeWhatWasThereBeforeTheyWereAskedFor) {
    open("ECHO0001");
    EXPECT_TRUE(readable());
}

#ifdef __linux__
TEST_F(LibusbPoll, AreReadableWhenATransferTimesOut) {
    EXPECT_EQ(1, libusb_pollfds_handle_timeouts(context));
    timeval next{7, 7};
    AsyncTransfer transfer(open("ECHO0001"), 0x81, Bytes(64), 50);
    handleEvents();
    EXPECT_FALSE(readable());
    EXPECT_EQ(transfer.submit(), 0);
    EXPECT_EQ(libusb_get_next_timeout(context, &next), 0);
    EXPECT_TRUE(eventually([&] {
        if (readable(deadline)) {
            handleEvents();
        }
        return !transfer.pending();
    }));
    EXPECT_EQ(transfer.raw->status, LIBUSB_TRANSFER_TIMED_OUT);
    EXPECT_FALSE(readable());
}
#else
TEST_F(LibusbPoll, LeaveTimeOutsToTheProgramWithoutATimerDescriptor) {
    EXPECT_EQ(0, libusb_pollfds_handle_timeouts(context));
}
#endif

TEST_F(LibusbPoll, TheProgramIsToldOfTheirEnd) {
    std::vector<int> gone;
    const auto removed = [](int fd, void* data) { static_cast<std::vector<int>*>(data)->push_back(fd); };
    libusb_set_pollfd_notifiers(context, nullptr, removed, &gone);
    const libusb_pollfd** all = libusb_get_pollfds(context);
    std::vector<int> fds;
    for (const libusb_pollfd** each = all; *each != nullptr; ++each) {
        fds.push_back((*each)->fd);
        EXPECT_EQ((*each)->events, POLLIN);
    }
    libusb_free_pollfds(all);
    EXPECT_FALSE(fds.empty());
    endContext();
    EXPECT_EQ(gone, fds);
}

TEST_F(LibusbPoll, TheHolderOfTheEventsLockHandlesEvents) {
    AsyncTransfer transfer(open("ECHO0001"), 0x01, counting(3));
    EXPECT_EQ(transfer.submit(), 0);
    timeval none{0, 0};
    EXPECT_EQ(libusb_handle_events_locked(context, &none), LIBUSB_ERROR_OTHER);
    EXPECT_EQ(takeViolations().size(), 1U);
    libusb_lock_events(context);
    timeval wrong{0, -1};
    EXPECT_EQ(libusb_handle_events_locked(context, &wrong), LIBUSB_ERROR_INVALID_PARAM);
    EXPECT_EQ(libusb_handle_events_locked(context, &none), 0);
    libusb_unlock_events(context);
    EXPECT_FALSE(transfer.pending());
}

}  // namespace
}  // namespace simtest
